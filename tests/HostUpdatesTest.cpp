// Host records of the property collector against the inventory: hand-built
// vim25 changes through processHostUpdates, then the tree as it stands.
#include <gtest/gtest.h>

#include <soapH.h>

#include <sstream>
#include <string>
#include <utility>
#include <vector>

#include "inventory/VI.h"
#include "session/updates/HostIds.h"
#include "session/updates/UpdateHandlers.h"

using namespace Harbec;

namespace {

class HostUpdates : public ::testing::Test {
 protected:
  void SetUp() override { freeAllHostIds(); }
  ~HostUpdates() override { soap_destroy(soap), soap_end(soap), soap_free(soap); }

  std::string* str(const std::string& s) { return &(*soap_new_std__string(soap) = s); }
  int* num(int v) { return &(*soap_new_int(soap) = v); }
  ns2__PropertyChange* change(const std::string& name, xsd__anyType* val) {
    return soap_new_set_ns2__PropertyChange(soap, name, ns2__PropertyChangeOp__assign, val, nullptr);
  }
  ns2__PropertyChange* name(const std::string& text) { return change("name", soap_new_req_xsd__string(soap, text)); }
  // The record's "config.network" as built so far; the next one starts empty.
  ns2__PropertyChange* network() {
    return change("config.network", std::exchange(net, soap_new_ns2__HostNetworkInfo(soap)));
  }
  void apply(ns2__ObjectUpdateKind kind, const std::string& host, std::vector<ns2__PropertyChange*> changes = {}) {
    auto* obj = soap_new_req_ns2__ManagedObjectReference(soap, host);
    processHostUpdates(soap_new_set_ns2__ObjectUpdate(soap, kind, obj, changes, nullptr), vi);
  }

  // Parts of the configuration under way; a negative speed means no link information.
  void pnic(const std::string& device, int speedMb = 1000, bool duplex = true, const std::string& pci = "") {
    net->pnic.push_back(soap_new_req_ns2__PhysicalNic(soap, device, pci, "00:50:56:00:00:01"));
    if (speedMb >= 0) net->pnic.back()->linkSpeed = soap_new_req_ns2__PhysicalNicLinkInfo(soap, speedMb, duplex);
  }
  // A proxy switch whose pnic backing maps one NIC to uplink port 16.
  void proxy(const std::string& uuid, const char* device, std::vector<std::pair<std::string, std::string>> uplinks) {
    auto* p = soap_new_ns2__HostProxySwitch(soap);
    p->dvsUuid = uuid;
    p->dvsName = "DSwitch";
    p->mtu = num(9000);
    p->spec = soap_new_ns2__HostProxySwitchSpec(soap);
    auto* backing = soap_new_ns2__DistributedVirtualSwitchHostMemberPnicBacking(soap);
    backing->pnicSpec.push_back(soap_new_req_ns2__DistributedVirtualSwitchHostMemberPnicSpec(soap, device));
    backing->pnicSpec.back()->uplinkPortKey = str("16");
    p->spec->backing = backing;
    for (auto& [key, value] : uplinks) p->uplinkPort.push_back(soap_new_req_ns2__KeyValue(soap, key, value));
    net->proxySwitch.push_back(p);
  }
  ns2__HostVirtualNicSpec* vmk(const std::string& device, const char* ip = nullptr, const char* mask = nullptr) {
    net->vnic.push_back(soap_new_req_ns2__HostVirtualNic(soap, device, "key-" + device, "Management Network"));
    auto* spec = net->vnic.back()->spec = soap_new_ns2__HostVirtualNicSpec(soap);
    spec->mac = str("00:50:56:6a:00:0" + device.substr(3));
    if (ip || mask) spec->ip = soap_new_ns2__HostIpConfig(soap);
    if (ip) spec->ip->ipAddress = str(ip);
    if (mask) spec->ip->subnetMask = str(mask);
    return spec;
  }

  struct soap* soap = soap_new();
  ns2__HostNetworkInfo* net = soap_new_ns2__HostNetworkInfo(soap);
  VI::Ptr vi = vIFactory("vi");
};

// Where a NIC is mapped: switchId dvsName uplinkPortKey uplinkName mtu deviceName.
ns2__DistributedVirtualSwitchHostMemberPnicBacking* pnicBacking(ns2__HostProxySwitch* p) {
  return dynamic_cast<ns2__DistributedVirtualSwitchHostMemberPnicBacking*>(p->spec->backing);
}

std::string mapping(Pnic::Ptr p) {
  std::ostringstream os;
  os << p->switchId() << "|" << p->dvsName() << "|" << p->uplinkPortKey() << "|" << p->uplinkName() << "|"
     << p->mtu() << "|" << p->deviceName();
  return os.str();
}

// The speed value only for the rates of its table; the raw figure beside it
// for any rate, 0 without link information.
TEST_F(HostUpdates, SpeedOnlyOnTheRowsAndDuplex) {
  const std::vector<std::pair<int, unsigned>> speeds = {{10, 1},     {100, 2}, {1000, 3}, {10000, 4},  {40000, 5},
                                                        {100000, 6}, {0, 0},   {999, 0},  {25000, 0}, {-1, 0},
                                                        {2500, 0},   {400000, 0}};
  for (size_t i = 0; i < speeds.size(); ++i) pnic("vmnic" + std::to_string(i), speeds[i].first, i % 2);
  apply(ns2__ObjectUpdateKind__enter, "host-1", {network()});
  for (size_t i = 0; i < speeds.size(); ++i) {
    Pnic::Ptr p = vi->esxHost("host-1")->pnic("vmnic" + std::to_string(i));
    EXPECT_EQ(p->speed(), speeds[i].second) << speeds[i].first;
    EXPECT_EQ(p->duplex(), speeds[i].first < 0 ? 0u : i % 2 ? 2u : 1u) << speeds[i].first;
    EXPECT_EQ(p->linkSpeedMb(), speeds[i].first < 0 ? 0u : unsigned(speeds[i].first)) << speeds[i].first;
  }
}

// What the schema lets vCenter leave out, where the handlers would have
// needed it: the part that is missing keeps what it held.
TEST_F(HostUpdates, WhatVcenterMayLeaveOutKeepsItsValue) {
  proxy("dvs-uuid", "vmnic0", {{"16", "uplink1"}});
  pnic("vmnic0");
  vmk("vmk0", "10.0.0.5", "255.255.255.0");
  apply(ns2__ObjectUpdateKind__enter, "host-1", {network(), name("esx-01")});
  EsxHost::Ptr host = vi->esxHost("host-1");
  ASSERT_EQ(mapping(host->pnic("vmnic0")), "dvs-uuid|DSwitch|16|uplink1|9000|vmnic0");

  proxy("dvs-uuid", "vmnic0", {{"16", "uplink1"}});
  net->proxySwitch.back()->mtu = nullptr;
  pnicBacking(net->proxySwitch.back())->pnicSpec.back()->uplinkPortKey = nullptr;
  pnic("vmnic0");
  net->vnic.push_back(soap_new_req_ns2__HostVirtualNic(soap, "vmk0", "key-vmk0", "Management Network"));
  apply(ns2__ObjectUpdateKind__modify, "host-1", {network(), change("name", nullptr)});
  EXPECT_EQ(mapping(host->pnic("vmnic0")), "dvs-uuid|DSwitch|16|uplink1|9000|vmnic0");
  EXPECT_EQ(host->hostName(), "esx-01");
  for (Vnic::Ptr v : {host->vnic("vmk0"), host->vm()->vnic("vmk0")}) {
    ASSERT_TRUE(v);
    EXPECT_EQ(v->ipAddrWithMask().addr().stringValue(), "10.0.0.5");
  }
}

// The LACP group that owns the NIC's uplink port: its name, its key where
// vCenter gives no name, none for a plain port; and none once the NIC
// leaves the distributed switch.
TEST_F(HostUpdates, LacpGroupOfTheUplinkPort) {
  struct Case {
    const char* lagName;  // null: left out
    const char* lagPort;
    const char* want;
  };
  const Case cases[] = {{"lag1", "16", "lag1"}, {nullptr, "16", "7"}, {"", "16", "7"}, {"lag1", "17", ""}};
  EsxHost::Ptr host;
  for (const Case& c : cases) {
    proxy("dvs-uuid", "vmnic0", {{"16", "lag1-0"}});
    auto* lag = soap_new_req_ns2__HostProxySwitchHostLagConfig(soap, "7");
    if (c.lagName) lag->lagName = str(c.lagName);
    lag->uplinkPort.push_back(soap_new_req_ns2__KeyValue(soap, c.lagPort, "lag1-0"));
    net->proxySwitch.back()->hostLag.push_back(lag);
    pnic("vmnic0");
    apply(ns2__ObjectUpdateKind__enter, "host-1", {network()});
    host = vi->esxHost("host-1");
    EXPECT_EQ(host->pnic("vmnic0")->uplinkLag(), c.want) << (c.lagName ? c.lagName : "(none)") << " " << c.lagPort;
  }
  pnic("vmnic0");
  apply(ns2__ObjectUpdateKind__modify, "host-1", {network()});
  EXPECT_EQ(host->pnic("vmnic0")->uplinkLag(), "");
}

}  // namespace
