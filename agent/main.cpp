// harbec-agent: the host agent of a switch, built around libHarbec. It
// shows, for each interface of this switch, the VMware host behind it and
// the machines whose traffic the interface carries.
#include <signal.h>
#include <unistd.h>

#include <atomic>
#include <cstdio>
#include <iostream>

#include "agent/Demo.h"
#include "agent/Fanout.h"
#include "agent/HostAgent.h"
#include "agent/HttpService.h"
#include "agent/ServiceManager.h"
#include "agent/Supervisor.h"

namespace {

using namespace HarbecAgent;

enum View { beforeView, printingFirstView, viewShown };
std::atomic<int> view{beforeView};
std::atomic<bool> stopAsked{false};

// A signal ends the work at once, ahead of the demo's peers, which a
// terminal's interrupt reaches too (see finish). What was printed has been
// flushed line by line. Before the first view it is a failure to say so;
// while the first view is being printed, the end waits for it to be whole
// (the signal may come on any thread: the flag is set before the view is
// looked at, the view marked shown before the flag is).
void onSignal(int) {
  stopAsked = true;
  if (view == viewShown) _exit(exitDone);
  if (view == printingFirstView) return;
  const char line[] = "harbec-agent: interrupted before the first view\n";
  ssize_t written = write(STDERR_FILENO, line, sizeof line - 1);
  (void)written;
  _exit(exitInterrupted);
}

// Without the supervisor nobody reads the configuration again; SIGHUP
// (systemctl reload) says so instead of ending the work.
void onUnsupervisedHangUp(int) {
  const char line[] = "harbec-agent: SIGHUP: with --no-supervise the configuration is not read again; restart the "
                      "agent to take a new one\n";
  ssize_t written = write(STDERR_FILENO, line, sizeof line - 1);
  (void)written;
}

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

// The agent's work, in this process.
int work(Settings settings) {
  struct sigaction sa {};
  sa.sa_handler = onSignal;
  sa.sa_flags = SA_RESTART;  // a view being printed goes on whole
  sigaction(SIGINT, &sa, nullptr);
  sigaction(SIGTERM, &sa, nullptr);
  if (!settings.options.supervise) {
    sa.sa_handler = onUnsupervisedHangUp;
    sigaction(SIGHUP, &sa, nullptr);
  }
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
      finish(exitFailed);
    }
  }

  Board board;
  HttpService http(board);
  if (!settings.options.listen.empty()) {
    std::string error, served = http.start({settings.options.listen, settings.httpToken, settings.options.tlsCert,
                                            settings.options.tlsKey},
                                           &error);
    if (served.empty()) {
      std::cerr << "harbec-agent: " << error << "\n";
      finish(exitBadArguments);
    }
    std::cerr << "harbec-agent: serving HTTP on " << served << "\n";
  }

  HostAgent agent(settings, std::cout, std::cerr);
  if (!settings.options.listen.empty()) agent.board = &board;
  notifyStatus("connecting to vCenter at " + settings.options.vcenterUrl);
  if (settings.options.demo)
    agent.afterFirstSync = [&demo, &settings](const Snapshot& s) {
      demo.announce(s);
      if (!settings.options.once) demo.playChanges(s);
    };
  agent.beforeFirstView = [] { view = printingFirstView; };
  agent.afterFirstView = [] {
    notifyReady("serving the view");
    view = viewShown;
    if (stopAsked) finish(exitDone);
  };
  int status = exitFailed;
  try {
    status = agent.run();
  } catch (const std::exception& e) {
    std::cerr << "harbec-agent: " << e.what() << "\n";
  }
  finish(status);
}

// The options with the secrets they name read; *error says what failed.
Settings withSecrets(const Options& options, std::string* error) {
  Settings s{options, "", "", ""};
  if (!s.options.demo) {
    s.vcenterPassword = readSecret(s.options.vcenterPasswordFile, error);
    if (error->empty() && !s.options.vsmUrl.empty()) s.vsmPassword = readSecret(s.options.vsmPasswordFile, error);
  }
  if (error->empty() && !s.options.httpTokenFile.empty()) s.httpToken = readSecret(s.options.httpTokenFile, error);
  return s;
}

// SIGHUP: the configuration file and the secrets it names, read again.
// True when they changed and *settings holds the new ones; a file that
// cannot be read or holds an error leaves the running settings.
bool reload(int argc, char** argv, Settings* settings) {
  if (settings->options.configFile.empty()) {
    std::cerr << "harbec-agent: SIGHUP without --config: nothing to read again" << std::endl;
    return false;
  }
  ParsedOptions parsed = parseOptions(argc, argv);
  std::string error = parsed.error;
  Settings fresh = error.empty() ? withSecrets(parsed.options, &error) : Settings{};
  if (!error.empty()) {
    std::cerr << "harbec-agent: the configuration was not taken, the running one stays: " << error << std::endl;
    return false;
  }
  if (sameSettings(fresh, *settings)) {
    std::cerr << "harbec-agent: the configuration is unchanged" << std::endl;
    return false;
  }
  *settings = fresh;
  return true;
}

}  // namespace

int main(int argc, char** argv) {
  ParsedOptions parsed = parseOptions(argc, argv);
  if (parsed.help) {
    std::cout << usage("harbec-agent");
    return exitDone;
  }
  if (!parsed.error.empty()) {
    std::cerr << "harbec-agent: " << parsed.error << " (see --help)\n";
    return exitBadArguments;
  }

  if (parsed.options.fansOut()) return fanOut(std::vector<std::string>(argv, argv + argc), parsed.options);

  std::string error;
  Settings settings = withSecrets(parsed.options, &error);
  if (!error.empty()) {
    std::cerr << "harbec-agent: " << error << "\n";
    return exitBadArguments;
  }
  if (!settings.options.supervise) return work(settings);
  SupervisorOptions supervision;
  supervision.once = settings.options.once;
  supervision.reload = [&] { return reload(argc, argv, &settings); };
  return supervise([&settings] { return work(settings); }, supervision, std::cerr);
}
