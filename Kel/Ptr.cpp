#include "Kel/Ptr.h"

#include <cstdlib>
#include <mutex>
#include <new>

namespace Kel {

void PtrInterface::hasNotificationActiveIs(bool b) {
  if (b) word_.fetch_or(notificationActiveBit, std::memory_order_relaxed);
  else word_.fetch_and(~notificationActiveBit, std::memory_order_relaxed);
}

void PtrInterface::isNondestructingIs(bool b) {
  if (b == isNondestructing()) return;
  uint32_t w = word_.load(std::memory_order_relaxed);
  if (b) {
    // Keep the count in the low 24 bits so that it can be restored.
    word_.store((nondestructingByte << 24) | (w & 0x00ffffffu), std::memory_order_relaxed);
  } else {
    word_.store(w & 0x00ffffffu, std::memory_order_relaxed);
  }
}

void PtrInterface::kelMarkedForDeletionIs(bool b) {
  if (isNondestructing()) return;
  if (b) word_.fetch_or(markedForDeletionBit, std::memory_order_relaxed);
  else word_.fetch_and(~markedForDeletionBit, std::memory_order_relaxed);
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
