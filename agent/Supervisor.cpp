#include "agent/Supervisor.h"

#include <poll.h>
#include <signal.h>
#include <sys/wait.h>
#include <unistd.h>

#include <algorithm>
#include <atomic>
#include <chrono>
#include <cstring>
#include <ostream>
#include <thread>

#include "agent/ServiceManager.h"

namespace HarbecAgent {

namespace {

std::atomic<int> stopSignal{0};
void onStop(int signal) { stopSignal = signal; }
std::atomic<bool> reloadAsked{false};
void onHangUp(int) { reloadAsked = true; }

double now() {
  return std::chrono::duration<double>(std::chrono::steady_clock::now().time_since_epoch()).count();
}

// A child's standard error, passed on line by line; the last line that
// gives a reason is kept.
class Relay {
 public:
  Relay(int fd, std::ostream& err) : fd_(fd), err_(err) {}
  ~Relay() { close(fd_); }
  // Reads what has come within `ms`; false at end of input.
  bool pump(int ms) {
    pollfd p{fd_, POLLIN, 0};
    if (poll(&p, 1, ms) <= 0) return true;
    char buf[4096];
    ssize_t n = read(fd_, buf, sizeof buf);
    if (n <= 0) {
      flush();
      return false;
    }
    partial_.append(buf, static_cast<size_t>(n));
    for (size_t nl; (nl = partial_.find('\n')) != std::string::npos;) {
      line(partial_.substr(0, nl));
      partial_.erase(0, nl + 1);
    }
    return true;
  }
  void flush() {
    if (!partial_.empty()) line(partial_);
    partial_.clear();
  }
  const std::string& reason() const { return reason_; }

 private:
  void line(const std::string& text) {
    err_ << text << std::endl;
    // A restart notice says what comes next, not why.
    if (text.find_first_not_of(" \t\r") != std::string::npos && text.find("HARBEC_AGENT_RESTART") == std::string::npos)
      reason_ = text;
  }
  int fd_;
  std::ostream& err_;
  std::string partial_, reason_;
};

unsigned startsSoFar = 0;

// Starts work() in a child whose standard error goes to *errFd.
pid_t spawn(const std::function<int()>& work, int* errFd) {
  int fds[2];
  if (pipe(fds) != 0) return -1;
  ++startsSoFar;
  pid_t pid = fork();
  if (pid == 0) {
    close(fds[0]);
    dup2(fds[1], STDERR_FILENO);
    close(fds[1]);
    signal(SIGINT, SIG_DFL);
    signal(SIGTERM, SIG_DFL);
    signal(SIGHUP, SIG_IGN);  // the configuration is the supervisor's to read
    int status = work();
    std::fflush(nullptr);
    _exit(status);
  }
  close(fds[1]);
  *errFd = fds[0];
  return pid;
}

// Waits for the child, passing its output on, and stops it when a signal
// came, or a new configuration wants it started again (*renewed):
// SIGTERM, then after ten seconds SIGKILL.
int await(pid_t pid, Relay& relay, const std::function<bool()>& reload, bool* renewed) {
  bool open = true;
  double killAt = 0;
  // Once its standard error has closed, a child is usually about to be
  // reaped: look again soon, then less often.
  int closedLooks = 0;
  for (;;) {
    watchdogPing();
    if (open) open = relay.pump(200);
    else std::this_thread::sleep_for(std::chrono::milliseconds(closedLooks++ < 50 ? 1 : 50));
    int status = 0;
    if (waitpid(pid, &status, WNOHANG) == pid) {
      while (open && (open = relay.pump(100))) {
      }
      relay.flush();
      return status;
    }
    if (reloadAsked.exchange(false) && reload && !killAt && reload()) *renewed = true;
    if ((stopSignal || *renewed) && !killAt) {
      kill(pid, SIGTERM);
      killAt = now() + 10;
    } else if (killAt && now() > killAt) {
      kill(pid, SIGKILL);
    }
  }
}

// Sleeps, unless a stop signal comes first.
void pause(double seconds) {
  for (double until = now() + seconds; !stopSignal && now() < until;)
    std::this_thread::sleep_for(std::chrono::milliseconds(50));
}

}  // namespace

std::string describeEnd(int status) {
  if (WIFEXITED(status)) return "exit status " + std::to_string(WEXITSTATUS(status));
  if (WIFSIGNALED(status))
    return "signal " + std::to_string(WTERMSIG(status)) + " (" + strsignal(WTERMSIG(status)) + ")";
  return "an unknown end";
}

unsigned workRestarts() { return startsSoFar > 1 ? startsSoFar - 1 : 0; }

bool restartAfter(int status, bool once) {
  if (WIFSIGNALED(status)) return true;
  switch (WEXITSTATUS(status)) {
    case exitDone:
    case exitBadArguments:
    case exitInterrupted:
      return false;
    case exitFailed:
      return !once;
    default:
      return true;
  }
}

void catchStopAndHangUp(void (*stop)(int), void (*hangUp)(int)) {
  struct sigaction sa {};
  sa.sa_handler = stop;
  sigaction(SIGINT, &sa, nullptr);
  sigaction(SIGTERM, &sa, nullptr);
  sa.sa_handler = hangUp;
  sigaction(SIGHUP, &sa, nullptr);
}

int supervise(const std::function<int()>& work, const SupervisorOptions& options, std::ostream& err) {
  catchStopAndHangUp(onStop, onHangUp);
  stopSignal = 0;
  double delay = options.firstDelay;
  for (;;) {
    int fd = -1;
    double started = now();
    pid_t pid = spawn(work, &fd);
    if (pid < 0) {
      err << "harbec-agent: cannot start the work: " << std::strerror(errno) << std::endl;
      return exitFailed;
    }
    Relay relay(fd, err);
    bool renewed = false;
    int status = await(pid, relay, options.reload, &renewed);
    if (renewed && !stopSignal) {
      err << "harbec-agent: the work ended for the new configuration; starting it again" << std::endl;
      delay = options.firstDelay;
      continue;
    }
    std::string reason = relay.reason().empty() ? "no reason given" : relay.reason();
    bool again = !stopSignal && restartAfter(status, options.once);
    if (now() - started >= options.healthy) delay = options.firstDelay;
    err << "harbec-agent: the work ended with " << describeEnd(status) << "; last said: " << reason
        << (again ? "; starting it again in " + std::to_string(static_cast<int>(delay)) + " s" : "") << std::endl;
    if (!again) return WIFEXITED(status) ? WEXITSTATUS(status) : 128 + WTERMSIG(status);
    pause(delay);
    if (stopSignal) return exitInterrupted;
    delay = std::min(delay * 2, options.maxDelay);
  }
}

}  // namespace HarbecAgent
