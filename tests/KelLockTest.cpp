// Lock anchors: the releasable byte, relock by the holder, the protocol
// checks, and the unlock anchor's error paths.
#include <gtest/gtest.h>

#include <cerrno>
#include <stdexcept>
#include <thread>
#include <vector>

#include "Kel/Exception.h"
#include "Kel/Lock.h"
#include "Kel/Sanitizers.h"

#if defined(KEL_UNDER_TSAN)
#define KELTEST_TSAN 1
#endif

namespace {

using Kel::Lock;
using Kel::LockAnchor;

// Whether another thread finds the lock taken.
bool takenForOthers(Lock& l) {
  int rc = -1;
  std::thread([&] {
    rc = pthread_mutex_trylock(l.mutex());
    if (rc == 0) pthread_mutex_unlock(l.mutex());
  }).join();
  return rc == EBUSY;
}

template <class E, class F>
void expectThrows(F f, const char* message) {
  try {
    f();
    ADD_FAILURE() << "expected: " << message;
  } catch (const E& e) {
    EXPECT_STREQ(e.what(), message);
  }
}

// Failed unlocks are provoked by unlocking a mutex this thread does not
// hold, which the thread sanitizer reports in its own right.
#ifdef KELTEST_TSAN
#define KELTEST_NEEDS_BAD_UNLOCK() GTEST_SKIP() << "bad unlock is reported by the thread sanitizer"
#else
#define KELTEST_NEEDS_BAD_UNLOCK() (void)0
#endif

TEST(LockAnchor, SetsAndRestoresTheReleasableByte) {
  Lock l;
  EXPECT_EQ(l.releasable(), 0);
  {
    LockAnchor outer(&l, LockAnchor::unreleasable);
    EXPECT_TRUE(outer.tookLock());
    EXPECT_EQ(l.releasable(), 0);
    {
      LockAnchor inner(&l);  // relock by the holder
      EXPECT_FALSE(inner.tookLock());
      EXPECT_EQ(l.releasable(), 1);
    }
    EXPECT_EQ(l.releasable(), 0);
    EXPECT_TRUE(takenForOthers(l));  // the inner anchor left the unlock to the outer one
  }
  EXPECT_FALSE(takenForOthers(l));
  l.releasableIs(1);
  {
    LockAnchor a(&l, LockAnchor::unreleasable);
    EXPECT_EQ(l.releasable(), 0);
  }
  EXPECT_EQ(l.releasable(), 1);
}

TEST(LockAnchor, MustBeReleasableRefusesAByteZeroLock) {
  Lock l;
  // Fresh lock: the anchor took the mutex and must give it back.
  expectThrows<Kel::InternalException>([&] { LockAnchor a(&l, LockAnchor::mustBeReleasable); },
                                       "Lock Protocol violation xxx");
  EXPECT_FALSE(takenForOthers(l));
  EXPECT_EQ(l.releasable(), 0);
  {
    LockAnchor holder(&l, LockAnchor::unreleasable);
    expectThrows<Kel::InternalException>([&] { LockAnchor a(&l, LockAnchor::mustBeReleasable); },
                                         "Lock Protocol violation xxx");
    EXPECT_TRUE(takenForOthers(l));  // the holder keeps it
    EXPECT_EQ(l.releasable(), 0);
  }
  {
    LockAnchor holder(&l);
    LockAnchor nested(&l, LockAnchor::mustBeReleasable | LockAnchor::unreleasable);
    EXPECT_EQ(l.releasable(), 0);
  }
}

TEST(ActivityLockAnchor, RelockByTheHolderAndMutualExclusion) {
  EXPECT_EQ(Kel::ActivityLockAnchor::lock(), Kel::ActivityUnlockAnchor::lock());
  Lock& l = *Kel::ActivityLockAnchor::lock();
  {
    Kel::ActivityLockAnchor outer;
    {
      Kel::ActivityLockAnchor inner;
      EXPECT_FALSE(inner.tookLock());
      EXPECT_EQ(l.releasable(), 1);
    }
    EXPECT_TRUE(takenForOthers(l));
  }
  EXPECT_FALSE(takenForOthers(l));

  long counter = 0;
  std::vector<std::thread> threads;
  for (int t = 0; t < 4; ++t)
    threads.emplace_back([&] {
      for (int i = 0; i < 5000; ++i) {
        Kel::ActivityLockAnchor a;
        Kel::ActivityLockAnchor again;
        ++counter;
      }
    });
  for (auto& t : threads) t.join();
  EXPECT_EQ(counter, 20000);
}

TEST(UnlockAnchor, DropsTheLockForItsScope) {
  Lock l;
  LockAnchor a(&l);
  {
    Kel::UnlockAnchor u(&l);
    int seen = 0;
    std::thread([&] {
      LockAnchor other(&l);
      seen = 1;
    }).join();
    EXPECT_EQ(seen, 1);
  }
  EXPECT_TRUE(takenForOthers(l));
  EXPECT_EQ(l.releasable(), 1);
}

TEST(UnlockAnchor, RefusesAnUnreleasableLockOrOneTakenByItselfAtTheEnd) {
  Lock l;
  {
    LockAnchor a(&l, LockAnchor::unreleasable);
    expectThrows<Kel::InternalException>([&] { Kel::UnlockAnchor u(&l); },
                                         "Lock Protocol exception -- unlocking an unreleasable lock");
    EXPECT_TRUE(takenForOthers(l));
  }
  expectThrows<Kel::InternalException>(
      [&] {
        LockAnchor a(&l);
        Kel::UnlockAnchor u(&l);
        ASSERT_EQ(pthread_mutex_lock(l.mutex()), 0);
      },
      "Lock was already grabbed in UnlockAnchor destructor!");
  EXPECT_FALSE(takenForOthers(l));  // the outer anchor still gave it back
  EXPECT_EQ(l.releasable(), 0);
}

TEST(LockAnchor, FailedUnlocksRaiseErrno) {
  KELTEST_NEEDS_BAD_UNLOCK();
  Lock l;
  l.releasableIs(1);
  try {
    Kel::UnlockAnchor u(&l);  // not held
    ADD_FAILURE();
  } catch (const Kel::ErrnoException& e) {
    EXPECT_STREQ(e.what(), "Failed to release the lock");
    EXPECT_EQ(e.errnum(), EPERM);
  }
  expectThrows<Kel::ErrnoException>(
      [&] {
        LockAnchor a(&l);
        pthread_mutex_unlock(l.mutex());
      },
      "Failed to release the lock");
  // While another exception is on its way out, the anchor lets it pass.
  expectThrows<std::runtime_error>(
      [&] {
        LockAnchor a(&l);
        pthread_mutex_unlock(l.mutex());
        throw std::runtime_error("work failed");
      },
      "work failed");
  EXPECT_EQ(l.releasable(), 1);
  expectThrows<std::runtime_error>(
      [&] {
        LockAnchor a(&l);
        Kel::UnlockAnchor u(&l);
        ASSERT_EQ(pthread_mutex_lock(l.mutex()), 0);
        throw std::runtime_error("work failed");
      },
      "work failed");
  EXPECT_FALSE(takenForOthers(l));
}

}  // namespace
