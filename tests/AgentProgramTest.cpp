// The harbec-agent program as its users run it: exit statuses and one-line
// reasons, the connect back-off against a port where nothing listens, a
// refused login, whole runs against the vCenter simulator and the vShield
// Manager stand-in over loopback (once as JSON, the demo, the live mode).
#include <fcntl.h>
#include <gtest/gtest.h>
#include <poll.h>
#include <signal.h>
#include <spawn.h>
#include <sys/wait.h>

#include <chrono>
#include <cstdio>
#include <fstream>
#include <set>
#include <sstream>

#include <nlohmann/json.hpp>

#include "agent/Supervisor.h"
#include "agent/VlanSet.h"
#include "peers/VcSim.h"
#include "peers/VsmStub.h"
#include "support/RunningAgent.h"

namespace {

using agenttest::Running;

const char kUser[] = "administrator@vsphere.local";
const char kPassword[] = "vmware";

struct Outcome {
  int status = -1;
  std::string out, err;
};

// Runs the program with `args`, `input` on its standard input.
Outcome runAgent(const std::string& args, const std::string& input = "") {
  // Tests run side by side in processes of their own.
  static int runs = 0;
  std::string tag = std::to_string(getpid()) + "-" + std::to_string(++runs);
  std::string inPath = testing::TempDir() + "agent-in-" + tag, errPath = testing::TempDir() + "agent-err-" + tag;
  std::ofstream(inPath) << input;
  std::string cmd = std::string(HARBEC_AGENT_BINARY) + " " + args + " <" + inPath + " 2>" + errPath;
  Outcome r;
  FILE* p = popen(cmd.c_str(), "r");
  char buf[4096];
  for (size_t n; (n = fread(buf, 1, sizeof buf, p)) > 0;) r.out.append(buf, n);
  int status = pclose(p);
  r.status = WIFEXITED(status) ? WEXITSTATUS(status) : -1;
  std::stringstream err;
  err << std::ifstream(errPath).rdbuf();
  r.err = err.str();
  std::remove(inPath.c_str());
  std::remove(errPath.c_str());
  return r;
}

std::string lastLine(const std::string& text) {
  size_t end = text.find_last_not_of('\n');
  if (end == std::string::npos) return "";
  size_t from = text.rfind('\n', end);
  return text.substr(from == std::string::npos ? 0 : from + 1, end - (from == std::string::npos ? 0 : from + 1) + 1);
}


// A port on 127.0.0.1 where nothing listens.
int deadPort() {
  int s = socket(AF_INET, SOCK_STREAM, 0);
  sockaddr_in a{};
  a.sin_family = AF_INET;
  a.sin_addr.s_addr = htonl(INADDR_LOOPBACK);
  bind(s, reinterpret_cast<sockaddr*>(&a), sizeof a);
  socklen_t len = sizeof a;
  getsockname(s, reinterpret_cast<sockaddr*>(&a), &len);
  close(s);
  return ntohs(a.sin_port);
}

}  // namespace

TEST(AgentProgram, UnreachableVcenterIsRetriedWithBackoffThenGivenUp) {
  std::string url = "https://127.0.0.1:" + std::to_string(deadPort()) + "/sdk";
  // Attempts at 0 and 1 s; the next, 2 s later, would pass the 3 s (a slow
  // first attempt, as under ThreadSanitizer, leaves room for the second).
  Outcome r = runAgent("--vcenter " + url + " --user u --password-file - --retry-for 3 --once --quiet", "pw\n");
  EXPECT_EQ(r.status, 1);
  EXPECT_NE(r.err.find(" vCenter not reachable ("), std::string::npos) << r.err;
  EXPECT_NE(r.err.find("); attempt 2 in 1 s\n"), std::string::npos) << r.err;
  EXPECT_EQ(r.err.find("attempt 3"), std::string::npos) << r.err;
  // The supervisor tells the end and its reason, and a failed --once is not run again.
  EXPECT_EQ(lastLine(r.err).rfind("harbec-agent: the work ended with exit status 1; last said: harbec-agent: cannot "
                                  "connect to vCenter at " + url + ": RetrieveServiceContent: no connection: ", 0),
            0u)
      << r.err;
  EXPECT_EQ(r.out, "");
}

TEST(AgentProgram, RefusedLoginEndsAtOnce) {
  vcsim::Simulator vc(kUser, kPassword);
  Outcome r = runAgent("--vcenter " + vc.url + " --user " + kUser + " --password-file - --once", "wrong\n");
  EXPECT_EQ(r.status, 1);
  EXPECT_NE(r.err.find("HARBEC_CONNECT_FAILED: "), std::string::npos) << "the library's own log line";
  EXPECT_EQ(lastLine(r.err), "harbec-agent: the work ended with exit status 1; last said: harbec-agent: vCenter at " +
                                vc.url + " refused the login of " + kUser);
  EXPECT_EQ(r.err.find("attempt 2"), std::string::npos);
}

TEST(AgentProgram, OnceJsonHoldsTheSimulatorsInventoryAndTheManagersSegments) {
  vcsim::Simulator vc(kUser, kPassword);
  vsmstub::Stub vsm;
  vsm.answer("[{\"path\":\"api/2.0/global/heartbeat\",\"generate\":{\"kind\":\"heartbeat\"}},"
             "{\"path\":\"api/2.0/vdn/virtualwires\",\"generate\":{\"kind\":\"virtualWires\",\"count\":2}}]");
  std::set<std::string> hosts, vms;
  for (const std::string& ref : peer::values(vc.call("GET", "/inventory"), "ref")) {
    if (ref.rfind("host-", 0) == 0) hosts.insert(ref);
    if (ref.rfind("vm-", 0) == 0) vms.insert(ref);
  }
  ASSERT_FALSE(hosts.empty());
  ASSERT_FALSE(vms.empty());
  // One host's distributed switch uplink announces this switch's port 7.
  const std::string cabled = *hosts.begin();
  vc.call("POST", "/hints",
          "{\"host\":\"" + cabled + "\",\"device\":\"vmnic1\",\"cdp\":{\"devId\":\"00:1c:73:aa:bb:cc\","
          "\"portId\":\"Ethernet7\"}}");
  // A fault is told with its type and message.
  vc.spoil("FetchDVPorts", "fault", R"("faultString":"busy","faultType":"InvalidState")");

  Outcome r = runAgent("--vcenter " + vc.url + " --user " + kUser + " --password-file - --vsm " + vsm.url +
                           " --vsm-user admin --vsm-password-file - --bridge-mac 00:1c:73:aa:bb:cc --once --json",
                       std::string(kPassword) + "\ndefault\n");
  ASSERT_EQ(r.status, 0) << r.err;
  EXPECT_EQ(r.out.rfind("{\n  \"interfaces\": [", 0), 0u) << r.out;
  std::set<std::string> seenHosts, seenVms;
  for (const std::string& ref : peer::values(r.out, "ref")) {
    if (ref.rfind("host-", 0) == 0) seenHosts.insert(ref);
    if (ref.rfind("vm-", 0) == 0) seenVms.insert(ref);
  }
  EXPECT_EQ(seenHosts, hosts);
  EXPECT_EQ(seenVms, vms);
  EXPECT_EQ(peer::values(r.out, "hostRef").at(0), cabled) << "Ethernet7 comes first, tied to its host";
  size_t vmsOfEthernet7 = r.out.find("\"vms\": [", r.out.find("\"name\": \"Ethernet7\""));
  const std::string nonEmpty = "\"vms\": [\n        {";
  EXPECT_EQ(r.out.substr(vmsOfEthernet7, nonEmpty.size()), nonEmpty) << "with machines behind it";
  EXPECT_EQ(peer::values(r.out, "id"), (std::vector<std::string>{"virtualwire-1", "virtualwire-2"}));
  EXPECT_EQ(vsm.uris().at(0), "/api/2.0/global/heartbeat");
  EXPECT_NE(r.err.find("HARBEC_RPC_FAULT: The RPC FetchDVPorts failed. (FetchDVPorts: SOAP fault InvalidState: busy)"),
            std::string::npos) << r.err;
  EXPECT_NE(r.err.find(" port counters are not available from this vCenter (FetchDVPorts: SOAP fault InvalidState: busy)"),
            std::string::npos) << r.err;
}

// The simulator's varied inventory, every host's uplinks cabled to this
// switch: each NIC's speed and link, and each interface's VLANs, as the
// simulator's own account of its inventory has them. Counters come on the
// road that names the switch, and a port's own link stands unless it is
// blocked.
TEST(AgentProgram, VariedInventoryShownTrue) {
  vcsim::Simulator vc(kUser, kPassword, {"-variety", "-pg", "3"});
  std::map<std::string, std::string> facts;  // "<kind> <id> <attribute>" -> value
  for (const std::string& f : peer::values(vc.call("GET", "/inventory/facts"), "fact")) {
    size_t third = f.find(' ', f.find(' ', f.find(' ') + 1) + 1);
    facts[f.substr(0, third)] = third == std::string::npos ? "" : f.substr(third + 1);
  }
  // Each host's two uplinks: the distributed switch's and the storage switch's.
  std::set<std::string> hosts;
  for (const std::string& ref : peer::values(vc.call("GET", "/inventory"), "ref"))
    if (ref.rfind("host-", 0) == 0) hosts.insert(ref);
  int port = 0;
  for (const std::string& host : hosts)
    for (const char* device : {"vmnic1", "vmnic2"})
      vc.call("POST", "/hints", "{\"host\":\"" + host + "\",\"device\":\"" + device +
                                    "\",\"cdp\":{\"devId\":\"00:1c:73:aa:bb:cc\",\"portId\":\"Ethernet" +
                                    std::to_string(++port) + "\"}}");
  // Three machine ports: link down, blocked by an inherited false, blocked.
  std::vector<vcsim::Simulator::DvPort> cards;
  for (const auto& p : vc.dvPorts("dvs-9"))
    if (p.connecteeType == "vmVnic") cards.push_back(p);
  ASSERT_GE(cards.size(), 3u);
  const std::pair<const char*, const char*> portStates[] = {
      {"\"linkUp\":false", "down"},
      {"\"blocked\":{\"inherited\":true,\"value\":false}", "up"},
      {"\"blocked\":{\"inherited\":false,\"value\":true}", "blocked"}};
  for (size_t i = 0; i < 3; ++i)
    vc.call("POST", "/ports", "{\"dvs\":\"dvs-9\",\"key\":\"" + cards[i].key + "\"," + portStates[i].first + "}");

  Outcome r = runAgent("--vcenter " + vc.url + " --user " + kUser +
                           " --password-file - --bridge-mac 00:1c:73:aa:bb:cc --configured-vlans Ethernet1=100,4000"
                           " --once --json --quiet",
                       std::string(kPassword) + "\n");
  ASSERT_EQ(r.status, 0) << r.err;
  const nlohmann::json view = nlohmann::json::parse(r.out);

  const std::map<std::string, std::string> speeds = {{"0", ""}, {"1000", "1G"}, {"2500", "2.5G"}, {"10000", "10G"}, {"25000", "25G"}, {"100000", "100G"}};
  // A host that vCenter does not reach has links nobody knows.
  std::multiset<std::string> states;
  unsigned lags = 0;  // NICs bundled into an LACP group
  for (const auto& h : view["hosts"]) {
    const std::string host = "host " + h["ref"].get<std::string>();
    EXPECT_EQ(h["connection"], facts[host + " connection"]);
    EXPECT_EQ(h["maintenance"], facts[host + " maintenance"] == "true");
    states.insert(h["connection"].get<std::string>());
    if (h["maintenance"]) states.insert("maintenance");
    for (const auto& n : h["nics"]) {
      const std::string id = "pnic " + h["ref"].get<std::string>() + "/" + n["device"].get<std::string>();
      const std::string mb = facts[id + " linkSpeedMb"];
      SCOPED_TRACE(id);
      EXPECT_EQ(n["speed"], speeds.at(mb));
      EXPECT_EQ(n["link"], mb == "0" || h["connection"] != "connected" ? "unknown" : "up");
      EXPECT_EQ(n["lag"], facts[id + " uplinkLag"]);
      lags += !n["lag"].get<std::string>().empty();
    }
  }
  EXPECT_GT(lags, 0u);
  EXPECT_EQ(states.count("disconnected"), 1u);
  EXPECT_GT(states.count("maintenance"), 0u);
  // Each interface carries the VLANs of the port groups of the machines
  // behind it, a PVLAN's primary and secondary both.
  unsigned pvlans = 0;
  for (const auto& i : view["interfaces"]) {
    SCOPED_TRACE(i["name"].get<std::string>());
    HarbecAgent::VlanSet want, have;
    for (const auto& vm : i["vms"]) {
      const std::string pg = facts["vnic " + vm["ref"].get<std::string>() + "/" + vm["nic"].get<std::string>() + " portGroup"];
      const std::string policy = facts["dvpg " + pg + " policy"];
      if (policy == "pvlan") {
        std::string ids = facts["dvpg " + pg + " pvlan"];
        want.add(ids.replace(ids.find('/'), 1, ","));
        ++pvlans;
      } else if (!facts.count("dvpg " + pg + " vlan")) {
        want.addUntagged();  // a standard port group: none of the variety's carries a VLAN to machines
      } else {
        std::string vlan = facts["dvpg " + pg + " vlan"];
        want.add(vlan == "none" ? "" : vlan.substr(vlan.find(' ') + 1));
      }
    }
    have.add(i["vlans"].get<std::string>());
    if (i["vlans"] == "") have = HarbecAgent::VlanSet();
    EXPECT_EQ(have.text(), want.text());
    EXPECT_EQ(i["unknownVlanNics"], 0);
    if (i["name"] == "Ethernet1") {
      HarbecAgent::VlanSet configured;
      configured.add("100,4000");
      EXPECT_EQ(i["missingVlans"], want.minus(configured).text());
      EXPECT_EQ(i["unneededVlans"], configured.minus(want).text());
    } else {
      EXPECT_FALSE(i.contains("configuredVlans"));
    }
  }
  EXPECT_GT(pvlans, 0u);

  // Every port's policies come filled in, blocked false inherited: only the
  // ports changed above are not up. A card on an opaque network is shown
  // so, with VLANs nobody knows.
  std::map<std::string, std::string> linkOfPort;
  unsigned opaque = 0;
  unsigned templates = 0;
  for (const auto& vm : view["vms"]) {
    templates += vm["template"].get<bool>();
    EXPECT_EQ(vm["template"], facts["vm " + vm["ref"].get<std::string>() + " template"] == "true");
    for (const auto& n : vm["nics"]) {
      if (!n["portKey"].get<std::string>().empty())
        linkOfPort[n["portKey"].get<std::string>()] = n["link"].get<std::string>();
      if (n["portGroup"].get<std::string>().rfind("opaque nsx.LogicalSwitch ls-", 0) == 0 && n["vlans"] == "unknown") ++opaque;
    }
  }
  EXPECT_GT(opaque, 0u);
  EXPECT_GT(templates, 0u);
  // Every machine is shown: templates, machines without a host, and those
  // that vCenter files in a vApp alone.
  std::set<std::string> want, shown;
  for (const auto& [fact, value] : facts)
    if (fact.rfind("vm ", 0) == 0 && fact.size() > 5 && fact.compare(fact.size() - 5, 5, " name") == 0 &&
        value != "VMKernel")
      want.insert(fact.substr(3, fact.size() - 8));
  for (const auto& vm : view["vms"]) shown.insert(vm["ref"].get<std::string>());
  EXPECT_EQ(shown, want);
  unsigned inVApp = 0;
  for (const auto& vm : view["vms"]) inVApp += vm["name"].get<std::string>().find("_vapp_") != std::string::npos;
  EXPECT_EQ(inVApp, 2u);
  for (size_t i = 0; i < 3; ++i) EXPECT_EQ(linkOfPort[cards[i].key], portStates[i].second) << cards[i].key;
  for (const auto& [port, link] : linkOfPort) {
    if (port != cards[0].key && port != cards[2].key) {
      EXPECT_EQ(link, "up") << port;
    }
  }
  for (const std::string& dvs : peer::values(vc.call("GET", "/calls?method=FetchDVPorts"), "value"))
    EXPECT_EQ(dvs, "dvs-9") << "the counters' road names the switch";
}

TEST(AgentProgram, DemoShowsWhatStandsBehindTheSwitch) {
  Outcome r = runAgent("--once");
  ASSERT_EQ(r.status, 0) << r.err;
  for (const char* part : {"Interface Ethernet1 -> host ", "uplink of DVS0", "neighbour announced: leaf1 Ethernet1",
                           "VLANs to carry: ", "build-runner", "Hosts no interface reaches:\n  ",
                           "vShield segments:\n  VNI", "5001  web-tier"})
    EXPECT_NE(r.out.find(part), std::string::npos) << part << "\n---\n" << r.out;
}


// Live mode with --json: one document a line, the first after the sync,
// then one after each change; an interrupt ends it with status 0.
TEST(AgentProgram, LiveJsonFollowsChangesUntilInterrupted) {
  vcsim::Simulator vc(kUser, kPassword);
  std::string vm;
  for (const std::string& ref : peer::values(vc.call("GET", "/inventory"), "ref"))
    if (vm.empty() && ref.rfind("vm-", 0) == 0) vm = ref;
  Running agent({"--vcenter", vc.url, "--user", kUser, "--password-file", "-", "--json", "--quiet", "--poll", "1"},
                "vmware\n");
  auto powerOf = [&](const std::string& doc) -> std::string {
    const std::string mark = "\"ref\":\"" + vm + "\",\"power\":\"";
    size_t at = doc.find(mark);
    if (at == std::string::npos) return "";
    at += mark.size();
    return doc.substr(at, doc.find('"', at) - at);
  };

  std::string first = agent.line(0);
  EXPECT_EQ(first.rfind("{\"interfaces\":[", 0), 0u) << first;
  EXPECT_EQ(powerOf(first), "on");
  vc.call("POST", "/vm/power", "{\"vm\":\"" + vm + "\",\"state\":\"poweredOff\"}");
  std::string doc;
  for (int i = 0; i < 5 && powerOf(doc) != "off"; ++i) doc = agent.line(0);
  EXPECT_EQ(powerOf(doc), "off") << doc;

  // A fatal failure of the update loop ends the work with the library's
  // exit(-1); the supervisor says why, and the work runs again.
  // (The wait under way returns with the next change; the one after it drops.)
  vc.spoil("WaitForUpdates", "drop");
  vc.call("POST", "/vm/rename", "{\"vm\":\"" + vm + "\",\"name\":\"renamed\"}");
  std::string ended = agent.errorWith("the work ended with");
  EXPECT_NE(ended.find("exit status 255; last said: "), std::string::npos) << ended;
  EXPECT_NE(ended.find("HARBEC_RPC_FAULT: The RPC WaitForUpdates failed. (WaitForUpdates: "), std::string::npos) << ended;
  EXPECT_NE(ended.find("; starting it again in 1 s"), std::string::npos) << ended;
  // The work that runs again gives a view and follows a change; the last
  // view of the work that ended may come first.
  vc.call("POST", "/vm/rename", "{\"vm\":\"" + vm + "\",\"name\":\"again\"}");
  doc.clear();
  for (int i = 0; i < 5 && doc.find("\"again\"") == std::string::npos; ++i) doc = agent.line(0);
  EXPECT_EQ(doc.rfind("{\"interfaces\":[", 0), 0u) << "a fresh view: " << doc;
  EXPECT_NE(doc.find("\"again\""), std::string::npos) << doc;
  EXPECT_EQ(agent.stop(SIGINT), "exit 0");
}

// A vShield Manager that accepts and never answers holds up nothing of the
// vCenter side: the first view comes, and a change in vCenter reaches it
// within two seconds.
TEST(AgentProgram, HungVshieldManagerDelaysNothingOfVcenter) {
  vcsim::Simulator vc(kUser, kPassword);
  vsmstub::Stub vsm;
  vsm.serve("*", R"("hang":true)");
  std::string vm = peer::values(vc.call("GET", "/inventory"), "ref").back();
  for (const std::string& ref : peer::values(vc.call("GET", "/inventory"), "ref"))
    if (ref.rfind("vm-", 0) == 0) vm = ref;
  Running agent({"--vcenter", vc.url, "--user", kUser, "--password-file", "-", "--vsm", vsm.url, "--vsm-user", "admin",
                 "--vsm-password-file", "-", "--json", "--quiet"},
                "vmware\ndefault\n");
  std::string first = agent.line(0);
  ASSERT_EQ(first.rfind("{\"interfaces\":[", 0), 0u) << first;
  vc.call("POST", "/vm/power", "{\"vm\":\"" + vm + "\",\"state\":\"poweredOff\"}");
  auto changed = std::chrono::steady_clock::now();
  std::string doc = agent.line(0);
  EXPECT_LT(std::chrono::steady_clock::now() - changed, std::chrono::seconds(2));
  EXPECT_NE(doc.find("\"ref\":\"" + vm + "\",\"power\":\"off\""), std::string::npos) << doc;
  EXPECT_EQ(agent.stop(SIGINT), "exit 0");
}

// SIGHUP reads the configuration file again: unchanged, it goes on; with
// an error, the running one stays; changed, the work starts again with it.
TEST(AgentProgram, HangUpReadsTheConfigurationAgain) {
  vcsim::Simulator vc(kUser, kPassword);
  const std::string conf = testing::TempDir() + "agent-" + std::to_string(getpid()) + ".conf", pw = conf + ".pw";
  std::ofstream(pw) << kPassword << "\n";
  const std::string vcenter = "[vcenter]\nurl = \"" + vc.url + "\"\nuser = \"" + kUser + "\"\npassword_file = \"" + pw + "\"\n";
  std::ofstream(conf) << "quiet = true\n" << vcenter;
  Running agent({"--config", conf, "--json"}, "");
  EXPECT_EQ(agent.line(0).find("Ethernet9"), std::string::npos);
  agent.send(SIGHUP);
  EXPECT_EQ(agent.errorWith("configuration"), "harbec-agent: the configuration is unchanged");
  std::ofstream(conf) << "quiet = 1\n" << vcenter;
  agent.send(SIGHUP);
  EXPECT_NE(agent.errorWith("configuration").find("was not taken, the running one stays: " + conf + ":1: quiet wants"),
            std::string::npos);
  std::ofstream(conf) << "quiet = true\ninterfaces = [\"Ethernet9\"]\n" << vcenter;
  agent.send(SIGHUP);
  EXPECT_EQ(agent.errorWith("configuration"),
            "harbec-agent: the work ended for the new configuration; starting it again");
  std::string view;
  for (int i = 0; i < 3 && view.find("\"name\":\"Ethernet9\"") == std::string::npos; ++i) view = agent.line(0);
  EXPECT_NE(view.find("\"name\":\"Ethernet9\""), std::string::npos) << view;
  EXPECT_EQ(agent.stop(SIGINT), "exit 0");

  Running alone({"--config", conf, "--json", "--no-supervise"}, "");
  EXPECT_NE(alone.line(0), "");
  alone.send(SIGHUP);
  EXPECT_NE(alone.errorWith("SIGHUP").find("with --no-supervise the configuration is not read again"),
            std::string::npos);
  EXPECT_EQ(alone.stop(SIGINT), "exit 0") << "the work goes on";
  std::remove(conf.c_str());
  std::remove(pw.c_str());
}

// A signal before the first view is a failure, and says so.
TEST(AgentProgram, SignalBeforeTheFirstViewFails) {
  vcsim::Simulator vc(kUser, kPassword);
  vc.spoil("WaitForUpdates", "hang");
  Running agent({"--vcenter", vc.url, "--user", kUser, "--password-file", "-", "--once", "--quiet"}, "vmware\n");
  usleep(500000);
  EXPECT_EQ(agent.stop(SIGTERM), "exit 3");
  EXPECT_EQ(agent.errorWith("interrupted"), "harbec-agent: interrupted before the first view");
  EXPECT_EQ(agent.line(1), "harbec-agent: the work ended with exit status 3; last said: harbec-agent: interrupted "
                           "before the first view");
}

TEST(AgentSupervisor, EndsToldAndRestartedOrNot) {
  struct Case {
    int status;  // as waitpid gives it
    bool once;
    std::string told;
    bool again;
  };
  const Case cases[] = {
      {0 << 8, false, "exit status 0", false},   {1 << 8, false, "exit status 1", true},
      {1 << 8, true, "exit status 1", false},    {2 << 8, false, "exit status 2", false},
      {3 << 8, false, "exit status 3", false},   {255 << 8, true, "exit status 255", true},
      {SIGABRT, false, "signal 6 (Aborted)", true}, {SIGSEGV, true, "signal 11 (Segmentation fault)", true},
  };
  for (const Case& c : cases) {
    EXPECT_EQ(HarbecAgent::describeEnd(c.status), c.told);
    EXPECT_EQ(HarbecAgent::restartAfter(c.status, c.once), c.again) << c.told;
  }
}
