#include "agent/Relays.h"

#include <chrono>

namespace HarbecAgent {

void ServedRequests::add(const std::string& name) {
  std::lock_guard<std::mutex> g(mutex_);
  names_.insert(name);
  changed_.notify_all();
}

bool ServedRequests::has(const std::string& name) {
  std::lock_guard<std::mutex> g(mutex_);
  return names_.count(name) != 0;
}

bool ServedRequests::wait(const std::string& name, double seconds) {
  std::unique_lock<std::mutex> g(mutex_);
  return changed_.wait_for(g, std::chrono::duration<double>(seconds), [&] { return names_.count(name) != 0; });
}

}  // namespace HarbecAgent
