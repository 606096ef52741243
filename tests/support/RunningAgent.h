// The harbec-agent program run as a child with pipes on its standard
// streams, for the tests that watch it while it runs; nothing waits
// without a limit.
#pragma once
#include <fcntl.h>
#include <poll.h>
#include <signal.h>
#include <spawn.h>
#include <sys/wait.h>
#include <unistd.h>

#include <fstream>
#include <stdexcept>
#include <string>
#include <vector>

extern char** environ;

namespace agenttest {

// How a child ends within ten seconds: "exit N", "signal N"; one that
// does not is killed, and that is a failure too.
inline std::string endOf(pid_t pid) {
  int status = 0;
  for (int i = 0; i < 1000; ++i) {
    if (waitpid(pid, &status, WNOHANG) == pid)
      return WIFEXITED(status) ? "exit " + std::to_string(WEXITSTATUS(status))
                               : "signal " + std::to_string(WTERMSIG(status));
    usleep(10000);
  }
  kill(pid, SIGKILL);
  waitpid(pid, &status, 0);
  return "still running after 10 s";
}

// A running agent: its standard output and error read line by line, with
// limits; it is killed if it outlives the object.
class Running {
 public:
  Running(std::vector<std::string> args, const std::string& input) {
    int in[2], out[2], err[2];
    if (pipe2(in, O_CLOEXEC) || pipe2(out, O_CLOEXEC) || pipe2(err, O_CLOEXEC)) throw std::runtime_error("pipe");
    posix_spawn_file_actions_t actions;
    posix_spawn_file_actions_init(&actions);
    posix_spawn_file_actions_adddup2(&actions, in[0], 0);
    posix_spawn_file_actions_adddup2(&actions, out[1], 1);
    posix_spawn_file_actions_adddup2(&actions, err[1], 2);
    args.insert(args.begin(), HARBEC_AGENT_BINARY);
    std::vector<char*> argv;
    for (std::string& a : args) argv.push_back(a.data());
    argv.push_back(nullptr);
    if (posix_spawn(&pid, argv[0], &actions, nullptr, argv.data(), environ) != 0) throw std::runtime_error("spawn");
    posix_spawn_file_actions_destroy(&actions);
    close(in[0]);
    close(out[1]);
    close(err[1]);
    if (write(in[1], input.data(), input.size()) != static_cast<ssize_t>(input.size())) throw std::runtime_error("stdin");
    close(in[1]);
    fds[0] = out[0];
    fds[1] = err[0];
  }
  ~Running() {
    if (pid > 0) endOf(pid);
    close(fds[0]);
    close(fds[1]);
  }
  // The next line of standard output (0) or error (1); "" after 15 s or at the end.
  std::string line(int which) {
    std::string& pending = pendings[which];
    pollfd p{fds[which], POLLIN, 0};
    for (size_t nl; (nl = pending.find('\n')) == std::string::npos;) {
      char buf[65536];
      ssize_t n = poll(&p, 1, 15000) > 0 ? read(fds[which], buf, sizeof buf) : 0;
      if (n <= 0) return "";
      pending.append(buf, static_cast<size_t>(n));
    }
    std::string next = pending.substr(0, pending.find('\n'));
    pending.erase(0, next.size() + 1);
    return next;
  }
  // The next line of standard error that holds `text`, or "".
  std::string errorWith(const std::string& text) {
    for (std::string l; !(l = line(1)).empty();)
      if (l.find(text) != std::string::npos) return l;
    return "";
  }
  void send(int signal) { kill(pid, signal); }
  // The child process whose command line has `arg` among its words, or 0.
  pid_t childWith(const std::string& arg) const {
    std::ifstream children("/proc/" + std::to_string(pid) + "/task/" + std::to_string(pid) + "/children");
    for (pid_t child; children >> child;) {
      std::ifstream cmdline("/proc/" + std::to_string(child) + "/cmdline");
      for (std::string word; std::getline(cmdline, word, '\0');)
        if (word == arg) return child;
    }
    return 0;
  }
  std::string stop(int signal) {
    kill(pid, signal);
    std::string end = endOf(pid);
    pid = 0;
    return end;
  }

 private:
  pid_t pid = 0;
  int fds[2] = {-1, -1};
  std::string pendings[2];
};

}  // namespace agenttest
