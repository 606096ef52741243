#include "agent/Demo.h"

#include <chrono>
#include <set>

#include "peers/VcSim.h"
#include "peers/VsmStub.h"
#include "agent/JsonWriter.h"

namespace HarbecAgent {

namespace {

const char kVcUser[] = "administrator@vsphere.local";
const char kVcPassword[] = "vmware";
const char kVsmUser[] = "admin";
const char kVsmPassword[] = "default";

std::string firstWithPrefix(const std::vector<std::string>& refs, const std::string& prefix) {
  for (const std::string& r : refs)
    if (r.rfind(prefix, 0) == 0) return r;
  return "";
}

std::string jsonText(const std::string& s) { return JsonWriter::quoted(s); }

// A neighbour record for /hints: CDP or LLDP, from one switch port.
std::string hint(const std::string& host, const std::string& device, bool cdp, const std::string& mac,
                 const std::string& port, const std::string& sysName, const std::string& mgmt) {
  std::string body = "{\"host\":" + jsonText(host) + ",\"device\":" + jsonText(device) + ",";
  if (cdp)
    return body + "\"cdp\":{\"devId\":" + jsonText(mac) + ",\"portId\":" + jsonText(port) + ",\"mgmtAddr\":" +
           jsonText(mgmt) + ",\"systemName\":" + jsonText(sysName) + "}}";
  return body + "\"lldp\":{\"chassisId\":" + jsonText(mac) + ",\"portId\":" + jsonText(port) +
         ",\"parameters\":{\"Management Address\":" + jsonText(mgmt) + ",\"System Name\":" + jsonText(sysName) + "}}}";
}

// Virtual wires backed by the given distributed port groups, as vShield
// Manager lists them.
std::string virtualWires(const std::vector<std::string>& portGroups, const std::string& dvs) {
  static const char* const names[] = {"web-tier", "app-tier", "db-tier", "backup"};
  std::string xml = "<virtualWires><dataPage>";
  for (size_t i = 0; i < portGroups.size() && i < 4; ++i) {
    std::string n = std::to_string(i + 1);
    xml += "<virtualWire><objectId>virtualwire-" + n + "</objectId><revision>1</revision><name>" +
           std::string(names[i]) + "</name><description>demo segment</description>" +
           "<vdnScopeId>vdnscope-1</vdnScopeId><vdsContextWithBacking><switch><objectId>" + dvs +
           "</objectId></switch><backingValue>" + portGroups[i] + "</backingValue></vdsContextWithBacking>" +
           "<vdnId>" + std::to_string(5001 + i) + "</vdnId><multicastAddr>239.1.1." + n +
           "</multicastAddr></virtualWire>";
  }
  return xml + "</dataPage></virtualWires>";
}

}  // namespace

struct Demo::Peers {
  vcsim::Simulator vc{kVcUser, kVcPassword};
  vsmstub::Stub vsm;
};

Demo::Demo() = default;
Demo::~Demo() { stop(); }

void Demo::stop() {
  stopPlaying_ = true;
  if (player_.joinable()) player_.join();
  peers_.reset();
}

void Demo::start(Settings& settings) {
  peers_ = std::make_unique<Peers>();
  vcsim::Simulator& vc = peers_->vc;

  std::vector<std::string> refs = peer::values(vc.call("GET", "/inventory"), "ref");
  dvsRef_ = firstWithPrefix(refs, "dvs-");
  busyHostRef_ = firstWithPrefix(refs, "host-");
  std::string network = firstWithPrefix(refs, "network-");
  // A machine on the standard switch, and one powered off.
  if (!network.empty() && !busyHostRef_.empty())
    vc.call("POST", "/vm/create",
            "{\"name\":\"build-runner\",\"host\":" + jsonText(busyHostRef_) + ",\"network\":" + jsonText(network) +
                ",\"powerOn\":true}");
  std::string vm = firstWithPrefix(refs, "vm-");
  if (!vm.empty()) vc.call("POST", "/vm/power", "{\"vm\":" + jsonText(vm) + ",\"state\":\"poweredOff\"}");

  Options& o = settings.options;
  o.vcenterUrl = vc.url;
  o.vcenterUser = kVcUser;
  settings.vcenterPassword = kVcPassword;
  o.vsmUrl = peers_->vsm.url;
  o.vsmUser = kVsmUser;
  settings.vsmPassword = kVsmPassword;
  if (o.bridgeMac.empty()) o.bridgeMac = kBridgeMac;
  bridgeMac_ = o.bridgeMac;
}

void Demo::announce(const Snapshot& s) {
  vcsim::Simulator& vc = peers_->vc;
  // Every host but one is cabled to this switch: its distributed switch
  // uplink announces this switch over CDP, its standard switch uplink over
  // LLDP. The one left over hangs on another switch.
  const HostInfo* elsewhere = nullptr;
  for (auto h = s.hosts.rbegin(); h != s.hosts.rend() && !elsewhere; ++h)
    if (h->ref != busyHostRef_ || s.hosts.size() == 1) elsewhere = &*h;
  elsewhereRef_ = elsewhere ? elsewhere->ref : "";
  unsigned port = 1;
  for (const HostInfo& h : s.hosts) {
    for (const PnicInfo& p : h.pnics) {
      bool cdp = !p.uplinkPortKey.empty();
      if (&h == elsewhere)
        vc.call("POST", "/hints", hint(h.ref, p.device, false, "00:1c:73:00:00:99", "Ethernet" + std::to_string(port++),
                                       "spine2", "10.0.0.2"));
      else
        vc.call("POST", "/hints", hint(h.ref, p.device, cdp, bridgeMac_, "Ethernet" + std::to_string(port++),
                                       kSwitchName, "10.0.0.1"));
    }
  }

  std::set<std::string> keys;
  for (const VmInfo& v : s.vms)
    for (const VnicInfo& n : v.nics)
      if (n.portGroupKey.rfind("dvportgroup-", 0) == 0) keys.insert(n.portGroupKey);
  std::vector<std::string> portGroups(keys.begin(), keys.end());
  peers_->vsm.answer(
      "[{\"path\":\"api/2.0/global/heartbeat\",\"generate\":{\"kind\":\"heartbeat\"}},"
      "{\"path\":\"api/2.0/vdn/virtualwires\",\"body\":" + jsonText(virtualWires(portGroups, dvsRef_)) + "},"
      "{\"path\":\"api/2.0/vdn/scopes\",\"generate\":{\"kind\":\"vdnScopes\",\"count\":1}},"
      "{\"path\":\"api/2.0/vdn/config/segments\",\"generate\":{\"kind\":\"segmentRanges\",\"count\":1}},"
      "{\"path\":\"api/2.0/vdn/config/multicasts\",\"generate\":{\"kind\":\"multicastRanges\",\"count\":1}},"
      "{\"path\":\"api/2.0/vdn/switches\",\"generate\":{\"kind\":\"clusterMappings\",\"count\":1}}]");
}


void Demo::playChanges(const Snapshot& s) {
  // A powered-on machine with a port on the distributed switch, on a host
  // cabled to this switch (see announce), and another such host to migrate
  // it to.
  const VmInfo* vm = nullptr;
  const HostInfo* home = nullptr;
  const HostInfo* away = nullptr;
  for (const VmInfo& v : s.vms) {
    const HostInfo* h = s.host(v.hostRef);
    const PnicInfo* uplink = h ? h->pnic("vmnic1") : nullptr;
    if (vm || !v.poweredOn || v.nics.empty() || v.nics[0].portKey.empty() || !uplink || h->ref == elsewhereRef_)
      continue;
    vm = &v;
    home = h;
  }
  for (const HostInfo& h : s.hosts) {
    const PnicInfo* uplink = h.pnic("vmnic1");
    if (home && &h != home && uplink && h.ref != elsewhereRef_) away = &h;
  }
  if (!vm || !away || dvsRef_.empty()) return;

  const std::string ref = vm->ref, from = home->ref, to = away->ref, port = home->pnic("vmnic1")->uplinkPortKey;
  auto event = [](const std::string& type, const std::string& fields) {
    return "{\"type\":\"" + type + "\"," + fields + "}";
  };
  std::vector<std::pair<std::string, std::string>> steps = {
      {"/vm/power", "{\"vm\":" + jsonText(ref) + ",\"state\":\"poweredOff\"}"},
      {"/events", event("VmBeingHotMigratedEvent", "\"vm\":" + jsonText(ref) + ",\"destHost\":" + jsonText(to))},
      {"/vm/migrate", "{\"vm\":" + jsonText(ref) + ",\"host\":" + jsonText(to) + "}"},
      {"/events", event("VmMigratedEvent", "\"vm\":" + jsonText(ref) + ",\"host\":" + jsonText(to) +
                                               ",\"sourceHost\":" + jsonText(from))},
      // Seen with the next port counters.
      {"/ports", "{\"dvs\":" + jsonText(dvsRef_) + ",\"key\":" + jsonText(port) + ",\"linkUp\":false}"},
      {"/ports", "{\"dvs\":" + jsonText(dvsRef_) + ",\"key\":" + jsonText(port) + ",\"linkUp\":true}"},
      {"/events", event("VmBeingHotMigratedEvent", "\"vm\":" + jsonText(ref) + ",\"destHost\":" + jsonText(from))},
      {"/vm/migrate", "{\"vm\":" + jsonText(ref) + ",\"host\":" + jsonText(from) + "}"},
      {"/events", event("VmMigratedEvent", "\"vm\":" + jsonText(ref) + ",\"host\":" + jsonText(from) +
                                               ",\"sourceHost\":" + jsonText(to))},
      {"/vm/power", "{\"vm\":" + jsonText(ref) + ",\"state\":\"poweredOn\"}"},
  };
  vcsim::Simulator* vc = &peers_->vc;
  player_ = std::thread([this, vc, steps] {
    for (size_t i = 0; !stopPlaying_; i = (i + 1) % steps.size()) {
      for (int t = 0; t < 40 && !stopPlaying_; ++t) std::this_thread::sleep_for(std::chrono::milliseconds(100));
      if (stopPlaying_) return;
      try {
        vc->call("POST", steps[i].first, steps[i].second);
      } catch (const std::exception&) {
        return;  // the simulator has gone
      }
    }
  });
}

}  // namespace HarbecAgent
