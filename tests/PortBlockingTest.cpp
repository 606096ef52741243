// Blocking and unblocking DV ports against the vCenter simulator: the
// records of ReconfigureDVPort_Task as they arrive, the switch left unnamed,
// SoapStatus left alone, and a refusal handled as a fatal failure.
#include <gtest/gtest.h>

#include "session/HarbecSmInternal.h"
#include "support/SimulatorSuite.h"

using namespace harness;

namespace {

class PortBlockingTest : public SimulatorSuite {
 protected:
  void SetUp() override {
    SimulatorSuite::SetUp();
    s.connect();
    log.take();
  }
  void block(unsigned port, bool b) {
    BlockPortRequest::Ptr request = blockPortRequestFactory("block");
    request->portIs(port);
    request->blockIs(b);
    s.serve(request);
  }
  // The blocked policy the simulator holds for a port, as compact JSON.
  std::string blockedOf(const std::string& key) {
    std::string ports = compact(sim->call("GET", "/ports?dvs=dvs-9"));
    size_t at = ports.find("\"key\":\"" + key + "\"");
    at = ports.find("\"blocked\":", at) + 10;
    return ports.substr(at, ports.find('}', at) + 1 - at);
  }

  LogCapture log;
  Session s{"Worker", sim->url};
};

TEST_F(PortBlockingTest, BlockAndUnblockGoOutAsPortEdits) {
  // The request names no switch; here such calls reach "dvs-9".
  sim->call("POST", "/options", "{\"emptyDvsRef\":\"dvs-9\"}");
  StatusView before = s.status();
  block(3, true);
  block(0, false);
  std::string records = compact(sim->call("GET", "/portreconfigs"));
  EXPECT_NE(records.find("\"dvs\":{\"type\":\"\",\"value\":\"\"},\"found\":true,\"ports\":[{\"operation\":\"edit\","
                         "\"key\":\"3\",\"blocked\":{\"inherited\":false,\"value\":true}}]"),
            std::string::npos)
      << records;
  EXPECT_NE(records.find("\"ports\":[{\"operation\":\"edit\",\"key\":\"0\",\"blocked\":{\"inherited\":false,"
                         "\"value\":false}}]"),
            std::string::npos)
      << records;
  EXPECT_EQ(records.find("\"fault\""), std::string::npos) << records;
  EXPECT_EQ(blockedOf("3"), "{\"inherited\":false,\"value\":true}");
  EXPECT_EQ(blockedOf("0"), "{\"inherited\":false,\"value\":false}");
  StatusView after = s.status();
  EXPECT_EQ(after.successCount, before.successCount);
  EXPECT_EQ(after.lastMsgSent, before.lastMsgSent) << "not reported";
  EXPECT_EQ(log.take(), Lines{});
}

// Before the next update call the pending shutdowns go out one by one, a
// key leaving the collection once its block has gone through; a failure
// leaves the failed key and those after it for the next call.
TEST_F(PortBlockingTest, ShutDownPortsLeaveOnlyOnceBlocked) {
  sim->call("POST", "/options", "{\"emptyDvsRef\":\"dvs-9\"}");
  Session u("UpdateThread", sim->url);
  u.connect();
  log.take();
  {
    Kel::ActivityLockAnchor anchor;
    for (const char* key : {"3", "4", "5"}) u.vi->shutDownPortsIs(key, "Ethernet1");
  }
  sim->call("POST", "/faults",
            "{\"method\":\"ReconfigureDVPort_Task\",\"kind\":\"fault\",\"faultString\":\"busy\",\"after\":1}");
  u.serve(checkForUpdatesRequestFactory("updates"));
  // The injected fault leaves no record of its own.
  Lines blocked = peer::values(sim->call("GET", "/portreconfigs"), "key");
  ASSERT_EQ(blocked.size(), 1u);
  Lines calls = sim->calls();
  EXPECT_EQ(Lines(calls.end() - 2, calls.end()), (Lines{"ReconfigureDVPort_Task", "ReconfigureDVPort_Task"}))
      << "no update call after the failure";
  EXPECT_EQ(log.take().at(0), "HARBEC_RPC_FAULT: The RPC ReconfigureDVPort failed.");
  {
    Kel::ActivityLockAnchor anchor;
    EXPECT_EQ(u.vi->shutDownPortss(), 2u);
    EXPECT_EQ(u.vi->shutDownPorts(blocked[0]), "") << "blocked, so gone";
  }

  u.serve(checkForUpdatesRequestFactory("updates"));
  EXPECT_EQ(sim->calls().back(), "CheckForUpdates");
  for (const char* key : {"3", "4", "5"}) EXPECT_EQ(blockedOf(key), "{\"inherited\":false,\"value\":true}") << key;
  Kel::ActivityLockAnchor anchor;
  EXPECT_EQ(u.vi->shutDownPortss(), 0u);
}

}  // namespace
