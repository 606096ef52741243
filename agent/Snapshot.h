// A copy of what the trees hold that the view needs, in plain values, so
// that the view is computed, printed and compared without the activity
// lock. takeSnapshot is the only reader of the entities; its caller holds
// the lock. Everything is sorted by name (then reference) for stable output.
#pragma once
#include <string>
#include <vector>

#include "inventory/VI.h"
#include "standins/VsDataModel.h"

namespace HarbecAgent {

struct Neighbour {
  std::string devId, port, sysName, mgmtAddr;
  bool operator==(const Neighbour& o) const {
    return devId == o.devId && port == o.port && sysName == o.sysName && mgmtAddr == o.mgmtAddr;
  }
};

struct PnicInfo {
  std::string device, mac, uplinkPortKey;
  std::string switchId;    // the switch it uplinks, as the machines' NICs name it
  std::string switchName;  // "DVS0", "vSwitch0"; empty when on none
  std::string lag;         // the LACP group its uplink port belongs to, if any
  std::string speed, duplex, link;  // "10G", "full", "up" | "down" | "blocked" | "unknown"
  unsigned speedMb = 0;             // as vCenter reports it; 0 without link
  unsigned mtu = 0;
  Neighbour neighbour;     // what CDP or LLDP announced on its cable
};

struct HostInfo {
  std::string ref, name;
  std::vector<PnicInfo> pnics;
  // vCenter's link to the host: "connected", "notResponding",
  // "disconnected", or "" before vCenter said; what it reports of a host it
  // does not reach is as old as the loss, so its NICs' links are unknown.
  std::string connection;
  bool maintenance = false;
  bool reached() const { return connection.empty() || connection == "connected"; }
  // " [maintenance]", " [disconnected]", " [notResponding]", or "".
  std::string stateText() const;
  const PnicInfo* pnic(const std::string& device) const;
};

struct VnicInfo {
  std::string key, mac;
  std::string switchId;  // as PnicInfo::switchId: standard switches resolved per host
  std::string portKey;
  std::string portGroupKey;  // the distributed group's key, or the network's name
  std::string portGroup, vlans, link;
  // "vlan", "trunk", "pvlan", "none", or "unknown" where the port group or
  // its policy is not known; a PVLAN's primary is 0 while unknown.
  std::string vlanPolicy = "unknown";
  unsigned pvlanPrimary = 0, pvlanSecondary = 0;
};

struct VmInfo {
  std::string ref, name, hostRef, hostName;
  bool poweredOn = false;
  bool isTemplate = false;  // a template never runs: shown as such, not as "off"
  bool inVmotion = false;
  bool vmotionFailed = false;
  std::string vmotionDst;
  std::vector<VnicInfo> nics;
};

// A switch interface and the host NIC found behind it, if any; what it is
// configured to carry where the operator told it.
struct InterfaceInfo {
  std::string name, hostRef, vmnic;
  bool configured = false;
  std::string configuredVlans;
};

struct SegmentInfo {
  std::string id, name, multicast, scope;
  unsigned vni = 0;
  std::vector<std::string> portGroups;  // names where known, else keys
};

struct Snapshot {
  std::vector<InterfaceInfo> interfaces;
  std::vector<HostInfo> hosts;
  std::vector<VmInfo> vms;
  bool vshield = false;  // a vShield Manager is configured
  std::vector<SegmentInfo> segments;

  const HostInfo* host(const std::string& ref) const;
  const VmInfo* vm(const std::string& ref) const;
};

// The caller holds the activity lock. `vs` is null without vShield. The
// hosts' kernel machines are left out: they are the hosts' own NICs.
Snapshot takeSnapshot(const Harbec::VI& vi, const Harbec::VS* vs);

// "100M", "2.5G", "25G", "400G"; empty for 0.
std::string speedText(unsigned speedMb);

}  // namespace HarbecAgent
