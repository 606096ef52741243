// The demo: the bundled vCenter simulator and vShield Manager stand-in as
// child processes on 127.0.0.1, with a sample inventory whose hosts are
// cabled to this switch, and the options that point the agent at them. The
// peers stop with the object, or with this process.
#pragma once
#include <atomic>
#include <memory>
#include <string>
#include <thread>

#include "agent/HostAgent.h"

namespace HarbecAgent {

class Demo {
 public:
  Demo();
  ~Demo();

  // Starts both peers (building them with go when missing), adds a few
  // changes to the simulator's inventory, and fills in where and as whom
  // to connect.
  void start(Settings& settings);
  // Once the agent holds the inventory: the hosts' NICs announce this
  // switch over CDP and LLDP, and the stand-in serves segments on the
  // inventory's port groups.
  void announce(const Snapshot& s);
  // For the live mode: every few seconds a change in the simulator, in a
  // round that starts over: a machine powers off, migrates away and back,
  // an uplink's link goes down and up, the machine powers on.
  void playChanges(const Snapshot& s);
  void stop();

  static constexpr const char* kBridgeMac = "00:1c:73:aa:bb:cc";
  static constexpr const char* kSwitchName = "leaf1";

 private:
  struct Peers;
  std::unique_ptr<Peers> peers_;
  std::string bridgeMac_;
  std::string dvsRef_, busyHostRef_, elsewhereRef_;
  std::atomic<bool> stopPlaying_{false};
  std::thread player_;
};

}  // namespace HarbecAgent
