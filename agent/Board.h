// What the agent's work publishes for its HTTP interface: the latest JSON
// view, the change lines as the live mode prints them, and the figures of
// /metrics. The work writes here; the HTTP threads read copies. Nothing here
// waits on a client, so a slow or stuck client never holds up the sessions.
#pragma once
#include <condition_variable>
#include <cstdint>
#include <deque>
#include <map>
#include <mutex>
#include <string>
#include <vector>

namespace HarbecAgent {

// One series of a metric: its family (the metric's name) and its labels as
// Prometheus writes them, e.g. {"harbec_exchanges_total", "peer=\"vcenter\""}.
struct Series {
  std::string family, labels;
  bool operator<(const Series& o) const { return family != o.family ? family < o.family : labels < o.labels; }
};

class Board {
 public:
  // The first view is ready; each later view replaces it.
  void viewIs(std::string json);
  // "" until the first view.
  std::string view();
  bool ready();

  // Change lines; each is told once to every reader that waits.
  void changed(const std::vector<std::string>& lines);
  // The lines after number `*next` (0: the ones to come), waiting up to
  // `seconds` for one; *next moves past them. Lines older than the last
  // kKeptChanges are skipped.
  std::vector<std::string> changesAfter(uint64_t* next, double seconds);
  static constexpr size_t kKeptChanges = 1000;

  void set(const Series& s, double value);
  void add(const Series& s, double delta = 1);
  // The Prometheus text exposition of every series set so far.
  std::string metrics();

 private:
  std::mutex mutex_;
  std::condition_variable newChanges_;
  std::string view_;
  std::deque<std::string> changes_;
  uint64_t firstChange_ = 1;  // the number of changes_.front()
  std::map<Series, double> series_;
};

}  // namespace HarbecAgent
