// From no connection to a logged-in session: the binding, the soap context's
// settings, RetrieveServiceContent, Login and the references that all later
// calls need. No retries: the next attempt is the next ConnectRequest.
#include <resolv.h>

#include <mutex>
#include <vector>

#include "Kel/Assert.h"
#include "Kel/Lock.h"
#include "messaging/HarbecTrace.h"
#include "messaging/TextUtils.h"
#include "session/connection/ConnectLimits.h"
#include "session/connection/Exchange.h"
#include "session/connection/HarbecLog.h"
#include "session/HarbecSmInternal.h"

namespace Harbec {

namespace {

constexpr int kIoTimeoutSeconds = 180;

// Bindings live as long as the process; this list keeps them within reach.
void keep(VimBinding* vim) {
  static std::mutex* mutex = new std::mutex();
  static std::vector<VimBinding*>* bindings = new std::vector<VimBinding*>();
  std::lock_guard<std::mutex> guard(*mutex);
  bindings->push_back(vim);
}

}  // namespace

void initSoapSess(Kel::Ptr<HarbecSm>, VimBinding*& vim) {
  HARBEC_TRACE_ENTRY();
  vim = new VimBinding();
  keep(vim);
  soap_ssl_init();
}

void HarbecSm::handleConnectRequest(const Kel::Ptr<const ConnectRequest>&) {
  if (!initialized_) return;
  HARBEC_TRACE_ENTRY();
  FreeSoapMem freeSoapMem(vim_);
  if (instance_ == "UpdateThread") cleanUp(this);
  int rc = connectTovCenter(this);
  if (rc == 0 && instance_ == "UpdateThread") {
    createPropFilter(this);
    createEventFilter(this);
  }
}

int connectTovCenter(Kel::Ptr<HarbecSm> sm) {
  HARBEC_TRACE_ENTRY();
  ViConfig::PtrConst config = sm->viConfig();
  Kel::String8 url = config->url();
  Kel::String8 username = config->username();
  Kel::String8 password = config->password();
  HARBEC_TRACE(6, "VCenter URL: " << url);
  HARBEC_TRACE(6, "VCenter Username: " << username);
  HARBEC_TRACE(6, "VCenter Password: " << password);
  if (url.length() == 0 || username.length() == 0 || password.length() == 0) return -1;

  // A changed resolver configuration counts from this attempt on.
  __res_init();

  // A fresh context: whatever connection the old one held is closed, and
  // its server session is left behind without a Logout.
  VimBinding* vim = sm->vim();
  struct soap* soap = vim->soap;
  vim->freeSoapMemory();
  soap_done(soap);
  soap_init2(soap, SOAP_IO_KEEPALIVE, SOAP_IO_KEEPALIVE);
  vim->arena.attach(soap);
  // No key file and no CA: the server's certificate is not verified.
  if (soap_ssl_client_context(soap, SOAP_SSL_NO_AUTHENTICATION, nullptr, nullptr, nullptr, nullptr, nullptr)) {
    KEL_ASSERT(0);
  }
  soap_set_imode(soap, SOAP_C_UTFSTRING);
  soap_set_omode(soap, SOAP_C_UTFSTRING);
  soap->recv_timeout = kIoTimeoutSeconds;
  soap->send_timeout = kIoTimeoutSeconds;
  soap->tcp_keep_alive = 1;
  applyLimits(vim, *config);
  vim->endpointIs(url);

  std::string serviceInstance = "ServiceInstance";
  ns2__ManagedObjectReference serviceInstanceRef;
  serviceInstanceRef.__item = serviceInstance;
  serviceInstanceRef.type = &serviceInstance;
  ns2__RetrieveServiceContentRequestType contentRequest;
  contentRequest._USCOREthis = &serviceInstanceRef;
  _ns2__RetrieveServiceContentResponse contentResponse;
  if (!exchange(*sm, soapMsgServiceContent, &VimBinding::__ns2__RetrieveServiceContent, contentRequest,
                contentResponse, Counted::always, +[](const _ns2__RetrieveServiceContentResponse&) {
                  HARBEC_TRACE(6, "RetrieveServiceContent - OK");
                  return true;
                }))
    throw SoapException(SoapException::connectionException, "RetrieveServiceContent");
  serviceContent = contentResponse.returnval;
  // Counted as a success above all the same.
  if (!serviceContent || !serviceContent->sessionManager)
    throw SoapException(SoapException::connectionException, "RetrieveServiceContent");

  ns2__LoginRequestType loginRequest;
  loginRequest._USCOREthis = serviceContent->sessionManager;
  loginRequest.userName = username.str();
  loginRequest.password = password.str();
  loginRequest.locale = nullptr;
  _ns2__LoginResponse loginResponse;
  // A broken connection, too, reads as a refused login.
  if (!exchange(*sm, soapMsgLogin, &VimBinding::__ns2__Login, loginRequest, loginResponse, Counted::always,
                +[](const _ns2__LoginResponse& r) {
                  if (!r.returnval) return false;
                  HARBEC_TRACE(6, "Login Successful " << r.returnval->userName);
                  return true;
                }))
    throw SoapException(SoapException::authenticationException, "Invalid username and password.");

  copyMOR(&rootFolderRef, serviceContent->rootFolder);
  copyMOR(&propertyCollectorRef, serviceContent->propertyCollector);
  copyMOR(&eventManagerRef, serviceContent->eventManager);
  copyMOR(&alarmManagerRef, serviceContent->alarmManager);
  updateSessionStatus(sm->sessionStatus(), sessionConnected);

  // "https://vcenter.example.net/sdk": the host is the last token but one.
  std::vector<std::string> tokens;
  split(url.str(), "/", tokens);
  Kel::log(HARBEC_VCENTER_CONNECTED, tokens.size() >= 2 ? tokens[tokens.size() - 2] : std::string());
  return 0;
}

void getCurrentTimeOnvCenter(Kel::Ptr<HarbecSm> sm, time_t& t) {
  HARBEC_TRACE_ENTRY();
  std::string serviceInstance = "ServiceInstance";
  ns2__ManagedObjectReference serviceInstanceRef;
  serviceInstanceRef.__item = serviceInstance;
  serviceInstanceRef.type = &serviceInstance;
  ns2__CurrentTimeRequestType request;
  request._USCOREthis = &serviceInstanceRef;
  _ns2__CurrentTimeResponse response;
  // The success is deliberately not counted: lastMsgSent names the message
  // while the counters stay.
  if (!exchange(*sm, soapMsgCurrentTime, &VimBinding::__ns2__CurrentTime, request, response, Counted::failureOnly)) {
    Kel::log(HARBEC_COMMUNICATION_ERROR);
    throw SoapException(SoapException::fatalRpcException, "CurrentTime");
  }
  t = response.returnval;
}

int logout(VimBinding* vim) {
  HARBEC_TRACE_ENTRY();
  if (!serviceContent || !serviceContent->sessionManager) return SOAP_OK;
  ns2__LogoutRequestType request;
  request._USCOREthis = serviceContent->sessionManager;
  _ns2__LogoutResponse response;
  return vimCall(vim, &VimBinding::__ns2__Logout, request, response);
}

void copyMOR(ns2__ManagedObjectReference* dstMOR, ns2__ManagedObjectReference* srcMOR) {
  HARBEC_TRACE(8, "copyMOR " << srcMOR->__item);
  if (!dstMOR->type) dstMOR->type = new std::string();
  dstMOR->__item = srcMOR->__item;
  KEL_ASSERT(srcMOR->type && "Invalid MOR type");
  *dstMOR->type = *srcMOR->type;
}

}  // namespace Harbec
