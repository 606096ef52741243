#include "session/connection/ReplyClock.h"

#include <stdsoap2.h>

#include <chrono>
#include <cmath>

#include "session/connection/VimBinding.h"

namespace Harbec {

namespace {

thread_local ReplyClock* current = nullptr;
thread_local double lastExpired = 0;
// gSOAP's own receive function, the same for every context.
size_t (*plainReceive)(struct soap*, char*, size_t) = nullptr;

double now() {
  return std::chrono::duration<double>(std::chrono::steady_clock::now().time_since_epoch()).count();
}

}  // namespace

ReplyClock::ReplyClock(VimBinding* vim, bool fromFirstByte)
    : soap_(vim ? vim->soap : nullptr), limit_(vim ? vim->replyTimeout : 0), outer_(current) {
  if (!fromFirstByte) started_ = now();
  current = this;
  lastExpired = 0;
}

ReplyClock::~ReplyClock() { current = outer_; }

double ReplyClock::expired() { return lastExpired; }

void ReplyClock::install(struct soap* soap) {
  if (soap->frecv == receive) return;
  plainReceive = soap->frecv;
  soap->frecv = receive;
}

size_t ReplyClock::receive(struct soap* soap, char* buf, size_t len) {
  ReplyClock* clock = current;
  if (!clock || clock->soap_ != soap || clock->limit_ <= 0) return plainReceive(soap, buf, len);
  if (!clock->started_) {
    size_t n = plainReceive(soap, buf, len);
    if (n > 0) clock->started_ = now();
    return n;
  }
  double left = clock->started_ + clock->limit_ - now();
  if (left <= 0) {
    // What gSOAP itself makes of a receive that timed out.
    lastExpired = clock->limit_;
    soap->errnum = 0;
    return 0;
  }
  // No single read may wait past the end of the reply's time (negative: in microseconds).
  int saved = soap->recv_timeout;
  double bound = saved > 0 ? saved : saved < 0 ? -saved / 1e6 : left;
  soap->recv_timeout = -static_cast<int>(std::ceil(std::min(bound, std::min(left, 2000.0)) * 1e6));
  size_t n = plainReceive(soap, buf, len);
  soap->recv_timeout = saved;
  if (n == 0 && soap->errnum == 0 && clock->started_ + clock->limit_ <= now()) lastExpired = clock->limit_;
  return n;
}

}  // namespace Harbec
