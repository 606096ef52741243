// The one road of every vim25 call of the session: the call on the binding,
// and for the messages that SoapStatus reports, the bookkeeping around it
// (the message in flight, then its result). What a failure means is the
// caller's: each raises its own SoapException.
#pragma once
#include <type_traits>

#include "session/HarbecSm.h"
#include "session/connection/ReplyClock.h"
#include "session/connection/SoapStatusUpdates.h"
#include "session/connection/VimBinding.h"

namespace Harbec {

template <class Request, class Response>
using VimMethod = int (VimBinding::*)(Request*, Response*);

// One call; the gSOAP status, SOAP_OK for success.
template <class Request, class Response>
int vimCall(VimBinding* vim, VimMethod<Request, Response> method, Request& request, Response& response) {
  ReplyClock clock(vim, std::is_same_v<Request, ns2__WaitForUpdatesRequestType>);
  return (vim->*method)(&request, &response);
}

// Two messages count their failures alone: CurrentTime, and the first
// CreateCollectorForEvents of a login.
enum class Counted { always, failureOnly };

// One reported call: marked in flight, made, and counted; true for
// success. `onReply`, when given, sees a good reply before it is counted:
// where the session traces it, and where a reply that came back good may
// still be refused (a login without a session), to count as a failure.
template <class Request, class Response>
bool exchange(HarbecSm& sm, SoapMsgType type, VimMethod<Request, Response> method, Request& request,
              Response& response, Counted counted = Counted::always,
              bool (*onReply)(const Response&) = nullptr) {
  updateSoapMsgSent(sm.soapStatus(), type);
  bool ok = vimCall(sm.vim(), method, request, response) == SOAP_OK && (!onReply || onReply(response));
  if (!ok || counted == Counted::always) updateSoapStatus(sm.soapStatus(), type, ok ? soapResultOk : soapResultFailed);
  return ok;
}

}  // namespace Harbec
