// A bound on how long a reply of vCenter may take: from the request for
// every call but WaitForUpdates, which waits for its first byte as long as
// vCenter holds the call; but a reply of it that stops halfway, or
// trickles, must not hold the session for ever either. Installed on a
// context as its receive function; each call made through vimCall runs
// under a clock of its own.
#pragma once
#include <cstddef>

struct soap;

namespace Harbec {

class VimBinding;

class ReplyClock {
 public:
  // For the call about to be made on vim, bounded by vim->replyTimeout.
  ReplyClock(VimBinding* vim, bool fromFirstByte);
  ~ReplyClock();
  ReplyClock(const ReplyClock&) = delete;
  ReplyClock& operator=(const ReplyClock&) = delete;

  // Puts the bounded receive function on the context; again after every
  // soap_init of it.
  static void install(struct soap* soap);
  // The bound in seconds of the last call on this thread if its reply took
  // longer, else 0.
  static double expired();

 private:
  static size_t receive(struct soap* soap, char* buf, size_t len);

  struct soap* soap_;
  double limit_;
  double started_ = 0;
  ReplyClock* outer_;
};

}  // namespace Harbec
