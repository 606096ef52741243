// The host agent around the library: it builds the status, configuration
// and root entities, makes the sessions and their threads, and posts every
// request the library carries out. The library never retries: the connect
// back-off, the rounds of neighbour hints, probes, port counters and
// vShield requests, and the reaction to a lost update loop are decided here.
#pragma once
#include <functional>
#include <iosfwd>
#include <string>

#include "agent/Board.h"
#include "agent/Options.h"
#include "agent/Snapshot.h"

namespace HarbecAgent {

// Seconds to wait before connect attempt `attempt` + 1, after `attempt`
// failed ones: 1, 2, 4, ... up to `cap`.
double backoffDelay(unsigned attempt, double cap = 30);

// What the agent runs with: the options, with the secrets read.
struct Settings {
  Options options;
  std::string vcenterPassword, vsmPassword;
  std::string httpToken;
};
inline bool sameSettings(const Settings& a, const Settings& b) {
  return a.options == b.options && a.vcenterPassword == b.vcenterPassword && a.vsmPassword == b.vsmPassword &&
         a.httpToken == b.httpToken;
}

class HostAgent {
 public:
  // `out` takes the view and the changes; `err` progress and log lines.
  HostAgent(Settings settings, std::ostream& out, std::ostream& err);
  ~HostAgent();
  HostAgent(const HostAgent&) = delete;
  HostAgent& operator=(const HostAgent&) = delete;

  // Called once, after the first full inventory has arrived and before the
  // first round of requests; the demo sets up its neighbours there.
  std::function<void(const Snapshot&)> afterFirstSync;
  // Called as the first view starts to be printed, and once it has been.
  std::function<void()> beforeFirstView, afterFirstView;
  // Where the views, their changes and the figures go for the HTTP
  // interface; none without one. Set before run().
  Board* board = nullptr;

  // Runs until done (--once) or for ever; the exit status.
  int run();

  // The agent's threads stay behind: the update loop holds its thread
  // until vCenter answers, so the process ends without joining them.

 private:
  struct Impl;
  Impl* impl_;
};

}  // namespace HarbecAgent
