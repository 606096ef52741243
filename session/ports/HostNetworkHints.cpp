// Which switch interface stands behind which host: vCenter reports, per
// physical NIC of a host, what the neighbour on the far end of the cable
// announced by CDP or LLDP. A neighbour whose device id is this switch's
// bridge MAC names, with its port id, the interface the NIC is plugged into.
#include <map>

#include "Kel/Lock.h"
#include "messaging/HarbecTrace.h"
#include "session/connection/Exchange.h"
#include "session/ports/PortOperations.h"

namespace Harbec {

namespace {

// Results of QueryNetworkHint that concern one host only (a fault from
// vCenter, for instance about a host that is down): the pass goes on.
bool concernsOneHost(int ret) {
  switch (ret) {
    case 1:
    case 2:
    case 8:
    case 12:
    case 13:
    case 39:
      return true;
    default:
      return false;
  }
}

std::string anyText(const xsd__anyType* value) {
  if (!value) return std::string();
  if (value->soap_type() == SOAP_TYPE_xsd__string) return static_cast<const xsd__string*>(value)->__item;
  return value->__item ? std::string(value->__item) : std::string();
}

// What a NIC's neighbour announced; CDP wins over LLDP.
struct Neighbour {
  bool complete = false;
  bool viaLldp = false;
  std::string devId, portId, mgmtAddr, sysName;
};

Neighbour neighbourOf(const ns2__PhysicalNicHintInfo* hint) {
  Neighbour n;
  if (const ns2__PhysicalNicCdpInfo* cdp = hint->connectedSwitchPort) {
    if (!cdp->devId || !cdp->portId) return n;
    n.devId = *cdp->devId;
    n.portId = *cdp->portId;
    if (cdp->mgmtAddr) n.mgmtAddr = *cdp->mgmtAddr;
    if (cdp->systemName) n.sysName = *cdp->systemName;
  } else if (const ns2__LinkLayerDiscoveryProtocolInfo* lldp = hint->lldpInfo) {
    if (lldp->chassisId.empty() || lldp->portId.empty()) return n;
    n.devId = lldp->chassisId;
    n.portId = lldp->portId;
    n.viaLldp = true;
    for (const ns2__KeyAnyValue* parameter : lldp->parameter) {
      if (!parameter) continue;
      if (parameter->key == "Management Address") n.mgmtAddr = anyText(parameter->value);
      if (parameter->key == "System Name") n.sysName = anyText(parameter->value);
    }
  } else {
    return n;
  }
  n.complete = true;
  return n;
}

}  // namespace

void HarbecSm::handleUpdateHostNwInfoRequest(const Kel::Ptr<const UpdateHostNwInfoRequest>& request) {
  if (!initialized_) return;
  HARBEC_TRACE(5, instance_ << " " << __PRETTY_FUNCTION__);
  FreeSoapMem freeSoapMem(vim_);

  // Host name to its network system, collected under the lock; the calls
  // go out without it.
  std::map<std::string, std::string> hosts;
  {
    Kel::ActivityLockAnchor anchor;
    if (request->queryAllHosts()) {
      for (VI::EsxHostIteratorConst i = vi_->esxHostIteratorConst(); i; ++i)
        hosts[i.key().str()] = i.value()->networkId().str();
    } else {
      // Only hosts already tied to an interface are asked.
      for (VI::IntfToEsxMapIterator i = vi_->intfToEsxMapIterator(); i; ++i) {
        EsxHost::Ptr host = vi_->esxHost(i.value()->hostRef());
        if (host) {
          hosts[host->name().str()] = host->networkId().str();
        } else {
          HARBEC_TRACE(0, "host " << i.key() << " in intftoesxmap not found ");
          i.value()->hostRefIs("");
        }
      }
    }
  }

  std::string networkSystemType = "HostNetworkSystem";
  ns2__ManagedObjectReference networkSystemRef;
  networkSystemRef.type = &networkSystemType;
  ns2__QueryNetworkHintRequestType hintRequest;
  hintRequest._USCOREthis = &networkSystemRef;
  for (const auto& [hostName, networkId] : hosts) {
    networkSystemRef.__item = networkId;
    HARBEC_TRACE(9, "NetworkInfo for " << networkId);
    _ns2__QueryNetworkHintResponse hintResponse;
    int ret = vimCall(vim_, &VimBinding::__ns2__QueryNetworkHint, hintRequest, hintResponse);
    HARBEC_TRACE(9, "ret of QueryNetworkHint is " << ret);
    // Marked once the answer is in.
    updateSoapMsgSent(soapStatus(), soapMsgNetworkHint);
    if (ret == SOAP_OK) {
      updateSoapStatus(soapStatus(), soapMsgNetworkHint, soapResultOk);
      updateNetworkInfo(vi_, hostName, hintResponse, request->bridgeMacAddr().str());
      continue;
    }
    updateSoapStatus(soapStatus(), soapMsgNetworkHint, soapResultFailed);
    const char** faultString = soap_faultstring(vim_->soap);
    HARBEC_TRACE(7, "QueryNetworkHint Error:   " << (faultString && *faultString ? *faultString : "") << " "
                                                  << ret);
    if (!concernsOneHost(ret)) throw SoapException(SoapException::recoverableRpcException, "QueryNetworkHint");
  }
}

void updateNetworkInfo(VI::Ptr vi, std::string host, _ns2__QueryNetworkHintResponse& response,
                       std::string bridgeMacAddr) {
  HARBEC_TRACE(8, __PRETTY_FUNCTION__);
  Kel::ActivityLockAnchor anchor;
  if (EsxHost::Ptr esxHost = vi->esxHost(host)) {
    for (const ns2__PhysicalNicHintInfo* hint : response.returnval) {
      Neighbour n = neighbourOf(hint);
      bool changed = false;
      if (n.complete) {
        HARBEC_TRACE(9, (n.viaLldp ? " devId " : "devId ") << n.devId << " portId " << n.portId << " host "
                                                          << esxHost->hostName() << " nic " << hint->device);
        IntfToEsxMap::Ptr intf = n.devId == bridgeMacAddr ? vi->intfToEsxMap(n.portId) : IntfToEsxMap::Ptr();
        if (intf) {
          bool sameHost = intf->hostRef() == host;
          intf->hostRefIs(host);
          intf->nwInfoRspCntIs(static_cast<uint16_t>(intf->nwInfoRspCnt() + 1));
          changed = !sameHost || intf->vmnicKey() != hint->device;
          intf->vmnicKeyIs(hint->device);
        }
      } else {
        // Without a whole record the NIC's peer is cleared.
        n = Neighbour();
      }
      Pnic::Ptr pnic = esxHost->pnic(hint->device);
      if (!pnic) continue;
      pnic->peerDevIdIs(n.devId);
      if (changed && pnic->peerIntf() == n.portId) {
        // The same value written again would tell nobody; through "" the
        // listeners of peerIntf look at the moved tie afresh.
        HARBEC_TRACE(9, "Trigger pnic refresh if intfToEsxMap changes.");
        pnic->peerIntfIs("");
      }
      pnic->peerIntfIs(n.portId);
      pnic->peerMgmtAddrIs(n.mgmtAddr);
      pnic->peerSysNameIs(n.sysName);
    }
  }
  if (vi->initialWaitForUpdate()) vi->initialSyncIs(true);
}

}  // namespace Harbec
