// Messages for the people who look at vCenter: each LogMsg of a request
// goes into vCenter's event log as a user event on the root folder.
#include "Kel/Lock.h"
#include "messaging/HarbecTrace.h"
#include "session/connection/Exchange.h"
#include "session/HarbecSmInternal.h"

namespace Harbec {

void HarbecSm::handleLogMsgRequest(const Kel::Ptr<const LogMsgRequest>& req) {
  if (!initialized_) return;
  HARBEC_TRACE_ENTRY();
  FreeSoapMem freeSoapMem(vim_);
  for (LogMsgRequest::LogMsgIteratorConst i = req->logMsgIteratorConst(); i; ++i) {
    SessionState state;
    {
      Kel::ActivityLockAnchor anchor;
      state = sessionStatus()->sessionState();
    }
    // The entity and the alarm flag of a message play no part. Before a
    // login has filled the root folder, messages are dropped in silence.
    if (state == sessionConnected && rootFolderRef.type)
      logUserEvent(vim_, rootFolderRef.__item, *rootFolderRef.type, i.value().msg().str());
  }
}

void logUserEvent(VimBinding* vim, const std::string& entity, std::string& entityType, const std::string& msg) {
  HARBEC_TRACE(5, __PRETTY_FUNCTION__ << " entity: " << entity << " entityType: " << entityType
                                      << " msg: " << msg);
  ns2__ManagedObjectReference entityRef;
  entityRef.__item = entity;
  entityRef.type = &entityType;
  ns2__LogUserEventRequestType request;
  request._USCOREthis = &eventManagerRef;
  request.entity = &entityRef;
  request.msg = msg;
  _ns2__LogUserEventResponse response;
  // Not reported in SoapStatus.
  if (vimCall(vim, &VimBinding::__ns2__LogUserEvent, request, response) != SOAP_OK)
    throw SoapException(SoapException::recoverableRpcException, "LogUserEvent");
}

}  // namespace Harbec
