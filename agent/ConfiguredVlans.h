// What the switch's interfaces are configured to carry, as the operator
// tells the agent: "IFACE=LIST" on the command line, or a file of lines
// "IFACE LIST" (or "IFACE=LIST"; "#" starts a comment). A LIST is as the
// view prints VLANs: "untagged,1-100,200"; empty for nothing.
#pragma once
#include <map>
#include <string>

namespace HarbecAgent {

using ConfiguredVlans = std::map<std::string, std::string>;  // interface -> VLAN list

// Adds one "IFACE=LIST"; the reason when it is not one.
std::string addConfiguredVlans(const std::string& entry, ConfiguredVlans& into);
// Adds each line of a file; the reason, with the line's number, when one
// is not good or the file cannot be read.
std::string readConfiguredVlans(const std::string& path, ConfiguredVlans& into);

}  // namespace HarbecAgent
