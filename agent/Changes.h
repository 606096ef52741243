// What changed between two snapshots, as one line per change for the live
// mode: machines that came, went, powered on or off, began or ended a
// migration or moved; NICs moved to another port group; interfaces tied to
// another host NIC; links that went down or came up; hosts that vCenter
// lost or found again, or that entered or left maintenance mode.
#pragma once
#include <string>
#include <vector>

#include "agent/Snapshot.h"

namespace HarbecAgent {

std::vector<std::string> describeChanges(const Snapshot& before, const Snapshot& after);

}  // namespace HarbecAgent
