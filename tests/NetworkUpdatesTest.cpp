// Distributed port groups with their VLAN policies, one after another, and
// the PVLAN map of their switch.
#include "UpdateRecords.h"

using namespace Harbec;

namespace {

class NetworkUpdates : public UpdateRecords {
 protected:
  ns2__VmwareDistributedVirtualSwitchVlanSpec* access(int id) {
    auto* spec = make<ns2__VmwareDistributedVirtualSwitchVlanIdSpec>();
    spec->vlanId = id;
    return spec;
  }
  ns2__VmwareDistributedVirtualSwitchVlanSpec* trunk(std::vector<std::pair<int, int>> ranges) {
    auto* spec = make<ns2__VmwareDistributedVirtualSwitchTrunkVlanSpec>();
    for (auto [start, end] : ranges) {
      spec->vlanId.push_back(make<ns2__NumericRange>());
      spec->vlanId.back()->start = start;
      spec->vlanId.back()->end = end;
    }
    return spec;
  }
  ns2__VmwareDistributedVirtualSwitchVlanSpec* pvlan(int secondary) {
    auto* spec = make<ns2__VmwareDistributedVirtualSwitchPvlanSpec>();
    spec->pvlanId = secondary;
    return spec;
  }
  // The PVLAN map of dvs-6: primary by secondary.
  void pvlanMap(std::vector<std::pair<int, int>> entries) {
    auto* map = make<ns2__ArrayOfVMwareDVSPvlanMapEntry>();
    for (auto [primary, secondary] : entries) {
      map->VMwareDVSPvlanMapEntry.push_back(make<ns2__VMwareDVSPvlanMapEntry>());
      map->VMwareDVSPvlanMapEntry.back()->primaryVlanId = primary;
      map->VMwareDVSPvlanMapEntry.back()->secondaryVlanId = secondary;
    }
    processDVSUpdates(update(modify, "VmwareDistributedVirtualSwitch", "dvs-6", {change("config.pvlanConfig", map)}), vi);
  }
  void configure(ns2__VmwareDistributedVirtualSwitchVlanSpec* vlan, const char* dvs) {
    auto* setting = make<ns2__VMwareDVSPortSetting>();
    setting->vlan = vlan;
    auto* config = make<ns2__DVPortgroupConfigInfo>();
    config->distributedVirtualSwitch = ref(dvs, "VmwareDistributedVirtualSwitch");
    config->defaultPortConfig = setting;
    processPortGroupUpdates(update(modify, "DistributedVirtualPortgroup", "dvportgroup-20", {change("config", config)}), vi);
  }
};

TEST_F(NetworkUpdates, VlanPoliciesInTurn) {
  struct Step {
    ns2__VmwareDistributedVirtualSwitchVlanSpec* vlan;
    const char* dvs;
    bool trunk;
    const char* allowed;
    const char* access;
    unsigned vlanId;
    const char* policy;
    unsigned pvlanId, pvlanPrimaryId;
  } steps[] = {
      {access(120), "dvs-5", false, "", "120", 120, "vlan", 0, 0},
      {access(0), "dvs-5", false, "", "", 0, "vlan", 0, 0},  // untagged
      {access(4095), "dvs-5", false, "", "", 4095, "vlan", 0, 0},
      {access(4094), "dvs-5", false, "", "4094", 4094, "vlan", 0, 0},
      // A trunk leaves the access VLAN behind; 0 stands for 1, ranges
      // reversed or ending above 4094 go.
      {trunk({{0, 100}, {200, 4094}}), "dvs-5", true, "1-100,200-4094", "4094", 4094, "trunk", 0, 0},
      {trunk({{0, 0}, {300, 4095}, {20, 10}, {7, 7}}), "dvs-5", true, "1-1,7-7", "4094", 4094, "trunk", 0, 0},
      // An access VLAN leaves the trunk list behind.
      {access(30), "dvs-5", false, "1-1,7-7", "30", 30, "vlan", 0, 0},
      // A private VLAN changes only the switch of the VLAN attributes; its
      // kind and ids stand beside them, the primary from the switch's map.
      {pvlan(102), "dvs-6", false, "1-1,7-7", "30", 30, "pvlan", 102, 500},
      {pvlan(103), "dvs-6", false, "1-1,7-7", "30", 30, "pvlan", 103, 0},
      {make<ns2__VmwareDistributedVirtualSwitchVlanSpec>(), "dvs-6", false, "1-1,7-7", "30", 30, "other", 0, 0},
      {nullptr, "dvs-6", false, "1-1,7-7", "", 30, "none", 0, 0},
      {trunk({{0, 4095}}), "dvs-6", true, "", "", 30, "trunk", 0, 0},
  };
  pvlanMap({{500, 500}, {500, 102}});
  for (const Step& step : steps) {
    configure(step.vlan, step.dvs);
    PortGroup::Ptr pg = vi->portGroup("dvportgroup-20");
    SCOPED_TRACE(&step - steps);
    EXPECT_EQ(pg->switchRef(), step.dvs);
    EXPECT_EQ(pg->trunk(), step.trunk);
    EXPECT_EQ(pg->trunkAllowedVlans(), step.allowed);
    EXPECT_EQ(pg->accessVlanId(), step.access);
    EXPECT_EQ(pg->vlanId(), step.vlanId);
    EXPECT_EQ(pg->vlanPolicy(), step.policy);
    EXPECT_EQ(pg->pvlanId(), step.pvlanId);
    EXPECT_EQ(pg->pvlanPrimaryId(), step.pvlanPrimaryId);
  }
}

// A change of the switch's PVLAN map reaches its PVLAN port groups.
TEST_F(NetworkUpdates, PvlanMapChangesReachThePortGroups) {
  configure(pvlan(103), "dvs-6");
  EXPECT_EQ(vi->portGroup("dvportgroup-20")->pvlanPrimaryId(), 0u);
  pvlanMap({{600, 103}, {0, 104}});
  EXPECT_EQ(vi->portGroup("dvportgroup-20")->pvlanPrimaryId(), 600u);
  EXPECT_EQ(vi->dvs("dvs-6")->pvlanPrimarys(), 1u) << "an entry without a primary is left out";
  pvlanMap({});
  EXPECT_EQ(vi->portGroup("dvportgroup-20")->pvlanPrimaryId(), 0u);
}

}  // namespace
