// The govmomi client of govclient/, run as a child process against the
// vCenter simulator: a first sync with its own figures, or a watcher that
// reports each changed name as it takes it in.
#pragma once
#include <string>

#include "peers/PeerProcess.h"

namespace govclient {

// What one first sync cost the client, as it measured itself.
struct SyncFigures {
  long objects = 0;
  double wallS = 0, cpuS = 0;
  long peakKb = 0, baseKb = 0;  // resident high-water mark, and size before the sync
};

// One first sync in a fresh process.
inline SyncFigures firstSync(const std::string& url) {
  peer::Process p(peer::binary("govclient"), {"-url", url, "-mode", "sync"},
                  {"GOVCLIENT_OBJECTS", "GOVCLIENT_WALL_S", "GOVCLIENT_CPU_S", "GOVCLIENT_PEAK_KB", "GOVCLIENT_BASE_KB"},
                  600000);
  SyncFigures f;
  f.objects = std::stol(p.printed("GOVCLIENT_OBJECTS"));
  f.wallS = std::stod(p.printed("GOVCLIENT_WALL_S"));
  f.cpuS = std::stod(p.printed("GOVCLIENT_CPU_S"));
  f.peakKb = std::stol(p.printed("GOVCLIENT_PEAK_KB"));
  f.baseKb = std::stol(p.printed("GOVCLIENT_BASE_KB"));
  return f;
}

// A watching client: logged in, its first set taken, waiting for changes.
// It stops with the object.
class Watcher {
 public:
  Watcher(const std::string& url, const std::string& prefix)
      : process_(peer::binary("govclient"), {"-url", url, "-mode", "watch", "-prefix", prefix}, {"GOVCLIENT_READY"}, 600000) {}

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
