#include "agent/Fanout.h"

#include <signal.h>
#include <sys/wait.h>
#include <unistd.h>

#include <algorithm>
#include <atomic>
#include <chrono>
#include <iostream>
#include <memory>
#include <thread>

#include "agent/AgentChild.h"
#include "agent/Aggregator.h"
#include "agent/HttpService.h"
#include "agent/ServiceManager.h"
#include "agent/Supervisor.h"

namespace HarbecAgent {

namespace {

std::atomic<int> stopSignal{0};
std::atomic<bool> hangUp{false};
void onStop(int sig) { stopSignal = sig; }
void onHangUp(int) { hangUp = true; }

double now() {
  return std::chrono::duration<double>(std::chrono::steady_clock::now().time_since_epoch()).count();
}

const double kFirstDelay = 5, kMaxDelay = 60, kHealthy = 60, kStopWait = 15;

// An agent process, and when it is to be started again after it gave up.
struct Served {
  std::unique_ptr<AgentChild> child;
  double startedAt = 0;
  double restartAt = 0;  // 0: not waiting
  double delay = kFirstDelay;
  bool stopping = false;
};

// Ends the process without waiting for the threads that read the agents'
// event streams.
[[noreturn]] void finish(int status) {
  std::cerr.flush();
  std::cout.flush();
  _exit(status);
}

// Starts an agent; a failure to start is tried again like an end.
void start(Served& s, std::ostream& err) {
  std::string error;
  s.restartAt = 0;
  s.startedAt = now();
  if (!s.child->start(&error)) {
    err << "harbec-agent: cannot start the agent of vCenter " << s.child->name() << ": " << error << std::endl;
    s.restartAt = now() + s.delay;
  }
}

// --once: each agent in turn, its view printed whole before the next one
// starts; the worst status.
int once(std::vector<Served>& all) {
  int worst = exitDone;
  for (Served& s : all) {
    start(s, std::cerr);
    int status = 0;
    while (!s.child->ended(&status)) s.child->pump(std::cerr, 100);
    for (int i = 0; i < 10; ++i) s.child->pump(std::cerr, 10);
    const int code = WIFEXITED(status) ? WEXITSTATUS(status) : 128 + WTERMSIG(status);
    worst = std::max(worst, code);
  }
  return worst;
}

std::vector<Served> servedFor(const std::vector<std::string>& names, const std::vector<std::string>& argv) {
  std::vector<Served> all;
  for (const std::string& name : names) {
    all.emplace_back();
    all.back().child = std::make_unique<AgentChild>(name, argv);
  }
  return all;
}

// SIGHUP: the configuration read again. Agents whose vCenter stays read it
// too; a new vCenter gets an agent, a gone one's agent is stopped.
void reload(const std::vector<std::string>& argv, std::vector<Served>& all, Aggregator& aggregator,
            std::ostream& err) {
  std::vector<const char*> args;
  for (const std::string& a : argv) args.push_back(a.c_str());
  ParsedOptions parsed = parseOptions(static_cast<int>(args.size()), args.data());
  if (!parsed.error.empty() || !parsed.options.fansOut()) {
    err << "harbec-agent: the configuration was not taken, the running one stays: "
        << (parsed.error.empty() ? "it names fewer than two vCenters; restart the agent to serve it" : parsed.error)
        << std::endl;
    return;
  }
  const std::vector<std::string>& names = parsed.options.vcenterNames;
  for (Served& s : all) {
    const bool kept = std::find(names.begin(), names.end(), s.child->name()) != names.end();
    s.stopping = !kept;
    s.child->signal(kept ? SIGHUP : SIGTERM);
  }
  for (const std::string& name : names) {
    auto known = [&](const Served& s) { return s.child->name() == name; };
    if (std::find_if(all.begin(), all.end(), known) != all.end()) continue;
    err << "harbec-agent: starting an agent for vCenter " << name << std::endl;
    all.emplace_back();
    all.back().child = std::make_unique<AgentChild>(name, argv);
    start(all.back(), err);
  }
  aggregator.namesAre(names);
}

}  // namespace

int fanOut(const std::vector<std::string>& argv, const Options& o) {
  std::vector<Served> all = servedFor(o.vcenterNames, argv);
  if (o.once) return once(all);

  catchStopAndHangUp(onStop, onHangUp);
  signal(SIGPIPE, SIG_IGN);

  Board board;
  HttpService http(board);
  if (!o.listen.empty()) {
    std::string error, token = o.httpTokenFile.empty() ? "" : readSecret(o.httpTokenFile, &error);
    std::string served = error.empty() ? http.start({o.listen, token, o.tlsCert, o.tlsKey}, &error) : "";
    if (served.empty()) {
      std::cerr << "harbec-agent: " << error << std::endl;
      return exitBadArguments;
    }
    std::cerr << "harbec-agent: serving HTTP on " << served << std::endl;
  }
  std::cerr << "harbec-agent: an agent each for " << all.size() << " vCenters" << std::endl;
  Aggregator aggregator(board, o.vcenterNames);
  for (Served& s : all) start(s, std::cerr);
  notifyStatus("starting the agents of " + std::to_string(all.size()) + " vCenters");

  bool ready = false;
  double stopBy = 0;
  for (;;) {
    watchdogPing();
    for (Served& s : all) s.child->pump(std::cerr, 20);
    if (hangUp.exchange(false) && !stopBy) reload(argv, all, aggregator, std::cerr);
    if (stopSignal && !stopBy) {
      for (Served& s : all) s.child->signal(SIGTERM);
      stopBy = now() + kStopWait;
    }
    for (Served& s : all) {
      aggregator.servedAt(s.child->name(), s.child->servedAt());
      int status = 0;
      if (s.child->ended(&status)) {
        const bool again = !stopBy && !s.stopping && restartAfter(status, false);
        if (now() - s.startedAt >= kHealthy) s.delay = kFirstDelay;
        std::cerr << "harbec-agent: the agent of vCenter " << s.child->name() << " ended with "
                  << describeEnd(status)
                  << (again ? "; starting it again in " + std::to_string(int(s.delay)) + " s" : "") << std::endl;
        if (again) s.restartAt = now() + s.delay, s.delay = std::min(s.delay * 2, kMaxDelay);
      }
      if (s.restartAt && now() >= s.restartAt && !stopBy) start(s, std::cerr);
    }
    all.erase(std::remove_if(all.begin(), all.end(), [](const Served& s) { return s.stopping && !s.child->running(); }),
              all.end());
    const bool anyRunning = std::any_of(all.begin(), all.end(), [](const Served& s) { return s.child->running(); });
    if (stopBy && (!anyRunning || now() > stopBy)) {
      for (Served& s : all) s.child->signal(SIGKILL);
      finish(anyRunning ? exitFailed : exitDone);
    }
    if (!ready && aggregator.allReady()) {
      ready = true;
      notifyReady("serving the views of " + std::to_string(all.size()) + " vCenters");
    }
    if (!anyRunning && std::none_of(all.begin(), all.end(), [](const Served& s) { return s.restartAt > 0; })) {
      std::cerr << "harbec-agent: no vCenter's agent runs any more" << std::endl;
      finish(exitFailed);
    }
  }
}

}  // namespace HarbecAgent
