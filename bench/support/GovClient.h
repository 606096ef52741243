// The govmomi client of tools/govclient, run as a child process against the
// vCenter simulator: a first sync with its own figures, or a watcher that
// reports each changed name as it takes it in.
#pragma once
#include <string>

#include "../../tests/support/PeerProcess.h"
#include "Figures.h"

namespace govclient {

inline std::string binary() { return peer::goBinary("govclient", "GOPATH=/usr/share/gocode GO111MODULE=off"); }

// One first sync in a fresh process, with the figures it measured itself.
inline figures::Figures firstSync(const std::string& url) {
  peer::Process p(binary(), {"-url", url, "-mode", "sync"},
                  {"GOVCLIENT_OBJECTS", "GOVCLIENT_WALL_S", "GOVCLIENT_CPU_S", "GOVCLIENT_PEAK_KB", "GOVCLIENT_BASE_KB"},
                  600000);
  figures::Figures f;
  f.count[0] = std::stol(p.printed("GOVCLIENT_OBJECTS"));
  f.wallS = std::stod(p.printed("GOVCLIENT_WALL_S"));
  f.cpuS = std::stod(p.printed("GOVCLIENT_CPU_S"));
  f.peakKb = std::stol(p.printed("GOVCLIENT_PEAK_KB"));
  f.baseKb = std::stol(p.printed("GOVCLIENT_BASE_KB"));
  f.ok = f.count[0] > 0;
  return f;
}

// A watching client: logged in, its first set taken, waiting for changes.
// It stops with the object.
class Watcher {
 public:
  Watcher(const std::string& url, const std::string& prefix)
      : process_(binary(), {"-url", url, "-mode", "watch", "-prefix", prefix}, {"GOVCLIENT_READY"}, 600000) {}

  // The next "NOTIFY <name> <ns>" line: false on timeout or end.
  bool next(std::string* name, long long* realtimeNs, int timeoutMs) {
    std::string line;
    while (process_.nextLine(&line, timeoutMs)) {
      if (line.rfind("NOTIFY ", 0) != 0) continue;
      size_t sp = line.find(' ', 7);
      *name = line.substr(7, sp - 7);
      *realtimeNs = std::stoll(line.substr(sp + 1));
      return true;
    }
    return false;
  }
  void stop() { process_.stop(); }

 private:
  peer::Process process_;
};

}  // namespace govclient
