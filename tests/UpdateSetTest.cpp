// Hand-built update sets through the rounds of the update loop: containers
// before hosts, leaves of machines before leaves of hosts, enters of hosts
// before machines, events last and only with a version; filters of another
// type and objects of unknown types are passed over.
#include "UpdateRecords.h"
#include "session/HarbecSmInternal.h"
#include "session/updates/HostIds.h"
#include "support/SessionHarness.h"
#include "support/TraceCapture.h"

using namespace Harbec;

namespace {

class UpdateSet : public UpdateRecords {
 protected:
  void SetUp() override { freeAllHostIds(); }

  ns2__UpdateSet* set(const std::string& version, std::vector<ns2__ObjectUpdate*> objects,
                      const std::string& filterType = "PropertyFilter") {
    auto* filter = make<ns2__PropertyFilterUpdate>();
    filter->filter = ref("session[52b1]52c7", filterType);
    filter->objectSet = std::move(objects);
    auto* s = make<ns2__UpdateSet>();
    s->version = version;
    s->filterSet = {filter};
    return s;
  }
  void apply(ns2__UpdateSet* s) { processUpdateSet(session.sm, s); }
  ns2__ObjectUpdate* migration(const std::string& vm) {
    auto* e = make<ns2__VmBeingHotMigratedEvent>();
    e->vm = make<ns2__VmEventArgument>();
    e->vm->vm = ref(vm, "VirtualMachine");
    e->destHost = make<ns2__HostEventArgument>();
    e->destHost->host = ref("host-2");
    auto* page = make<ns2__ArrayOfEvent>();
    page->Event = {e};
    return update(modify, "EventHistoryCollector", "session[52b1]52c6", {change("latestPage", page)});
  }

  harness::LogCapture log;
  harness::Session session{"UpdateThread", "", harness::kPassword, false, false};
};

TEST_F(UpdateSet, RoundsTakeObjectsInTheirOrderWhateverTheirPlaceInTheSet) {
  vi = session.vi;
  apply(set("1", {update(enter, "HostSystem", "host-1", {change("name", str("esx-1"))}),
                  update(enter, "VirtualMachine", "vm-1", {change("runtime.host", ref("host-1"))})}));

  // Listed against the order of the rounds.
  harness::TraceCapture trace;
  apply(set("2", {migration("vm-2"),
                  update(leave, "HostSystem", "host-1"),
                  update(modify, "VirtualMachine", "vm-2", {change("name", str("web"))}),
                  update(enter, "VirtualMachine", "vm-2", {change("runtime.host", ref("host-2"))}),
                  update(enter, "HostSystem", "host-2", {change("name", str("esx-2")),
                                                         change("parent", ref("domain-c7", "ComputeResource"))}),
                  update(leave, "VirtualMachine", "vm-1"),
                  update(enter, "ComputeResource", "domain-c7", {change("parent", ref("group-h4", "Folder"))}),
                  update(enter, "Datacenter", "datacenter-3",
                         {change("name", str("DC")), change("hostFolder", ref("group-h4", "Folder"))}),
                  update(enter, "Folder", "group-h4", {change("name", str("host"))})}));

  Kel::ActivityLockAnchor anchor;
  const std::string text = trace.text();
  EXPECT_LT(text.find("Harbec::delVM("), text.find("Harbec::delHost(")) << "machines leave before hosts";
  EXPECT_FALSE(vi->esxHost("host-1"));
  EXPECT_FALSE(vi->vm("vm-1"));
  EsxHost::Ptr host = vi->esxHost("host-2");
  ASSERT_TRUE(host);
  EXPECT_EQ(host->dcRef(), "datacenter-3") << "containers come first";
  EXPECT_EQ(host->hostId(), 1u) << "the id of the host that left, taken again";
  Vm::Ptr vm = vi->vm("vm-2");
  ASSERT_TRUE(vm);
  EXPECT_EQ(vm->hostName(), "esx-2") << "hosts enter before machines";
  EXPECT_EQ(vm->vmName(), "web") << "changes after enters";
  EXPECT_TRUE(vm->inVmotion()) << "events after all property changes";
  EXPECT_EQ(session.sm->version(), "2");
  EXPECT_TRUE(vi->initialWaitForUpdate());
}

TEST_F(UpdateSet, EmptyVersionSkipsEventsAndOtherFiltersArePassedOver) {
  vi = session.vi;
  session.sm->versionIs("5");
  apply(set("", {update(enter, "VirtualMachine", "vm-2", {change("name", str("web"))}), migration("vm-2")}));
  {
    Kel::ActivityLockAnchor anchor;
    ASSERT_TRUE(vi->vm("vm-2"));
    EXPECT_FALSE(vi->vm("vm-2")->inVmotion());
  }
  EXPECT_EQ(session.sm->version(), "");

  apply(set("6", {update(enter, "VirtualMachine", "vm-3")}, "ContainerView"));
  Kel::ActivityLockAnchor anchor;
  EXPECT_FALSE(vi->vm("vm-3"));
  EXPECT_EQ(session.sm->version(), "6");
}

}  // namespace
