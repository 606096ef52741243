// Enumerations of the web-service records and of the inventory.
#pragma once
#include "Kel/Enum.h"

namespace Harbec {

#define HARBEC_SOAP_REQUEST_TYPE_VALUES(V) \
  V(unknownSoapRequestType, 0)             \
  V(counterUpdateRequestType, 1)           \
  V(connectRequestType, 2)                 \
  V(blockPortRequestType, 3)               \
  V(checkForUpdatesRequestType, 4)         \
  V(updateHostNwInfoRequestType, 5)        \
  V(fetchDvPortRequestType, 6)             \
  V(refreshDvPortRequestType, 7)           \
  V(connectionStatusRequestType, 8)        \
  V(logMsgRequestType, 9)
KEL_ENUM(SoapRequestType, "SoapRequestType", "SoapRequestType", HARBEC_SOAP_REQUEST_TYPE_VALUES)

#define HARBEC_SOAP_RESPONSE_TYPE_VALUES(V) \
  V(unknownSoapResponseType, 0)             \
  V(fetchDvPortResponseType, 1)
KEL_ENUM(SoapResponseType, "SoapResponseType", "SoapResponseType", HARBEC_SOAP_RESPONSE_TYPE_VALUES)

#define HARBEC_REST_REQUEST_TYPE_VALUES(V) \
  V(unknownRestRequestType, 0)             \
  V(httpGET, 1)                            \
  V(httpPUT, 2)                            \
  V(httpPOST, 3)                           \
  V(httpDELETE, 4)
KEL_ENUM(RestRequestType, "RestRequestType", "RestRequestType", HARBEC_REST_REQUEST_TYPE_VALUES)

#define HARBEC_FT_STATUS_VALUES(V) V(ftDisabled, 0) V(ftActive, 1) V(ftStandby, 2)
KEL_ENUM(FTStatus, "FTStatus", "FTStatus", HARBEC_FT_STATUS_VALUES)

#define HARBEC_PEER_TYPE_VALUES(V) V(virtualMachineNic, 0) V(vmKernelNic, 1)
KEL_ENUM(PeerType, "PeerType", "PeerType", HARBEC_PEER_TYPE_VALUES)

}  // namespace Harbec
