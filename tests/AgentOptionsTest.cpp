// The host agent's command line, its password files and its connect
// back-off.
#include <gtest/gtest.h>

#include <cstdio>
#include <fstream>

#include "agent/Failure.h"
#include "agent/HostAgent.h"
#include "agent/Options.h"

using namespace HarbecAgent;

namespace {

ParsedOptions parse(std::vector<const char*> args) {
  args.insert(args.begin(), "harbec-agent");
  return parseOptions(static_cast<int>(args.size()), args.data());
}

}  // namespace

TEST(AgentOptions, FullCommandLine) {
  ParsedOptions p = parse({"--vcenter", "vc.example.com", "--user=admin", "--password-file", "-", "--vsm",
                           "https://vsm.example.com/", "--vsm-user", "vsadmin", "--vsm-password-file=/run/vsm",
                           "--ca-file=", "--bridge-mac", "00:1c:73:aa:bb:cc", "--interfaces", "Ethernet1,Ethernet2",
                           "--interface=Ethernet3", "--once", "--json", "--retry-for", "5", "--poll=2.5", "-q"});
  ASSERT_EQ(p.error, "");
  const Options& o = p.options;
  EXPECT_EQ(o.vcenterUrl, "https://vc.example.com/sdk");
  EXPECT_EQ(o.vcenterUser, "admin");
  EXPECT_EQ(o.vcenterPasswordFile, "-");
  EXPECT_EQ(o.vsmUrl, "https://vsm.example.com");
  EXPECT_EQ(o.vsmPasswordFile, "/run/vsm");
  EXPECT_EQ(o.caFile, "") << "an empty value takes no word after it";
  EXPECT_EQ(o.bridgeMac, "00:1c:73:aa:bb:cc");
  EXPECT_EQ(o.interfaces, (std::vector<std::string>{"Ethernet1", "Ethernet2", "Ethernet3"}));
  EXPECT_TRUE(o.once && o.json && o.quiet && !o.demo);
  EXPECT_EQ(o.retryFor, 5);
  EXPECT_EQ(o.pollEvery, 2.5);
  EXPECT_EQ(vcenterSdkUrl("https://vc:8443/sdk"), "https://vc:8443/sdk");
}

// What interfaces carry today: on the command line, and from a file whose
// lines may be blank or comments; a later word for an interface wins.
TEST(AgentOptions, ConfiguredVlans) {
  const std::string path = testing::TempDir() + "configured-vlans";
  std::ofstream(path) << "# leaf1\nEthernet2 untagged,100-110  # the web rack\n\nEthernet3=\nEthernet1 7\n";
  ParsedOptions p = parse({"--configured-vlans", "Ethernet1=200,300", "--configured-vlans-file", path.c_str(),
                           "--configured-vlans=Ethernet4=1-4094"});
  ASSERT_EQ(p.error, "");
  EXPECT_EQ(p.options.configuredVlans, (ConfiguredVlans{{"Ethernet1", "7"}, {"Ethernet2", "untagged,100-110"},
                                                        {"Ethernet3", ""}, {"Ethernet4", "1-4094"}}));
  std::ofstream(path) << "Ethernet1 7\nEthernet2\n";
  EXPECT_EQ(parse({"--configured-vlans-file", path.c_str()}).error,
            path + ":2: wants an interface and its VLANs, not 'Ethernet2'");
  std::remove(path.c_str());
}

// A configuration file sets what the command line leaves; a secret in it,
// an unknown key or a vCenter without a name among several are refused
// with the line.
TEST(AgentOptions, ConfigFileUnderTheCommandLine) {
  const std::string path = testing::TempDir() + "agent.conf";
  std::ofstream(path) << "bridge_mac = \"00:1c:73:aa:bb:cc\"  # leaf1\ninterfaces = [\"Ethernet1\"]\npoll = 5\n"
                         "[[vcenter]]\nurl = \"vc.example.com\"\nuser = \"svc\"\npassword_file = \"/etc/vc.pw\"\n"
                         "reply_timeout = 30\n[vshield]\nurl = \"https://vsm/\"\nuser = \"admin\"\n"
                         "password_file = \"/etc/vsm.pw\"\n[http]\nlisten = \"127.0.0.1:9870\"\n"
                         "[configured_vlans]\nEthernet1 = \"untagged,100\"\n";
  ParsedOptions p = parse({"--config", path.c_str(), "--poll", "2"});
  ASSERT_EQ(p.error, "");
  const Options& o = p.options;
  EXPECT_EQ(o.vcenterUrl, "https://vc.example.com/sdk");
  EXPECT_EQ(o.vcenterPasswordFile, "/etc/vc.pw");
  EXPECT_EQ(o.pollEvery, 2) << "the command line wins";
  EXPECT_EQ(o.replyTimeout, 30);
  EXPECT_EQ(o.interfaces, std::vector<std::string>{"Ethernet1"});
  EXPECT_EQ(o.vsmUrl, "https://vsm");
  EXPECT_EQ(o.listen, "127.0.0.1:9870");
  EXPECT_EQ(o.configuredVlans, (ConfiguredVlans{{"Ethernet1", "untagged,100"}}));

  const std::pair<const char*, const char*> bad[] = {
      {"[vcenter]\nurl = \"vc\"\nuser = \"u\"\npassword = \"pw\"\n",
       ":4: vcenter.password would put a secret in the file: name a file (password_file) or a systemd credential "
       "(password_credential)"},
      {"pol = 5\n", ":1: pol is no setting"},
      {"quiet = \"yes\"\n", ":1: quiet wants true or false"},
      {"[[vcenter]]\nurl = \"a\"\n[[vcenter]]\nurl = \"b\"\n", ":1: each of several vCenters needs a name"},
      {"[[vcenter]]\nname = \"a\"\n[[vcenter]]\nname = \"a\"\n", ":3: a second vCenter named a"},
      {"[[vcenter]]\n[[vcenter]]\n[[vcenter]]\n[[vcenter]]\n[[vcenter]]\n[[vcenter]]\n[[vcenter]]\n[[vcenter]]\n"
       "[[vcenter]]\n",
       ": between 1 and 8 vCenters, not 9"},
      {"bridge_mac = \"00:1c:73:aa:bb:cc\"\n", "no vCenter in the configuration "},
      {"[http\n", "cannot read the configuration "}};
  for (const auto& [text, error] : bad) {
    std::ofstream(path) << text;
    EXPECT_NE(parse({"--config", path.c_str()}).error.find(error), std::string::npos) << text;
  }
  std::remove(path.c_str());
}

// Several vCenters: one agent process each; --vcenter-name chooses the one
// a process serves, and --vcenter on the command line serves that one alone.
TEST(AgentOptions, SeveralVcentersEachServedApart) {
  const std::string path = testing::TempDir() + "several-vcenters.conf";
  std::ofstream(path) << "[[vcenter]]\nname = \"east\"\nurl = \"vc-e\"\nuser = \"u\"\npassword_file = \"/pw\"\n"
                         "[[vcenter]]\nname = \"west\"\nurl = \"vc-w\"\nuser = \"u\"\npassword_file = \"/pw\"\n"
                         "[vcenter.vshield]\nurl = \"https://vsm-w\"\nuser = \"a\"\npassword_file = \"/pw\"\n";
  ParsedOptions all = parse({"--config", path.c_str()});
  ASSERT_EQ(all.error, "");
  EXPECT_TRUE(all.options.fansOut());
  EXPECT_EQ(all.options.vcenterNames, (std::vector<std::string>{"east", "west"}));
  ParsedOptions west = parse({"--config", path.c_str(), "--vcenter-name", "west"});
  ASSERT_EQ(west.error, "");
  EXPECT_FALSE(west.options.fansOut());
  EXPECT_EQ(west.options.vcenterUrl, "https://vc-w/sdk");
  EXPECT_EQ(west.options.vsmUrl, "https://vsm-w") << "its own vShield Manager";
  EXPECT_EQ(parse({"--config", path.c_str(), "--vcenter-name", "east"}).options.vsmUrl, "");
  ParsedOptions given = parse({"--config", path.c_str(), "--vcenter", "vc-x", "--user", "u", "--password-file", "-"});
  EXPECT_FALSE(given.options.fansOut());
  EXPECT_EQ(given.options.vcenterUrl, "https://vc-x/sdk");
  EXPECT_NE(parse({"--config", path.c_str(), "--vcenter-name", "north"}).error.find(": no vCenter named north"),
            std::string::npos);
  EXPECT_EQ(parse({"--vcenter-name", "east"}).error, "--vcenter-name needs --config");
  std::ofstream(path, std::ios::app) << "[vshield]\nurl = \"https://vsm\"\n";
  EXPECT_NE(parse({"--config", path.c_str()}).error.find(":15: with several vCenters, give each its vShield Manager"),
            std::string::npos) << parse({"--config", path.c_str()}).error;
  std::remove(path.c_str());
}

TEST(AgentOptions, BadCommandLinesGetOneLineReasons) {
  const std::pair<std::vector<const char*>, std::string> cases[] = {
      {{"--vcenter", "vc", "--user", "u", "--password", "secret"},
       "passwords are not taken on the command line: use --password-file"},
      {{"--vcenter"}, "--vcenter: 1 required TEXT missing"},
      {{"--frobnicate"}, "The following argument was not expected: --frobnicate"},
      {{"--once=maybe"}, "Could not convert: --once = maybe"},
      {{"--retry-for", "soon"}, "--retry-for: wants a number, not 'soon'"},
      {{"--poll=-1"}, "--poll: wants a number, not '-1'"},
      {{"--vcenter", "vc", "--password-file", "-"}, "--vcenter needs --user"},
      {{"--vcenter", "vc", "--user", "u"}, "--vcenter needs --password-file (- for standard input)"},
      {{"--demo", "--vcenter", "vc"}, "--demo brings its own vCenter: leave out --vcenter"},
      {{"--vsm", "http://vsm"}, "--vsm needs --vsm-user and --vsm-password-file"},
      {{"--vsm-user", "u"}, "--vsm-user and --vsm-password-file need --vsm"},
      {{"--ca-file", "/nonexistent/ca.pem"}, "cannot read CA file /nonexistent/ca.pem"},
      {{"--configured-vlans", "Ethernet1"}, "option --configured-vlans wants IFACE=LIST, not 'Ethernet1'"},
      {{"--configured-vlans-file", "/nonexistent/vlans"}, "cannot read configured VLANs file /nonexistent/vlans"},
      {{"--listen", "8080"}, "--listen wants ADDR:PORT, not '8080'"},
      {{"--listen", "0.0.0.0:8080"}, "--listen away from loopback needs --http-token-file"},
      {{"--listen", "[::1]:8080", "--tls-cert", "c.pem"}, "--tls-cert and --tls-key go together"},
      {{"--http-token-file", "t"}, "the HTTP options need --listen"},
  };
  for (const auto& [args, error] : cases) EXPECT_EQ(parse(args).error, error);
}

// What the session records of a failure (the exception's text, then gSOAP's
// account of the fault) as the agent decides on it.
TEST(AgentFailures, RecordedFaultsTold) {
  struct Case {
    std::string lastError, call, reason;
    bool refusedLogin, tryAgain;
  };
  const Case cases[] = {
      {"RetrieveServiceContent SOAP 1.1 fault SOAP-ENV:Client [no subcode]\n\"Connection refused\"\n"
       "Detail: connect failed in tcp_connect()\n",
       "RetrieveServiceContent", "RetrieveServiceContent: Connection refused (connect failed in tcp_connect())",
       false, false},
      {"Invalid username and password. SOAP 1.1 fault SOAP-ENV:Server [no subcode]\n\"Cannot complete login due "
       "to an incorrect user name or password.\"\nDetail: [no detail]\n",
       "Login", "Login: Cannot complete login due to an incorrect user name or password.", true,
       false},
      {"WaitForUpdates SOAP 1.1 fault SOAP-ENV:Server [no subcode]\n\"Try Again\"\nDetail: [no detail]\n",
       "WaitForUpdates", "WaitForUpdates: Try Again", false, true},
      {"FetchDVPorts without\tquotes\n", "FetchDVPorts", "FetchDVPorts without quotes", false, false},
  };
  for (const Case& c : cases) {
    SCOPED_TRACE(c.lastError);
    SoapFailure f = soapFailure(c.lastError);
    EXPECT_EQ(f.call, c.call);
    EXPECT_EQ(f.reason, c.reason);
    EXPECT_EQ(f.refusedLogin, c.refusedLogin);
    EXPECT_EQ(f.tryAgain, c.tryAgain);
  }
}
