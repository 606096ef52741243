// Request and response records: all work reaches the sessions as a request
// made by a factory, filled in by its maker and read by one handler.
#pragma once
#include "Kel/Record.h"
#include "messaging/HarbecTrace.h"
#include "messaging/Enums.h"
#include "messaging/ValueTypes.h"
#include "standins/Interface.h"
#include "standins/VsDataType.h"

namespace Harbec {

#define HARBEC_WEB_SERVICE_MESSAGE_ATTRIBUTES(SCALAR, CTOR, VALUES, ENTITIES, QUEUE) \
  SCALAR(socket, Socket, unsigned, 0)                                               \
  SCALAR(targetCallback, TargetCallback, Kel::String8, Kel::String8())

class WebServiceRequest : public Kel::Entity {
  KEL_RECORD(Harbec, WebServiceRequest, Kel::Entity, HARBEC_WEB_SERVICE_MESSAGE_ATTRIBUTES)
 protected:
  explicit WebServiceRequest(const Kel::Name& n) : Kel::Entity(n) {}
};

class WebServiceResponse : public Kel::Entity {
  KEL_RECORD(Harbec, WebServiceResponse, Kel::Entity, HARBEC_WEB_SERVICE_MESSAGE_ATTRIBUTES)
 protected:
  explicit WebServiceResponse(const Kel::Name& n) : Kel::Entity(n) {}
};

#define HARBEC_SOAP_REQUEST_ATTRIBUTES(SCALAR, CTOR, VALUES, ENTITIES, QUEUE) \
  SCALAR(requestType, RequestType, SoapRequestType, unknownSoapRequestType)

class SoapRequest : public WebServiceRequest {
  KEL_RECORD(Harbec, SoapRequest, WebServiceRequest, HARBEC_SOAP_REQUEST_ATTRIBUTES)
 protected:
  explicit SoapRequest(const Kel::Name& n) : WebServiceRequest(n) {}
};

// A SOAP request whose last constructor step writes its type and marks it
// done (the initialized pattern): HARBEC_SOAP_REQUEST(T, factory, type, LIST).
#define HARBEC_SOAP_REQUEST(T, factory, typeValue, LIST)                  \
  class T : public SoapRequest {                                          \
    KEL_RECORD(Harbec, T, SoapRequest, LIST)                              \
   public:                                                                \
    void handleInitialized() {                                            \
      HARBEC_TRACE_ENTRY();                                               \
      requestTypeIs(typeValue);                                           \
      initializedIs(true);                                                \
    }                                                                     \
                                                                          \
   protected:                                                             \
    explicit T(const Kel::Name& n) : SoapRequest(n) { handleInitialized(); } \
  };                                                                      \
  KEL_FACTORY(T, factory)

#define HARBEC_COUNTER_UPDATE_REQUEST_ATTRIBUTES(SCALAR, CTOR, VALUES, ENTITIES, QUEUE) \
  SCALAR(port, Port, unsigned, 0)                                                      \
  SCALAR(intfName, IntfName, Kel::String8, Kel::String8())                             \
  SCALAR(initialized, Initialized, bool, false)
HARBEC_SOAP_REQUEST(CounterUpdateRequest, counterUpdateRequestFactory, counterUpdateRequestType,
                    HARBEC_COUNTER_UPDATE_REQUEST_ATTRIBUTES)

#define HARBEC_CONNECT_REQUEST_ATTRIBUTES(SCALAR, CTOR, VALUES, ENTITIES, QUEUE) \
  SCALAR(reconnect, Reconnect, bool, false)                                     \
  SCALAR(initialized, Initialized, bool, false)
HARBEC_SOAP_REQUEST(ConnectRequest, connectRequestFactory, connectRequestType,
                    HARBEC_CONNECT_REQUEST_ATTRIBUTES)

#define HARBEC_BLOCK_PORT_REQUEST_ATTRIBUTES(SCALAR, CTOR, VALUES, ENTITIES, QUEUE) \
  SCALAR(port, Port, unsigned, 0)                                                  \
  SCALAR(block, Block, bool, false)                                                \
  SCALAR(initialized, Initialized, bool, false)
HARBEC_SOAP_REQUEST(BlockPortRequest, blockPortRequestFactory, blockPortRequestType,
                    HARBEC_BLOCK_PORT_REQUEST_ATTRIBUTES)

#define HARBEC_CHECK_FOR_UPDATES_REQUEST_ATTRIBUTES(SCALAR, CTOR, VALUES, ENTITIES, QUEUE) \
  SCALAR(block, Block, bool, false)                                                       \
  SCALAR(initialized, Initialized, bool, false)
HARBEC_SOAP_REQUEST(CheckForUpdatesRequest, checkForUpdatesRequestFactory,
                    checkForUpdatesRequestType, HARBEC_CHECK_FOR_UPDATES_REQUEST_ATTRIBUTES)

#define HARBEC_UPDATE_HOST_NW_INFO_REQUEST_ATTRIBUTES(SCALAR, CTOR, VALUES, ENTITIES, QUEUE) \
  SCALAR(bridgeMacAddr, BridgeMacAddr, Kel::String8, Kel::String8())                        \
  SCALAR(queryAllHosts, QueryAllHosts, bool, false)                                         \
  SCALAR(initialized, Initialized, bool, false)
HARBEC_SOAP_REQUEST(UpdateHostNwInfoRequest, updateHostNwInfoRequestFactory,
                    updateHostNwInfoRequestType, HARBEC_UPDATE_HOST_NW_INFO_REQUEST_ATTRIBUTES)

#define HARBEC_DV_PORT_REQUEST_ATTRIBUTES(SCALAR, CTOR, VALUES, ENTITIES, QUEUE) \
  SCALAR(intf, Intf, Kel::String8, Kel::String8())                              \
  SCALAR(vm, Vm, Kel::String8, Kel::String8())                                  \
  SCALAR(dvsMoId, DvsMoId, Kel::String8, Kel::String8())                        \
  QUEUE(dvPort, DvPort, unsigned)                                               \
  SCALAR(initialized, Initialized, bool, false)
HARBEC_SOAP_REQUEST(FetchDvPortRequest, fetchDvPortRequestFactory, fetchDvPortRequestType,
                    HARBEC_DV_PORT_REQUEST_ATTRIBUTES)
HARBEC_SOAP_REQUEST(RefreshDvPortRequest, refreshDvPortRequestFactory, refreshDvPortRequestType,
                    HARBEC_DV_PORT_REQUEST_ATTRIBUTES)

#define HARBEC_CONNECTION_STATUS_REQUEST_ATTRIBUTES(SCALAR, CTOR, VALUES, ENTITIES, QUEUE) \
  SCALAR(initialized, Initialized, bool, false)
HARBEC_SOAP_REQUEST(ConnectionStatusRequest, connectionStatusRequestFactory,
                    connectionStatusRequestType, HARBEC_CONNECTION_STATUS_REQUEST_ATTRIBUTES)

#define HARBEC_LOG_MSG_REQUEST_ATTRIBUTES(SCALAR, CTOR, VALUES, ENTITIES, QUEUE) \
  QUEUE(logMsg, LogMsg, LogMsg)                                                 \
  SCALAR(initialized, Initialized, bool, false)
HARBEC_SOAP_REQUEST(LogMsgRequest, logMsgRequestFactory, logMsgRequestType,
                    HARBEC_LOG_MSG_REQUEST_ATTRIBUTES)

// A path template with its arguments (see toEndPoint), fetched by the REST
// session. vsDataType and requestType are fixed at construction.
#define HARBEC_REST_REQUEST_ATTRIBUTES(SCALAR, CTOR, VALUES, ENTITIES, QUEUE) \
  CTOR(vsDataType, VsDataType, VsDataType)                                   \
  CTOR(requestType, RequestType, RestRequestType)                            \
  SCALAR(endPoint, EndPoint, Kel::String8, Kel::String8())                   \
  VALUES(arg, Arg, Kel::String8, Kel::String8, Kel::HashMap)                 \
  VALUES(optionalArg, OptionalArg, Kel::String8, Kel::String8, Kel::RbTreeMap)

class RestRequest : public WebServiceRequest {
  KEL_RECORD(Harbec, RestRequest, WebServiceRequest, HARBEC_REST_REQUEST_ATTRIBUTES)
 public:
  // The endpoint with its arguments put in and the optional ones appended.
  virtual Kel::String8 toEndPoint() const;

 protected:
  RestRequest(const Kel::Name& n, VsDataType vsDataType, RestRequestType requestType)
      : WebServiceRequest(n) {
    vsDataType_ = vsDataType;
    requestType_ = requestType;
  }
};
KEL_FACTORY(RestRequest, restRequestFactory)

// Several REST requests run as one unit, keyed by their names.
#define HARBEC_BATCHED_REST_REQUEST_ATTRIBUTES(SCALAR, CTOR, VALUES, ENTITIES, QUEUE) \
  VALUES(restRequest, RestRequest, Kel::Name, RestRequest::PtrConst, Kel::HashMap)

class BatchedRestRequest : public RestRequest {
  KEL_RECORD(Harbec, BatchedRestRequest, RestRequest, HARBEC_BATCHED_REST_REQUEST_ATTRIBUTES)
 public:
  // Adds or replaces the member of the request's own name.
  void restRequestIs(const RestRequest::PtrConst& r);

 protected:
  BatchedRestRequest(const Kel::Name& n, VsDataType vsDataType, RestRequestType requestType)
      : RestRequest(n, vsDataType, requestType) {}
};
KEL_FACTORY(BatchedRestRequest, batchedRestRequestFactory)

#define HARBEC_SOAP_RESPONSE_ATTRIBUTES(SCALAR, CTOR, VALUES, ENTITIES, QUEUE) \
  SCALAR(responseType, ResponseType, SoapResponseType, unknownSoapResponseType)

class SoapResponse : public WebServiceResponse {
  KEL_RECORD(Harbec, SoapResponse, WebServiceResponse, HARBEC_SOAP_RESPONSE_ATTRIBUTES)
 protected:
  explicit SoapResponse(const Kel::Name& n) : WebServiceResponse(n) {}
};

#define HARBEC_REST_RESPONSE_ATTRIBUTES(SCALAR, CTOR, VALUES, ENTITIES, QUEUE)

class RestResponse : public WebServiceResponse {
  KEL_RECORD(Harbec, RestResponse, WebServiceResponse, HARBEC_REST_RESPONSE_ATTRIBUTES)
 protected:
  explicit RestResponse(const Kel::Name& n) : WebServiceResponse(n) {}
};
KEL_FACTORY(RestResponse, restResponseFactory)

// Beside each port's counters, what the port itself reported: its link
// (unknown without runtime state), its MTU where given, and its blocked
// policy ("" without one, else its value) with whether it was inherited.
#define HARBEC_FETCH_DV_PORT_RESPONSE_ATTRIBUTES(SCALAR, CTOR, VALUES, ENTITIES, QUEUE) \
  SCALAR(intf, Intf, Kel::String8, Kel::String8())                                     \
  SCALAR(vm, Vm, Kel::String8, Kel::String8())                                         \
  SCALAR(dvsMoId, DvsMoId, Kel::String8, Kel::String8())                               \
  VALUES(dvPortStat, DvPortStat, Kel::String8, Interface::IntfStatistics, Kel::HashMap) \
  SCALAR(initialized, Initialized, bool, false)                                        \
  VALUES(dvPortLink, DvPortLink, Kel::String8, Interface::LinkStatus, Kel::HashMap)     \
  VALUES(dvPortMtu, DvPortMtu, Kel::String8, unsigned, Kel::HashMap)                    \
  VALUES(dvPortBlocked, DvPortBlocked, Kel::String8, Kel::String8, Kel::HashMap)        \
  VALUES(dvPortBlockedInherited, DvPortBlockedInherited, Kel::String8, bool, Kel::HashMap)

class FetchDvPortResponse : public SoapResponse {
  KEL_RECORD(Harbec, FetchDvPortResponse, SoapResponse, HARBEC_FETCH_DV_PORT_RESPONSE_ATTRIBUTES)
 public:
  void handleInitialized() {
    HARBEC_TRACE_ENTRY();
    responseTypeIs(fetchDvPortResponseType);
    initializedIs(true);
  }

 protected:
  explicit FetchDvPortResponse(const Kel::Name& n) : SoapResponse(n) { handleInitialized(); }
};
KEL_FACTORY(FetchDvPortResponse, fetchDvPortResponseFactory)

}  // namespace Harbec
