// The inventory tree: reinstantiation with another id, the narrowed NIC
// ids, and a removed machine that goes on working for whoever holds it.
#include <gtest/gtest.h>

#include <functional>

#include "inventory/VI.h"

using namespace Harbec;

namespace {

std::string refusal(const std::function<void()>& reinstantiate) {
  try {
    reinstantiate();
  } catch (const Kel::NameInUseException& e) {
    return e.what();
  }
  return "no exception";
}

}  // namespace

TEST(Inventory, ReinstantiationWithAnotherIdIsRefused) {
  auto vi = vIFactory("vi");
  auto host = vi->esxHostIs("host-10", 1u);
  EXPECT_EQ(vi->esxHostIs("host-10", 1u), host) << "the same id: the same host";
  auto nic = host->pnicIs("vmnic0", static_cast<unsigned char>(1));
  EXPECT_EQ(host->pnicIs("vmnic0", static_cast<unsigned char>(1)), nic);
  struct Case {
    std::function<void()> again;
    const char* told;
  } cases[] = {
      {[&] { vi->esxHostIs("host-10", 2u); }, "'host-10' where constructor parameter attribute _hostId"},
      {[&] { host->pnicIs("vmnic0", static_cast<unsigned char>(2)); }, "'vmnic0' where constructor parameter "
                                                                       "attribute _pnicId"},
  };
  for (const Case& c : cases)
    EXPECT_EQ(refusal(c.again), std::string("Reinstantiating the entity with name ") + c.told +
                                    " has a different value of 2 than the current value of 1 not allowed");
  EXPECT_EQ(vi->esxHost("host-10")->hostId(), 1u);
}

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
