#include "agent/SyncProgress.h"

#include <chrono>
#include <cmath>
#include <utility>

#include "session/HarbecSm.h"

namespace HarbecAgent {

namespace {

double now() {
  return std::chrono::duration<double>(std::chrono::steady_clock::now().time_since_epoch()).count();
}

std::string line(uint64_t objects, double seconds) {
  return "first sync: " + std::to_string(objects) + " objects received in " +
         std::to_string(static_cast<long>(std::lround(seconds))) + " s";
}

}  // namespace

SyncProgress::SyncProgress(std::function<void(const std::string&)> tell, std::function<void(double)> count,
                           double every)
    : tell_(std::move(tell)),
      count_(std::move(count)),
      every_(every),
      started_(now()),
      nextLine_(started_ + every),
      before_(Harbec::objectUpdatesReceived()) {}

uint64_t SyncProgress::objects() const { return Harbec::objectUpdatesReceived() - before_; }

void SyncProgress::look() {
  const uint64_t n = objects();
  count_(static_cast<double>(n));
  const double t = now();
  if (t < nextLine_) return;
  tell_(line(n, t - started_));
  told_ = true;
  nextLine_ = t + every_;
}

void SyncProgress::done() {
  const uint64_t n = objects();
  count_(static_cast<double>(n));
  if (told_) tell_(line(n, now() - started_) + ", complete");
}

}  // namespace HarbecAgent
