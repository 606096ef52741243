// The progress of the first sync. Its objects arrive in one reply that a
// large inventory takes many seconds to send; the reader counts them as it
// goes. Once the sync has taken a while, a line every few seconds tells how
// many objects have come and for how long, and the count goes to /metrics
// all along.
#pragma once
#include <cstdint>
#include <functional>
#include <string>

namespace HarbecAgent {

class SyncProgress {
 public:
  // `tell` takes the lines, `count` the objects received so far; the
  // sync starts now.
  SyncProgress(std::function<void(const std::string&)> tell, std::function<void(double)> count, double every = 2);
  // While the sync runs, as often as one likes.
  void look();
  // The sync is complete: the last count, and a closing line if any was told.
  void done();

  uint64_t objects() const;

 private:
  std::function<void(const std::string&)> tell_;
  std::function<void(double)> count_;
  double every_, started_, nextLine_;
  uint64_t before_;
  bool told_ = false;
};

}  // namespace HarbecAgent
