#include "Kel/Ptr.h"

#include <cstdlib>
#include <mutex>
#include <new>

namespace Kel {

void PtrInterface::flagIs(uint32_t liveBit, uint32_t parkedBit, bool b) {
  uint32_t w = word_.load(std::memory_order_relaxed);
  uint32_t n;
  do {
    uint32_t bit = nondestructing(w) ? parkedBit : liveBit;
    n = b ? (w | bit) : (w & ~bit);
  } while (n != w && !word_.compare_exchange_weak(w, n, std::memory_order_relaxed));
}

void PtrInterface::hasNotificationActiveIs(bool b) {
  flagIs(notificationActiveBit, parkedNotificationActiveBit, b);
}

void PtrInterface::isNondestructingIs(bool b) {
  uint32_t w = word_.load(std::memory_order_relaxed);
  uint32_t n;
  do {
    if (b == nondestructing(w)) return;
    if (b) {
      n = (nondestructingByte << 24) | (w & parkedCountMask) |
          ((w & notificationActiveBit) ? parkedNotificationActiveBit : 0) |
          ((w & markedForDeletionBit) ? parkedMarkedForDeletionBit : 0);
    } else {
      n = (w & parkedCountMask) |
          ((w & parkedNotificationActiveBit) ? notificationActiveBit : 0) |
          ((w & parkedMarkedForDeletionBit) ? markedForDeletionBit : 0);
    }
  } while (!word_.compare_exchange_weak(w, n, std::memory_order_relaxed));
}

void PtrInterface::kelMarkedForDeletionIs(bool b) {
  flagIs(markedForDeletionBit, parkedMarkedForDeletionBit, b);
}

// The pool: free lists of 16-byte size classes up to 512 bytes; larger
// blocks go to the heap directly.
namespace {
constexpr size_t kGranule = 16;
constexpr size_t kClasses = 32;
struct FreeBlock { FreeBlock* next; };
struct Pool {
  std::mutex mutex;
  FreeBlock* free[kClasses] = {};
};
Pool& pool() {
  static Pool* p = new Pool();  // outlives every static object
  return *p;
}
size_t sizeClass(size_t size) { return (size + kGranule - 1) / kGranule; }
}  // namespace

void* KelMemPool::allocate(size_t size) {
#ifdef KEL_NO_POOL
  void* raw = std::malloc(size ? size : 1);
  if (!raw) throw std::bad_alloc();
  return raw;
#endif
  size_t c = sizeClass(size);
  if (c == 0) c = 1;
  if (c < kClasses) {
    Pool& p = pool();
    {
      std::lock_guard<std::mutex> g(p.mutex);
      if (FreeBlock* b = p.free[c]) {
        p.free[c] = b->next;
        return b;
      }
    }
    void* m = std::malloc(c * kGranule);
    if (!m) throw std::bad_alloc();
    return m;
  }
  void* m = std::malloc(size);
  if (!m) throw std::bad_alloc();
  return m;
}

void KelMemPool::release(void* m, size_t size) {
  if (!m) return;
#ifdef KEL_NO_POOL
  (void)size;
  std::free(m);
  return;
#endif
  size_t c = sizeClass(size);
  if (c == 0) c = 1;
  if (c < kClasses) {
    Pool& p = pool();
    std::lock_guard<std::mutex> g(p.mutex);
    FreeBlock* b = static_cast<FreeBlock*>(m);
    b->next = p.free[c];
    p.free[c] = b;
    return;
  }
  std::free(m);
}

void* KelMemPool::operator new(size_t size) { return allocate(size); }
void KelMemPool::operator delete(void* p, size_t size) { release(p, size); }
void* VFPtrInterface::operator new(size_t size) { return KelMemPool::allocate(size); }
void VFPtrInterface::operator delete(void* p, size_t size) { KelMemPool::release(p, size); }

}  // namespace Kel
