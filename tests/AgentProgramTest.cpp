// The harbec-agent program as its users run it: exit statuses and one-line
// reasons, the connect back-off against a port where nothing listens, a
// refused login, and a whole run against the vCenter simulator and the
// vShield Manager stand-in over loopback.
#include <gtest/gtest.h>
#include <sys/wait.h>

#include <cstdio>
#include <fstream>
#include <sstream>

#include "VcSim.h"
#include "VsmStub.h"

namespace {

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

TEST(AgentProgram, HelpAndBadArguments) {
  Outcome help = runAgent("--help");
  EXPECT_EQ(help.status, 0);
  EXPECT_EQ(help.out.rfind("Usage: harbec-agent [options]\n", 0), 0u);

  Outcome bad = runAgent("--bogus");
  EXPECT_EQ(bad.status, 2);
  EXPECT_EQ(bad.err, "harbec-agent: unknown option --bogus (see --help)\n");
  EXPECT_EQ(bad.out, "");

  Outcome noPassword = runAgent("--vcenter vc --user u --password-file -");
  EXPECT_EQ(noPassword.status, 2);
  EXPECT_EQ(noPassword.err, "harbec-agent: no password on standard input\n");
}

TEST(AgentProgram, UnreachableVcenterIsRetriedWithBackoffThenGivenUp) {
  std::string url = "https://127.0.0.1:" + std::to_string(deadPort()) + "/sdk";
  Outcome r = runAgent("--vcenter " + url + " --user u --password-file - --retry-for 2 --once --quiet", "pw\n");
  EXPECT_EQ(r.status, 1);
  EXPECT_NE(r.err.find(" vCenter not reachable ("), std::string::npos) << r.err;
  EXPECT_NE(r.err.find("); attempt 2 in 1 s\n"), std::string::npos) << r.err;
  EXPECT_EQ(r.err.find("attempt 3"), std::string::npos) << r.err;
  EXPECT_EQ(lastLine(r.err).rfind("harbec-agent: cannot connect to vCenter at " + url + ": ", 0), 0u) << r.err;
  EXPECT_EQ(r.out, "");
}

TEST(AgentProgram, RefusedLoginEndsAtOnce) {
  vcsim::Simulator vc(kUser, kPassword);
  Outcome r = runAgent("--vcenter " + vc.url + " --user " + kUser + " --password-file - --once", "wrong\n");
  EXPECT_EQ(r.status, 1);
  EXPECT_NE(r.err.find("HARBEC_CONNECT_FAILED: "), std::string::npos) << "the library's own log line";
  EXPECT_EQ(lastLine(r.err), "harbec-agent: vCenter at " + vc.url + " refused the login of " + kUser);
  EXPECT_EQ(r.err.find("attempt 2"), std::string::npos);
}
