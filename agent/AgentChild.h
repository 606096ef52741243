// One agent process of several, for one vCenter of the configuration: this
// program again, told which vCenter to serve and to listen on loopback
// where the agent that started it reads its view, changes and figures.
// Its standard error is passed on, each line marked with the vCenter's name.
#pragma once
#include <sys/types.h>

#include <iosfwd>
#include <string>
#include <vector>

namespace HarbecAgent {

class AgentChild {
 public:
  // `argv` is this program's command line.
  AgentChild(std::string name, std::vector<std::string> argv);
  ~AgentChild();
  AgentChild(const AgentChild&) = delete;
  AgentChild& operator=(const AgentChild&) = delete;

  const std::string& name() const { return name_; }
  // Starts the process; false with *error set.
  bool start(std::string* error);
  bool running() const { return pid_ > 0; }
  // Passes on what came on its standard error within `ms`.
  void pump(std::ostream& err, int ms);
  // Whether it ended; *status is its wait status.
  bool ended(int* status);
  void signal(int sig);
  // "127.0.0.1:PORT" once it said where it serves; "" before.
  const std::string& servedAt() const { return servedAt_; }

 private:
  std::string name_;
  std::vector<std::string> argv_;
  pid_t pid_ = 0;
  int errFd_ = -1;
  std::string partial_, servedAt_;
};

}  // namespace HarbecAgent
