#include "agent/Board.h"

#include <chrono>
#include <cmath>
#include <sstream>

namespace HarbecAgent {

namespace {

struct Family {
  const char *name, *type, *help;
};
// Every metric the agent exposes, with its type and help text.
const Family kFamilies[] = {
    {"harbec_up", "gauge", "1 while the agent's work runs"},
    {"harbec_view_ready", "gauge", "1 once the first view has been made"},
    {"harbec_first_sync_seconds", "gauge", "Seconds from the start of the work to the first full inventory"},
    {"harbec_sync_objects", "gauge", "Objects of the first sync received so far, counted as its reply is read"},
    {"harbec_objects", "gauge", "Objects in the view, by kind"},
    {"harbec_view_changes_total", "counter", "Changes of the view, as the live mode prints them"},
    {"harbec_exchanges_total", "counter", "Requests carried out, by peer, kind and result"},
    {"harbec_last_good_exchange_timestamp_seconds", "gauge", "Unix time of the last successful exchange, by peer"},
    {"harbec_connect_attempts_total", "counter", "Attempts to log in to vCenter"},
    {"harbec_restarts_total", "counter", "Times the supervisor started the work again before this run"},
    {"harbec_peer_up", "gauge", "1 while the peer's session is connected"},
};

std::string number(double v) {
  if (std::isnan(v)) return "NaN";
  std::ostringstream s;
  s.precision(15);
  s << v;
  return s.str();
}

}  // namespace

void Board::viewIs(std::string json) {
  std::lock_guard<std::mutex> g(mutex_);
  view_ = std::move(json);
}

std::string Board::view() {
  std::lock_guard<std::mutex> g(mutex_);
  return view_;
}

bool Board::ready() {
  std::lock_guard<std::mutex> g(mutex_);
  return !view_.empty();
}

void Board::changed(const std::vector<std::string>& lines) {
  if (lines.empty()) return;
  std::lock_guard<std::mutex> g(mutex_);
  for (const std::string& l : lines) changes_.push_back(l);
  while (changes_.size() > kKeptChanges) {
    changes_.pop_front();
    ++firstChange_;
  }
  newChanges_.notify_all();
}

std::vector<std::string> Board::changesAfter(uint64_t* next, double seconds) {
  std::unique_lock<std::mutex> g(mutex_);
  auto end = [&] { return firstChange_ + changes_.size(); };
  if (*next == 0) *next = end();
  newChanges_.wait_for(g, std::chrono::duration<double>(seconds), [&] { return end() > *next; });
  std::vector<std::string> out;
  for (uint64_t n = std::max(*next, firstChange_); n < end(); ++n) out.push_back(changes_[n - firstChange_]);
  *next = end();
  return out;
}

void Board::set(const Series& s, double value) {
  std::lock_guard<std::mutex> g(mutex_);
  series_[s] = value;
}

void Board::add(const Series& s, double delta) {
  std::lock_guard<std::mutex> g(mutex_);
  series_[s] += delta;
}

std::string Board::metrics() {
  std::map<Series, double> copy;
  {
    std::lock_guard<std::mutex> g(mutex_);
    copy = series_;
  }
  std::string out;
  for (const Family& f : kFamilies) {
    bool headed = false;
    for (auto it = copy.lower_bound({f.name, ""}); it != copy.end() && it->first.family == f.name; ++it) {
      if (!headed) out += std::string("# HELP ") + f.name + " " + f.help + "\n# TYPE " + f.name + " " + f.type + "\n";
      headed = true;
      out += f.name + (it->first.labels.empty() ? "" : "{" + it->first.labels + "}") + " " + number(it->second) + "\n";
    }
  }
  return out;
}

}  // namespace HarbecAgent
