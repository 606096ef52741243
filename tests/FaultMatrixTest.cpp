// Every exchange of the vCenter session against every way a vCenter can
// misbehave, over real HTTPS against the simulator: each cell runs in a
// child process and ends there, so that a cell whose failure ends the
// process (exit(-1), or an assertion) is shown like any other. A cell
// names its outcome: how the child ended, the log lines, and the words of
// the failure that the session recorded for the operator.
#include <gtest/gtest.h>
#include <signal.h>
#include <sys/wait.h>

#include <atomic>
#include <chrono>
#include <map>
#include <mutex>
#include <functional>
#include <iostream>
#include <regex>
#include <thread>

#include "peers/VcSim.h"
#include "session/HarbecSmInternal.h"
#include "support/SessionHarness.h"

using namespace harness;

namespace {

enum class Fault {
  refused, drop, dropMidReply, silent, trickle, truncate, corrupt, wrongShape, soapFault,
  status401, status403, status500, status503, huge
};
const char* const kFaultNames[] = {"refused",  "drop",    "dropMidReply", "silent",    "trickle",
                                   "truncate", "corrupt", "wrongShape",   "soapFault", "status401",
                                   "status403", "status500", "status503",  "huge"};

// A cell's child may end by design (exit(-1), an assertion); what a process
// that ends so holds at its end is no leak, and LeakSanitizer, which would
// change its exit status, looks away.
bool inCell = false;
extern "C" int __lsan_is_turned_off() { return inCell; }

class FaultMatrix : public testing::TestWithParam<std::tuple<const char*, Fault>> {
 protected:
  static void SetUpTestSuite() { sim = new vcsim::Simulator(kUser, kPassword); }
  static void TearDownTestSuite() {
    delete sim;
    sim = nullptr;
  }
  void SetUp() override {
    GTEST_FLAG_SET(death_test_style, "fast");
    sim->reset();
  }
  // The rule that makes `method` misbehave as `fault` does, once.
  void arm(const std::string& method, Fault fault) {
    switch (fault) {
      case Fault::refused: break;  // the session is pointed at a closed port
      case Fault::drop: sim->spoil(method, "drop"); break;
      case Fault::dropMidReply: sim->spoil(method, "dropMidReply"); break;
      case Fault::silent: sim->spoil(method, "hang"); break;
      case Fault::trickle: sim->spoil(method, "trickle", R"("bytesPerSecond":20)"); break;
      case Fault::truncate: sim->spoil(method, "truncate"); break;
      case Fault::corrupt: sim->spoil(method, "corrupt"); break;
      case Fault::wrongShape: sim->spoil(method, "wrongShape"); break;
      case Fault::soapFault: sim->spoil(method, "fault", R"("faultString":"busy","faultType":"InvalidState")"); break;
      case Fault::status401: sim->spoil(method, "status", R"("status":401)"); break;
      case Fault::status403: sim->spoil(method, "status", R"("status":403)"); break;
      case Fault::status500: sim->spoil(method, "status", R"("status":500)"); break;
      case Fault::status503: sim->spoil(method, "status", R"("status":503)"); break;
      case Fault::huge: sim->spoil(method, "huge", R"("bytes":104857600)"); break;
    }
  }
  static vcsim::Simulator* sim;
};
vcsim::Simulator* FaultMatrix::sim = nullptr;

// A session as the agent configures it, with short limits for the test.
struct Cell {
  explicit Cell(const std::string& url, const char* instance = "Worker")
      : s(instance, url, kPassword, false, false) {
    // Each line goes to stderr at once too, for the cells that end the process.
    Kel::logSinkIs([this](const Kel::LogHandle& h, const Kel::String8& text) {
      std::string line = h.id().str() + ": " + text.str();
      std::cerr << line << std::endl;
      std::lock_guard<std::mutex> g(mutex);
      lines.push_back(line);
    });
    s.config->replyTimeoutIs(5);
    s.config->connectTimeoutIs(2);
    s.config->maxReplyBytesIs(16 << 20);
  }
  // What the child reports before it ends.
  void report(const std::string& extra = "") {
    if (reported.exchange(true)) return;
    std::string logs;
    {
      std::lock_guard<std::mutex> g(mutex);
      for (const std::string& l : lines) logs += "[" + l + "]";
    }
    Kel::ActivityLockAnchor anchor;
    std::cerr << "\nCELL logs=" << logs << " failures=" << s.soapStatus->failureCount()
              << " detail=" << s.soapStatus->lastFailureDetail() << extra << std::endl;
  }
  std::mutex mutex;
  Lines lines;
  Session s;
  std::atomic<bool> reported{false};
};

// Each exchange: the method the simulator sees, and how a session reaches
// it: `prepare` brings the session to the point where the next request
// makes the call, `trigger` makes it.
struct Exchange {
  const char* method;
  std::function<void(Cell&)> prepare;
  std::function<void(Cell&)> trigger;
};

void connect(Cell& c) { c.s.connect(); }
void sync(Cell& c) {
  c.s.connect();
  c.s.serve(checkForUpdatesRequestFactory("sync"));
}
SoapRequest::Ptr withPorts(SoapRequest::Ptr r) {
  if (auto f = Kel::ptr_cast<FetchDvPortRequest>(r)) f->dvPortEnq(1);
  if (auto f = Kel::ptr_cast<RefreshDvPortRequest>(r)) f->dvPortEnq(1);
  return r;
}
const std::map<std::string, Exchange>& exchanges() {
  static const std::map<std::string, Exchange> table = {
      {"RetrieveServiceContent", {"RetrieveServiceContent", [](Cell&) {}, connect}},
      {"Login", {"Login", [](Cell&) {}, connect}},
      {"CurrentTime", {"CurrentTime", connect, [](Cell& c) { c.s.probe(); }}},
      {"CreateFilter", {"CreateFilter", [](Cell&) {}, connect}},
      {"CreateCollectorForEvents", {"CreateCollectorForEvents", [](Cell&) {}, connect}},
      {"SetCollectorPageSize", {"SetCollectorPageSize", [](Cell&) {}, connect}},
      {"WaitForUpdates", {"WaitForUpdates", connect, [](Cell& c) {
         CheckForUpdatesRequest::Ptr r = checkForUpdatesRequestFactory("wait");
         r->blockIs(true);
         c.s.serve(r);
       }}},
      {"CheckForUpdates", {"CheckForUpdates", connect, [](Cell& c) { c.s.serve(checkForUpdatesRequestFactory("r")); }}},
      {"QueryNetworkHint", {"QueryNetworkHint", sync, [](Cell& c) {
         UpdateHostNwInfoRequest::Ptr r = updateHostNwInfoRequestFactory("hints");
         r->bridgeMacAddrIs("00:1c:73:aa:bb:cc");
         r->queryAllHostsIs(true);
         c.s.serve(r);
       }}},
      {"FetchDVPorts", {"FetchDVPorts", connect, [](Cell& c) { c.s.serve(withPorts(fetchDvPortRequestFactory("r"))); }}},
      {"RefreshDVPortState", {"RefreshDVPortState", connect,
                              [](Cell& c) { c.s.serve(withPorts(refreshDvPortRequestFactory("r"))); }}},
      {"ReconfigureDVPort", {"ReconfigureDVPort_Task", connect, [](Cell& c) {
         BlockPortRequest::Ptr r = blockPortRequestFactory("block");
         r->portIs(1);
         c.s.serve(r);
       }}},
      {"LogUserEvent", {"LogUserEvent", connect, [](Cell& c) { c.s.post({"message"}); }}},
      {"CreateAlarm", {"CreateAlarm", connect, [](Cell& c) {
         try {
           createAlarm(c.s.sm, c.s.sm->vim(), rootFolderRef.__item, "Folder", "alarm");
         } catch (const SoapException& e) {
           c.report(" exception=" + e.what().str());
         }
       }}},
  };
  return table;
}

// The outcome of each cell, one letter per fault in the order of Fault:
//   C  the connect fails and is logged; the session is disconnected
//   A  the process ends on the assertion for an exception the state
//      does not expect (a failure after the login of a connect)
//   E  the process ends with exit(-1): gSOAP shows the failure as a
//      client-side time-out (end of input, no error number)
//   F  a fatal failure of the live session, logged; the process goes on,
//      since the agent does not ask for an exit
//   R  a recoverable failure, logged
//   P  a fault about one host: the pass goes on, nothing logged
//   X  the caller gets the SoapException
//   W  still waiting after 3 s, as WaitForUpdates does until vCenter answers
//                                        refused drop mid silent trickle truncate corrupt shape fault 401 403 500 503 huge
const std::map<std::string, std::string> kOutcomes = {
    {"RetrieveServiceContent",   "CCCCCCCCCCCCCC"},
    {"Login",                    "CCCCCCCCCCCCCC"},
    {"CurrentTime",              "FEFEFFEFFFFFFE"},
    {"CreateFilter",             "CAAAAAAAAAAAAA"},
    {"CreateCollectorForEvents", "CAAAAAAAAAAAAA"},
    {"SetCollectorPageSize",     "CAAAAAAAAAAAAA"},
    {"WaitForUpdates",           "FEEWFEEFFFFFFE"},
    {"CheckForUpdates",          "FEEEFEEFFFFFFE"},
    {"QueryNetworkHint",         "RERERRERPRRRRE"},
    {"FetchDVPorts",             "FEEEFEEFFFFFFE"},
    {"RefreshDVPortState",       "FEFEFFEFFFFFFE"},
    {"ReconfigureDVPort",        "FEFEFFEFFFFFFE"},
    {"LogUserEvent",             "RERERRERRRRRRE"},
    {"CreateAlarm",              "XXXXXXXXXXXXXX"},
};

// What the session recorded for the operator, by fault.
const char* const kWords[] = {
    "no connection: Connection refused",
    "connection closed before the reply was complete",
    "connection closed before the reply was complete|HTTP 200, but no readable reply to the call",
    "no complete reply within 0.5 s",
    "no complete reply within 0.5 s",
    "no complete reply within 0.5 s|HTTP 200, but no readable reply to the call",
    "no complete reply within 0.5 s|HTTP 200, but no readable reply to the call|connection closed before the reply was complete",
    "HTTP 200, but no readable reply to the call",
    "SOAP fault InvalidState: busy",
    "HTTP 401 Unauthorized",
    "HTTP 403 Forbidden",
    "HTTP 500 Internal Server Error",
    "HTTP 503 Service Unavailable",
    "reply larger than 16777216 bytes",
};

bool updateThreadCall(const std::string& name) {
  for (const char* n : {"CreateFilter", "CreateCollectorForEvents", "SetCollectorPageSize", "WaitForUpdates",
                        "CheckForUpdates", "QueryNetworkHint"})
    if (name == n) return true;
  return false;
}

// The regular expression for what the child writes before it ends.
std::string expectedReport(const std::string& name, Fault fault, char outcome) {
  const std::string words = std::string("(") + kWords[static_cast<int>(fault)] + ")";
  const std::string restart = "\\[HARBEC_AGENT_RESTART: Agent restarting due to network error.\\]";
  // The calls that SoapStatus does not report leave its count alone.
  const bool reported = name != "ReconfigureDVPort" && name != "LogUserEvent";
  const std::string counted = std::string(" failures=") + (reported ? "1" : "0") + " detail=";
  switch (outcome) {
    case 'C': {
      bool login = name == "Login" && fault != Fault::refused;
      std::string what = login ? "Invalid username and password." : "RetrieveServiceContent";
      return "CELL logs=\\[HARBEC_CONNECT_FAILED: Failed to connect to vCenter. " + what + "\\] failures=1 detail=" +
             what + ": " + words;
    }
    case 'F':
      return "CELL logs=.*" + std::string(name == "CurrentTime" ? "\\[HARBEC_COMMUNICATION_ERROR[^]]*\\]" : "") +
             "\\[HARBEC_RPC_FAULT: The RPC " + name + " failed.\\]" + restart + counted + name + ": " + words;
    case 'R': return "CELL logs=.*\\[HARBEC_RPC_FAULT: The RPC " + name + " failed.\\]" + counted + name + ": " + words;
    case 'P': return "CELL logs=\\[HARBEC_VCENTER_CONNECTED[^]]*\\]" + counted + "\n";
    case 'X': return "exception=CreateAlarm";
    case 'W': return "CELL waiting";
    default: return "";
  }
}

TEST_P(FaultMatrix, Cell) {
  const std::string cname = std::get<0>(GetParam());
  const Fault fault = std::get<1>(GetParam());
  const std::string name = cname;
  const Exchange& x = exchanges().at(name);
  const char outcome = kOutcomes.at(name)[static_cast<int>(fault)];
  auto run = [&] {
    inCell = true;
    std::unique_ptr<vcsim::Simulator> own;
    if (fault == Fault::refused) own = std::make_unique<vcsim::Simulator>(kUser, kPassword);
    Cell c(own ? own->url : sim->url, updateThreadCall(name) ? "UpdateThread" : "Worker");
    x.prepare(c);
    // The plain road of DV ports names no switch; here it reaches one.
    (own ? *own : *sim).call("POST", "/options", "{\"emptyDvsRef\":\"dvs-9\"}");
    if (own)
      own->stop();
    else
      arm(x.method, fault);
    // Short for the call under test, where a fault makes it wait: read by
    // the next connect, and by the calls of the live session.
    c.s.config->replyTimeoutIs(0.5);
    c.s.sm->vim()->replyTimeout = 0.5;
    std::thread trigger([&] {
      x.trigger(c);
      c.report();
      std::fflush(nullptr);
      _exit(0);
    });
    trigger.detach();
    std::this_thread::sleep_for(std::chrono::seconds(outcome == 'W' ? 3 : 20));
    std::cerr << "\nCELL waiting" << std::endl;
    _exit(0);
  };
  switch (outcome) {
    case 'A': EXPECT_EXIT(run(), testing::KilledBySignal(SIGABRT), "Unexpect SOAP exception type"); break;
    case 'E': EXPECT_EXIT(run(), testing::ExitedWithCode(255), "HARBEC_AGENT_RESTART"); break;
    default: EXPECT_EXIT(run(), testing::ExitedWithCode(0), expectedReport(name, fault, outcome));
  }
}

INSTANTIATE_TEST_SUITE_P(
    All, FaultMatrix,
    testing::Combine(testing::Values("RetrieveServiceContent", "Login", "CurrentTime", "CreateFilter",
                                     "CreateCollectorForEvents", "SetCollectorPageSize", "WaitForUpdates",
                                     "CheckForUpdates", "QueryNetworkHint", "FetchDVPorts", "RefreshDVPortState",
                                     "ReconfigureDVPort", "LogUserEvent", "CreateAlarm"),
                     testing::Values(Fault::refused, Fault::drop, Fault::dropMidReply, Fault::silent, Fault::trickle,
                                     Fault::truncate, Fault::corrupt, Fault::wrongShape, Fault::soapFault,
                                     Fault::status401, Fault::status403, Fault::status500, Fault::status503,
                                     Fault::huge)),
    [](const testing::TestParamInfo<FaultMatrix::ParamType>& i) {
      return std::string(std::get<0>(i.param)) + "_" + kFaultNames[static_cast<int>(std::get<1>(i.param))];
    });

}  // namespace
