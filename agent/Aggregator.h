// What the agents of several vCenters publish, gathered onto one board:
// the views in one document, each change line marked with its vCenter's
// name, and every series of /metrics with a vcenter label. It reads each
// agent's own HTTP interface on loopback, on threads of its own.
#pragma once
#include <atomic>
#include <map>
#include <memory>
#include <mutex>
#include <string>
#include <thread>
#include <vector>

#include "agent/Board.h"

namespace httplib {
class Client;
}

namespace HarbecAgent {

class Aggregator {
 public:
  // The names in the order the document lists them.
  Aggregator(Board& board, std::vector<std::string> names);
  ~Aggregator();
  Aggregator(const Aggregator&) = delete;
  Aggregator& operator=(const Aggregator&) = delete;

  // Where a vCenter's agent serves ("127.0.0.1:PORT"), "" while it has none.
  void servedAt(const std::string& name, const std::string& at);
  // The vCenters served from now on; a new one is added, a gone one dropped.
  void namesAre(const std::vector<std::string>& names);
  // Whether every vCenter's agent has made its first view.
  bool allReady();

 private:
  struct Source;
  void poll();
  void follow(const std::string& name, const std::shared_ptr<Source>& own);
  void publishView();
  void readView(httplib::Client& c, Source& s, double changes);
  std::shared_ptr<Source> source(const std::string& name);

  Board& board_;
  std::mutex mutex_;
  std::vector<std::string> names_;
  std::map<std::string, std::shared_ptr<Source>> sources_;
  std::atomic<bool> stop_{false};
  std::vector<std::thread> threads_;
};

// One Prometheus text sample line as a series and its value, with
// `label` put first among its labels; false for comments and blanks.
bool relabel(const std::string& line, const std::string& label, Series* series, double* value);

}  // namespace HarbecAgent
