// The binding over the generated vim25 client stubs, and the guard that
// gives the memory of a soap context back.
#pragma once
#include <exception>

#include "Kel/String8.h"
#include "soapH.h"
#include "vim25/SoapArena.h"

namespace Harbec {

// One soap context and the endpoint it calls. Each operation makes one call
// and returns the gSOAP status, 0 for success; SOAP_EOM without a context.
class VimBinding {
 public:
  VimBinding();
  virtual ~VimBinding();
  VimBinding(const VimBinding&) = delete;
  VimBinding& operator=(const VimBinding&) = delete;

  virtual int __ns2__CreateCollectorForEvents(ns2__CreateCollectorForEventsRequestType* request,
                                              _ns2__CreateCollectorForEventsResponse* response);
  virtual int __ns2__LogUserEvent(ns2__LogUserEventRequestType* request, _ns2__LogUserEventResponse* response);
  virtual int __ns2__SetCollectorPageSize(ns2__SetCollectorPageSizeRequestType* request,
                                          _ns2__SetCollectorPageSizeResponse* response);
  virtual int __ns2__QueryNetworkHint(ns2__QueryNetworkHintRequestType* request,
                                      _ns2__QueryNetworkHintResponse* response);
  virtual int __ns2__FetchDVPorts(ns2__FetchDVPortsRequestType* request, _ns2__FetchDVPortsResponse* response);
  virtual int __ns2__ReconfigureDVPort_USCORETask(ns2__ReconfigureDVPortRequestType* request,
                                                  _ns2__ReconfigureDVPort_USCORETaskResponse* response);
  virtual int __ns2__RetrieveProperties(ns2__RetrievePropertiesRequestType* request,
                                        _ns2__RetrievePropertiesResponse* response);
  virtual int __ns2__Logout(ns2__LogoutRequestType* request, _ns2__LogoutResponse* response);
  virtual int __ns2__CreateAlarm(ns2__CreateAlarmRequestType* request, _ns2__CreateAlarmResponse* response);
  virtual int __ns2__RetrieveServiceContent(ns2__RetrieveServiceContentRequestType* request,
                                            _ns2__RetrieveServiceContentResponse* response);
  virtual int __ns2__WaitForUpdates(ns2__WaitForUpdatesRequestType* request, _ns2__WaitForUpdatesResponse* response);
  virtual int __ns2__Login(ns2__LoginRequestType* request, _ns2__LoginResponse* response);
  virtual int __ns2__CurrentTime(ns2__CurrentTimeRequestType* request, _ns2__CurrentTimeResponse* response);
  virtual int __ns2__CheckForUpdates(ns2__CheckForUpdatesRequestType* request,
                                     _ns2__CheckForUpdatesResponse* response);
  virtual int __ns2__CreateFilter(ns2__CreateFilterRequestType* request, _ns2__CreateFilterResponse* response);
  virtual int __ns2__RefreshDVPortState(ns2__RefreshDVPortStateRequestType* request,
                                        _ns2__RefreshDVPortStateResponse* response);

  // Points the endpoint at the characters of the configured URL. They are
  // shared, not copied, and held here so that a later change of the
  // configuration leaves them in place until the next connect.
  // Destroys what the context deserialised or allocated and gives its
  // memory back, the arena's included.
  void freeSoapMemory() {
    soap_delete(soap, nullptr);
    soap_end(soap);
    arena.rewind();
  }

  void endpointIs(const Kel::String8& url) {
    endpointUrl_ = url;
    endpoint = endpointUrl_.charPtr();
  }

  struct soap* soap;
  const char* endpoint;
  // Where the context's replies are built; see vim25/SoapArena.h.
  Vim25::SoapArena arena;
  // Seconds a reply may take; 0: no bound (see ReplyClock.h).
  double replyTimeout = 0;

 private:
  Kel::String8 endpointUrl_;
};

// Frees everything the soap context deserialised or allocated since the
// last clean-up when its scope is left. A scope left by an exception keeps
// it: the fault of the failed call is read by handleSoapException, after
// which processSoapRequest frees it all.
class FreeSoapMem {
 public:
  explicit FreeSoapMem(VimBinding* vim) : vim_(vim), uncaught_(std::uncaught_exceptions()) {}
  ~FreeSoapMem() {
    if (std::uncaught_exceptions() > uncaught_) return;
    vim_->freeSoapMemory();
  }
  FreeSoapMem(const FreeSoapMem&) = delete;
  FreeSoapMem& operator=(const FreeSoapMem&) = delete;

 private:
  VimBinding* vim_;
  int uncaught_;
};

}  // namespace Harbec
