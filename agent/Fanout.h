// An agent for a configuration of several vCenters. The library ends its
// whole process on a fatal failure and keeps one inventory per process, so
// each vCenter gets an agent process of its own (with its own supervisor,
// sessions and view): this program again, with --vcenter-name. This one
// starts them, starts one again that gave up, passes signals on (SIGHUP
// too: each reads the configuration again, and one whose settings did not
// change keeps its sessions and view), and serves the HTTP interface for
// all of them, from what each serves on loopback.
#pragma once
#include <string>
#include <vector>

#include "agent/Options.h"

namespace HarbecAgent {

// Runs until a signal ends it, or, with --once, until each agent has
// printed its view, one after another; the exit status.
int fanOut(const std::vector<std::string>& argv, const Options& options);

}  // namespace HarbecAgent
