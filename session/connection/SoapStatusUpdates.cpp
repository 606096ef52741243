#include "session/connection/SoapStatusUpdates.h"

#include "Kel/Assert.h"
#include "Kel/Lock.h"
#include "messaging/HarbecTrace.h"

namespace Harbec {

Kel::String8 soapMsgDisplay(SoapMsgType type) { return stringValue(type); }

void updateSoapMsgSent(Kel::Ptr<SoapStatus> soapStatus, SoapMsgType type) {
  HARBEC_TRACE_ENTRY();
  HARBEC_TRACE(6, "msgType: " << type);
  Kel::ActivityLockAnchor anchor;
  soapStatus->lastMsgSentIs(soapMsgDisplay(type));
  soapStatus->lastMsgSentTimeIs(Kel::now());
}

void updateSoapStatus(Kel::Ptr<SoapStatus> soapStatus, SoapMsgType type, SoapResult result) {
  HARBEC_TRACE_ENTRY();
  HARBEC_TRACE(6, "msgType: " << type);
  HARBEC_TRACE(6, "result: " << result);
  Kel::ActivityLockAnchor anchor;
  Kel::String8 displaySoapMsg = soapMsgDisplay(type);
  if (result == soapResultOk) {
    soapStatus->lastRoundTripTimeIs(Kel::now() - soapStatus->lastMsgSentTime());
    soapStatus->successCountIs(soapStatus->successCount() + 1);
    KEL_ASSERT(displaySoapMsg == soapStatus->lastMsgSent());
    soapStatus->lastSuccessMsgIs(displaySoapMsg);
    soapStatus->lastSuccessMsgSentTimeIs(soapStatus->lastMsgSentTime());
  } else {
    soapStatus->lastRoundTripTimeIs(0.0);
    soapStatus->failureCountIs(soapStatus->failureCount() + 1);
    KEL_ASSERT(displaySoapMsg == soapStatus->lastMsgSent());
    soapStatus->lastFailedMsgIs(displaySoapMsg);
    soapStatus->lastFailedMsgSentTimeIs(soapStatus->lastMsgSentTime());
  }
  soapStatus->lastResponseTimeIs(Kel::now());
}

void updateSoapError(Kel::Ptr<SoapStatus> soapStatus, std::string message) {
  HARBEC_TRACE_ENTRY();
  Kel::ActivityLockAnchor anchor;
  soapStatus->lastErrorIs(message);
}

void updateSoapFailureDetail(Kel::Ptr<SoapStatus> soapStatus, const std::string& words) {
  Kel::ActivityLockAnchor anchor;
  soapStatus->lastFailureDetailIs(words);
}

}  // namespace Harbec
