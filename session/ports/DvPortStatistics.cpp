// Counters and link facts of DV ports, asked of vCenter on request and
// written onto the physical, virtual and VMkernel NICs that the ports
// connect to. The switch is not named on this road: the calls go out with the
// empty process-wide reference.
#include <cstdio>

#include "Kel/Assert.h"
#include "Kel/Lock.h"
#include "messaging/HarbecTrace.h"
#include "session/connection/Exchange.h"
#include "session/ports/PortOperations.h"

namespace Harbec {

namespace {

// Link, MTU and counters of one port onto a Pnic or a Vnic, which carry the
// same attributes. A port without runtime state leaves them as they are;
// the port's own facts go beside them.
template <class Nic>
void writePortState(const Kel::Ptr<Nic>& nic, const ns2__DistributedVirtualPort* dvPort, bool blocked, double now) {
  if (blocked) nic->operStatusIs(Interface::intfOperStatusDown);
  const PortFacts facts = portFacts(*dvPort);
  nic->blockedPolicyIs(facts.blocked);
  nic->blockedInheritedIs(facts.blockedInherited);
  if (!dvPort->state || !dvPort->state->runtimeInfo) return;
  const ns2__DVPortState* state = dvPort->state;
  nic->reportedLinkIs(facts.link);
  if (blocked || !state->runtimeInfo->linkUp) {
    nic->linkStatusIs(Interface::linkStatusDown);
  } else {
    nic->linkStatusIs(Interface::linkStatusUp);
  }
  if (state->runtimeInfo->mtu) {
    HARBEC_TRACE(7, "MTU for this interface ............. " << *state->runtimeInfo->mtu);
    nic->mtuIs(static_cast<unsigned>(*state->runtimeInfo->mtu));
  }
  if (state->stats) {
    nic->statsIs(intfStatistics(*state->stats));
    nic->counterRefreshTimeIs(now);
  }
}

}  // namespace

PortFacts portFacts(const ns2__DistributedVirtualPort& port) {
  PortFacts facts;
  const ns2__BoolPolicy* policy = port.config && port.config->setting ? port.config->setting->blocked : nullptr;
  if (policy && policy->value) {
    facts.blocked = *policy->value ? "true" : "false";
    facts.blockedInherited = policy->inherited;
  }
  if (port.state && port.state->runtimeInfo)
    facts.link = port.state->runtimeInfo->linkUp ? Interface::linkStatusUp : Interface::linkStatusDown;
  return facts;
}

std::string dvPortKey(unsigned port) {
  char key[16];
  snprintf(key, sizeof key, "%u", port);
  return key;
}

Interface::IntfStatistics intfStatistics(const ns2__DistributedVirtualSwitchPortStatistics& s) {
  Interface::IntfStatistics stats;
  stats.outUcastPkts = static_cast<uint64_t>(s.packetsOutUnicast);
  stats.outMulticastPkts = static_cast<uint64_t>(s.packetsOutMulticast);
  stats.outBroadcastPkts = static_cast<uint64_t>(s.packetsOutBroadcast);
  stats.inUcastPkts = static_cast<uint64_t>(s.packetsInUnicast);
  stats.inMulticastPkts = static_cast<uint64_t>(s.packetsInMulticast);
  stats.inBroadcastPkts = static_cast<uint64_t>(s.packetsInBroadcast);
  stats.outOctets = static_cast<uint64_t>(s.bytesOutMulticast + s.bytesOutBroadcast + s.bytesOutUnicast);
  stats.inOctets = static_cast<uint64_t>(s.bytesInMulticast + s.bytesInBroadcast + s.bytesInUnicast);
  stats.inDiscards = static_cast<uint64_t>(s.packetsInDropped);
  stats.inErrors = static_cast<uint64_t>(s.packetsInException);
  stats.outDiscards = static_cast<uint64_t>(s.packetsOutDropped);
  stats.outErrors = static_cast<uint64_t>(s.packetsOutException);
  return stats;
}

// The agent merely marks that it polled; counters move only with fetches.
void HarbecSm::handleCounterUpdateRequest(const Kel::Ptr<const CounterUpdateRequest>&) {
  if (!initialized_) return;
  HARBEC_TRACE(5, instance_ << " " << __PRETTY_FUNCTION__);
}

void HarbecSm::handleFetchDvPortRequest(const Kel::Ptr<const FetchDvPortRequest>& request) {
  if (!initialized_) return;
  HARBEC_TRACE_ENTRY();
  FreeSoapMem freeSoapMem(vim_);
  {
    Kel::ActivityLockAnchor anchor;
    for (FetchDvPortRequest::DvPortIteratorConst i = request->dvPortIteratorConst(); i; ++i) {
      std::string key = dvPortKey(i.value());
      HARBEC_TRACE(8, "Adding port " << key << " to FetchDvPort List ");
      vi_->newPortIs(key, key);
    }
  }
  fetchDvPorts(this);
}

// One call for every port asked for since the last one. The keys leave
// newPort before the call and are not put back if it fails.
void fetchDvPorts(HarbecSm::Ptr sm) {
  HARBEC_TRACE_ENTRY();
  ns2__DistributedVirtualSwitchPortCriteria criteria;
  criteria.connected = &xsd_true;
  ns2__FetchDVPortsRequestType request;
  request._USCOREthis = &dvsMor;
  request.criteria = &criteria;
  VI::Ptr vi = sm->vi();
  if (vi->newPorts() == 0) return;
  criteria.portKey.reserve(vi->newPorts());
  for (VI::NewPortIterator i = vi->newPortIterator(); i; ++i) {
    HARBEC_TRACE(8, "Fetch DVPORT for " << i.key());
    criteria.portKey.push_back(i.key().str());
    vi->newPortDel(i.key());
  }
  _ns2__FetchDVPortsResponse response;
  if (!exchange(*sm, soapMsgFetchDvPorts, &VimBinding::__ns2__FetchDVPorts, request, response))
    throw SoapException(SoapException::fatalRpcException, "FetchDVPorts");
  updateCounters(sm, response);
}

// Brings the ports' state up to date on vCenter's side, then fetches them.
void HarbecSm::handleRefreshDvPortRequest(const Kel::Ptr<const RefreshDvPortRequest>& request) {
  if (!initialized_) return;
  HARBEC_TRACE_ENTRY();
  FreeSoapMem freeSoapMem(vim_);
  ns2__RefreshDVPortStateRequestType refreshRequest;
  refreshRequest._USCOREthis = &dvsMor;
  ns2__DistributedVirtualSwitchPortCriteria criteria;
  criteria.connected = &xsd_true;
  ns2__FetchDVPortsRequestType fetchRequest;
  fetchRequest._USCOREthis = &dvsMor;
  fetchRequest.criteria = &criteria;
  HARBEC_TRACE(6, "DvsMoId: " << dvsMor.__item);
  for (RefreshDvPortRequest::DvPortIteratorConst i = request->dvPortIteratorConst(); i; ++i) {
    HARBEC_TRACE(8, "PortKey: " << i.value());
    std::string key = dvPortKey(i.value());
    refreshRequest.portKeys.push_back(key);
    criteria.portKey.push_back(key);
  }

  _ns2__RefreshDVPortStateResponse refreshResponse;
  if (!exchange(*this, soapMsgRefreshDvPort, &VimBinding::__ns2__RefreshDVPortState, refreshRequest, refreshResponse))
    throw SoapException(SoapException::fatalRpcException, "RefreshDVPortState");

  _ns2__FetchDVPortsResponse fetchResponse;
  if (!exchange(*this, soapMsgFetchDvPorts, &VimBinding::__ns2__FetchDVPorts, fetchRequest, fetchResponse))
    throw SoapException(SoapException::fatalRpcException, "FetchDVPorts");
  updateCounters(this, fetchResponse);
}

void updateCounters(HarbecSm::Ptr sm, _ns2__FetchDVPortsResponse& response) {
  HARBEC_TRACE_ENTRY();
  Kel::ActivityLockAnchor anchor;
  // One time for the whole reply.
  double now = Kel::now();
  VI::Ptr vi = sm->vi();
  for (const ns2__DistributedVirtualPort* dvPort : response.returnval) {
    const ns2__DistributedVirtualSwitchPortConnectee* connectee = dvPort->connectee;
    if (connectee && connectee->connectedEntity && connectee->connectedEntity->type && connectee->type) {
      // Any blocked policy counts, whatever its value says.
      bool blocked = dvPort->config && dvPort->config->setting && dvPort->config->setting->blocked &&
                     dvPort->config->setting->blocked->value;
      const std::string& type = *connectee->type;
      const std::string& entity = connectee->connectedEntity->__item;
      Kel::String8 nicKey = connectee->nicKey ? *connectee->nicKey : std::string();
      HARBEC_TRACE(7, "Connectee type " << type);
      if (type == "pnic") {
        HARBEC_TRACE(7, entity << " " << nicKey);
        EsxHost::Ptr host = vi->esxHost(entity);
        Pnic::Ptr pnic = host ? host->pnic(nicKey) : Pnic::Ptr();
        KEL_ASSERT(pnic);
        writePortState(pnic, dvPort, blocked, now);
      } else {
        Vnic* vnic = nullptr;
        if (type == "vmVnic") {
          Vm::Ptr vm = vi->vm(entity);
          if (vm) vnic = vm->vnic(nicKey).ptr();
        } else {
          // A VMkernel NIC: on the kernel machine of the port's host.
          EsxHost::Ptr host = dvPort->proxyHost ? vi->esxHost(dvPort->proxyHost->__item) : EsxHost::Ptr();
          if (host && host->vm()) vnic = host->vm()->vnic(nicKey).ptr();
        }
        KEL_ASSERT(vnic !=__null);
        writePortState(Vnic::Ptr(vnic), dvPort, blocked, now);
      }
    }
    HARBEC_TRACE(6, "Port key " << dvPort->key);
    HARBEC_TRACE(6, "connectee " << (connectee && connectee->connectedEntity ? connectee->connectedEntity->__item
                                                                             : std::string()));
    HARBEC_TRACE(6, "nic key " << (connectee && connectee->nicKey ? *connectee->nicKey : std::string()));
  }
}

}  // namespace Harbec
