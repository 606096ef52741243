// The agent's HTTP interface against the vCenter simulator: the view, its
// changes as server-sent events, metrics, health, the token, and the web
// page in a real browser that follows a change without a reload.
#include <gtest/gtest.h>
#include <httplib.h>
#include <signal.h>

#include <sys/stat.h>

#include <algorithm>
#include <atomic>
#include <chrono>
#include <fstream>
#include <map>
#include <set>
#include <thread>

#include <nlohmann/json.hpp>

#include "agent/HttpService.h"
#include "peers/VcSim.h"
#include "support/RunningAgent.h"

namespace {

using agenttest::Running;

const char kUser[] = "administrator@vsphere.local";
const char kBridgeMac[] = "00:1c:73:aa:bb:cc";

// A simulator whose first host's distributed uplink is cabled to this
// switch's Ethernet7 (or another port), and the first machine behind that
// interface.
struct CabledSimulator {
  vcsim::Simulator vc{kUser, "vmware"};
  explicit CabledSimulator(const std::string& port = "Ethernet7") {
    std::string host;
    for (const std::string& ref : peer::values(vc.call("GET", "/inventory"), "ref"))
      if (host.empty() && ref.rfind("host-", 0) == 0) host = ref;
    vc.call("POST", "/hints", "{\"host\":\"" + host + "\",\"device\":\"vmnic1\",\"cdp\":{\"devId\":\"" + kBridgeMac +
                                  "\",\"portId\":\"" + port + "\"}}");
  }
  std::vector<std::string> agentArgs(std::vector<std::string> more) {
    std::vector<std::string> args{"--vcenter", vc.url, "--user", kUser, "--password-file", "-", "--bridge-mac",
                                  kBridgeMac, "--quiet", "--poll", "1", "--listen", "127.0.0.1:0"};
    args.insert(args.end(), more.begin(), more.end());
    return args;
  }
};

// The address the agent says it serves ("http://127.0.0.1:PORT").
std::string servedAt(Running& agent) {
  std::string line = agent.errorWith("serving HTTP on ");
  EXPECT_FALSE(line.empty());
  return "http://" + line.substr(line.rfind(' ') + 1);
}

httplib::Client client(const std::string& at, const std::string& token = "") {
  httplib::Client c(at);
  c.set_connection_timeout(5);
  c.set_read_timeout(20);
  if (!token.empty()) c.set_bearer_token_auth(token.c_str());
  return c;
}

// Headless Chromium on the page at `at`: the simulator powers `vm` off, and
// its row changes without a reload.
void browserSeesPowerOff(const std::string& at, vcsim::Simulator& vc, const nlohmann::json& vm) {
  std::string command = std::string("timeout 60 ") + HARBEC_BROWSER_TEST + " " + at + "/ " + vc.control + " " +
                        vm["ref"].get<std::string>() + " " + vm["name"].get<std::string>();
  if (const char* shot = std::getenv("HARBEC_SCREENSHOT")) command += std::string(" ") + shot;
  command += " 2>&1";
  FILE* p = popen(command.c_str(), "r");
  std::string said;
  char buf[4096];
  for (size_t n; (n = fread(buf, 1, sizeof buf, p)) > 0;) said.append(buf, n);
  EXPECT_EQ(pclose(p), 0) << said;
}

// Waits for /readyz, at most 20 s.
bool ready(httplib::Client& c) {
  for (int i = 0; i < 200; ++i) {
    if (auto r = c.Get("/readyz"); r && r->status == 200) return true;
    usleep(100000);
  }
  return false;
}

// The interface in this process, with what the work would publish.
TEST(AgentHttp, BoardKeepsTheLastChangesAndWritesPrometheusText) {
  HarbecAgent::Board board;
  HarbecAgent::HttpService http(board);
  std::string error;
  const std::string at = http.start({"127.0.0.1:0", "", "", ""}, &error);
  httplib::Client c = client("http://" + at);
  ASSERT_EQ(error, "");
  EXPECT_EQ(c.Get("/readyz")->status, 503);
  EXPECT_EQ(c.Get("/api/v1/view")->status, 503);
  board.viewIs("{}");
  EXPECT_EQ(c.Get("/readyz")->status, 200);
  EXPECT_EQ(c.Get("/api/v1/view")->body, "{}\n");

  board.add({"harbec_exchanges_total", "peer=\"vcenter\""}, 2);
  board.set({"harbec_up", ""}, 1);
  EXPECT_EQ(c.Get("/metrics")->body,
            "# HELP harbec_up 1 while the agent's work runs\n# TYPE harbec_up gauge\nharbec_up 1\n"
            "# HELP harbec_exchanges_total Requests carried out, by peer, kind and result\n"
            "# TYPE harbec_exchanges_total counter\nharbec_exchanges_total{peer=\"vcenter\"} 2\n");

  uint64_t next = 0;
  EXPECT_TRUE(board.changesAfter(&next, 0).empty()) << "a reader starts with the changes to come";
  for (int i = 0; i < 1005; ++i) board.changed({"change " + std::to_string(i)});
  std::vector<std::string> got = board.changesAfter(&next, 0);
  ASSERT_EQ(got.size(), HarbecAgent::Board::kKeptChanges) << "a reader that lags loses the oldest";
  EXPECT_EQ(got.front(), "change 5");
  EXPECT_TRUE(board.changesAfter(&next, 0.01).empty());

  HarbecAgent::HttpService again(board);
  EXPECT_EQ(again.start({at, "", "", ""}, &error), "") << "the address is taken";
  EXPECT_EQ(error.rfind("cannot listen on " + at, 0), 0u) << error;
}

TEST(AgentHttp, ServesTheViewItsChangesMetricsAndHealthToTokenHolders) {
  CabledSimulator sim;
  std::string tokenFile = testing::TempDir() + "agent-token-" + std::to_string(getpid());
  std::ofstream(tokenFile) << "s3cret\n";
  Running agent(sim.agentArgs({"--http-token-file", tokenFile}), "vmware\n");
  const std::string at = servedAt(agent);
  auto bare = client(at).Get("/healthz");
  ASSERT_TRUE(bare);
  EXPECT_EQ(bare->status, 401);
  httplib::Client c = client(at, "s3cret");
  ASSERT_TRUE(ready(c));
  EXPECT_EQ(c.Get("/healthz")->status, 200);

  auto view = nlohmann::json::parse(c.Get("/api/v1/view")->body);
  ASSERT_EQ(view["interfaces"][0]["name"], "Ethernet7") << view.dump();
  const nlohmann::json& vm = view["interfaces"][0]["vms"].at(0);
  EXPECT_EQ(vm["power"], "on");

  std::string metrics = c.Get("/metrics")->body;
  for (const char* line : {"# TYPE harbec_exchanges_total counter\n", "harbec_view_ready 1\n",
                           "harbec_exchanges_total{peer=\"vcenter\",kind=\"connect\",result=\"ok\"} 2\n",
                           "harbec_objects{kind=\"interface\"} 1\n", "harbec_peer_up{peer=\"vcenter\"} 1\n"})
    EXPECT_NE(metrics.find(line), std::string::npos) << line << metrics;

  // A change comes as an event on a stream opened before it.
  std::atomic<bool> open{false};
  std::string stream;
  std::thread reader([&] {
    client(at, "s3cret").Get("/api/v1/events", [&](const char* data, size_t n) {
      stream.append(data, n);
      open = true;
      return stream.find("\n\nevent: change") == std::string::npos;
    });
  });
  for (int i = 0; i < 100 && !open; ++i) usleep(100000);
  sim.vc.call("POST", "/vm/power", "{\"vm\":\"" + vm["ref"].get<std::string>() + "\",\"state\":\"poweredOff\"}");
  reader.join();
  EXPECT_NE(stream.find("event: change\ndata: VM " + vm["name"].get<std::string>() + " powered off"), std::string::npos)
      << stream;
  EXPECT_EQ(agent.stop(SIGTERM), "exit 0");
  std::remove(tokenFile.c_str());
}

// A first sync whose reply comes slowly tells its progress: the objects
// read so far in /metrics while the view is not ready, and lines on
// standard error, the last when it is complete.
TEST(AgentHttp, SlowFirstSyncShowsItsProgress) {
  CabledSimulator sim;
  sim.vc.spoil("WaitForUpdates", "trickle", R"("bytesPerSecond":30000,"chunk":1000)");
  Running agent(sim.agentArgs({}), "vmware\n");
  httplib::Client c = client(servedAt(agent));
  auto objects = [](const std::string& metrics) {
    size_t at = metrics.find("\nharbec_sync_objects ");
    return at == std::string::npos ? 0.0 : std::stod(metrics.substr(at + 21));
  };
  double before = 0;
  for (int i = 0; i < 400 && before == 0; ++i, usleep(50000)) {
    auto r = c.Get("/metrics");
    if (r && c.Get("/readyz")->status == 503) before = objects(r->body);
  }
  EXPECT_GT(before, 0) << "objects counted while the reply was read";
  const std::string line = agent.errorWith("first sync: ");
  EXPECT_NE(line.find(" objects received in "), std::string::npos) << line;
  const std::string last = agent.errorWith(", complete");
  ASSERT_TRUE(ready(c)) << last;
  const double all = objects(c.Get("/metrics")->body);
  EXPECT_GT(all, before);
  EXPECT_NE(last.find("first sync: " + std::to_string(static_cast<long>(all)) + " objects received in "),
            std::string::npos) << last;
  EXPECT_EQ(agent.stop(SIGTERM), "exit 0");
}

TEST(AgentHttp, WebPageFollowsAChangeInABrowser) {
  if (access("/usr/bin/chromium", X_OK) != 0 || access("/usr/bin/chromedriver", X_OK) != 0)
    GTEST_SKIP() << "no chromium and chromedriver";
  CabledSimulator sim;
  Running agent(sim.agentArgs({}), "vmware\n");
  const std::string at = servedAt(agent);
  httplib::Client c = client(at);
  ASSERT_TRUE(ready(c));
  const nlohmann::json vm = nlohmann::json::parse(c.Get("/api/v1/view")->body)["interfaces"][0]["vms"].at(0);
  browserSeesPowerOff(at, sim.vc, vm);
  EXPECT_EQ(agent.stop(SIGTERM), "exit 0");
}

// A configuration of two vCenters: an agent process each, and one HTTP
// interface for both: the views in one document, each change and series
// marked with its vCenter, the page showing both. SIGHUP reaches both, and
// neither logs in again for an unchanged configuration.
TEST(AgentHttp, TwoVcentersOfOneConfiguration) {
  CabledSimulator east, west("Ethernet8");
  const std::string dir = testing::TempDir() + "two-" + std::to_string(getpid());
  mkdir(dir.c_str(), 0700);
  std::ofstream(dir + "/pw") << "vmware\n";
  std::ofstream conf(dir + "/agent.conf");
  conf << "bridge_mac = \"" << kBridgeMac << "\"\npoll = 1\nquiet = true\n";
  for (auto [name, sim] : {std::pair{"east", &east}, std::pair{"west", &west}})
    conf << "[[vcenter]]\nname = \"" << name << "\"\nurl = \"" << sim->vc.url << "\"\nuser = \"" << kUser
         << "\"\npassword_file = \"" << dir << "/pw\"\n";
  conf << "[http]\nlisten = \"127.0.0.1:0\"\n";
  conf.close();
  Running agent({"--config", dir + "/agent.conf"}, "");
  const std::string at = servedAt(agent);
  httplib::Client c = client(at);
  ASSERT_TRUE(ready(c));

  const auto doc = nlohmann::json::parse(c.Get("/api/v1/view")->body);
  ASSERT_EQ(doc["vcenters"].size(), 2u) << doc.dump();
  std::map<std::string, nlohmann::json> vmOf;
  for (const auto& vc : doc["vcenters"]) {
    const auto& intf = vc["view"]["interfaces"].at(0);
    EXPECT_EQ(intf["name"], vc["name"] == "east" ? "Ethernet7" : "Ethernet8");
    vmOf[vc["name"]] = intf["vms"].at(0);
  }
  const std::string metrics = c.Get("/metrics")->body;
  for (const char* name : {"east", "west"})
    EXPECT_NE(metrics.find("harbec_peer_up{vcenter=\"" + std::string(name) + "\",peer=\"vcenter\"} 1\n"),
              std::string::npos) << metrics;

  std::atomic<bool> open{false};
  std::string stream;
  std::thread reader([&] {
    client(at).Get("/api/v1/events", [&](const char* data, size_t n) {
      stream.append(data, n);
      open = true;
      return stream.find("event: change") == std::string::npos;
    });
  });
  for (int i = 0; i < 100 && !open; ++i) usleep(100000);
  east.vc.call("POST", "/vm/power", "{\"vm\":\"" + vmOf["east"]["ref"].get<std::string>() + "\",\"state\":\"poweredOff\"}");
  reader.join();
  EXPECT_NE(stream.find("data: [east] VM " + vmOf["east"]["name"].get<std::string>() + " powered off"),
            std::string::npos) << stream;

  auto logins = [](CabledSimulator& s) {
    const auto calls = s.vc.calls();
    return std::count(calls.begin(), calls.end(), "Login");
  };
  const auto before = std::make_pair(logins(east), logins(west));
  agent.send(SIGHUP);
  std::set<std::string> unchanged;
  for (std::string l; unchanged.size() < 2 && !(l = agent.errorWith("the configuration is unchanged")).empty();)
    unchanged.insert(l.substr(0, l.find(']') + 1));
  EXPECT_EQ(unchanged, (std::set<std::string>{"[east]", "[west]"}));
  EXPECT_EQ(std::make_pair(logins(east), logins(west)), before) << "sessions kept";

  // An agent that dies is started again after the first wait; the other one
  // keeps its session.
  const pid_t westAgent = agent.childWith("west");
  ASSERT_GT(westAgent, 0);
  kill(westAgent, SIGKILL);
  EXPECT_NE(agent.errorWith("the agent of vCenter west ended with").find("; starting it again in 5 s"),
            std::string::npos);
  const auto killed = std::chrono::steady_clock::now();
  pid_t restarted = 0;
  for (int i = 0; i < 300 && !restarted; ++i, usleep(100000)) restarted = agent.childWith("west");
  ASSERT_NE(restarted, 0) << "west's agent started again";
  EXPECT_GE(std::chrono::steady_clock::now() - killed, std::chrono::milliseconds(4500)) << "after the wait";
  bool back = false;
  for (int i = 0; i < 300 && !back; ++i, usleep(100000)) {
    const auto view = c.Get("/api/v1/view");
    back = logins(west) > before.second && view && view->status == 200 &&
           nlohmann::json::parse(view->body)["vcenters"][1]["ready"] == true;
  }
  EXPECT_TRUE(back) << "west's agent serves again";
  EXPECT_EQ(std::make_pair(logins(east), logins(west)), std::make_pair(before.first, 2 * before.second))
      << "west's sessions made anew, east's kept";

  if (access("/usr/bin/chromium", X_OK) == 0 && access("/usr/bin/chromedriver", X_OK) == 0)
    browserSeesPowerOff(at, west.vc, vmOf["west"]);
  EXPECT_EQ(agent.stop(SIGTERM), "exit 0");
  for (const char* f : {"/pw", "/agent.conf", ""}) std::remove((dir + f).c_str());
}

}  // namespace
