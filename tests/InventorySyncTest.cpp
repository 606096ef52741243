// The inventory sync against the vCenter simulator over HTTPS on 127.0.0.1:
// the first update set fills the VI tree with everything the simulator
// holds, changes made in the simulator reach the tree through a blocking
// WaitForUpdates on the update thread while another instance serves
// requests, and migration events set the vMotion attributes. The tree is
// compared with the simulator's own account of its inventory, as flat facts
// in the tree's terms.
#include <gtest/gtest.h>

#include <algorithm>
#include <atomic>
#include <chrono>
#include <sstream>
#include <thread>

#include "peers/VcSim.h"
#include "session/updates/HostIds.h"
#include "support/SessionHarness.h"
#include "support/TreeFacts.h"
#include "support/SimulatorSuite.h"

using namespace Harbec;
using namespace harness;

namespace {

// The facts of one side that the other lacks, for a failure message.
std::string difference(const Lines& want, const Lines& have) {
  Lines missing, extra;
  std::set_difference(want.begin(), want.end(), have.begin(), have.end(), std::back_inserter(missing));
  std::set_difference(have.begin(), have.end(), want.begin(), want.end(), std::back_inserter(extra));
  std::string text = cat(want.size(), " facts expected, ", have.size(), " held\n");
  for (size_t i = 0; i < missing.size() && i < 25; ++i) text += "  missing: " + missing[i] + "\n";
  for (size_t i = 0; i < extra.size() && i < 25; ++i) text += "  extra:   " + extra[i] + "\n";
  return text;
}

Lines simFacts(vcsim::Simulator& sim) {
  Lines facts = peer::values(sim.call("GET", "/inventory/facts"), "fact");
  std::sort(facts.begin(), facts.end());
  return facts;
}

// The result of f, run under the activity lock.
template <class F>
auto locked(F f) {
  Kel::ActivityLockAnchor anchor;
  return f();
}

// Machines of the tree on a host, other than kernel machines and templates,
// with their host.
std::vector<std::pair<std::string, std::string>> machines(const VI::Ptr& vi) {
  return locked([&] {
    std::vector<std::pair<std::string, std::string>> out;
    for (auto i = vi->vmIterator(); i; ++i) {
      const std::string name = cat(i.value()->vmName()), host = cat(i.value()->hostRef());
      if (name != "VMKernel" && !host.empty() && name.find("template") == std::string::npos)
        out.emplace_back(cat(i.key()), host);
    }
    std::sort(out.begin(), out.end());
    return out;
  });
}

class InventorySync : public testing::Test {
 protected:
  static void SetUpTestSuite() {
    sim = new vcsim::Simulator(kUser, kPassword, {"-variety", "-pg", "3", "-vm", "3"});
  }
  static void TearDownTestSuite() {
    delete sim;
    sim = nullptr;
  }
  void SetUp() override { sim->reset(); }

  // Until the tree holds what the simulator holds; the simulator's state
  // is final when its control request returns.
  ::testing::AssertionResult syncs(Session& s) {
    const Lines want = simFacts(*sim);
    Lines have;
    for (auto until = std::chrono::steady_clock::now() + std::chrono::seconds(30);
         std::chrono::steady_clock::now() < until; std::this_thread::sleep_for(std::chrono::milliseconds(20))) {
      have = locked([&] { return treeFacts(s.vi); });
      if (have == want) return ::testing::AssertionSuccess();
    }
    return ::testing::AssertionFailure() << difference(want, have);
  }

  // Starts the blocking wait on the update thread.
  void startWaiting(Session& s) {
    CheckForUpdatesRequest::Ptr request = checkForUpdatesRequestFactory("updates");
    request->blockIs(true);
    s.queue(request);
    s.beforeEnd = [this, &s] { stopWaiting(s); };
  }
  // Ends the blocking wait: the next WaitForUpdates fails with a fault that
  // asks to try again, which frees the thread without ending the process.
  void stopWaiting(Session& s) {
    s.beforeEnd = nullptr;
    const std::string vm = machines(s.vi).at(0).first;
    sim->fault("WaitForUpdates", "fault", "Try Again");
    static int stops = 0;
    sim->call("POST", "/vm/rename", cat("{\"vm\":\"", vm, "\",\"name\":\"stop-", ++stops, "\"}"));
    ASSERT_TRUE(s.done()) << "the update thread did not come back";
  }

  std::string post(const std::string& target, const std::string& body) { return sim->call("POST", target, body); }

  static vcsim::Simulator* sim;
  LogCapture log;
};
vcsim::Simulator* InventorySync::sim = nullptr;

TEST_F(InventorySync, OneCheckForUpdatesBringsTheWholeInventory) {
  Session s("UpdateThread", sim->url);
  s.connect();
  CheckForUpdatesRequest::Ptr request = checkForUpdatesRequestFactory("updates");
  s.serve(request);
  const Lines want = simFacts(*sim);
  const Lines have = locked([&] { return treeFacts(s.vi); });
  EXPECT_EQ(have, want) << difference(want, have);
  EXPECT_GT(want.size(), 500u) << "the variety of the simulator's inventory";
  locked([&] {
    EXPECT_TRUE(s.vi->initialWaitForUpdate());
    EXPECT_EQ(s.vi->modifiedVmss(), s.vi->vms() - s.vi->esxHosts()) << "every machine entered";
    return 0;
  });
  EXPECT_NE(s.sm->version(), "");
  EXPECT_EQ(s.status().lastSuccessMsg, "soapMsgUpdates");

  // Nothing changed: the next round brings no set and keeps the version.
  const std::string version = s.sm->version().str();
  s.serve(checkForUpdatesRequestFactory("updates"));
  EXPECT_EQ(s.sm->version(), version);
  EXPECT_EQ(sim->calls().back(), "CheckForUpdates");
}

// Readers that hold the activity lock see a set whole: no NIC or port
// group in the middle of its host's reconciliation, no machine whose host
// has gone.
class WholeSetReader {
 public:
  explicit WholeSetReader(VI::Ptr vi) : vi_(std::move(vi)), thread_([this] { run(); }) {}
  ~WholeSetReader() {
    stop_ = true;
    thread_.join();
  }
  std::string broken() const {
    std::lock_guard<std::mutex> g(mutex_);
    return broken_;
  }
  unsigned reads() const { return reads_; }

 private:
  void run() {
    while (!stop_) {
      {
        Kel::ActivityLockAnchor anchor;
        check();
        ++reads_;
      }
      std::this_thread::yield();
    }
  }
  void check() {
    auto fail = [&](const std::string& what) {
      std::lock_guard<std::mutex> g(mutex_);
      if (broken_.empty()) broken_ = what;
    };
    for (auto h = vi_->esxHostIterator(); h; ++h) {
      for (auto p = h.value()->pnicIterator(); p; ++p)
        if (!p.value()->active()) fail(cat("inactive pnic ", p.key()));
      for (auto p = h.value()->portGroupIterator(); p; ++p)
        if (!p.value()->active()) fail(cat("inactive port group ", p.key()));
      if (Vm::Ptr kernel = h.value()->vm())
        for (auto v = kernel->vnicIterator(); v; ++v)
          if (!v.value()->active()) fail(cat("inactive kernel NIC ", v.key()));
    }
    for (auto v = vi_->vmIterator(); v; ++v) {
      const Kel::String8 host = v.value()->hostRef();
      if (host.length() && !vi_->esxHost(Kel::Name(host))) fail(cat("machine ", v.key(), " on a gone host"));
    }
  }

  VI::Ptr vi_;
  std::atomic<bool> stop_{false};
  std::atomic<unsigned> reads_{0};
  mutable std::mutex mutex_;
  std::string broken_;
  std::thread thread_;
};

TEST_F(InventorySync, ChangesReachTheTreeWhileTheUpdateThreadWaits) {
  Session s("UpdateThread", sim->url);
  Session worker("Worker", sim->url);
  s.connect();
  worker.connect();
  WholeSetReader reader(s.vi);
  startWaiting(s);
  ASSERT_TRUE(syncs(s));

  // The update thread is held; the other instance serves requests.
  worker.probe();
  worker.post({"while the update thread waits"});
  EXPECT_EQ(sim->userEventMessages(), Lines{"while the update thread waits"});

  auto vms = machines(s.vi);
  ASSERT_GE(vms.size(), 4u);
  const std::string vm = vms[0].first;
  post("/vm/power", "{\"vm\":\"" + vm + "\",\"state\":\"poweredOff\"}");
  ASSERT_TRUE(syncs(s)) << "power off";
  post("/vm/power", "{\"vm\":\"" + vm + "\",\"state\":\"poweredOn\"}");
  ASSERT_TRUE(syncs(s)) << "power on";
  post("/vm/rename", "{\"vm\":\"" + vm + "\",\"name\":\"renamed\"}");
  ASSERT_TRUE(syncs(s)) << "rename";
  post("/vm/create", "{\"name\":\"fresh\",\"host\":\"" + vms[1].second + "\"}");
  ASSERT_TRUE(syncs(s)) << "create";
  post("/vm/destroy", "{\"vm\":\"" + vms[2].first + "\"}");
  ASSERT_TRUE(syncs(s)) << "destroy";

  // A card of the nested host's machines, on the standard network, moves to
  // a distributed port group; that port group turns from access to trunk.
  std::string nestedVm, accessPg;
  locked([&] {
    for (auto i = s.vi->vmIterator(); i; ++i)
      for (auto v = i.value()->vnicIterator(); v; ++v)
        if (nestedVm.empty() && i.value()->vmName() != "VMKernel" && v.value()->switchId().length() == 0)
          nestedVm = cat(i.key());
    for (auto i = s.vi->portGroupIterator(); i; ++i)
      if (accessPg.empty() && i.value()->accessVlanId().length() && !i.value()->trunk()) accessPg = cat(i.key());
    return 0;
  });
  ASSERT_NE(nestedVm, "");
  ASSERT_NE(accessPg, "");
  post("/vm/nic/move", "{\"vm\":\"" + nestedVm + "\",\"network\":\"" + accessPg + "\"}");
  ASSERT_TRUE(syncs(s)) << "NIC moved to a distributed port group";
  post("/portgroup/vlan", "{\"portgroup\":\"" + accessPg + "\",\"trunk\":[{\"start\":0,\"end\":4094}]}");
  ASSERT_TRUE(syncs(s)) << "access to trunk";
  locked([&] {
    PortGroup::Ptr pg = s.vi->portGroup(Kel::Name(accessPg));
    EXPECT_EQ(pg->trunkAllowedVlans(), "1-4094");
    EXPECT_NE(pg->accessVlanId(), "") << "the access VLAN of before stays";
    return 0;
  });

  // Host NICs come and go.
  const std::string host = vms[1].second;
  post("/host/nic/add", "{\"host\":\"" + host + "\",\"device\":\"vmnic7\",\"mac\":\"00:50:56:77:00:01\","
                        "\"speedMb\":40000,\"duplex\":true,\"vswitch\":\"vSwitch1\",\"vendor\":\"Mellanox\","
                        "\"model\":\"ConnectX-4\"}");
  ASSERT_TRUE(syncs(s)) << "NIC added";
  post("/host/nic/remove", "{\"host\":\"" + host + "\",\"device\":\"vmnic3\"}");
  ASSERT_TRUE(syncs(s)) << "NIC removed";

  // A distributed port group comes and goes.
  std::string dvs = locked([&] { return cat(s.vi->dvsIterator().key()); });
  const std::string pg =
      peer::values(post("/portgroup/create", "{\"dvs\":\"" + dvs + "\",\"name\":\"short-lived\",\"vlan\":42}"),
                   "ref")
          .at(0);
  ASSERT_TRUE(syncs(s)) << "port group created";
  post("/portgroup/destroy", "{\"portgroup\":\"" + pg + "\"}");
  ASSERT_TRUE(syncs(s)) << "port group destroyed";

  // A clustered host goes with its machines; its id is the next one taken.
  std::string gone, cluster;
  unsigned goneId = 0;
  locked([&] {
    for (auto i = s.vi->esxHostIterator(); i; ++i)
      if (cat(i.value()->parentRef()).rfind("cluster", 0) == 0 && (!goneId || i.value()->hostId() < goneId)) {
        gone = cat(i.key()), cluster = cat(i.value()->parentRef()), goneId = i.value()->hostId();
      }
    return 0;
  });
  ASSERT_NE(gone, "");
  post("/host/remove", "{\"host\":\"" + gone + "\",\"force\":true}");
  ASSERT_TRUE(syncs(s)) << "host removed";
  locked([&] {
    EXPECT_FALSE(s.vi->esxHost(Kel::Name(gone)));
    EXPECT_FALSE(s.vi->vm(Kel::Name(gone))) << "the kernel machine went along";
    return 0;
  });
  const std::string added =
      peer::values(post("/host/add", "{\"name\":\"esx-new\",\"cluster\":\"" + cluster + "\"}"), "ref").at(0);
  ASSERT_TRUE(syncs(s)) << "host added";
  locked([&] {
    EXPECT_EQ(s.vi->esxHost(Kel::Name(added))->hostId(), goneId) << "the lowest free id";
    return 0;
  });

  stopWaiting(s);
  EXPECT_EQ(reader.broken(), "");
  EXPECT_GT(reader.reads(), 0u);
  EXPECT_EQ(log.take().size(), 2u) << "two logins; the fault that asks to try again is not logged";
}

TEST_F(InventorySync, MigrationEventsSetTheVmotionAttributes) {
  Session s("UpdateThread", sim->url);
  s.connect();
  startWaiting(s);
  ASSERT_TRUE(syncs(s));
  log.take();
  std::string vm, source, dest, vmName, sourceName, destName, portKey;
  locked([&] {
    for (auto i = s.vi->vmIterator(); i && vm.empty(); ++i) {
      auto v = i.value()->vnicIterator();
      if (v && v.value()->portKey().length()) vm = cat(i.key()), source = cat(i.value()->hostRef());
    }
    for (auto i = s.vi->esxHostIterator(); i; ++i)
      if (cat(i.key()) != source && dest.empty()) dest = cat(i.key()), destName = cat(i.value()->hostName());
    vmName = cat(s.vi->vm(Kel::Name(vm))->vmName());
    sourceName = cat(s.vi->esxHost(Kel::Name(source))->hostName());
    portKey = cat(s.vi->vm(Kel::Name(vm))->vnicIterator().value()->portKey());
    return 0;
  });
  ASSERT_NE(vm, "");
  ASSERT_NE(dest, "");
  auto state = [&] {
    return locked([&] {
      Vm::Ptr m = s.vi->vm(Kel::Name(vm));
      return cat(m->inVmotion(), " ", m->vmotionFailed(), " ", m->vmotionDst());
    });
  };
  // Events come in with the next set; wait until the attributes show it.
  auto until = [&](const std::string& want) {
    for (int i = 0; i < 1500 && state() != want; ++i) std::this_thread::sleep_for(std::chrono::milliseconds(20));
    return state();
  };

  post("/events", "{\"type\":\"VmBeingHotMigratedEvent\",\"vm\":\"" + vm + "\",\"destHost\":\"" + dest + "\"}");
  EXPECT_EQ(until("1 0 " + dest), "1 0 " + dest);
  post("/events", "{\"type\":\"VmMigratedEvent\",\"vm\":\"" + vm + "\",\"host\":\"" + dest + "\",\"sourceHost\":\"" +
                      source + "\"}");
  EXPECT_EQ(until("0 0 " + dest), "0 0 " + dest) << "the last destination stays";
  post("/events", "{\"type\":\"VmBeingHotMigratedEvent\",\"vm\":\"" + vm + "\",\"destHost\":\"" + dest + "\"}");
  EXPECT_EQ(until("1 0 " + dest), "1 0 " + dest);
  post("/events", "{\"type\":\"VmFailedMigrateEvent\",\"vm\":\"" + vm + "\",\"destHost\":\"" + dest +
                      "\",\"reason\":\"no space\"}");
  EXPECT_EQ(until("0 1 "), "0 1 ");
  post("/events", "{\"type\":\"VmBeingHotMigratedEvent\",\"vm\":\"" + vm + "\",\"destHost\":\"" + dest + "\"}");
  EXPECT_EQ(until("1 0 " + dest), "1 0 " + dest);
  post("/events", "{\"type\":\"DrsVmMigratedEvent\",\"vm\":\"" + vm + "\",\"sourceHost\":\"" + source + "\"}");
  EXPECT_EQ(until("0 0 " + dest), "0 0 " + dest) << "a migration by DRS ends one too";

  // The event filter asks for migrations only: a port link event does not
  // come through, and the machine's NIC keeps its link state.
  std::string dvs = locked([&] { return cat(s.vi->dvsIterator().key()); });
  post("/events", "{\"type\":\"DvsPortLinkDownEvent\",\"dvs\":\"" + dvs + "\",\"portKey\":\"" + portKey + "\"}");
  post("/events", "{\"type\":\"VmBeingHotMigratedEvent\",\"vm\":\"" + vm + "\",\"destHost\":\"" + dest + "\"}");
  EXPECT_EQ(until("1 0 " + dest), "1 0 " + dest);
  locked([&] {
    EXPECT_EQ(s.vi->vm(Kel::Name(vm))->vnicIterator().value()->linkStatus(), Interface::linkStatusUnknown);
    return 0;
  });

  stopWaiting(s);
  // Each set brings the whole latest page, and its migrations are told
  // again, oldest first.
  const std::string started = "HARBEC_VMOTION_STARTED: VM " + vmName + " in vmotion from " + sourceName + " to " +
                              destName + ".";
  const std::string ended = "HARBEC_VMOTION_END: VM " + vmName + " migrated to ";
  Lines lines = log.take();
  ASSERT_FALSE(lines.empty());
  EXPECT_EQ(lines.front(), started);
  EXPECT_EQ(lines.back(), started);
  for (const std::string& line : lines) EXPECT_TRUE(line == started || line.rfind(ended, 0) == 0) << line;
  EXPECT_NE(std::find(lines.begin(), lines.end(), "HARBEC_VMOTION_END: VM " + vmName + " migrated to " + destName + "."),
            lines.end());
}

}  // namespace
