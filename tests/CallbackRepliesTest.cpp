// Counters for a client waiting on a socket, against the vCenter simulator:
// a real socket pair stands for the client, the answer is parked under the
// socket and the inventory is left alone; a failed call closes the socket
// and puts the saved SIGPIPE action back. The assertions of the road end the
// process.
#include <gtest/gtest.h>
#include <poll.h>
#include <sys/socket.h>

#include <csignal>
#include <deque>
#include <memory>

#include "session/HarbecSmInternal.h"
#include "support/SimulatorSuite.h"
#include "support/SimPorts.h"

using namespace harness;

namespace {

void onPipe(int) {}

class CallbackRepliesTest : public SimulatorSuite {
 protected:
  void SetUp() override {
    SimulatorSuite::SetUp();
    s.connect();
    log.take();
    simports::seed(s.vi, simports::ports(*sim, "dvs-9"));
    ASSERT_EQ(socketpair(AF_UNIX, SOCK_STREAM, 0, client), 0);
    // The agent's saved action, and SIGPIPE ignored while it talks to a client.
    struct sigaction saved = {};
    saved.sa_handler = onPipe;
    currentAction = saved;
    signal(SIGPIPE, SIG_IGN);
  }
  void TearDown() override {
    close(client[0]);
    close(client[1]);
    signal(SIGPIPE, SIG_DFL);
  }
  template <class Request>
  Kel::Ptr<Request> withCallback(Kel::Ptr<Request> request, std::vector<unsigned> ports) {
    request->targetCallbackIs("cli-7");
    request->socketIs(static_cast<unsigned>(client[0]));
    request->dvsMoIdIs("dvs-9");
    request->intfIs("Ethernet5");
    request->vmIs("vm-50");
    for (unsigned p : ports) request->dvPortEnq(p);
    return request;
  }
  FetchDvPortResponse::Ptr parked() {
    Kel::ActivityLockAnchor anchor;
    return Kel::ptr_cast<FetchDvPortResponse>(s.vi->responsesWithCallback(static_cast<unsigned>(client[0])));
  }
  // The client's view: end of file, or nothing to read yet.
  bool clientSeesEndOfFile() {
    pollfd p{client[1], POLLIN, 0};
    char c;
    return poll(&p, 1, 1000) == 1 && read(client[1], &c, 1) == 0;
  }
  bool pipeActionRestored() {
    struct sigaction now;
    sigaction(SIGPIPE, nullptr, &now);
    return now.sa_handler == onPipe;
  }
  // Whether any NIC of the inventory has been given counters.
  bool inventoryTouched() {
    Kel::ActivityLockAnchor anchor;
    for (VI::VmIterator i = s.vi->vmIterator(); i; ++i)
      for (Vm::VnicIterator n = i.value()->vnicIterator(); n; ++n)
        if (n.value()->counterRefreshTime() != 0.0) return true;
    for (VI::EsxHostIterator i = s.vi->esxHostIterator(); i; ++i)
      for (EsxHost::PnicIterator n = i.value()->pnicIterator(); n; ++n)
        if (n.value()->counterRefreshTime() != 0.0) return true;
    return false;
  }

  LogCapture log;
  Session s{"Worker", sim->url, kPassword, true};
  int client[2] = {-1, -1};
};

TEST_F(CallbackRepliesTest, FetchParksTheAnswerUnderTheSocket) {
  simports::setPort(*sim, "3", std::string("\"mtu\":9000,\"blocked\":{\"inherited\":true,\"value\":false},\"stats\":") +
                                  simports::kStatsJson);
  simports::setPort(*sim, "0", "\"linkUp\":false");
  s.serve(withCallback(fetchDvPortRequestFactory("fetch"), {0, 3}));
  FetchDvPortResponse::Ptr response = parked();
  ASSERT_TRUE(response);
  EXPECT_EQ(response->socket(), static_cast<unsigned>(client[0]));
  EXPECT_EQ(response->targetCallback(), "cli-7");
  EXPECT_EQ(response->intf(), "Ethernet5");
  EXPECT_EQ(response->vm(), "vm-50");
  EXPECT_EQ(response->dvsMoId(), "dvs-9");
  EXPECT_EQ(response->dvPortStats(), 2u);
  EXPECT_EQ(response->dvPortStat("3"), simports::statsOfJson());
  // Beside the counters, what each port said of itself.
  EXPECT_EQ(response->dvPortLink("0"), Interface::linkStatusDown);
  EXPECT_EQ(response->dvPortLink("3"), Interface::linkStatusUp);
  EXPECT_EQ(response->dvPortMtu("3"), 9000u);
  EXPECT_EQ(response->dvPortBlocked("3") + (response->dvPortBlockedInherited("3") ? " inherited" : ""), "false inherited");
  EXPECT_EQ(response->dvPortBlocked("0"), "");
  EXPECT_EQ(response->responseType(), fetchDvPortResponseType);
  EXPECT_FALSE(inventoryTouched());
  EXPECT_EQ(peer::values(sim->call("GET", "/calls?method=FetchDVPorts"), "value"), Lines{"dvs-9"});
  EXPECT_EQ(s.status().lastSuccessMsg, "soapMsgFetchDvPorts");
  pollfd p{client[1], POLLIN, 0};
  EXPECT_EQ(poll(&p, 1, 0), 0) << "the socket stays open for the agent";

  // Delivered: the agent drops the entry and closes the socket.
  {
    Kel::ActivityLockAnchor anchor;
    s.vi->responsesWithCallbackDel(static_cast<unsigned>(client[0]));
  }
  closeSocket(static_cast<unsigned>(client[0]));
  client[0] = -1;
  EXPECT_TRUE(clientSeesEndOfFile());
  EXPECT_TRUE(pipeActionRestored());
}

// Recoverable on this road, even for a session that exits on fatal faults:
// the client reads end of file and nothing is parked.
TEST_F(CallbackRepliesTest, AFailedCallClosesTheSocketAndParksNothing) {
  sim->fault("FetchDVPorts", "fault", "busy");
  s.serve(withCallback(fetchDvPortRequestFactory("fetch"), {3}));
  EXPECT_TRUE(clientSeesEndOfFile());
  EXPECT_TRUE(pipeActionRestored());
  EXPECT_FALSE(parked());
  EXPECT_EQ(log.take(), Lines{"HARBEC_RPC_FAULT: The RPC FetchDVPorts failed."});
  EXPECT_EQ(s.status().lastFailedMsg, "soapMsgFetchDvPorts");
  close(client[1]);

  ASSERT_EQ(socketpair(AF_UNIX, SOCK_STREAM, 0, client), 0);
  signal(SIGPIPE, SIG_IGN);
  sim->fault("RefreshDVPortState", "fault", "busy");
  s.serve(withCallback(refreshDvPortRequestFactory("refresh"), {3}));
  EXPECT_TRUE(clientSeesEndOfFile());
  EXPECT_TRUE(pipeActionRestored());
  EXPECT_FALSE(parked());
  EXPECT_EQ(log.take(), Lines{"HARBEC_RPC_FAULT: The RPC RefreshDVPortState failed."});
  EXPECT_EQ(sim->calls().back(), "RefreshDVPortState") << "no fetch after a failed refresh";
  client[0] = -1;
}

TEST_F(CallbackRepliesTest, RequestsWithoutSocketOrSwitchAreAssertions) {
  FetchDvPortRequest::Ptr fetch = withCallback(fetchDvPortRequestFactory("fetch"), {3});
  fetch->socketIs(0);
  EXPECT_DEATH(s.sm->processSoapRequest(fetch),
               "request->socket\\(\\) > 0 && \"FetchDvPortRequest missing callback socket.\"");
  fetch = withCallback(fetchDvPortRequestFactory("fetch"), {3});
  fetch->dvsMoIdIs("");
  EXPECT_DEATH(s.sm->processSoapRequest(fetch),
               "request->dvsMoId\\(\\).size\\(\\) && \"FetchDvPortRequest missing DVS MoId.\"");
  RefreshDvPortRequest::Ptr refresh = withCallback(refreshDvPortRequestFactory("refresh"), {3});
  refresh->socketIs(0);
  EXPECT_DEATH(s.sm->processSoapRequest(refresh),
               "request->socket\\(\\) > 0 && \"RefreshDvPortReq missing cli callback  socket.\"");
  refresh = withCallback(refreshDvPortRequestFactory("refresh"), {3});
  refresh->dvsMoIdIs("");
  EXPECT_DEATH(s.sm->processSoapRequest(refresh),
               "request->dvsMoId\\(\\).size\\(\\) && \"RefreshDvPortReq missing DVS MoId.\"");
}

// A reply without counters, which vCenter's schema allows and the
// simulator's model cannot send: the binding hands back a hand-built port.
struct PortWithoutStats : VimBinding {
  ns2__DistributedVirtualPort port;
  ns2__DistributedVirtualSwitchPortConnectee connectee;
  ns2__DVPortState state;
  std::string type = "vmVnic";
  int __ns2__FetchDVPorts(ns2__FetchDVPortsRequestType*, _ns2__FetchDVPortsResponse* response) override {
    port.key = "3";
    connectee.type = &type;
    port.connectee = &connectee;
    port.state = &state;
    response->returnval.push_back(&port);
    return SOAP_OK;
  }
};

}  // namespace
