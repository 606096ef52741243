// Named, parented records whose attributes tell registered listeners
// (notifiees) when they change. Notification is synchronous, on the writer's
// thread, over a snapshot of the listener list: listeners may come and go
// during a walk, and a failing listener is told of its own failure alone.
#pragma once
#include <algorithm>
#include <memory>
#include <ostream>
#include <vector>

#include "Kel/Exception.h"
#include "Kel/Ptr.h"
#include "Kel/String8.h"

namespace Kel {

using AttributeId = unsigned;

// The notifiee list of an object: no allocation while empty.
template <class T>
class ListRaw {
 public:
  bool empty() const { return !v_ || v_->empty(); }
  size_t size() const { return v_ ? v_->size() : 0; }
  void push_back(T t) {
    if (!v_) v_.reset(new std::vector<T>());
    v_->push_back(t);
  }
  void remove(T t) {
    if (!v_) return;
    for (auto i = v_->begin(); i != v_->end(); ++i)
      if (*i == t) { v_->erase(i); return; }
  }
  const std::vector<T>& items() const { return *v_; }

 private:
  std::unique_ptr<std::vector<T>> v_;
};

// Copies a list of pointers and walks the copy.
template <class T>
class SnapshotIterator {
 public:
  explicit SnapshotIterator(const ListRaw<T>& l) {
    if (l.empty()) return;
    const auto& v = l.items();
    n_ = v.size();
    if (n_ <= kInline) {
      std::copy(v.begin(), v.end(), inline_);
    } else {
      heap_.assign(v.begin(), v.end());
      p_ = heap_.data();
    }
  }
  SnapshotIterator(const SnapshotIterator&) = delete;
  SnapshotIterator& operator=(const SnapshotIterator&) = delete;

  const T* begin() const { return p_; }
  const T* end() const { return p_ + n_; }
  T* begin() { return p_; }
  T* end() { return p_ + n_; }
  size_t size() const { return n_; }

 private:
  static constexpr size_t kInline = 8;
  T inline_[kInline];
  std::vector<T> heap_;
  T* p_ = inline_;
  size_t n_ = 0;
};

class PtrInterface::NotifieeConst {
 public:
  virtual ~NotifieeConst() = default;
  virtual void onZeroReferences() {}
  virtual void onNotificationException() {}
  virtual void onNotificationException(AttributeId) {}
  virtual void onIsNondestructing() {}
};

class Entity : public VFPtrInterface {
 public:
  using Ptr = Kel::Ptr<Entity>;
  using PtrConst = Kel::Ptr<const Entity>;
  static constexpr unsigned kelDepth = 1;
  enum : AttributeId { zeroReferencesAttrId = 5, isNondestructingAttrId = 6, fwkKeyAttrId = 130 };

  class NotifieeConst : public PtrInterface::NotifieeConst {
   public:
    // A copy listens to the same entity as its original.
    NotifieeConst(const NotifieeConst& o) : PtrInterface::NotifieeConst(o) {
      kelNotifierIs(o.kelNotifier(), o.kelDepth_);
    }
    NotifieeConst& operator=(const NotifieeConst& o) {
      if (this != &o) kelNotifierIs(o.kelNotifier(), o.kelDepth_);
      return *this;
    }
    ~NotifieeConst() override;
    virtual void onParent() {}
    Kel::Ptr<const Entity> notifier() const { return notifier_; }
    void notifierIs(const Kel::Ptr<const Entity>& n) { kelNotifierIs(n.ptr(), kelDepth); }
    // The depth of the class this listener was registered as.
    unsigned kelDepth_ = 0;

   protected:
    NotifieeConst() = default;
    void kelNotifierIs(const Entity* n, unsigned depth);
    const Entity* kelNotifier() const { return notifier_.ptr(); }

   private:
    Kel::Ptr<const Entity> notifier_;
  };
  class Notifiee : public NotifieeConst {};

  explicit Entity(const Name& name) : name_(name) {}
  ~Entity() override;

  const Name& name() const { return name_; }
  const Name& fwkKey() const { return name_; }
  Entity* parent() const { return parent_; }
  void parentIs(Entity* p);
  AttributeId parentAttrId() const { return parentAttrId_; }
  void parentAttrIdIs(AttributeId id) { parentAttrId_ = id; }
  String8 parentAttr() const { return parent_ ? parent_->attributeString(parentAttrId_) : String8(); }
  // The names from the root down, joined by "/".
  String8 fullName() const;
  // As fullName, with each step named by the attribute that holds it.
  String8 uriPath() const;

  static String8 _fwkType() { return "Kel::Entity"; }
  String8 fwkType() const override { return _fwkType(); }
  virtual String8 attributeString(AttributeId id) const;

  void isNondestructingIs(bool b) override;
  void zeroReferencesIs(bool b) override;
  void kelDoZombieReactors(bool b) override {
    if (b != kelMarkedForDeletion()) VFPtrInterface::kelDoZombieReactors(b);
  }

  size_t notifiees() const { return notifiees_.size(); }

  // No reinstantiation check for entities built from a name alone.
  void kelCheckReinstantiation() const {}

  // A walk over a snapshot of listeners in progress on this thread. A
  // listener destroyed while walks are under way is blanked out of them.
  class KelWalk {
   public:
    explicit KelWalk(SnapshotIterator<NotifieeConst*>& s)
        : items_(s.begin()), size_(s.size()), head_(activeWalk()), outer_(*head_) {
      *head_ = this;
    }
    ~KelWalk() { *head_ = outer_; }
    KelWalk(const KelWalk&) = delete;
    KelWalk& operator=(const KelWalk&) = delete;
    static void forget(const NotifieeConst* n);

   private:
    static KelWalk** activeWalk();
    NotifieeConst** items_;
    size_t size_;
    KelWalk** head_;
    KelWalk* outer_;
  };

  // Calls f on every listener registered at a class depth of at least
  // `depth`, over a snapshot of the list: listeners that come or go during
  // the walk do not change it, except that one destroyed is not called.
  template <class N, class F>
  void kelNotify(AttributeId id, unsigned depth, F&& f) const {
    if (notifiees_.empty() || kelMarkedForDeletion()) return;
    SnapshotIterator<NotifieeConst*> snapshot(notifiees_);
    KelWalk walk(snapshot);
    for (NotifieeConst*& slot : snapshot) {
      if (!slot || slot->kelDepth_ < depth) continue;
      try {
        Expect expect(0);
        f(static_cast<N*>(slot));
      } catch (...) {
        try {
          if (slot) slot->onNotificationException(id);
        } catch (...) {
        }
      }
    }
  }

 protected:
  // Raises the reinstantiation refusal for a constructor argument.
  [[noreturn]] void kelReinstantiationRefused(const char* attr, unsigned long long newValue,
                                              unsigned long long current) const;

 private:
  Name name_;
  Entity* parent_ = nullptr;
  AttributeId parentAttrId_ = 0;
  mutable ListRaw<NotifieeConst*> notifiees_;
};

template <class T>
inline typename std::enable_if<std::is_base_of<Entity, T>::value, std::ostream&>::type
operator<<(std::ostream& os, const T& e) {
  return os << e.fwkType() << "(" << e.name() << ")";
}

}  // namespace Kel
