// Ties of switch interfaces to hosts and NICs by the neighbours their NICs
// saw, against the vCenter simulator with CDP and LLDP hints set per NIC:
// the ties, which hosts are asked and the counter of answers, and which
// results concern one host.
#include <gtest/gtest.h>

#include "messaging/HarbecTrace.h"
#include "session/HarbecSmInternal.h"
#include "support/SimulatorSuite.h"
#include "support/TraceCapture.h"

using namespace harness;

namespace {

const char kBridge[] = "00:1c:73:aa:bb:cc";

// The simulator's hosts and the network systems their hints come from.
const std::vector<std::pair<std::string, std::string>> kHosts = {
    {"host-23", "hostnetworksystem-18"}, {"host-36", "hostnetworksystem-32"}, {"host-44", "hostnetworksystem-40"}};

std::string cdp(const std::string& devId, const std::string& portId, const std::string& extra = "") {
  return "\"cdp\":{\"devId\":\"" + devId + "\",\"portId\":\"" + portId + "\"" + extra + "}";
}
std::string lldp(const std::string& chassisId, const std::string& portId, const std::string& parameters = "{}") {
  return "\"lldp\":{\"chassisId\":\"" + chassisId + "\",\"portId\":\"" + portId + "\",\"parameters\":" + parameters +
         "}";
}

class HostNetworkHintsTest : public SimulatorSuite {
 protected:
  void SetUp() override {
    SimulatorSuite::SetUp();
    s.connect();
    log.take();
    Kel::ActivityLockAnchor anchor;
    for (const auto& [ref, networkSystem] : kHosts) {
      EsxHost::Ptr host = s.vi->esxHostIs(ref, static_cast<unsigned>(s.vi->esxHosts() + 1));
      host->hostNameIs("esx-" + ref);
      host->networkIdIs(networkSystem);
      host->pnicIs("vmnic0", static_cast<unsigned char>(1));
      host->pnicIs("vmnic1", static_cast<unsigned char>(2));
    }
    for (const char* intf : {"Ethernet1", "Ethernet2", "Ethernet3"}) s.vi->intfToEsxMapIs(intf);
  }
  // What QueryNetworkHint reports for one NIC; no record clears it.
  void hint(const std::string& host, const std::string& device, const std::string& records = "") {
    sim->call("POST", "/hints",
              "{\"host\":\"" + host + "\",\"device\":\"" + device + "\"" + (records.empty() ? "" : ",") + records + "}");
  }
  void update(bool queryAllHosts = true) { update(s, queryAllHosts); }
  static void update(Session& session, bool queryAllHosts) {
    UpdateHostNwInfoRequest::Ptr request = updateHostNwInfoRequestFactory("nwInfo");
    request->bridgeMacAddrIs(kBridge);
    request->queryAllHostsIs(queryAllHosts);
    session.serve(request);
  }
  IntfToEsxMap::Ptr intf(const std::string& name) { return s.vi->intfToEsxMap(name); }
  Pnic::Ptr pnic(const std::string& host, const std::string& device) { return s.vi->esxHost(host)->pnic(device); }
  std::vector<std::string> peer(const std::string& host, const std::string& device) {
    Kel::ActivityLockAnchor anchor;
    Pnic::Ptr p = pnic(host, device);
    return {p->peerDevId().str(), p->peerIntf().str(), p->peerMgmtAddr().str(), p->peerSysName().str()};
  }
  Lines askedNetworkSystems() { return peer::values(sim->call("GET", "/calls?method=QueryNetworkHint"), "value"); }

  LogCapture log;
  // Served on the test's thread, so that traces are captured without a race.
  Session s{"Worker", sim->url, kPassword, false, false};
};

// CDP and LLDP tie interfaces; a neighbour that is another switch only
// shows on the NIC; CDP wins over LLDP; the first answer after the first
// update set marks the initial sync.
TEST_F(HostNetworkHintsTest, CdpAndLldpTieInterfacesToHostsAndNics) {
  hint("host-23", "vmnic0",
       cdp(kBridge, "Ethernet1", ",\"mgmtAddr\":\"10.1.1.1\",\"systemName\":\"leaf1\"") + "," + lldp(kBridge, "Ethernet3"));
  hint("host-36", "vmnic1",
       lldp(kBridge, "Ethernet2", "{\"Management Address\":\"10.1.1.2\",\"System Name\":\"leaf1\",\"Other\":\"x\"}"));
  hint("host-44", "vmnic0", cdp("00:1c:73:00:00:01", "Ethernet9", ",\"systemName\":\"leaf2\""));
  {
    Kel::ActivityLockAnchor anchor;
    s.vi->initialWaitForUpdateIs(true);
  }
  unsigned successes = s.status().successCount;
  update();

  EXPECT_EQ(askedNetworkSystems(), (Lines{"hostnetworksystem-18", "hostnetworksystem-32", "hostnetworksystem-40"}));
  EXPECT_EQ(s.status().successCount, successes + 3);
  EXPECT_EQ(s.status().lastSuccessMsg, "soapMsgNetworkHint");
  EXPECT_EQ(peer("host-23", "vmnic0"), (Lines{kBridge, "Ethernet1", "10.1.1.1", "leaf1"}));
  EXPECT_EQ(peer("host-36", "vmnic1"), (Lines{kBridge, "Ethernet2", "10.1.1.2", "leaf1"}));
  EXPECT_EQ(peer("host-44", "vmnic0"), (Lines{"00:1c:73:00:00:01", "Ethernet9", "", "leaf2"}));
  EXPECT_EQ(peer("host-44", "vmnic1"), (Lines{"", "", "", ""}));
  Kel::ActivityLockAnchor anchor;
  EXPECT_EQ(intf("Ethernet1")->hostRef(), "host-23");
  EXPECT_EQ(intf("Ethernet1")->vmnicKey(), "vmnic0");
  EXPECT_EQ(intf("Ethernet1")->nwInfoRspCnt(), 1u);
  EXPECT_EQ(intf("Ethernet2")->hostRef(), "host-36");
  EXPECT_EQ(intf("Ethernet2")->vmnicKey(), "vmnic1");
  EXPECT_EQ(intf("Ethernet3")->hostRef(), "") << "the LLDP record behind a CDP one counts for nothing";
  EXPECT_EQ(intf("Ethernet3")->nwInfoRspCnt(), 0u);
  EXPECT_TRUE(s.vi->initialSync());
}

// Without queryAllHosts only hosts tied to an interface are asked; a tie to
// an unknown host is cleared; the answer counter wraps at 16 bits.
TEST_F(HostNetworkHintsTest, OnlyTiedHostsAreAskedAndTheCounterWraps) {
  update(false);
  EXPECT_EQ(askedNetworkSystems(), Lines{}) << "no interface is tied yet";
  {
    Kel::ActivityLockAnchor anchor;
    EXPECT_FALSE(s.vi->initialSync());
    s.vi->initialWaitForUpdateIs(true);
    intf("Ethernet1")->hostRefIs("host-36");
    intf("Ethernet1")->nwInfoRspCntIs(65535);
    intf("Ethernet2")->hostRefIs("host-99");
  }
  hint("host-36", "vmnic0", cdp(kBridge, "Ethernet1"));
  TraceCapture trace;
  update(false);
  EXPECT_EQ(askedNetworkSystems(), Lines{"hostnetworksystem-32"});
  EXPECT_TRUE(trace.has("host Ethernet2 in intftoesxmap not found "));
  Kel::ActivityLockAnchor anchor;
  EXPECT_EQ(intf("Ethernet1")->nwInfoRspCnt(), 0u);
  EXPECT_EQ(intf("Ethernet2")->hostRef(), "");
  EXPECT_EQ(intf("Ethernet3")->hostRef(), "") << "an empty tie is cleared all the same";
  EXPECT_TRUE(s.vi->initialSync());
}

// The binding of the session, with the result of QueryNetworkHint for one
// network system replaced after the real call: a reply that could not be
// read, or a fault of gSOAP's other kinds.
struct ResultOfOneHost : VimBinding {
  std::string networkSystem;
  int result = SOAP_OK;
  int __ns2__QueryNetworkHint(ns2__QueryNetworkHintRequestType* request,
                              _ns2__QueryNetworkHintResponse* response) override {
    int ret = VimBinding::__ns2__QueryNetworkHint(request, response);
    return request->_USCOREthis->__item == networkSystem ? result : ret;
  }
};

TEST_F(HostNetworkHintsTest, ResultsThatConcernOneHostAndTheOthers) {
  // Bindings live as long as the process.
  static ResultOfOneHost* binding = new ResultOfOneHost;
  binding->networkSystem = "hostnetworksystem-32";
  s.sm->vimIs(binding);
  s.connect();
  log.take();
  for (const auto& [ref, networkSystem] : kHosts) hint(ref, "vmnic0", cdp(kBridge, "Ethernet1"));
  unsigned answers = 0;
  for (int result : {1, 2, 8, 12, 13, 39}) {
    binding->result = result;
    update();
    answers += 2;
    Kel::ActivityLockAnchor anchor;
    EXPECT_EQ(intf("Ethernet1")->nwInfoRspCnt(), answers) << result;
    EXPECT_EQ(intf("Ethernet1")->hostRef(), "host-44") << result;
  }
  EXPECT_EQ(log.take(), Lines{});

  hint("host-44", "vmnic0", cdp(kBridge, "Ethernet2"));
  binding->result = SOAP_TAG_MISMATCH;
  update();
  EXPECT_EQ(log.take(), Lines{"HARBEC_RPC_FAULT: The RPC QueryNetworkHint failed."});
  EXPECT_EQ(s.state(), sessionConnected);
  Kel::ActivityLockAnchor anchor;
  EXPECT_EQ(intf("Ethernet1")->nwInfoRspCnt(), answers + 1) << "host-23 was done";
  EXPECT_EQ(intf("Ethernet2")->hostRef(), "") << "host-44 was left for the next request";
}

}  // namespace
