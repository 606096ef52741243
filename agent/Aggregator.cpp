#include "agent/Aggregator.h"

#include <httplib.h>

#include <algorithm>
#include <chrono>
#include <sstream>

namespace HarbecAgent {

namespace {

const char kEventData[] = "data: ";

std::unique_ptr<httplib::Client> clientOf(const std::string& at, int readSeconds) {
  auto c = std::make_unique<httplib::Client>("http://" + at);
  c->set_connection_timeout(2);
  c->set_read_timeout(readSeconds);
  return c;
}

}  // namespace

struct Aggregator::Source {
  std::string at;       // where its agent serves; "" while none
  std::string view;     // its last view; "" before the first
  bool ready = false;
  double changes = -1;  // harbec_view_changes_total when the view was read
  bool gone = false;
};

bool relabel(const std::string& line, const std::string& label, Series* series, double* value) {
  if (line.empty() || line[0] == '#') return false;
  const size_t space = line.rfind(' ');
  if (space == std::string::npos) return false;
  const std::string name = line.substr(0, space);
  try {
    *value = std::stod(line.substr(space + 1));
  } catch (const std::exception&) {
    return false;
  }
  const size_t brace = name.find('{');
  series->family = name.substr(0, brace);
  series->labels = label;
  if (brace != std::string::npos && name.size() > brace + 2)
    series->labels += "," + name.substr(brace + 1, name.size() - brace - 2);
  return true;
}

Aggregator::Aggregator(Board& board, std::vector<std::string> names) : board_(board) {
  namesAre(names);
  threads_.emplace_back([this] { poll(); });
}

Aggregator::~Aggregator() {
  stop_ = true;
  for (std::thread& t : threads_) t.join();
}

std::shared_ptr<Aggregator::Source> Aggregator::source(const std::string& name) {
  std::lock_guard<std::mutex> g(mutex_);
  auto it = sources_.find(name);
  return it == sources_.end() ? nullptr : it->second;
}

void Aggregator::namesAre(const std::vector<std::string>& names) {
  std::lock_guard<std::mutex> g(mutex_);
  for (auto& [name, s] : sources_) s->gone = std::find(names.begin(), names.end(), name) == names.end();
  for (const std::string& name : names) {
    if (sources_.count(name) && !sources_[name]->gone) continue;
    auto fresh = std::make_shared<Source>();
    sources_[name] = fresh;
    threads_.emplace_back([this, name, fresh] { follow(name, fresh); });
  }
  for (auto it = sources_.begin(); it != sources_.end();) it = it->second->gone ? sources_.erase(it) : std::next(it);
  names_ = names;
}

void Aggregator::servedAt(const std::string& name, const std::string& at) {
  std::lock_guard<std::mutex> g(mutex_);
  if (auto it = sources_.find(name); it != sources_.end()) {
    it->second->at = at;
    if (at.empty()) it->second->ready = false;
  }
}

bool Aggregator::allReady() {
  std::lock_guard<std::mutex> g(mutex_);
  for (const auto& [name, s] : sources_)
    if (s->view.empty()) return false;
  return !sources_.empty();
}

// Each second, each agent's health and figures, and its view when it has
// told of changes since it was last read.
void Aggregator::poll() {
  while (!stop_) {
    std::vector<std::string> names;
    {
      std::lock_guard<std::mutex> g(mutex_);
      names = names_;
    }
    for (const std::string& name : names) {
      std::shared_ptr<Source> s = source(name);
      std::string at;
      {
        std::lock_guard<std::mutex> g(mutex_);
        if (s) at = s->at;
      }
      if (at.empty()) continue;
      auto c = clientOf(at, 5);
      auto metrics = c->Get("/metrics");
      auto ready = c->Get("/readyz");
      if (!metrics || metrics->status != 200) continue;
      double changes = 0;
      std::istringstream lines(metrics->body);
      for (std::string line; std::getline(lines, line);) {
        Series series;
        double value = 0;
        if (!relabel(line, "vcenter=\"" + name + "\"", &series, &value)) continue;
        board_.set(series, value);
        if (series.family == "harbec_view_changes_total") changes = value;
      }
      const bool isReady = ready && ready->status == 200;
      bool stale;
      {
        std::lock_guard<std::mutex> g(mutex_);
        s->ready = isReady;
        stale = isReady && (s->view.empty() || changes != s->changes);
      }
      if (stale) readView(*c, *s, changes);
    }
    publishView();
    for (int i = 0; i < 10 && !stop_; ++i) std::this_thread::sleep_for(std::chrono::milliseconds(100));
  }
}

void Aggregator::readView(httplib::Client& c, Source& s, double changes) {
  auto view = c.Get("/api/v1/view");
  if (!view || view->status != 200) return;
  std::lock_guard<std::mutex> g(mutex_);
  s.view = view->body;
  while (!s.view.empty() && s.view.back() == '\n') s.view.pop_back();
  s.changes = changes;
}

// {"vcenters": [{"name", "ready", "view"}]} once every agent has made its
// first view; each agent's view as it serves it.
void Aggregator::publishView() {
  std::string doc = "{\"vcenters\":[";
  std::lock_guard<std::mutex> g(mutex_);
  for (size_t i = 0; i < names_.size(); ++i) {
    auto it = sources_.find(names_[i]);
    if (it == sources_.end() || it->second->view.empty()) return;
    doc += std::string(i ? "," : "") + "{\"name\":\"" + names_[i] + "\",\"ready\":" +
           (it->second->ready ? "true" : "false") + ",\"view\":" + it->second->view + "}";
  }
  board_.viewIs(doc + "]}");
}

// An agent's change events, marked with its name, for as long as it is
// served; the stream is opened again whenever it breaks. A vCenter removed
// and added again gets a thread of its own: this one then ends.
void Aggregator::follow(const std::string& name, const std::shared_ptr<Source>& own) {
  const std::string mark = "[" + name + "] ";
  while (!stop_) {
    std::shared_ptr<Source> s = source(name);
    if (s != own) return;
    std::string at;
    {
      std::lock_guard<std::mutex> g(mutex_);
      at = s->at;
    }
    if (at.empty()) {
      std::this_thread::sleep_for(std::chrono::milliseconds(200));
      continue;
    }
    // The view that holds a change is on the board before the change is
    // told, as with one agent.
    std::string pending;
    auto viewClient = clientOf(at, 30);
    clientOf(at, 60)->Get("/api/v1/events", [&](const char* data, size_t n) {
      pending.append(data, n);
      std::vector<std::string> lines;
      for (size_t end; (end = pending.find("\n\n")) != std::string::npos; pending.erase(0, end + 2)) {
        const std::string event = pending.substr(0, end);
        if (size_t at = event.find(kEventData); at != std::string::npos)
          lines.push_back(mark + event.substr(at + sizeof kEventData - 1));
      }
      if (!lines.empty()) {
        readView(*viewClient, *s, -1);
        publishView();
        board_.changed(lines);
      }
      return !stop_;
    });
    std::this_thread::sleep_for(std::chrono::milliseconds(200));
  }
}

}  // namespace HarbecAgent
