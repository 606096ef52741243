#include "agent/ServiceManager.h"

#include <systemd/sd-daemon.h>

#include <chrono>

namespace HarbecAgent {

void notifyReady(const std::string& status) { sd_notify(0, ("READY=1\nSTATUS=" + status).c_str()); }

void notifyStatus(const std::string& status) { sd_notify(0, ("STATUS=" + status).c_str()); }

void watchdogPing() {
  using Clock = std::chrono::steady_clock;
  static Clock::time_point next;
  uint64_t usec = 0;
  if (sd_watchdog_enabled(0, &usec) <= 0 || Clock::now() < next) return;
  sd_notify(0, "WATCHDOG=1");
  next = Clock::now() + std::chrono::microseconds(usec / 2);
}

}  // namespace HarbecAgent
