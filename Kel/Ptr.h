// Counted objects and the counted pointer.
//
// The one data member of PtrInterface is a 32-bit word: bits 0-28 hold the
// reference count, bit 29 the hasNotificationActive flag, bit 31 the
// kelMarkedForDeletion flag. A word whose top byte is 0x1f marks a
// non-destructing object: references leave it alone and it is never deleted
// through its count. While an object is non-destructing its count stays in
// bits 0-21 and its two flags are parked in bits 22 and 23, so that turning
// it back into an ordinary object restores count and flags exactly.
#pragma once
#include <atomic>
#include <cstddef>
#include <cstdint>
#include <utility>

#include "Kel/Exception.h"
#include "Kel/String8.h"

namespace Kel {

class PtrInterface {
 public:
  static constexpr uint32_t countMask = 0x1fffffffu;
  static constexpr uint32_t notificationActiveBit = 1u << 29;
  static constexpr uint32_t zeroTestMask = 0x5fffffffu;  // count plus bit 30
  static constexpr uint32_t markedForDeletionBit = 1u << 31;
  static constexpr uint32_t nondestructingByte = 0x1fu;
  static constexpr uint32_t parkedCountMask = 0x003fffffu;
  static constexpr uint32_t parkedNotificationActiveBit = 1u << 22;
  static constexpr uint32_t parkedMarkedForDeletionBit = 1u << 23;
  static constexpr unsigned kelDepth = 0;
  class NotifieeConst;  // defined with Entity

  PtrInterface() : word_(1) {}
  PtrInterface(const PtrInterface&) : word_(1) {}
  PtrInterface& operator=(const PtrInterface&) { return *this; }

  void newRef() const {
    if (isNondestructing()) return;
    word_.fetch_add(1, std::memory_order_relaxed);
  }
  void deleteRef() const {
    if (isNondestructing()) return;
    uint32_t w = word_.fetch_sub(1, std::memory_order_acq_rel) - 1;
    if ((w & zeroTestMask) == 0) const_cast<PtrInterface*>(this)->handleZeroRef();
  }
  uint32_t references() const {
    uint32_t w = word();
    return nondestructing(w) ? (w & parkedCountMask) : (w & countMask);
  }
  uint32_t word() const { return word_.load(std::memory_order_relaxed); }

  bool isNondestructing() const { return nondestructing(word()); }
  bool hasNotificationActive() const {
    uint32_t w = word();
    return w & (nondestructing(w) ? parkedNotificationActiveBit : notificationActiveBit);
  }
  bool kelMarkedForDeletion() const {
    uint32_t w = word();
    return w & (nondestructing(w) ? parkedMarkedForDeletionBit : markedForDeletionBit);
  }

  virtual void hasNotificationActiveIs(bool b);
  virtual unsigned kelAuditErrors(unsigned) const { return 0; }
  virtual unsigned auditErrors(unsigned level) const { return kelAuditErrors(level); }
  virtual void isNondestructingIs(bool b);
  virtual void zeroReferencesIs(bool) {}
  virtual String8 fwkType() const { return "Kel::PtrInterface"; }
  virtual ~PtrInterface() = default;

  // Forwarded down the class chain by each override; sets the zombie mark.
  virtual void kelDoZombieReactors(bool b) { kelMarkedForDeletionIs(b); }

 protected:
  virtual void handleZeroRef() { delete this; }
  void kelMarkedForDeletionIs(bool b);

 private:
  static bool nondestructing(uint32_t w) { return (w >> 24) == nondestructingByte; }
  // Sets or clears a flag in its live or parked place.
  void flagIs(uint32_t liveBit, uint32_t parkedBit, bool b);

  mutable std::atomic<uint32_t> word_;
};

// Objects allocated from the layer's pool; the delete is told the size.
class VFPtrInterface : public PtrInterface {
 public:
  static void* operator new(size_t size);
  static void operator delete(void* p, size_t size);
};

// The pool's operators for the layer's own small helpers.
class KelMemPool {
 public:
  static void* operator new(size_t size);
  static void operator delete(void* p, size_t size);
  static void* allocate(size_t size);
  static void release(void* p, size_t size);
};

template <class T>
class Ptr {
 public:
  Ptr() = default;
  Ptr(std::nullptr_t) {}
  Ptr(T* p) : p_(p) { if (p_) p_->newRef(); }
  Ptr(const Ptr& o) : p_(o.p_) { if (p_) p_->newRef(); }
  Ptr(Ptr&& o) noexcept : p_(o.p_) { o.p_ = nullptr; }
  template <class U>
  Ptr(const Ptr<U>& o) : p_(o.ptr()) { if (p_) p_->newRef(); }
  ~Ptr() { if (p_) p_->deleteRef(); }

  Ptr& operator=(const Ptr& o) { Ptr t(o); swap(t); return *this; }
  Ptr& operator=(Ptr&& o) noexcept { Ptr t(std::move(o)); swap(t); return *this; }
  void swap(Ptr& o) noexcept { std::swap(p_, o.p_); }

  T* ptr() const { return p_; }
  T* operator->() const {
    if (!p_) throwRangeException("null ValidPtr");
    return p_;
  }
  T& operator*() const { return *operator->(); }
  explicit operator bool() const { return p_ != nullptr; }
  bool operator!() const { return p_ == nullptr; }
  template <class U> bool operator==(const Ptr<U>& o) const { return p_ == o.ptr(); }
  template <class U> bool operator!=(const Ptr<U>& o) const { return p_ != o.ptr(); }
  bool operator==(std::nullptr_t) const { return p_ == nullptr; }
  bool operator!=(std::nullptr_t) const { return p_ != nullptr; }

  // Adopts a fresh object whose count is already 1.
  static Ptr adopt(T* p) { Ptr r; r.p_ = p; return r; }

 private:
  T* p_ = nullptr;
};

// Checked narrowing of a counted pointer; null when the object is of another class.
template <class T, class U>
Ptr<T> ptr_cast(const Ptr<U>& p) {
  return Ptr<T>(dynamic_cast<T*>(p.ptr()));
}

// Never-null result of a factory.
template <class T>
Ptr<T> validPtr(Ptr<T> p) {
  if (!p) throwRangeException("null ValidPtr");
  return p;
}

}  // namespace Kel
