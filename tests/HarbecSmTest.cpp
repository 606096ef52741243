// The vCenter session: login and its failures against the vCenter simulator
// over HTTPS on 127.0.0.1, on SoapThreads as the host agent runs them;
// the failure policy on a live session, with faults injected by the
// simulator and process exits shown by death tests; user events; and, with
// hand-built state, the rows of the failure table that no server produces,
// and the status bookkeeping.
#include <gmock/gmock.h>
#include <gtest/gtest.h>
#include <semaphore.h>

#include <ctime>
#include <mutex>
#include <utility>

#include "Kel/Lock.h"
#include "Kel/Log.h"
#include "messaging/HarbecTrace.h"
#include "peers/VcSim.h"
#include "support/SimulatorSuite.h"
#include "support/TraceCapture.h"
#include "session/HarbecSmInternal.h"
#include "session/updates/HostIds.h"

using namespace Harbec;
using namespace harness;

namespace {

// Re-executed children: the sessions' threads and sockets stay out of them.
void useThreadsafeDeathTests() { GTEST_FLAG_SET(death_test_style, "threadsafe"); }

// The output of a process that died holds each of `present`, in this
// order, and none of `absent`.
testing::Matcher<const std::string&> output(Lines present, Lines absent = {}) {
  return testing::Truly([present, absent](const std::string& out) {
    size_t at = 0;
    for (const std::string& t : present) {
      if ((at = out.find(t, at)) == std::string::npos) return false;
      at += t.size();
    }
    for (const std::string& t : absent)
      if (out.find(t) != std::string::npos) return false;
    return true;
  });
}

const std::string kRestart = "HARBEC_AGENT_RESTART: Agent restarting due to network error.";
const std::string kLossOfConnectivity = "HARBEC_COMMUNICATION_ERROR: Loss of connectivity to vCenter.";
std::string rpcFault(const std::string& rpc) { return "HARBEC_RPC_FAULT: The RPC " + rpc + " failed."; }
// "https://127.0.0.1:41523/sdk" -> "127.0.0.1:41523"
std::string hostOf(const std::string& url) {
  size_t from = url.find("//") + 2;
  return url.substr(from, url.find('/', from) - from);
}

// Against one simulator for the whole suite; each test starts from a clean
// record of calls and without fault rules.
class HarbecSmTest : public SimulatorSuite {
 protected:
  LogCapture log;
};

TEST_F(HarbecSmTest, UpdateThreadClearsTheInventoryAndLogsIn) {
  Session s("UpdateThread", sim->url);
  freeAllHostIds();
  {
    Kel::ActivityLockAnchor anchor;
    s.vi->esxHostIs("host-23", getHostId())->hostNameIs("esx1");
    s.vi->esxHostIs("host-24", getHostId());
    s.vi->vmIs("vm-50")->vmNameIs("web");
    s.vi->newPortIs("7", "dvs-9");
    s.vi->portGroupIs("dvportgroup-13");
    s.vi->initialWaitForUpdateIs(true);
  }
  s.sm->versionIs("12");
  s.connect();

  EXPECT_EQ(s.state(), sessionConnected);
  EXPECT_EQ(log.take(), Lines{"HARBEC_VCENTER_CONNECTED: Pathline agent successfully connected to vCenter " +
                              hostOf(sim->url) + "."});
  // The filters follow the login: the first collector, asked for with no
  // filter, and the time are not counted.
  StatusView st = s.status();
  EXPECT_EQ(st.successCount, 6u);
  EXPECT_EQ(st.failureCount, 0u);
  EXPECT_EQ(st.lastMsgSent, "soapMsgCreateFilter");
  EXPECT_EQ(st.lastSuccessMsg, "soapMsgCreateFilter");
  EXPECT_EQ(sim->calls(), (Lines{"RetrieveServiceContent", "Login", "CreateFilter", "CurrentTime",
                                 "CreateCollectorForEvents", "CreateCollectorForEvents", "SetCollectorPageSize",
                                 "CreateFilter"}));
  {
    Kel::ActivityLockAnchor anchor;
    EXPECT_EQ(s.vi->esxHosts(), 0u);
    EXPECT_EQ(s.vi->vms(), 0u);
    EXPECT_EQ(s.vi->newPorts(), 0u);
    EXPECT_EQ(s.vi->portGroups(), 1u);
    EXPECT_TRUE(s.vi->initialWaitForUpdate());
  }
  EXPECT_EQ(s.sm->version(), "");
  EXPECT_EQ(getHostId(), 1u) << "the host ids went with the hosts";
  EXPECT_EQ(rootFolderRef.__item, sim->rootFolder());
  for (const auto& [ref, type] : {std::pair{&rootFolderRef, "Folder"}, {&eventManagerRef, "EventManager"},
                                  {&propertyCollectorRef, "PropertyCollector"}, {&alarmManagerRef, "AlarmManager"}})
    EXPECT_EQ(ref->type ? *ref->type : "", type);
  EXPECT_EQ(dvsMor.__item + (dvsMor.type ? "typed" : ""), "");
}

// Certificates are taken as they come, unless the agent gives CAs: then the
// simulator's self-signed one is refused.
TEST_F(HarbecSmTest, CertificateCheckedOnlyAgainstTheGivenCas) {
  Session s("Worker", sim->url);
  s.config->caFileIs("/etc/ssl/certs/ca-certificates.crt");
  s.connect();
  EXPECT_EQ(s.state(), sessionDisconnected);
  Kel::ActivityLockAnchor anchor;
  EXPECT_EQ(s.soapStatus->lastFailureDetail().str().rfind("RetrieveServiceContent: TLS failure: ", 0), 0u)
      << s.soapStatus->lastFailureDetail();
}

// On a live session a "Try Again" fault is neither logged nor a reason to
// exit; a recoverable fault is logged; the thread goes on with its queue.
TEST_F(HarbecSmTest, FaultsThatLeaveTheSessionRunning) {
  Session s("Worker", sim->url, kPassword, true);
  s.connect();
  log.take();

  sim->fault("CurrentTime", "fault", "Try Again");
  s.probe();
  EXPECT_EQ(log.take(), Lines{kLossOfConnectivity});
  EXPECT_EQ(s.state(), sessionConnected);
  EXPECT_EQ(s.status().failureCount, 1u);
  EXPECT_NE(s.status().lastError.find("Try Again"), std::string::npos) << s.status().lastError;

  sim->fault("LogUserEvent", "fault", "busy");
  s.post({"lost with the fault", "lost behind it"});
  EXPECT_EQ(log.take(), Lines{rpcFault("LogUserEvent")});
  s.post({"posted"});
  EXPECT_EQ(sim->userEventMessages(), Lines{"posted"});
  EXPECT_EQ(s.status().failureCount, 1u) << "user events are not counted";
}

// Once vCenter is gone, a live session restarts the agent only when told to.
TEST_F(HarbecSmTest, LostvCenterEndsTheProcessOnlyWhenConfigured) {
  vcsim::Simulator gone(kUser, kPassword);
  Session keepsRunning("Worker", gone.url, kPassword, false);
  Session exits("Worker", gone.url, kPassword, true, false);
  keepsRunning.connect();
  exits.connect();
  gone.stop();
  log.take();

  keepsRunning.probe();
  EXPECT_EQ(log.take(), (Lines{kLossOfConnectivity, rpcFault("CurrentTime"), kRestart}));
  keepsRunning.probe();
  EXPECT_EQ(log.take().size(), 3u) << "the thread went on";
  EXPECT_EQ(keepsRunning.state(), sessionConnected);

  EXPECT_EXIT(
      {
        Kel::logSinkIs(nullptr);
        exits.probe();
      },
      testing::ExitedWithCode(255), output({rpcFault("CurrentTime"), kRestart, kRestart}));
}

// Rows of the failure table that no server produces, on hand-set state.
class SoapExceptionTable : public testing::Test {
 protected:
  void SetUp() override { useThreadsafeDeathTests(); }
  void stateIs(SessionState state) { updateSessionStatus(s.sessionStatus, state); }
  // How gSOAP leaves a context whose socket timed out.
  void timeOut() {
    s.sm->vim()->soap->error = SOAP_EOF;
    s.sm->vim()->soap->errnum = 0;
  }

  Session s{"Worker", "", kPassword, true, false};
  LogCapture log;
};

TEST_F(SoapExceptionTable, TimeOutOnALiveSessionEndsTheProcessWhateverTheFault) {
  stateIs(sessionConnected);
  timeOut();
  EXPECT_EXIT(
      {
        Kel::logSinkIs(nullptr);
        handleSoapException(s.sm, SoapException(SoapException::recoverableRpcException, "LogUserEvent"));
      },
      testing::ExitedWithCode(255), output({rpcFault("LogUserEvent"), kRestart}));
  *soap_faultstring(s.sm->vim()->soap) = "Try Again";
  EXPECT_EXIT(
      {
        Kel::logSinkIs(nullptr);
        handleSoapException(s.sm, SoapException(SoapException::fatalRpcException, "WaitForUpdates"));
      },
              testing::ExitedWithCode(255), output({kRestart}, {"HARBEC_RPC_FAULT", kRestart + "\n" + kRestart}));
}

TEST_F(SoapExceptionTable, UnexpectedExceptionsAndStatesAreAssertions) {
  const std::string unexpected = "0 && \"Unexpect SOAP exception type.\"";
  stateIs(sessionInit);
  EXPECT_DEATH(handleSoapException(s.sm, SoapException(SoapException::fatalRpcException, "CurrentTime")),
               unexpected);
  stateIs(sessionConnected);
  for (SoapException::Id id : {SoapException::connectionException, SoapException::authenticationException,
                               SoapException::unknownSoapException, SoapException::viException}) {
    EXPECT_DEATH(
        {
          Harbec::traceHandle().levelsUpTo(0);
          handleSoapException(s.sm, SoapException(id, "CreateFilter"));
        },
        output({"Unexpected SOAP exception in sessionConnected state.", "\tDetails: CreateFilter", unexpected}));
  }
  stateIs(SessionState(3));
  EXPECT_DEATH(
      {
        Harbec::traceHandle().levelsUpTo(0);
        handleSoapException(s.sm, SoapException(SoapException::fatalRpcException, "CurrentTime"));
      },
      output({"Unexpected session state SessionState(3)", "0 && \"Unexpect session state.\""}));
}

// Only the message in flight may be answered.
TEST(SoapStatusUpdates, AnswerToAnotherMessageIsAnAssertion) {
  useThreadsafeDeathTests();
  SoapStatus::Ptr status = soapStatusFactory("soapStatus");
  updateSoapMsgSent(status, soapMsgLogin);
  EXPECT_DEATH(updateSoapStatus(status, soapMsgCurrentTime, soapResultOk),
               output({"displaySoapMsg == soapStatus->lastMsgSent()"}));
  EXPECT_DEATH(updateSoapStatus(status, soapMsgCurrentTime, soapResultFailed),
               output({"displaySoapMsg == soapStatus->lastMsgSent()"}));
  updateSoapStatus(status, soapMsgLogin, soapResultFailed);
  EXPECT_EQ(status->lastFailedMsgSentTime(), status->lastMsgSentTime());
  EXPECT_GE(status->lastResponseTime(), status->lastMsgSentTime());
}

}  // namespace
