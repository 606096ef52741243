// Counters for a client of the host agent that waits on an open socket. The
// request names the switch, and the answer goes into a FetchDvPortResponse
// parked in VI::responsesWithCallback under the socket, for the agent to
// deliver; the inventory is left alone. On failure the socket is closed
// here, so that the client sees end of file instead of waiting for ever.
#include <signal.h>
#include <unistd.h>

#include <cerrno>
#include <cstring>

#include "Kel/Assert.h"
#include "messaging/HarbecTrace.h"
#include "session/connection/Exchange.h"
#include "session/ports/PortOperations.h"

namespace Harbec {

struct sigaction currentAction;

namespace {

// The switch that the request names, as the _this of a call.
struct NamedSwitch {
  explicit NamedSwitch(const Kel::String8& dvsMoId) {
    ref.__item = dvsMoId.str();
    ref.type = &type;
    HARBEC_TRACE(8, "DvsMoId: " << ref.__item);
  }
  std::string type = "VmwareDistributedVirtualSwitch";
  ns2__ManagedObjectReference ref;
};

// The port numbers of a request as keys, in queue order.
template <class Request>
std::vector<std::string> portKeys(const Request& request) {
  std::vector<std::string> keys;
  for (auto i = request->dvPortIteratorConst(); i; ++i) {
    HARBEC_TRACE(8, "PortKey: " << i.value());
    keys.push_back(dvPortKey(i.value()));
  }
  return keys;
}

// The two steps of closeSocket, on the failure roads below.
void closeClient(unsigned socket) {
  close(static_cast<int>(socket));
  if (sigaction(SIGPIPE, &currentAction, nullptr) == -1)
    HARBEC_TRACE(6, "Error restoring current signal action: " << strerror(errno));
}

}  // namespace

void closeSocket(U32 socket) {
  HARBEC_TRACE(8, __PRETTY_FUNCTION__ << " socket: " << socket);
  closeClient(socket);
}

void HarbecSm::handleFetchDvPortRequestWithCallback(const Kel::Ptr<const FetchDvPortRequest>& request) {
  if (!initialized_) return;
  HARBEC_TRACE(5, instance_ << " " << __PRETTY_FUNCTION__);
  KEL_ASSERT(request->socket() > 0 && "FetchDvPortRequest missing callback socket.");
  KEL_ASSERT(request->dvsMoId().size() && "FetchDvPortRequest missing DVS MoId.");
  FreeSoapMem freeSoapMem(vim_);

  NamedSwitch dvs(request->dvsMoId());
  ns2__DistributedVirtualSwitchPortCriteria criteria;
  criteria.connected = &xsd_true;
  criteria.portKey = portKeys(request);
  ns2__FetchDVPortsRequestType fetchRequest;
  fetchRequest._USCOREthis = &dvs.ref;
  fetchRequest.criteria = &criteria;

  _ns2__FetchDVPortsResponse fetchResponse;
  if (!exchange(*this, soapMsgFetchDvPorts, &VimBinding::__ns2__FetchDVPorts, fetchRequest, fetchResponse)) {
    closeClient(request->socket());
    throw SoapException(SoapException::recoverableRpcException, "FetchDVPorts");
  }

  FetchDvPortResponse::Ptr response = fetchDvPortResponseFactory("FetchDvPortResponse");
  response->socketIs(request->socket());
  response->targetCallbackIs(request->targetCallback());
  response->intfIs(request->intf());
  response->vmIs(request->vm());
  response->dvsMoIdIs(request->dvsMoId());
  HARBEC_TRACE(8, "rspMsg.returnval.size(): " << fetchResponse.returnval.size());
  for (const ns2__DistributedVirtualPort* dvPort : fetchResponse.returnval) {
    KEL_ASSERT(dvPort->connectee && "DvPort missing connectee");
    KEL_ASSERT(dvPort->connectee->type && "DvPort connectee missing type");
    KEL_ASSERT(dvPort->state && "DvPort missing state");
    KEL_ASSERT(dvPort->state->stats && "DvPort missing stats");
    KEL_ASSERT(dvPort->key.length() && "DvPort missing portKey");
    HARBEC_TRACE(7, "DvPort Key: " << dvPort->key);
    const ns2__DistributedVirtualSwitchPortStatistics& s = *dvPort->state->stats;
    HARBEC_TRACE(7, "packetsOutBroadcast: " << s.packetsOutBroadcast);
    HARBEC_TRACE(7, "packetsOutMulticast: " << s.packetsOutMulticast);
    HARBEC_TRACE(7, "packetsOutUnicast: " << s.packetsOutUnicast);
    HARBEC_TRACE(7, "packetsOutUnicast: " << s.packetsOutUnicast);
    HARBEC_TRACE(7, "packetsOutException: " << s.packetsOutException);
    HARBEC_TRACE(7, "packetsOutDropped: " << s.packetsOutDropped);
    HARBEC_TRACE(7, "packetsInBroadcast: " << s.packetsInBroadcast);
    HARBEC_TRACE(7, "packetsInMulticast: " << s.packetsInMulticast);
    HARBEC_TRACE(7, "packetsInUnicast: " << s.packetsInUnicast);
    HARBEC_TRACE(7, "packetsInUnicast: " << s.packetsInUnicast);
    HARBEC_TRACE(7, "packetsInException: " << s.packetsInException);
    HARBEC_TRACE(7, "packetsInDropped: " << s.packetsInDropped);
    response->dvPortStatIs(dvPort->key, intfStatistics(s));
    // The port's own facts beside its counters.
    const PortFacts facts = portFacts(*dvPort);
    response->dvPortLinkIs(dvPort->key, facts.link);
    response->dvPortBlockedIs(dvPort->key, facts.blocked);
    response->dvPortBlockedInheritedIs(dvPort->key, facts.blockedInherited);
    if (dvPort->state->runtimeInfo && dvPort->state->runtimeInfo->mtu)
      response->dvPortMtuIs(dvPort->key, static_cast<unsigned>(*dvPort->state->runtimeInfo->mtu));
  }
  vi_->responsesWithCallbackIs(response->socket(), response);
}

// The refresh is answered by a fetch made here directly; the fetch record
// keeps the type of the refresh.
void HarbecSm::handleRefreshDvPortRequestWithCallback(const Kel::Ptr<const RefreshDvPortRequest>& request) {
  if (!initialized_) return;
  HARBEC_TRACE(5, instance_ << " " << __PRETTY_FUNCTION__);
  KEL_ASSERT(request->socket() > 0 && "RefreshDvPortReq missing cli callback  socket.");
  KEL_ASSERT(request->dvsMoId().size() && "RefreshDvPortReq missing DVS MoId.");
  FreeSoapMem freeSoapMem(vim_);

  NamedSwitch dvs(request->dvsMoId());
  ns2__RefreshDVPortStateRequestType refreshRequest;
  refreshRequest._USCOREthis = &dvs.ref;
  refreshRequest.portKeys = portKeys(request);

  _ns2__RefreshDVPortStateResponse refreshResponse;
  if (!exchange(*this, soapMsgRefreshDvPort, &VimBinding::__ns2__RefreshDVPortState, refreshRequest, refreshResponse)) {
    closeClient(request->socket());
    throw SoapException(SoapException::recoverableRpcException, "RefreshDVPortState");
  }

  FetchDvPortRequest::Ptr fetch = fetchDvPortRequestFactory("FetchDvPortRequest");
  fetch->requestTypeIs(refreshDvPortRequestType);
  fetch->targetCallbackIs(request->targetCallback());
  fetch->socketIs(request->socket());
  fetch->intfIs(request->intf());
  fetch->vmIs(request->vm());
  fetch->dvsMoIdIs(request->dvsMoId());
  for (RefreshDvPortRequest::DvPortIteratorConst i = request->dvPortIteratorConst(); i; ++i)
    fetch->dvPortEnq(i.value());
  handleFetchDvPortRequestWithCallback(fetch);
}

}  // namespace Harbec
