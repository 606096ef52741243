#include "session/connection/VimBinding.h"

namespace Harbec {

// The namespace table is the stubs' global one (vim25/Namespaces.cpp), which
// soap_init2 installs in every context anyway.
VimBinding::VimBinding() : soap(soap_new()), endpoint("http://localhost:80") {
  if (soap && !soap->namespaces) soap->namespaces = namespaces;
  arena.attach(soap);
}

VimBinding::~VimBinding() {
  freeSoapMemory();
  soap_free(soap);
}

// Each operation is the one generated call, on this context and endpoint,
// with the SOAPAction of the stubs.
#define HARBEC_VIM_CALL(Method, Request, Response)                     \
  int VimBinding::__ns2__##Method(Request* request, Response* response) { \
    if (!soap) return SOAP_EOM;                                         \
    return soap_call___ns2__##Method(soap, endpoint, nullptr, request, *response); \
  }

HARBEC_VIM_CALL(CreateCollectorForEvents, ns2__CreateCollectorForEventsRequestType,
                _ns2__CreateCollectorForEventsResponse)
HARBEC_VIM_CALL(LogUserEvent, ns2__LogUserEventRequestType, _ns2__LogUserEventResponse)
HARBEC_VIM_CALL(SetCollectorPageSize, ns2__SetCollectorPageSizeRequestType, _ns2__SetCollectorPageSizeResponse)
HARBEC_VIM_CALL(QueryNetworkHint, ns2__QueryNetworkHintRequestType, _ns2__QueryNetworkHintResponse)
HARBEC_VIM_CALL(FetchDVPorts, ns2__FetchDVPortsRequestType, _ns2__FetchDVPortsResponse)
HARBEC_VIM_CALL(ReconfigureDVPort_USCORETask, ns2__ReconfigureDVPortRequestType,
                _ns2__ReconfigureDVPort_USCORETaskResponse)
HARBEC_VIM_CALL(RetrieveProperties, ns2__RetrievePropertiesRequestType, _ns2__RetrievePropertiesResponse)
HARBEC_VIM_CALL(Logout, ns2__LogoutRequestType, _ns2__LogoutResponse)
HARBEC_VIM_CALL(CreateAlarm, ns2__CreateAlarmRequestType, _ns2__CreateAlarmResponse)
HARBEC_VIM_CALL(RetrieveServiceContent, ns2__RetrieveServiceContentRequestType,
                _ns2__RetrieveServiceContentResponse)
HARBEC_VIM_CALL(WaitForUpdates, ns2__WaitForUpdatesRequestType, _ns2__WaitForUpdatesResponse)
HARBEC_VIM_CALL(Login, ns2__LoginRequestType, _ns2__LoginResponse)
HARBEC_VIM_CALL(CurrentTime, ns2__CurrentTimeRequestType, _ns2__CurrentTimeResponse)
HARBEC_VIM_CALL(CheckForUpdates, ns2__CheckForUpdatesRequestType, _ns2__CheckForUpdatesResponse)
HARBEC_VIM_CALL(CreateFilter, ns2__CreateFilterRequestType, _ns2__CreateFilterResponse)
HARBEC_VIM_CALL(RefreshDVPortState, ns2__RefreshDVPortStateRequestType, _ns2__RefreshDVPortStateResponse)

#undef HARBEC_VIM_CALL

}  // namespace Harbec
