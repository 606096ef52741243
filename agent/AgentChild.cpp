#include "agent/AgentChild.h"

#include <fcntl.h>
#include <poll.h>
#include <signal.h>
#include <spawn.h>
#include <sys/wait.h>
#include <unistd.h>

#include <cstring>
#include <ostream>
#include <utility>

extern char** environ;

namespace HarbecAgent {

namespace {

// The environment without systemd's notification and watchdog: the agent
// that starts the children is the service's main process and tells
// systemd for all of them.
std::vector<std::string> childEnvironment() {
  std::vector<std::string> env;
  for (char** e = environ; *e; ++e) {
    const std::string var = *e;
    if (var.rfind("NOTIFY_SOCKET=", 0) != 0 && var.rfind("WATCHDOG_", 0) != 0) env.push_back(var);
  }
  return env;
}

std::vector<char*> pointers(std::vector<std::string>& strings) {
  std::vector<char*> out;
  for (std::string& s : strings) out.push_back(s.data());
  out.push_back(nullptr);
  return out;
}

const char kServing[] = "serving HTTP on ";

}  // namespace

AgentChild::AgentChild(std::string name, std::vector<std::string> argv)
    : name_(std::move(name)), argv_(std::move(argv)) {}

AgentChild::~AgentChild() {
  if (errFd_ >= 0) close(errFd_);
}

bool AgentChild::start(std::string* error) {
  std::vector<std::string> args = argv_;
  args.insert(args.end(), {"--vcenter-name", name_});
  // Its own interface is for this process only: plain, on loopback, with
  // no token; the one the operator configured is served here.
  args.insert(args.end(), {"--listen", "127.0.0.1:0", "--http-token-file=", "--tls-cert=", "--tls-key="});
  std::vector<std::string> env = childEnvironment();
  int fds[2];
  if (pipe2(fds, O_CLOEXEC) != 0) {
    *error = std::strerror(errno);
    return false;
  }
  posix_spawn_file_actions_t actions;
  posix_spawn_file_actions_init(&actions);
  posix_spawn_file_actions_addopen(&actions, STDIN_FILENO, "/dev/null", O_RDONLY, 0);
  posix_spawn_file_actions_adddup2(&actions, fds[1], STDERR_FILENO);
  std::vector<char*> argvp = pointers(args), envp = pointers(env);
  int rc = posix_spawn(&pid_, "/proc/self/exe", &actions, nullptr, argvp.data(), envp.data());
  posix_spawn_file_actions_destroy(&actions);
  close(fds[1]);
  if (rc != 0) {
    close(fds[0]);
    pid_ = 0;
    *error = std::strerror(rc);
    return false;
  }
  if (errFd_ >= 0) close(errFd_);
  errFd_ = fds[0];
  partial_.clear();
  servedAt_.clear();
  return true;
}

void AgentChild::pump(std::ostream& err, int ms) {
  if (errFd_ < 0) return;
  pollfd p{errFd_, POLLIN, 0};
  if (poll(&p, 1, ms) <= 0) return;
  char buf[4096];
  ssize_t n = read(errFd_, buf, sizeof buf);
  if (n <= 0) {
    if (!partial_.empty()) err << "[" << name_ << "] " << partial_ << std::endl;
    partial_.clear();
    close(errFd_);
    errFd_ = -1;
    return;
  }
  partial_.append(buf, static_cast<size_t>(n));
  for (size_t nl; (nl = partial_.find('\n')) != std::string::npos; partial_.erase(0, nl + 1)) {
    const std::string line = partial_.substr(0, nl);
    if (size_t at = line.find(kServing); at != std::string::npos) {
      servedAt_ = line.substr(at + sizeof kServing - 1);
      continue;  // its interface is an inner one
    }
    err << "[" << name_ << "] " << line << std::endl;
  }
}

bool AgentChild::ended(int* status) {
  if (pid_ <= 0 || waitpid(pid_, status, WNOHANG) != pid_) return false;
  pid_ = 0;
  servedAt_.clear();
  return true;
}

void AgentChild::signal(int sig) {
  if (pid_ > 0) kill(pid_, sig);
}

}  // namespace HarbecAgent
