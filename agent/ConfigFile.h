// The agent's configuration file, in TOML (/etc/harbec/agent.conf for the
// service): the settings of the command line, which overrides it. Passwords
// and the HTTP token never stand in it: it names files, or systemd
// credentials (files in $CREDENTIALS_DIRECTORY).
//
//   bridge_mac = "00:1c:73:aa:bb:cc"
//   [[vcenter]]                 # up to 8, each with a name when several
//   url = "vc.example.com"
//   user = "svc-switch@vsphere.local"
//   password_credential = "vcenter-password"
//   [http]
//   listen = "127.0.0.1:9870"
//   [configured_vlans]
//   Ethernet1 = "untagged,100-110"
#pragma once
#include <string>

#include "agent/Options.h"

namespace HarbecAgent {

// Applies the file's settings to *o. "" when it could, else one line that
// says what is wrong and where.
std::string readConfigFile(const std::string& path, Options* o);

}  // namespace HarbecAgent
