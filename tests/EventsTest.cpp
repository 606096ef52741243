// The event stream: migrations with their log lines, pages walked from the
// last event to the first, and DV port link events with the activity lock.
#include <cerrno>
#include <type_traits>

#include "Kel/Lock.h"
#include "Kel/Log.h"
#include "UpdateRecords.h"

using namespace Harbec;

namespace {

const std::string started = "HARBEC_VMOTION_STARTED: VM web-01 in vmotion from esx-01 to esx-02.";
const std::string ended = "HARBEC_VMOTION_END: VM web-01 migrated to esx-02.";

class Events : public UpdateRecords {
 protected:
  void SetUp() override {
    Kel::logSinkIs([this](const Kel::LogHandle& h, const Kel::String8& line) {
      logs.push_back(h.id().str() + ": " + line.str());
    });
    vm->vmNameIs("web-01");
  }
  void TearDown() override { Kel::logSinkIs(Kel::LogSink()); }

  ns2__HostEventArgument* host(const char* name, const char* key) {
    auto* arg = make<ns2__HostEventArgument>();
    arg->name = name;
    arg->host = ref(key);
    return arg;
  }
  // An event of vm-42 reported by esx-02, or by esx-01 for the start.
  template <class E>
  ns2__Event* event(const char* vmKey = "vm-42") {
    E* e = make<E>();
    e->vm = make<ns2__VmEventArgument>();
    e->vm->name = "web-01";
    e->vm->vm = ref(vmKey, "VirtualMachine");
    e->host = host("esx-02", "host-12");
    if constexpr (std::is_same_v<E, ns2__VmBeingHotMigratedEvent>) {
      e->destHost = e->host;
      e->host = host("esx-01", "host-10");
    }
    return e;
  }
  template <class E>
  ns2__Event* link(const char* portKey) {
    E* e = make<E>();
    e->portKey = portKey;
    return e;
  }
  ns2__ArrayOfEvent* page(std::vector<ns2__Event*> events) {
    auto* p = make<ns2__ArrayOfEvent>();
    p->Event = std::move(events);
    return p;
  }
  void collector(xsd__anyType* val, const char* name = "latestPage", ns2__ObjectUpdateKind kind = modify) {
    processPortEvents(update(kind, "EventHistoryCollector", "session[52b1]52c6", {change(name, val)}), vi);
  }
  // inVmotion|vmotionFailed|vmotionDst of vm-42.
  std::string migration() {
    return std::to_string(vm->inVmotion()) + "|" + std::to_string(vm->vmotionFailed()) + "|" +
           vm->vmotionDst().str();
  }
  using Logs = std::vector<std::string>;

  Vm::Ptr vm = vi->vmIs("vm-42");
  Logs logs;
};

TEST_F(Events, PagesAreWalkedFromLastToFirst) {
  collector(page({event<ns2__VmMigratedEvent>(), event<ns2__VmBeingHotMigratedEvent>()}));
  EXPECT_EQ(migration(), "0|0|host-12");
  EXPECT_EQ(logs, (Logs{started, ended}));
  collector(page({event<ns2__VmBeingHotMigratedEvent>(), event<ns2__VmFailedMigrateEvent>()}));
  EXPECT_EQ(migration(), "1|0|host-12");
}

TEST_F(Events, PortLinkReachesFirstVnicElseEveryPnic) {
  Vnic::Ptr nic = vm->vnicIs("4000");
  Vnic::Ptr twin = vi->vmIs("vm-43")->vnicIs("4000");  // the same key on another switch
  Pnic::Ptr uplink17 = vi->esxHostIs("host-10", 1u)->pnicIs("vmnic1", 1);
  Pnic::Ptr uplink18a = vi->esxHost("host-10")->pnicIs("vmnic2", 2);
  Pnic::Ptr uplink18b = vi->esxHostIs("host-12", 2u)->pnicIs("vmnic2", 2);
  for (const auto& p : {nic, twin}) p->portKeyIs("17");
  uplink17->uplinkPortKeyIs("17");
  for (const auto& p : {uplink18a, uplink18b}) p->uplinkPortKeyIs("18");

  collector(link<ns2__DvsPortLinkUpEvent>("17"));
  EXPECT_NE(nic->linkStatus(), twin->linkStatus());
  EXPECT_EQ(nic->linkStatus() + twin->linkStatus(), unsigned(Interface::linkStatusUp));
  EXPECT_EQ(uplink17->linkStatus(), Interface::linkStatusUnknown);

  collector(page({link<ns2__DvsPortLinkDownEvent>("18"), link<ns2__DvsPortLinkDownEvent>("99")}));
  EXPECT_EQ(uplink18a->linkStatus(), Interface::linkStatusDown);
  EXPECT_EQ(uplink18b->linkStatus(), Interface::linkStatusDown);
  EXPECT_EQ(uplink17->linkStatus(), Interface::linkStatusUnknown);
  EXPECT_EQ(nic->linkStatus() + twin->linkStatus(), unsigned(Interface::linkStatusUp));
}

bool lockHeld() {
  int rc = pthread_mutex_trylock(Kel::ActivityLockAnchor::lock()->mutex());
  if (rc == 0) pthread_mutex_unlock(Kel::ActivityLockAnchor::lock()->mutex());
  return rc == EBUSY;
}

TEST_F(Events, LinkStatusTakesTheLockUnlessHeld) {
  struct Listener : Vnic::Notifiee {
    bool held = false;
    void onLinkStatus() override { held = lockHeld(); }
  } listener;
  Vnic::Ptr nic = vm->vnicIs("4000");
  nic->portKeyIs("17");
  listener.notifierIs(nic);

  updateLinkStatus(vi, "17", Interface::linkStatusUp);
  EXPECT_TRUE(listener.held);
  EXPECT_FALSE(lockHeld());
  {
    // Held already, as in the update loop: still held after, flag restored.
    Kel::LockAnchor loop(Kel::ActivityLockAnchor::lock(), Kel::LockAnchor::unreleasable);
    listener.held = false;
    updateLinkStatus(vi, "17", Interface::linkStatusDown);
    EXPECT_TRUE(listener.held);
    EXPECT_TRUE(lockHeld());
    EXPECT_EQ(Kel::ActivityLockAnchor::lock()->releasable(), 0);
  }
  EXPECT_EQ(nic->linkStatus(), Interface::linkStatusDown);
}

}  // namespace
