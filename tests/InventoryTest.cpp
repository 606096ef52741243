// The inventory tree: attribute ids, defaults, reinstantiation and the
// ownership rules of its collections.
#include <gtest/gtest.h>

#include <sstream>

#include "inventory/VI.h"
#include "messaging/Enums.h"

using namespace Harbec;

namespace {

// Counts what a listener hears of the root.
struct ViListener : VI::Notifiee {
  std::vector<std::string> heard;
  void onVm(const Kel::Name& k) override { heard.push_back("vm " + k.str()); }
  void onEsxHost(const Kel::Name& k) override { heard.push_back("esxHost " + k.str()); }
  void onDcRefTodcName(const Kel::String8& k) override { heard.push_back("dc " + k.str()); }
};

}  // namespace

TEST(Inventory, EsxHostReinstantiation) {
  auto vi = vIFactory("vi");
  ViListener l;
  l.notifierIs(vi);
  auto h = vi->esxHostIs("host-10", 1u);
  EXPECT_EQ(h->parent(), vi.ptr());
  EXPECT_EQ(h->parentAttr(), "esxHost");
  EXPECT_EQ(vi->esxHostIs("host-10", 1u), h);
  EXPECT_EQ(l.heard, std::vector<std::string>{"esxHost host-10"});
  try {
    vi->esxHostIs("host-10", 2u);
    FAIL() << "no exception";
  } catch (const Kel::NameInUseException& e) {
    EXPECT_STREQ(e.what(),
                 "Reinstantiating the entity with name 'host-10' where constructor parameter "
                 "attribute _hostId has a different value of 2 than the current value of 1 not "
                 "allowed");
  }
  EXPECT_EQ(vi->esxHost("host-10"), h);
  EXPECT_EQ(vi->esxHost("host-10")->hostId(), 1u);
  EXPECT_EQ(vi->esxHosts(), 1u);
}

TEST(Inventory, PnicReinstantiationAndNarrowedIds) {
  auto host = esxHostFactory("host-1", 1u);
  auto nic = host->pnicIs("vmnic0", static_cast<unsigned char>(host->pnicId()));
  host->pnicIdIs(host->pnicId() + 1);
  EXPECT_EQ(host->pnicIs("vmnic0", static_cast<unsigned char>(1)), nic);
  try {
    host->pnicIs("vmnic0", static_cast<unsigned char>(2));
    FAIL() << "no exception";
  } catch (const Kel::NameInUseException& e) {
    EXPECT_STREQ(e.what(),
                 "Reinstantiating the entity with name 'vmnic0' where constructor parameter "
                 "attribute _pnicId has a different value of 2 than the current value of 1 not "
                 "allowed");
  }
  // The host's counter is 32 bits wide, the NIC's 8: past 255 the ids repeat.
  host->pnicIdIs(257);
  auto wrapped = host->pnicIs("vmnic9", static_cast<unsigned char>(host->pnicId()));
  EXPECT_EQ(wrapped->pnicId(), 1);
}

TEST(Inventory, CollectionsOwnTheirChildren) {
  auto vi = vIFactory("vi");
  ViListener l;
  l.notifierIs(vi);
  auto vm = vi->vmIs("vm-5");
  EXPECT_EQ(vi->vmIs("vm-5"), vm);  // existing: no second notification
  auto nic = vm->vnicIs("4000");
  EXPECT_EQ(nic->fullName(), "vi/vm-5/4000");
  EXPECT_EQ(nic->uriPath(), "/vi/vm/vm-5/vnic/4000");
  auto removed = vi->vmDel("vm-5");
  EXPECT_EQ(removed, vm);
  EXPECT_EQ(removed->parent(), nullptr);
  EXPECT_FALSE(vi->vmDel("vm-5"));
  EXPECT_EQ(l.heard, (std::vector<std::string>{"vm vm-5", "vm vm-5"}));
  // A removed machine goes on working for whoever holds it.
  removed->vmNameIs("still here");
  EXPECT_EQ(removed->vnic("4000"), nic);
  EXPECT_EQ(vm->vmName(), "still here");
}

TEST(Inventory, TextTablesReadEmptyForUnknownKeys) {
  auto vi = vIFactory("vi");
  ViListener l;
  l.notifierIs(vi);
  EXPECT_EQ(vi->dcRefTodcName("datacenter-2"), "");
  vi->dcRefTodcNameIs("datacenter-2", "DC");
  vi->dcRefTodcNameIs("datacenter-2", "DC");  // same value: nobody told
  vi->dcRefTodcNameDel("datacenter-9");       // unknown key: nothing happens
  EXPECT_EQ(vi->dcRefTodcName("datacenter-2"), "DC");
  EXPECT_EQ(l.heard, std::vector<std::string>{"dc datacenter-2"});
}

TEST(Inventory, KernelVmIsHeldByHostAndRoot) {
  auto vi = vIFactory("vi");
  auto host = vi->esxHostIs("host-1", 1u);
  auto kernel = vi->vmIs("host-1");
  host->vmIs(kernel);
  kernel->vmNameIs("VMKernel");
  EXPECT_EQ(host->vm(), vi->vm("host-1"));
  EXPECT_EQ(host->vm()->vmName(), "VMKernel");
}

TEST(Inventory, WrapOfTheHintAnswerCounter) {
  auto intf = intfToEsxMapFactory("Ethernet1");
  intf->nwInfoRspCntIs(65535);
  intf->nwInfoRspCntIs(static_cast<uint16_t>(intf->nwInfoRspCnt() + 1));
  EXPECT_EQ(intf->nwInfoRspCnt(), 0u);
}

TEST(Inventory, ResponsesParkedBySocket) {
  auto vi = vIFactory("vi");
  auto rsp = fetchDvPortResponseFactory("r");
  vi->responsesWithCallbackIs(12u, rsp);
  EXPECT_EQ(vi->responsesWithCallback(12u), rsp);
  EXPECT_FALSE(vi->responsesWithCallback(13u));
  vi->responsesWithCallbackDel(12u);
  EXPECT_EQ(vi->responsesWithCallbacks(), 0u);
}
