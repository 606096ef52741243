// DV port counters on the plain road, against the vCenter simulator, with
// an inventory seeded from the ports it has in use: the counter table, the
// blocked test, what a reply leaves alone, and NICs the inventory lacks.
#include <gtest/gtest.h>

#include "support/SimulatorSuite.h"
#include "support/SimPorts.h"
#include "session/ports/PortOperations.h"

using namespace harness;
using Interface::IntfStatistics;

namespace {

class DvPortStatisticsTest : public SimulatorSuite {
 protected:
  void SetUp() override {
    SimulatorSuite::SetUp();
    // The plain road names no switch; here such calls reach "dvs-9".
    sim->call("POST", "/options", "{\"emptyDvsRef\":\"dvs-9\"}");
    s.connect();
    log.take();
  }
  // Seeds the inventory with what the ports connect to, as they stand now.
  void seed() { simports::seed(s.vi, simports::ports(*sim, "dvs-9")); }
  void fetch(std::vector<unsigned> ports) {
    FetchDvPortRequest::Ptr request = fetchDvPortRequestFactory("fetch");
    for (unsigned p : ports) request->dvPortEnq(p);
    s.serve(request);
  }
  void refresh(std::vector<unsigned> ports) {
    RefreshDvPortRequest::Ptr request = refreshDvPortRequestFactory("refresh");
    for (unsigned p : ports) request->dvPortEnq(p);
    s.serve(request);
  }
  Pnic::Ptr pnic(const std::string& host, const std::string& device) { return s.vi->esxHost(host)->pnic(device); }
  Vnic::Ptr vnic(const std::string& vm, const std::string& key) { return s.vi->vm(vm)->vnic(key); }

  LogCapture log;
  Session s{"Worker", sim->url};
};

// Uplink, machine card and VMkernel NIC; a blocked policy of value false
// blocks; a reply without MTU keeps the NIC's; a port not connected to
// anything is not in the reply and nothing notices.
TEST_F(DvPortStatisticsTest, FetchWritesLinkMtuAndCountersOnEveryKindOfNic) {
  sim->call("POST", "/ports/connectee", "{\"dvs\":\"dvs-9\",\"key\":\"1\",\"type\":\"hostVmkVnic\",\"nicKey\":\"vmk1\"}");
  seed();
  simports::setPort(*sim, "0", std::string("\"linkUp\":false,\"mtu\":9000,\"stats\":") + simports::kStatsJson);
  simports::setPort(*sim, "3", "\"blocked\":{\"inherited\":false,\"value\":false},\"mtu\":0");
  simports::setPort(*sim, "1", "\"mtu\":1600");
  {
    Kel::ActivityLockAnchor anchor;
    vnic("vm-50", "4000")->mtuIs(1400);
  }
  double before = Kel::now();
  fetch({0, 1, 3, 4000});
  Kel::ActivityLockAnchor anchor;
  Pnic::Ptr uplink = pnic("host-23", "vmnic1");
  EXPECT_EQ(uplink->linkStatus(), Interface::linkStatusDown);
  EXPECT_EQ(uplink->operStatus(), Interface::intfOperStatusUp) << "only a block sets it";
  EXPECT_EQ(uplink->mtu(), 9000u);
  EXPECT_EQ(uplink->stats(), simports::statsOfJson());
  EXPECT_GE(uplink->counterRefreshTime(), before);

  Vnic::Ptr card = vnic("vm-50", "4000");
  EXPECT_EQ(card->linkStatus(), Interface::linkStatusDown);
  EXPECT_EQ(card->operStatus(), Interface::intfOperStatusDown);
  // Beside them, what the port itself said: its link up, a policy of false.
  EXPECT_EQ(card->reportedLink(), Interface::linkStatusUp);
  EXPECT_EQ(card->blockedPolicy() + (card->blockedInherited() ? " inherited" : ""), "false");
  EXPECT_EQ(uplink->reportedLink(), Interface::linkStatusDown);
  EXPECT_EQ(uplink->blockedPolicy(), "");
  EXPECT_EQ(card->mtu(), 1400u);
  EXPECT_EQ(card->stats(), IntfStatistics());
  EXPECT_EQ(card->counterRefreshTime(), uplink->counterRefreshTime()) << "one time for the whole reply";

  Vnic::Ptr vmk = s.vi->esxHost("host-36")->vm()->vnic("vmk1");
  EXPECT_EQ(vmk->linkStatus(), Interface::linkStatusUp);
  EXPECT_EQ(vmk->mtu(), 1600u);

  EXPECT_EQ(s.soapStatus->lastSuccessMsg(), "soapMsgFetchDvPorts");
  EXPECT_EQ(s.vi->newPorts(), 0u);
  EXPECT_EQ(peer::values(sim->call("GET", "/calls?method=FetchDVPorts"), "value"), Lines{""})
      << "the switch is not named";
}

// A policy without value does not block; one with a value does, though
// without runtime state the link stays as it was. A NIC that the inventory
// lacks ends the process.
TEST_F(DvPortStatisticsTest, BlockedTestAndNicsMissingFromTheInventory) {
  seed();
  simports::setPort(*sim, "0", "\"blocked\":{\"inherited\":true}");
  simports::setPort(*sim, "3", "\"blocked\":{\"inherited\":false,\"value\":true},\"omitState\":true");
  fetch({0, 3});
  {
    Kel::ActivityLockAnchor anchor;
    EXPECT_EQ(pnic("host-23", "vmnic1")->operStatus(), Interface::intfOperStatusUp);
    EXPECT_EQ(pnic("host-23", "vmnic1")->linkStatus(), Interface::linkStatusUp);
    EXPECT_EQ(vnic("vm-50", "4000")->operStatus(), Interface::intfOperStatusDown);
    EXPECT_EQ(vnic("vm-50", "4000")->linkStatus(), Interface::linkStatusUnknown);
    EXPECT_EQ(vnic("vm-50", "4000")->counterRefreshTime(), 0.0);
    EXPECT_EQ(vnic("vm-50", "4000")->blockedPolicy(), "true");
    EXPECT_EQ(vnic("vm-50", "4000")->reportedLink(), Interface::linkStatusUnknown);
  }
  // Inherited from the port group, as vCenter fills in a port's policies.
  simports::setPort(*sim, "0", "\"blocked\":{\"inherited\":true,\"value\":false}");
  fetch({0});
  {
    Kel::ActivityLockAnchor anchor;
    EXPECT_EQ(pnic("host-23", "vmnic1")->linkStatus(), Interface::linkStatusDown);
    EXPECT_EQ(pnic("host-23", "vmnic1")->reportedLink(), Interface::linkStatusUp);
    EXPECT_TRUE(pnic("host-23", "vmnic1")->blockedInherited());
  }

  auto connectee = [](const std::string& key, const std::string& fields) {
    sim->call("POST", "/ports/connectee", "{\"dvs\":\"dvs-9\",\"key\":\"" + key + "\"," + fields + "}");
  };
  auto fetchNow = [](FetchDvPortRequest::Ptr request, unsigned port) {
    request->dvPortEnq(port);
    return request;
  };
  connectee("1", "\"nicKey\":\"vmnic7\"");
  connectee("4", "\"nicKey\":\"4099\"");
  connectee("5", "\"type\":\"hostVmkVnic\",\"nicKey\":\"vmk9\"");
  EXPECT_DEATH(s.sm->processSoapRequest(fetchNow(fetchDvPortRequestFactory("f"), 1)), "Assertion `pnic' failed");
  EXPECT_DEATH(s.sm->processSoapRequest(fetchNow(fetchDvPortRequestFactory("f"), 4)), "Assertion `vnic !=__null' failed");
  EXPECT_DEATH(s.sm->processSoapRequest(fetchNow(fetchDvPortRequestFactory("f"), 5)), "Assertion `vnic !=__null' failed");
}

}  // namespace
