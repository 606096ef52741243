// The clients that the benchmarks set beside the library, against a small
// vCenter simulator over HTTPS on 127.0.0.1: the govmomi client, in both
// its modes, and the unparsed vim25 reader that gives the floor; and the
// child-process measurement they share. If these disagree, the benchmarks'
// comparisons mean nothing.
#include <gtest/gtest.h>

#include "peers/GovClient.h"
#include "peers/VcSim.h"
#include "support/Figures.h"
#include "support/LibrarySession.h"
#include "support/RawSoap.h"

namespace {

using bench::kPassword;
using bench::kUser;

size_t occurrences(const std::string& text, const std::string& what) {
  size_t n = 0;
  for (size_t at = text.find(what); at != std::string::npos; at = text.find(what, at + 1)) ++n;
  return n;
}

class PeerClients : public testing::Test {
 protected:
  static void SetUpTestSuite() { sim = new vcsim::Simulator(kUser, kPassword); }
  static void TearDownTestSuite() {
    delete sim;
    sim = nullptr;
  }
  inline static vcsim::Simulator* sim = nullptr;
};

// The filter, written out by hand, reaches the same objects as govmomi's
// structs of it: every object enters once, and the byte count of a dropped
// reply is the size of a kept one.
TEST_F(PeerClients, RawReaderAndGovmomiClientSeeTheSameInventory) {
  rawsoap::Client raw(sim->url);
  raw.login(kUser, kPassword);
  raw.createFilter();
  std::string reply = raw.call(raw.checkForUpdatesBody(""));
  size_t objects = occurrences(reply, "<kind>enter</kind>");
  EXPECT_GT(objects, 10u);
  EXPECT_EQ(occurrences(reply, "<kind>"), objects);
  // Every type of the filter is there, the switch under its vCenter name.
  for (const char* type : {"VmwareDistributedVirtualSwitch", "VirtualMachine", "HostSystem",
                           "DistributedVirtualPortgroup", "Datacenter", "ClusterComputeResource"})
    EXPECT_NE(reply.find("type=\"" + std::string(type) + "\""), std::string::npos) << type;

  rawsoap::Client::Connection connection(raw);
  EXPECT_EQ(connection.drain(raw.request(raw.checkForUpdatesBody(""))), reply.size());

  govclient::SyncFigures gov = govclient::firstSync(sim->url);
  EXPECT_EQ(gov.objects, static_cast<long>(objects));
  EXPECT_GT(gov.cpuS, 0);
  EXPECT_GE(gov.peakKb, gov.baseKb);
  EXPECT_GT(gov.baseKb, 0);
}

TEST_F(PeerClients, RawReaderRefusedLogin) {
  rawsoap::Client raw(sim->url);
  EXPECT_THROW(raw.login(kUser, "wrong"), std::runtime_error);
}

// A watcher reports a rename once, after it was made, and nothing of names
// outside its prefix.
TEST_F(PeerClients, WatcherReportsRenames) {
  std::string vm;
  for (const std::string& ref : peer::values(sim->call("GET", "/inventory"), "ref"))
    if (vm.empty() && ref.rfind("vm-", 0) == 0) vm = ref;
  ASSERT_FALSE(vm.empty());
  govclient::Watcher watcher(sim->url, "watched-");
  std::string name;
  long long ns = 0;
  EXPECT_FALSE(watcher.next(&name, &ns, 200));

  sim->call("POST", "/vm/rename", "{\"vm\":\"" + vm + "\",\"name\":\"other\"}");
  timespec before;
  clock_gettime(CLOCK_REALTIME, &before);
  sim->call("POST", "/vm/rename", "{\"vm\":\"" + vm + "\",\"name\":\"watched-1\"}");
  ASSERT_TRUE(watcher.next(&name, &ns, 10000));
  EXPECT_EQ(name, "watched-1");
  EXPECT_GT(ns, static_cast<long long>(before.tv_sec) * 1000000000LL + before.tv_nsec);
  EXPECT_FALSE(watcher.next(&name, &ns, 300));
}

// The child's own figures come back; a child whose setup throws reports a
// failure rather than taking the caller down.
TEST(Figures, MeasureInChild) {
  figures::Figures f = figures::measureInChild([] {},
                                               [](figures::Figures& f) {
                                                 std::vector<char> block(64 << 20, 1);
                                                 f.count[0] = block[12345];
                                                 f.ok = true;
                                               });
  EXPECT_TRUE(f.ok);
  EXPECT_EQ(f.count[0], 1);
  EXPECT_GE(f.peakKb - f.baseKb, 60 << 10);
  EXPECT_GT(f.cpuS, 0);

  figures::Figures failed = figures::measureInChild([] { throw std::runtime_error("no"); }, [](figures::Figures&) {});
  EXPECT_FALSE(failed.ok);
}

}  // namespace
