// harbec-agent: the host agent of a switch, built around libHarbec. It
// shows, for each interface of this switch, the VMware host behind it and
// the machines whose traffic the interface carries.
#include <signal.h>
#include <unistd.h>

#include <cstdio>
#include <iostream>

#include "agent/Demo.h"
#include "agent/HostAgent.h"

namespace {

// An interrupt ends the live mode at once, ahead of the demo's peers, which
// a terminal's interrupt reaches too (see finish). What was printed has
// been flushed line by line.
void onSignal(int) { _exit(0); }

// Ends the process at once, without joining the agent's threads: the
// update loop keeps its thread until vCenter answers. The demo's peers are
// not stopped first: they stop when their stdin pipes close with this
// process, and a simulator that went first would end the update loop with
// an error, on which the library ends the process with its own status.
[[noreturn]] void finish(int status) {
  std::cout.flush();
  std::cerr.flush();
  std::fflush(nullptr);
  _exit(status);
}

}  // namespace

int main(int argc, char** argv) {
  using namespace HarbecAgent;
  ParsedOptions parsed = parseOptions(argc, argv);
  if (parsed.help) {
    std::cout << usage("harbec-agent");
    return 0;
  }
  if (!parsed.error.empty()) {
    std::cerr << "harbec-agent: " << parsed.error << " (see --help)\n";
    return 2;
  }

  Settings settings{parsed.options, "", ""};
  std::string error;
  if (!settings.options.demo) {
    settings.vcenterPassword = readSecret(settings.options.vcenterPasswordFile, &error);
    if (error.empty() && !settings.options.vsmUrl.empty())
      settings.vsmPassword = readSecret(settings.options.vsmPasswordFile, &error);
    if (!error.empty()) {
      std::cerr << "harbec-agent: " << error << "\n";
      return 2;
    }
  }

  struct sigaction sa {};
  sa.sa_handler = onSignal;
  sigaction(SIGINT, &sa, nullptr);
  sigaction(SIGTERM, &sa, nullptr);
  signal(SIGPIPE, SIG_IGN);

  Demo demo;
  if (settings.options.demo) {
    try {
      std::cerr << "harbec-agent: starting the vCenter simulator and the vShield Manager stand-in\n";
      demo.start(settings);
      std::cerr << "harbec-agent: demo vCenter " << settings.options.vcenterUrl << ", vShield Manager "
                << settings.options.vsmUrl << ", this switch " << Demo::kSwitchName << " with bridge MAC "
                << settings.options.bridgeMac << "\n";
    } catch (const std::exception& e) {
      std::cerr << "harbec-agent: cannot start the demo: " << e.what() << "\n";
      finish(1);
    }
  }

  HostAgent agent(settings, std::cout, std::cerr);
  if (settings.options.demo)
    agent.afterFirstSync = [&demo, &settings](const Snapshot& s) {
      demo.announce(s);
      if (!settings.options.once) demo.playChanges(s);
    };
  int status = 1;
  try {
    status = agent.run();
  } catch (const std::exception& e) {
    std::cerr << "harbec-agent: " << e.what() << "\n";
  }
  finish(status);
}
