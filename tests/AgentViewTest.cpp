// The host agent's view on hand-built trees: which machines stand behind
// each switch interface, over distributed and standard switches, the VLANs
// the interface must carry, what no interface reaches, the vShield
// segments; the text and JSON renderings; the changes of the live mode.
#include <gtest/gtest.h>

#include "agent/Changes.h"
#include "agent/JsonWriter.h"
#include "agent/SwitchView.h"
#include "agent/VlanSet.h"
#include "peers/PeerProcess.h"

using namespace Harbec;
using namespace HarbecAgent;

namespace {

const char kMac[] = "00:1c:73:aa:bb:cc";
const char kDvsUuid[] = "50 1a 2b 3c-4d 5e";
const char kVswitch[] = "key-vim.host.VirtualSwitch-vSwitch0";

Vm::Ptr machine(const VI::Ptr& vi, const char* ref, const char* name, const char* host, bool on) {
  Vm::Ptr vm = vi->vmIs(ref);
  vm->vmNameIs(name);
  vm->hostRefIs(host);
  vm->powerStateIs(on);
  return vm;
}

void dvNic(const Vm::Ptr& vm, const char* key, const char* mac, const char* pg, const char* port) {
  Vnic::Ptr nic = vm->vnicIs(key);
  nic->macAddressIs(mac);
  nic->switchIdIs(kDvsUuid);
  nic->portGroupIs(pg);
  nic->portKeyIs(port);
}

// esx-a carries web1 and db1 on DVS0 (uplink vmnic1, behind Ethernet1) and
// runner on vSwitch0 (uplink vmnic0, behind Ethernet2); esx-b and its VM
// hang on no interface; Ethernet9 has no host.
struct Trees {
  VI::Ptr vi = vIFactory("vi");
  VS::Ptr vs = vSFactory("vs");

  Trees() {
    PortGroup::Ptr web = vi->portGroupIs("dvportgroup-13");
    web->pgNameIs("Web");
    web->accessVlanIdIs("100");
    PortGroup::Ptr db = vi->portGroupIs("dvportgroup-14");
    db->pgNameIs("Db");
    db->trunkIs(true);
    db->trunkAllowedVlansIs("200-210,100");

    EsxHost::Ptr a = vi->esxHostIs("host-1", 1u);
    a->hostNameIs("esx-a");
    Pnic::Ptr uplink = a->pnicIs("vmnic1", 1);
    uplink->switchIdIs(kDvsUuid);
    uplink->dvsNameIs("DVS0");
    uplink->uplinkPortKeyIs("7");
    uplink->linkSpeedMbIs(10000);
    uplink->duplexIs(Interface::ethDuplexFull);
    uplink->peerDevIdIs(kMac);
    uplink->peerIntfIs("Ethernet1");
    uplink->peerSysNameIs("leaf1");
    Pnic::Ptr local = a->pnicIs("vmnic0", 2);
    local->switchIdIs(std::string(kVswitch) + "host-1");
    a->vswitchIs(std::string(kVswitch) + "host-1", "vSwitch0");
    PortGroup::Ptr vmNetwork = a->portGroupIs("key-vim.host.PortGroup-VM Networkhost-1");
    vmNetwork->pgNameIs("VM Network");
    vmNetwork->switchRefIs(kVswitch);
    Vm::Ptr kernel = vi->vmIs("host-1");
    kernel->vmNameIs("VMKernel");
    a->vmIs(kernel);

    EsxHost::Ptr b = vi->esxHostIs("host-2", 2u);
    b->hostNameIs("esx-b");
    b->pnicIs("vmnic1", 1)->switchIdIs(kDvsUuid);

    dvNic(machine(vi, "vm-1", "web1", "host-1", true), "4000", "00:50:56:00:00:01", "dvportgroup-13", "11");
    Vm::Ptr db1 = machine(vi, "vm-2", "db1", "host-1", false);
    dvNic(db1, "4000", "00:50:56:00:00:02", "dvportgroup-14", "12");
    db1->vmotionDstIs("host-2");
    db1->inVmotionIs(true);
    Vnic::Ptr std = machine(vi, "vm-3", "runner", "host-1", true)->vnicIs("4000");
    std->macAddressIs("00:50:56:00:00:03");
    std->portGroupIs("VM Network");
    dvNic(machine(vi, "vm-4", "lonely", "host-2", true), "4000", "00:50:56:00:00:04", "dvportgroup-13", "13");

    IntfToEsxMap::Ptr e1 = vi->intfToEsxMapIs("Ethernet1");
    e1->hostRefIs("host-1");
    e1->vmnicKeyIs("vmnic1");
    IntfToEsxMap::Ptr e2 = vi->intfToEsxMapIs("Ethernet2");
    e2->hostRefIs("host-1");
    e2->vmnicKeyIs("vmnic0");
    vi->intfToEsxMapIs("Ethernet9");

    VxlanSegment::Ptr wire = vs->vxlanSegmentIs("virtualwire-1", vsVxlanSegment);
    wire->displayNameIs("web-tier");
    wire->vniIs(5001);
    Brindle::IpAddr group;
    group.stringValueIs("239.1.1.1");
    wire->multicastIpAddrIs(group);
    wire->dvsPortGroupIs("dvportgroup-13", true);
    wire->dvsPortGroupIs("dvportgroup-99", false);
  }
  Snapshot snapshot() const { return takeSnapshot(*vi, vs.ptr()); }
};

std::vector<std::string> vmNames(const InterfaceView& iv) {
  std::vector<std::string> out;
  for (const AttachedVm& a : iv.vms) out.push_back(a.vm->name + "/" + a.nic->portGroup);
  return out;
}

}  // namespace

TEST(AgentView, VlanSetsReadPortGroupTextsAndPrintRanges) {
  VlanSet s;
  EXPECT_TRUE(s.empty());
  s.add("200-210,100");
  s.add("101");
  s.add("4090-5000,x,0-2");
  EXPECT_EQ(s.text(), "1-2,100-101,200-210,4090-4094");
  EXPECT_FALSE(s.untagged());
  s.add("");
  EXPECT_EQ(s.text(), "untagged,1-2,100-101,200-210,4090-4094");
  VlanSet t;
  t.add("7");
  t.add(s);
  EXPECT_TRUE(t.contains(7) && t.contains(4094) && !t.contains(3));
  VlanSet u;
  u.add(s.text());
  EXPECT_EQ(u, s) << "its own text reads back";
  VlanSet few;
  few.add("1-2,7,untagged");
  EXPECT_EQ(t.minus(few).text(), "100-101,200-210,4090-4094");
  EXPECT_EQ(few.minus(t).text(), "");
}

TEST(AgentView, InterfacesCarryTheMachinesOfTheirUplinksSwitch) {
  Trees trees;
  Snapshot s = trees.snapshot();
  ASSERT_EQ(s.vms.size(), 4u) << "the kernel machine is the host's own, not a VM";
  SwitchView view = switchView(s);
  ASSERT_EQ(view.interfaces.size(), 3u);

  const InterfaceView& e1 = view.interfaces[0];
  EXPECT_EQ(e1.intf->name, "Ethernet1");
  ASSERT_TRUE(e1.pnic);
  EXPECT_EQ(e1.pnic->switchName, "DVS0");
  EXPECT_EQ(e1.pnic->link, "up");
  EXPECT_EQ(vmNames(e1), (std::vector<std::string>{"db1/Db", "web1/Web"}));
  EXPECT_EQ(e1.vlans.text(), "100,200-210");

  const InterfaceView& e2 = view.interfaces[1];
  EXPECT_EQ(e2.pnic->switchName, "vSwitch0");
  EXPECT_EQ(vmNames(e2), (std::vector<std::string>{"runner/VM Network"}));
  EXPECT_EQ(e2.vlans.text(), "untagged");

  EXPECT_FALSE(view.interfaces[2].host);
  ASSERT_EQ(view.unreachedHosts.size(), 1u);
  EXPECT_EQ(view.unreachedHosts[0]->name, "esx-b");
  ASSERT_EQ(view.unreachedVms.size(), 1u);
  EXPECT_EQ(view.unreachedVms[0]->name, "lonely");
  EXPECT_EQ(migrationText(*s.vm("vm-2"), s), "to esx-b");

  ASSERT_EQ(s.segments.size(), 1u);
  EXPECT_EQ(s.segments[0].portGroups, std::vector<std::string>{"Web"}) << "members only, by name";
  EXPECT_EQ(s.segments[0].multicast, "239.1.1.1");
}

// Where the operator told what an interface carries today: what it lacks
// and what nobody behind it needs; an empty list carries nothing.
TEST(AgentView, ConfiguredVlansAgainstTheNeededOnes) {
  Trees trees;
  Snapshot s = trees.snapshot();
  s.interfaces[0].configured = s.interfaces[1].configured = true;
  s.interfaces[0].configuredVlans = "untagged,100,300";
  s.interfaces[1].configuredVlans = "";
  SwitchView view = switchView(s);
  EXPECT_EQ(view.interfaces[0].missing.text(), "200-210");
  EXPECT_EQ(view.interfaces[0].unneeded.text(), "untagged,300");
  EXPECT_EQ(view.interfaces[1].missing.text(), "untagged");
  std::string text = renderText(s);
  EXPECT_NE(text.find("  Configured: untagged,100,300; missing: 200-210; needed by none: untagged,300\n"),
            std::string::npos) << text;
  EXPECT_NE(text.find("  Configured: none; missing: untagged; needed by none: none\n"), std::string::npos) << text;
  std::string json = renderJson(s, false);
  EXPECT_NE(json.find("\"configuredVlans\":\"untagged,100,300\",\"missingVlans\":\"200-210\",\"unneededVlans\":\"untagged,300\""),
            std::string::npos) << json;
  EXPECT_EQ(json.find("configuredVlans", json.find("Ethernet9")), std::string::npos) << "only where told";
}

// Any rate by its raw figure; a PVLAN carries its primary and secondary; a
// card on an opaque network has VLANs nobody knows, and says so; the link
// is the port's own unless it is blocked, and a policy of false blocks
// nothing.
TEST(AgentView, RatesPvlansUnknownNetworksAndBlockedPorts) {
  const std::vector<std::pair<unsigned, std::string>> rates = {
      {0, ""}, {100, "100M"}, {1000, "1G"}, {1250, "1.25G"}, {2500, "2.5G"}, {25000, "25G"}, {400000, "400G"}};
  for (const auto& [mb, text] : rates) EXPECT_EQ(speedText(mb), text) << mb;

  Trees trees;
  PortGroup::Ptr pvlan = trees.vi->portGroupIs("dvportgroup-15");
  pvlan->vlanPolicyIs("pvlan");
  pvlan->pvlanIdIs(102);
  pvlan->pvlanPrimaryIdIs(500);
  pvlan->accessVlanIdIs("30");  // of an earlier policy: no longer counts
  Vm::Ptr web1 = trees.vi->vm("vm-1");
  dvNic(web1, "4001", "00:50:56:00:01:01", "dvportgroup-15", "21");
  Vnic::Ptr opaque = web1->vnicIs("4002");
  opaque->switchIdIs(kDvsUuid);
  opaque->opaqueNetworkIdIs("ls-7");
  opaque->opaqueNetworkTypeIs("nsx.LogicalSwitch");
  web1->vnic("4000")->blockedPolicyIs("false");
  web1->vnic("4000")->reportedLinkIs(Interface::linkStatusUp);
  web1->vnic("4000")->linkStatusIs(Interface::linkStatusDown);  // what the counters make of any policy
  trees.vi->vm("vm-2")->vnic("4000")->blockedPolicyIs("true");

  Snapshot s = trees.snapshot();
  SwitchView view = switchView(s);
  EXPECT_EQ(view.interfaces[0].vlans.text(), "100,102,200-210,500");
  EXPECT_EQ(view.interfaces[0].unknownVlanNics, 1u);
  std::string text = renderText(s);
  for (const char* part : {"PVLAN 500/102", "opaque nsx.LogicalSwitch ls-7  unknown",
                           "VLANs to carry: 100,102,200-210,500 and the unknown VLANs of 1 NIC(s)"})
    EXPECT_NE(text.find(part), std::string::npos) << part << "\n---\n" << text;
  std::string json = renderJson(s, false);
  for (const char* part : {"\"vlans\":\"500,102\",\"vlanPolicy\":\"pvlan\",\"pvlanPrimary\":500,\"pvlanSecondary\":102",
                           "\"vlans\":\"unknown\",\"vlanPolicy\":\"unknown\"", "\"speed\":\"10G\",\"speedMb\":10000",
                           "\"key\":\"4000\",\"mac\":\"00:50:56:00:00:01\",\"portGroup\":\"Web\",\"vlans\":\"100\","
                           "\"vlanPolicy\":\"vlan\",\"portKey\":\"11\",\"link\":\"up\"",
                           "\"portKey\":\"12\",\"link\":\"blocked\"", "\"unknownVlanNics\":1"})
    EXPECT_NE(json.find(part), std::string::npos) << part << "\n---\n" << json;
}

// A NIC bundled into an LACP group says so; a machine that names no host
// is on an unknown host.
TEST(AgentView, TextNamesHostsMachinesVlansAndSegments) {
  Trees trees;
  trees.vi->esxHost("host-1")->pnic("vmnic1")->uplinkLagIs("lag1");
  machine(trees.vi, "vm-5", "orphan", "", false);
  std::string text = renderText(trees.snapshot());
  for (const char* part : {"Interface Ethernet1 -> host esx-a (host-1) vmnic1, link up 10G full, uplink of DVS0 in "
                           "LACP group lag1\n",
                           "orphan  vm-5  host unknown  powered off",
                           "neighbour announced: leaf1 Ethernet1 (00:1c:73:aa:bb:cc)",
                           "db1   off    to esx-b", "VLANs to carry: 100,200-210", "VLANs to carry: untagged",
                           "Interface Ethernet9: no host found behind it", "Hosts no interface reaches:\n  esx-b",
                           "VMs no interface reaches:\n  lonely", "5001  web-tier  239.1.1.1"})
    EXPECT_NE(text.find(part), std::string::npos) << part << "\n---\n" << text;
  EXPECT_EQ(text.find("VMKernel"), std::string::npos);
}

TEST(AgentView, JsonHoldsInterfacesHostsVmsAndVshield) {
  Trees trees;
  Snapshot s = trees.snapshot();
  std::string json = renderJson(s, false);
  EXPECT_EQ(json.rfind("{\"interfaces\":[{\"name\":\"Ethernet1\",\"hostRef\":\"host-1\"", 0), 0u) << json;
  EXPECT_NE(json.find("],\"hosts\":[{\"ref\":\"host-1\",\"name\":\"esx-a\",\"connection\":\"\",\"maintenance\":false,"
                      "\"interfaces\":[\"Ethernet1\",\"Ethernet2\"]"),
            std::string::npos);
  EXPECT_NE(json.find("\"vlans\":\"100,200-210\""), std::string::npos);
  EXPECT_NE(json.find("],\"vshield\":[{\"id\":\"virtualwire-1\",\"name\":\"web-tier\",\"vni\":5001"), std::string::npos);
  EXPECT_EQ(peer::values(json, "ref"),
            (std::vector<std::string>{"vm-2", "vm-1", "vm-3", "host-1", "host-2", "vm-2", "vm-4", "vm-3", "vm-1"}));
  EXPECT_EQ(renderJson(s, true).find("\n  \"interfaces\": [\n    {\n      \"name\": \"Ethernet1\""), 1u);

  s.vshield = false;
  EXPECT_EQ(renderJson(s, false).find("vshield"), std::string::npos);
  EXPECT_EQ(JsonWriter::quoted("a\"b\\c\n\x01"), "\"a\\\"b\\\\c\\n\\u0001\"");
  JsonWriter empty(true);
  empty.beginObject().beginArray("a").endArray().endObject();
  EXPECT_EQ(empty.text(), "{\n  \"a\": []\n}\n");
}

TEST(AgentView, ChangesOfTheLiveMode) {
  Trees trees;
  trees.vi->esxHost("host-1")->connectionStateIs("connected");
  Snapshot before = trees.snapshot();
  EXPECT_TRUE(describeChanges(before, before).empty());

  trees.vi->vm("vm-1")->powerStateIs(false);
  Vm::Ptr db1 = trees.vi->vm("vm-2");
  db1->inVmotionIs(false);
  db1->hostRefIs("host-2");
  trees.vi->vm("vm-3")->vnicIs("4000")->portGroupIs("Other");
  trees.vi->esxHost("host-1")->pnic("vmnic1")->linkStatusIs(Interface::linkStatusDown);
  trees.vi->intfToEsxMap("Ethernet2")->hostRefIs("host-2");
  trees.vi->vmDel("vm-4");
  Vm::Ptr fresh = machine(trees.vi, "vm-5", "fresh", "host-2", true);
  Vm::Ptr starts = machine(trees.vi, "vm-6", "starts", "host-2", true);
  Snapshot middle = trees.snapshot();
  starts->inVmotionIs(true);
  starts->vmotionDstIs("host-1");
  trees.vi->esxHost("host-1")->connectionStateIs("notResponding");
  trees.vi->esxHost("host-2")->inMaintenanceIs(true);

  EXPECT_EQ(describeChanges(before, middle),
            (std::vector<std::string>{"Interface Ethernet2 now leads to esx-b vmnic0", "Host esx-a vmnic1 link down",
                                      "VM web1 powered off", "VM db1 migration ended, runs on esx-b",
                                      "VM runner NIC 00:50:56:00:00:03 moved from port group VM Network to Other",
                                      "VM fresh added on esx-b", "VM starts added on esx-b", "VM lonely removed"}));
  EXPECT_EQ(describeChanges(middle, trees.snapshot()),
            (std::vector<std::string>{"Host esx-a connection notResponding", "Host esx-a vmnic1 link unknown",
                                      "Host esx-b entered maintenance mode",
                                      "VM starts migration started from esx-b to esx-a"}));
}
