// What the agent tells systemd when it runs as a Type=notify service: that
// the first view is made, what it is doing, and that it is alive (for
// WatchdogSec=). Outside systemd, or in a process that is not the service's
// main one where the watchdog is concerned, these do nothing.
#pragma once
#include <string>

namespace HarbecAgent {

void notifyReady(const std::string& status);
void notifyStatus(const std::string& status);
// Pings the watchdog when it is on for this process, at most every half of
// its interval; cheap to call often.
void watchdogPing();

}  // namespace HarbecAgent
