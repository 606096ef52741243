// Distributed port groups with their VLAN policies, one after another.
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
  } steps[] = {
      {access(120), "dvs-5", false, "", "120", 120},
      {access(0), "dvs-5", false, "", "", 0},  // untagged
      {access(4095), "dvs-5", false, "", "", 4095},
      {access(4094), "dvs-5", false, "", "4094", 4094},
      // A trunk leaves the access VLAN behind; 0 stands for 1, ranges
      // reversed or ending above 4094 go.
      {trunk({{0, 100}, {200, 4094}}), "dvs-5", true, "1-100,200-4094", "4094", 4094},
      {trunk({{0, 0}, {300, 4095}, {20, 10}, {7, 7}}), "dvs-5", true, "1-1,7-7", "4094", 4094},
      // An access VLAN leaves the trunk list behind.
      {access(30), "dvs-5", false, "1-1,7-7", "30", 30},
      // A private VLAN changes only the switch.
      {make<ns2__VmwareDistributedVirtualSwitchPvlanSpec>(), "dvs-6", false, "1-1,7-7", "30", 30},
      {nullptr, "dvs-6", false, "1-1,7-7", "", 30},
      {trunk({{0, 4095}}), "dvs-6", true, "", "", 30},
  };
  for (const Step& step : steps) {
    configure(step.vlan, step.dvs);
    PortGroup::Ptr pg = vi->portGroup("dvportgroup-20");
    SCOPED_TRACE(&step - steps);
    EXPECT_EQ(pg->switchRef(), step.dvs);
    EXPECT_EQ(pg->trunk(), step.trunk);
    EXPECT_EQ(pg->trunkAllowedVlans(), step.allowed);
    EXPECT_EQ(pg->accessVlanId(), step.access);
    EXPECT_EQ(pg->vlanId(), step.vlanId);
  }
}

}  // namespace
