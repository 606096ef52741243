// The activity lock and its anchors. One error-checking mutex guards every
// entity and every request queue; a relock by the holder is tolerated by the
// anchors, which then leave the unlock to the outer holder. An anchor whose
// scope is left by an exception does its work all the same but raises
// nothing of its own, so that the first failure is the one that travels.
#pragma once
#include <pthread.h>

namespace Kel {

class Lock {
 public:
  Lock();
  ~Lock();
  Lock(const Lock&) = delete;
  Lock& operator=(const Lock&) = delete;

  pthread_mutex_t* mutex() { return &mutex_; }
  unsigned char releasable() const { return releasable_; }
  void releasableIs(unsigned char b) { releasable_ = b; }

 private:
  pthread_mutex_t mutex_;
  unsigned char releasable_ = 0;
};

class LockAnchor {
 public:
  enum Flags : unsigned {
    none = 0,
    unreleasable = 1,   // mark the lock as not to be dropped while held here
    mustBeReleasable = 2,  // refuse to nest inside an unreleasable holder
  };
  LockAnchor(Lock* lock, unsigned flags = none);
  ~LockAnchor() noexcept(false);
  LockAnchor(const LockAnchor&) = delete;
  LockAnchor& operator=(const LockAnchor&) = delete;
  bool tookLock() const { return took_; }

 private:
  Lock* lock_;
  bool took_ = false;
  unsigned char saved_ = 0;
  int uncaught_;
};

// Takes the process-wide activity lock.
class ActivityLockAnchor : public LockAnchor {
 public:
  ActivityLockAnchor() : LockAnchor(lock(), none) {}
  static Lock* lock();
};

// Drops a held lock for the span of a scope and takes it back at the end.
class UnlockAnchor {
 public:
  explicit UnlockAnchor(Lock* lock);
  ~UnlockAnchor() noexcept(false);
  UnlockAnchor(const UnlockAnchor&) = delete;
  UnlockAnchor& operator=(const UnlockAnchor&) = delete;

 private:
  Lock* lock_;
  int uncaught_;
};

class ActivityUnlockAnchor : public UnlockAnchor {
 public:
  ActivityUnlockAnchor() : UnlockAnchor(lock()) {}
  static Lock* lock() { return ActivityLockAnchor::lock(); }
};

}  // namespace Kel
