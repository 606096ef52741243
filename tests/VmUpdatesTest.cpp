// Virtual machine records: the machine's own values, and its NICs across
// card classes, backings, reconfigurations and sweeps.
#include "UpdateRecords.h"

using namespace Harbec;

namespace {

class VmUpdates : public UpdateRecords {
 protected:
  void vmUpdate(ns2__ObjectUpdateKind kind, std::vector<ns2__PropertyChange*> changes = {}) {
    processVMUpdates(update(kind, "VirtualMachine", "vm-42", std::move(changes)), vi);
  }
  ns2__PropertyChange* power(ns2__VirtualMachinePowerState state) {
    auto* v = make<ns2__VirtualMachinePowerState_>();
    v->__item = state;
    return change("runtime.powerState", v);
  }
  ns2__PropertyChange* hardware(std::vector<ns2__VirtualDevice*> devices) {
    auto* hw = make<ns2__VirtualHardware>();
    hw->device = std::move(devices);
    return change("config.hardware", hw);
  }
  template <class Card>
  ns2__VirtualDevice* card(int key, ns2__VirtualDeviceBackingInfo* backing = nullptr) {
    auto* c = make<Card>();
    c->key = key;
    c->macAddress = text("mac-" + std::to_string(key));
    c->deviceInfo = make<ns2__Description>();
    c->deviceInfo->label = "label-" + std::to_string(key);
    c->backing = backing;
    return c;
  }
  ns2__VirtualDeviceBackingInfo* network(const std::string& name) {
    auto* b = make<ns2__VirtualEthernetCardNetworkBackingInfo>();
    b->deviceName = name;
    return b;
  }
  ns2__VirtualDeviceBackingInfo* dvPort(const char* portgroupKey, const char* portKey) {
    auto* b = make<ns2__VirtualEthernetCardDistributedVirtualPortBackingInfo>();
    b->port = make<ns2__DistributedVirtualSwitchPortConnection>();
    b->port->switchUuid = "uuid";
    b->port->portgroupKey = portgroupKey ? text(portgroupKey) : nullptr;
    b->port->portKey = portKey ? text(portKey) : nullptr;
    return b;
  }
  // switchId|portKey|portGroup of a NIC of vm-42.
  std::string port(const char* key) {
    Vnic::Ptr nic = vi->vm("vm-42")->vnic(key);
    return nic->switchId().str() + "|" + nic->portKey().str() + "|" + nic->portGroup().str();
  }
};

TEST_F(VmUpdates, Nics) {
  vmUpdate(enter, {hardware({make<ns2__VirtualDevice>(), nullptr,
                             card<ns2__VirtualE1000>(4000, network("VM Network")),
                             card<ns2__VirtualE1000e>(4001, dvPort("dvportgroup-20", "17")),
                             card<ns2__VirtualPCNet32>(4002),
                             card<ns2__VirtualSriovEthernetCard>(4003), card<ns2__VirtualVmxnet>(4004),
                             card<ns2__VirtualVmxnet2>(4005), card<ns2__VirtualVmxnet3>(4006),
                             card<ns2__VirtualVmxnet3Vrdma>(4007)})});
  Vm::Ptr vm = vi->vm("vm-42");
  EXPECT_EQ(vm->vnics(), 8u);
  Vnic::Ptr nic = vm->vnic("4000");
  EXPECT_EQ(nic->macAddress(), "mac-4000");
  EXPECT_EQ(nic->label(), "label-4000");
  EXPECT_EQ(nic->configId(), 1u);
  EXPECT_EQ(port("4000"), "||VM Network");
  EXPECT_EQ(port("4001"), "uuid|17|dvportgroup-20");

  // 4000 moves to a distributed port group and keeps its entity and link;
  // 4001 loses its backing and keeps its port; the others go.
  nic->linkStatusIs(Interface::linkStatusUp);
  vmUpdate(modify, {hardware({card<ns2__VirtualE1000>(4000, dvPort("dvportgroup-21", "18")),
                              card<ns2__VirtualE1000e>(4001)})});
  EXPECT_EQ(vm->vnics(), 2u);
  EXPECT_EQ(vm->vnic("4000"), nic);
  EXPECT_EQ(nic->configId(), 2u);
  EXPECT_EQ(nic->linkStatus(), Interface::linkStatusUp);
  EXPECT_EQ(port("4000"), "uuid|18|dvportgroup-21");
  EXPECT_EQ(port("4001"), "uuid|17|dvportgroup-20");

  // And back to a standard one; a port with neither key keeps both.
  vmUpdate(modify, {hardware({card<ns2__VirtualE1000>(4000, network("Backup")),
                              card<ns2__VirtualE1000e>(4001, dvPort(nullptr, nullptr))})});
  EXPECT_EQ(port("4000"), "||Backup");
  EXPECT_EQ(port("4001"), "uuid|17|dvportgroup-20");

  // No hardware value leaves the NICs; another backing class clears the
  // port, and an opaque or a legacy network is kept beside.
  vmUpdate(modify, {change("config.hardware", nullptr)});
  EXPECT_EQ(vm->vnics(), 2u);
  auto* opaque = make<ns2__VirtualEthernetCardOpaqueNetworkBackingInfo>();
  opaque->opaqueNetworkId = "ls-7";
  opaque->opaqueNetworkType = "nsx.LogicalSwitch";
  auto* legacy = make<ns2__VirtualEthernetCardLegacyNetworkBackingInfo>();
  legacy->deviceName = "Old Network";
  vmUpdate(modify, {hardware({card<ns2__VirtualE1000e>(4001, opaque), card<ns2__VirtualE1000>(4000, legacy)})});
  EXPECT_EQ(port("4001"), "||");
  EXPECT_EQ(vm->vnic("4001")->opaqueNetworkId() + "|" + vm->vnic("4001")->opaqueNetworkType(), "ls-7|nsx.LogicalSwitch");
  EXPECT_EQ(port("4000") + vm->vnic("4000")->legacyNetwork().str(), "||Old Network");
  vmUpdate(modify, {hardware({card<ns2__VirtualE1000e>(4001, network("VM Network"))})});
  EXPECT_EQ(vm->vnics(), 1u);
  EXPECT_EQ(vm->vnic("4001")->opaqueNetworkId(), "");
  vmUpdate(modify, {hardware({make<ns2__VirtualDevice>()})});
  EXPECT_EQ(vm->vnics(), 0u);
}

using VmUpdatesDeathTest = VmUpdates;

TEST_F(VmUpdatesDeathTest, EnterOfKnownOrModifyOfUnknownMachine) {
  EXPECT_DEATH(vmUpdate(modify), "`vm'");
  vmUpdate(enter);
  EXPECT_DEATH(vmUpdate(enter), "`!vm'");
}

}  // namespace
