#include "Kel/Lock.h"

#include <cerrno>
#include <exception>

#include "Kel/Exception.h"

namespace Kel {

Lock::Lock() {
  pthread_mutexattr_t attr;
  pthread_mutexattr_init(&attr);
  pthread_mutexattr_settype(&attr, PTHREAD_MUTEX_ERRORCHECK);
  pthread_mutex_init(&mutex_, &attr);
  pthread_mutexattr_destroy(&attr);
}

Lock::~Lock() { pthread_mutex_destroy(&mutex_); }

LockAnchor::LockAnchor(Lock* lock, unsigned flags)
    : lock_(lock), uncaught_(std::uncaught_exceptions()) {
  int rc = pthread_mutex_lock(lock_->mutex());
  if (rc == 0) {
    took_ = true;
  } else if (rc != EDEADLK) {
    throw ErrnoException(rc, "Failed to grab lock");
  }
  saved_ = lock_->releasable();
  if ((flags & mustBeReleasable) && saved_ == 0) {
    if (took_) pthread_mutex_unlock(lock_->mutex());
    took_ = false;
    throw InternalException("Lock Protocol violation xxx");
  }
  lock_->releasableIs((flags & unreleasable) ? 0 : 1);
}

LockAnchor::~LockAnchor() noexcept(false) {
  lock_->releasableIs(saved_);
  if (!took_) return;
  int rc = pthread_mutex_unlock(lock_->mutex());
  if (rc != 0 && std::uncaught_exceptions() == uncaught_)
    throw ErrnoException(rc, "Failed to release the lock");
}

Lock* ActivityLockAnchor::lock() {
  static Lock* activity = new Lock();  // lives as long as the process
  return activity;
}

UnlockAnchor::UnlockAnchor(Lock* lock) : lock_(lock), uncaught_(std::uncaught_exceptions()) {
  if (lock_->releasable() == 0)
    throw InternalException("Lock Protocol exception -- unlocking an unreleasable lock");
  int rc = pthread_mutex_unlock(lock_->mutex());
  if (rc != 0) throw ErrnoException(rc, "Failed to release the lock");
}

UnlockAnchor::~UnlockAnchor() noexcept(false) {
  int rc = pthread_mutex_lock(lock_->mutex());
  if (rc == 0 || std::uncaught_exceptions() != uncaught_) return;
  if (rc == EDEADLK) throw InternalException("Lock was already grabbed in UnlockAnchor destructor!");
  throw ErrnoException(rc, "Failed to grab lock");
}

}  // namespace Kel
