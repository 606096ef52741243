// Blocking and unblocking of DV ports through ReconfigureDVPort_Task. The
// switch is not named: the request goes out with the empty process-wide
// reference, and the task vCenter answers with is not waited for.
#include "messaging/HarbecTrace.h"
#include "session/connection/Exchange.h"
#include "session/ports/PortOperations.h"

namespace Harbec {

void blockPort(HarbecSm::Ptr sm, Kel::String8 portKey, bool block) {
  HARBEC_TRACE(5, __PRETTY_FUNCTION__ << "portKey: " << portKey << " block: " << block);
  std::string key = portKey.str();
  ns2__BoolPolicy blocked;
  blocked.inherited = false;
  blocked.value = &block;
  ns2__DVPortSetting setting;
  setting.blocked = &blocked;
  ns2__DVPortConfigSpec spec;
  spec.operation = "edit";
  spec.key = &key;
  spec.setting = &setting;
  ns2__ReconfigureDVPortRequestType request;
  request._USCOREthis = &dvsMor;
  request.port.push_back(&spec);
  HARBEC_TRACE(5, "BlockDvPort: Port " << key << " " << block);
  _ns2__ReconfigureDVPort_USCORETaskResponse response;
  // Not reported in SoapStatus. Success means that vCenter took the call.
  if (vimCall(sm->vim(), &VimBinding::__ns2__ReconfigureDVPort_USCORETask, request, response) != SOAP_OK)
    throw SoapException(SoapException::fatalRpcException, "ReconfigureDVPort");
}

void HarbecSm::handleBlockPortRequest(const Kel::Ptr<const BlockPortRequest>& request) {
  HARBEC_TRACE(5, instance_ << " " << __PRETTY_FUNCTION__);
  if (!initialized_) return;
  blockPort(this, dvPortKey(request->port()), request->block());
}

}  // namespace Harbec
