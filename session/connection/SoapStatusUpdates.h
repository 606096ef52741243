// The exchange statistics of the vCenter session on SoapStatus. Every
// reported vim25 call is bracketed: updateSoapMsgSent, the call, then
// updateSoapStatus with its result. Each function works under the activity
// lock.
#pragma once
#include <string>

#include "Kel/Enum.h"
#include "standins/Status.h"

namespace Harbec {

// The vim25 message in SoapStatus. LogUserEvent, CreateAlarm,
// ReconfigureDVPort and Logout are not reported.
#define HARBEC_SOAP_MSG_TYPE_VALUES(V) \
  V(soapMsgUpdates, 1)        /* WaitForUpdates, CheckForUpdates */ \
  V(soapMsgCreateCollector, 2) \
  V(soapMsgCreateFilter, 3)    \
  V(soapMsgFetchDvPorts, 4)    \
  V(soapMsgRefreshDvPort, 5)   \
  V(soapMsgLogin, 6)           \
  V(soapMsgSetPageSize, 7)     \
  V(soapMsgServiceContent, 9)  \
  V(soapMsgNetworkHint, 10)    \
  V(soapMsgCurrentTime, 11)
KEL_ENUM(SoapMsgType, "SoapMsgType", "SoapMsgType", HARBEC_SOAP_MSG_TYPE_VALUES)

// Any value other than soapResultOk counts as a failure.
#define HARBEC_SOAP_RESULT_VALUES(V) V(soapResultOk, 0) V(soapResultFailed, 1)
KEL_ENUM(SoapResult, "SoapResult", "SoapResult", HARBEC_SOAP_RESULT_VALUES)

// The text that stands for a message in SoapStatus: its name.
Kel::String8 soapMsgDisplay(SoapMsgType type);

// The message is in flight from now on.
void updateSoapMsgSent(Kel::Ptr<SoapStatus> soapStatus, SoapMsgType type);
// Counts the answer to the message in flight. Asserts that it is the one.
void updateSoapStatus(Kel::Ptr<SoapStatus> soapStatus, SoapMsgType type, SoapResult result);
// Keeps the text of the last fault.
void updateSoapError(Kel::Ptr<SoapStatus> soapStatus, std::string message);
// Keeps the last failure told for an operator (see FailureWords.h).
void updateSoapFailureDetail(Kel::Ptr<SoapStatus> soapStatus, const std::string& words);

}  // namespace Harbec
