// The agent's supervisor. The library ends the whole process on a fatal
// failure (exit(-1), or an assertion) and counts on a supervisor to start
// it anew: here the work runs in a child process, whose standard error the
// supervisor passes on line by line. For each end of the child it prints
// one line, with the exit status or signal and the last reason the child
// gave, and it restarts the child after an abnormal end: 1 s, doubling up
// to 30 s, and from 1 s again once a child has run for a minute.
#pragma once
#include <functional>
#include <iosfwd>
#include <string>

namespace HarbecAgent {

// Exit statuses of the agent.
enum ExitStatus : int {
  exitDone = 0,
  exitFailed = 1,       // vCenter unreachable or refusing, or the update loop lost
  exitBadArguments = 2,
  exitInterrupted = 3,  // a signal before the first view
};

struct SupervisorOptions {
  bool once = false;  // a failed --once is not run again
  double firstDelay = 1, maxDelay = 30, healthy = 60;  // seconds
  // On SIGHUP: reads the configuration again; true when the work must start
  // again with it (it is stopped and started at once), false to go on.
  std::function<bool()> reload;
};

// Runs work() in child processes until one ends for good or a SIGINT or
// SIGTERM comes; the status to exit with. SIGHUP calls options.reload.
int supervise(const std::function<int()>& work, const SupervisorOptions& options, std::ostream& err);

// SIGINT and SIGTERM to onStop, SIGHUP to onHangUp, as a process that
// watches others takes them.
void catchStopAndHangUp(void (*onStop)(int), void (*onHangUp)(int));

// "exit status 255", "signal 11 (Segmentation fault)".
std::string describeEnd(int waitStatus);
// In the work: how many times it was started again before this run.
unsigned workRestarts();
// Whether a child that ended so is started again.
bool restartAfter(int waitStatus, bool once);

}  // namespace HarbecAgent
