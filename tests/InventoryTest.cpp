// The inventory tree: the narrowed NIC ids, and a removed machine that
// goes on working for whoever holds it.
#include <gtest/gtest.h>

#include "inventory/VI.h"

using namespace Harbec;

// The host's counter is 32 bits wide, the NIC's 8: past 255 the ids repeat.
TEST(Inventory, NicIdsRepeatPast255) {
  auto host = esxHostFactory("host-1", 1u);
  host->pnicIdIs(257);
  EXPECT_EQ(host->pnicIs("vmnic9", static_cast<unsigned char>(host->pnicId()))->pnicId(), 1);
}

TEST(Inventory, RemovedMachineGoesOnWorking) {
  auto vi = vIFactory("vi");
  auto vm = vi->vmIs("vm-5");
  auto nic = vm->vnicIs("4000");
  EXPECT_EQ(nic->uriPath(), "/vi/vm/vm-5/vnic/4000");
  EXPECT_EQ(vi->vmDel("vm-5"), vm);
  EXPECT_EQ(vm->parent(), nullptr);
  EXPECT_FALSE(vi->vmDel("vm-5"));
  vm->vmNameIs("still here");
  EXPECT_EQ(vm->vnic("4000"), nic);
  EXPECT_EQ(vm->vmName(), "still here");
}
