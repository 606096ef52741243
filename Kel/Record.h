// Generation of a record's attribute operations from one declaration per
// attribute. A record class lists its attributes in an X-macro
//
//   #define HARBEC_VM_ATTRIBUTES(SCALAR, CTOR, VALUES, ENTITIES, QUEUE)
//     SCALAR(vmName, VmName, Kel::String8, Kel::String8())
//     ENTITIES(vnic, Vnic, Vnic)
//
// and states KEL_RECORD(Harbec, Vm, Kel::Entity, HARBEC_VM_ATTRIBUTES) in its
// body. Each kind yields the operations of the naming rule:
//   SCALAR(x, X, Type, Default)          x(), xIs(v)
//   CTOR(x, X, Type)                     x(); stored by the constructor
//   VALUES(x, X, Key, Value, Map)        x(k), xIs(k, v), newX, xDel, xDelAll,
//                                        xs(), xIterator(), xIteratorConst()
//   ENTITIES(x, X, Child)                x(k), xIs(k, args...), newX, xDel,
//                                        xDelAll, xs(), iterators
//   QUEUE(x, X, Value)                   as VALUES by index, plus xEnq, xDeq,
//                                        xMetadata, xMetadataIs
// and on the nested NotifieeConst the listener operation onX() (onX(key) for
// the keyed kinds), an attribute id xAttrId and its attributeString.
#pragma once
#include <utility>
#include <vector>

#include "Kel/Entity.h"
#include "Kel/HashMap.h"
#include "Kel/LinkQueue.h"
#include "Kel/RbTreeMap.h"

#define KEL_NOTHING(...)

namespace Kel {

// The map of a keyed attribute of entities. The owner is the parent of its
// entities; those that outlive the owner are left without a parent.
template <class Child>
class EntityMap : public HashMap<Ptr<Child>, Name> {
 public:
  EntityMap() = default;
  ~EntityMap() {
    if (!owner_) return;
    for (auto i = this->iterator(); i; ++i) {
      Child* c = (*i).ptr();
      if (c && c->parent() == owner_) c->parentIs(nullptr);
    }
  }
  void ownerIs(Entity* owner) { owner_ = owner; }
  Entity* owner() const { return owner_; }

 private:
  Entity* owner_ = nullptr;
};

}  // namespace Kel

// Attribute ids, in declaration order.
#define KEL_ID_ONE(x, ...) x##AttrId,
#define KEL_IDS(LIST) LIST(KEL_ID_ONE, KEL_ID_ONE, KEL_ID_ONE, KEL_ID_ONE, KEL_ID_ONE)

// attributeString.
#define KEL_NAME_ONE(x, ...) \
  if (id == x##AttrId) return #x;
#define KEL_NAMES(LIST) LIST(KEL_NAME_ONE, KEL_NAME_ONE, KEL_NAME_ONE, KEL_NAME_ONE, KEL_NAME_ONE)

// Listener operations.
#define KEL_ON_SCALAR(x, X, ...) virtual void on##X() {}
#define KEL_ON_VALUES(x, X, Key, ...) virtual void on##X(const Key&) {}
#define KEL_ON_ENTITIES(x, X, ...) virtual void on##X(const ::Kel::Name&) {}
#define KEL_ON_QUEUE(x, X, ...) virtual void on##X(unsigned) {}
#define KEL_ONS(LIST) LIST(KEL_ON_SCALAR, KEL_NOTHING, KEL_ON_VALUES, KEL_ON_ENTITIES, KEL_ON_QUEUE)

#define KEL_NOTIFY(x, X, ...) \
  this->template kelNotify<NotifieeConst>(x##AttrId, kelDepth, [&](NotifieeConst* n) { n->on##X(__VA_ARGS__); })

// Storage and accessors.
#define KEL_SCALAR(x, X, Type, Default)                    \
 public:                                                   \
  const Type& x() const { return x##_; }                   \
  void x##Is(const Type& v) {                              \
    if (x##_ == v) return;                                 \
    x##_ = v;                                              \
    KEL_NOTIFY(x, X);                                      \
  }                                                        \
                                                           \
 protected:                                                \
  Type x##_ = Default;

#define KEL_CTOR(x, X, Type)               \
 public:                                   \
  const Type& x() const { return x##_; }   \
                                           \
 protected:                                \
  Type x##_;

#define KEL_VALUES(x, X, Key, Value, Container)                             \
 public:                                                              \
  using X##Map = Container<Value, Key>;                                     \
  using X##Iterator = typename X##Map::IteratorConst;                 \
  using X##IteratorConst = typename X##Map::IteratorConst;            \
  Value x(const Key& k) const {                                       \
    const Value* p = x##_.find(k);                                    \
    return p ? *p : Value();                                          \
  }                                                                   \
  size_t x##s() const { return x##_.size(); }                         \
  void x##Is(const Key& k, const Value& v) {                          \
    auto r = x##_.insert(k, v);                                       \
    if (!r.second) {                                                  \
      if (*r.first == v) return;                                      \
      *r.first = v;                                                   \
    }                                                                 \
    KEL_NOTIFY(x, X, k);                                              \
  }                                                                   \
  void new##X(const Key& k, const Value& v) {                         \
    const Key kelKey(k); /* k may be the key of the entry replaced */ \
    x##_.set(kelKey, v);                                              \
    KEL_NOTIFY(x, X, kelKey);                                         \
  }                                                                   \
  void x##Del(const Key& k) {                                         \
    const Key kelKey(k); /* k may be the key of the entry removed */  \
    if (x##_.erase(kelKey)) KEL_NOTIFY(x, X, kelKey);                 \
  }                                                                   \
  void x##DelAll() {                                                  \
    std::vector<Key> keys;                                            \
    for (auto i = x##_.iteratorConst(); i; ++i) keys.push_back(i.key()); \
    for (const Key& k : keys) x##Del(k);                              \
  }                                                                   \
  X##IteratorConst x##Iterator() const { return x##_.iteratorConst(); } \
  X##IteratorConst x##IteratorConst() const { return x##_.iteratorConst(); } \
                                                                      \
 protected:                                                           \
  X##Map x##_;

#define KEL_ENTITIES(x, X, Child)                                                \
 public:                                                                         \
  using X##Map = ::Kel::EntityMap<Child>;                                        \
  using X##Iterator = typename X##Map::Iterator;                                 \
  using X##IteratorConst = typename X##Map::IteratorConst;                       \
  ::Kel::Ptr<Child> x(const ::Kel::Name& k) const {                              \
    const ::Kel::Ptr<Child>* p = x##_.find(k);                                   \
    return p ? *p : ::Kel::Ptr<Child>();                                         \
  }                                                                              \
  size_t x##s() const { return x##_.size(); }                                    \
  template <class... A>                                                          \
  ::Kel::Ptr<Child> x##Is(const ::Kel::Name& k, A&&... a) {                      \
    if (const ::Kel::Ptr<Child>* p = x##_.find(k)) {                             \
      (*p)->kelCheckReinstantiation(a...);                                       \
      return *p;                                                                 \
    }                                                                            \
    return new##X(k, std::forward<A>(a)...);                                     \
  }                                                                              \
  template <class... A>                                                          \
  ::Kel::Ptr<Child> new##X(const ::Kel::Name& k, A&&... a) {                     \
    const ::Kel::Name kelKey(k); /* k may be the key of the entry replaced */    \
    ::Kel::Ptr<Child> c = Child::kelCreate(kelKey, std::forward<A>(a)...);       \
    c->parentIs(this);                                                           \
    c->parentAttrIdIs(x##AttrId);                                                \
    x##_.ownerIs(this);                                                          \
    ::Kel::Ptr<Child> old;                                                       \
    if (x##_.erase(kelKey, &old)) old->parentIs(nullptr);                        \
    x##_.set(kelKey, c);                                                         \
    KEL_NOTIFY(x, X, kelKey);                                                    \
    return c;                                                                    \
  }                                                                              \
  ::Kel::Ptr<Child> x##Del(const ::Kel::Name& k) {                               \
    const ::Kel::Name kelKey(k); /* k may be the key of the entry removed */     \
    ::Kel::Ptr<Child> old;                                                       \
    if (!x##_.erase(kelKey, &old)) return old;                                   \
    old->parentIs(nullptr);                                                      \
    KEL_NOTIFY(x, X, kelKey);                                                    \
    return old;                                                                  \
  }                                                                              \
  void x##DelAll() {                                                             \
    std::vector<::Kel::Name> keys;                                               \
    for (auto i = x##_.iteratorConst(); i; ++i) keys.push_back(i.key());         \
    for (const ::Kel::Name& k : keys) x##Del(k);                                 \
  }                                                                              \
  X##Iterator x##Iterator() { return x##_.iterator(); }                          \
  X##IteratorConst x##IteratorConst() const { return x##_.iteratorConst(); }     \
                                                                                 \
 protected:                                                                      \
  X##Map x##_;

#define KEL_QUEUE(x, X, Value)                                          \
 public:                                                                \
  using X##Queue = ::Kel::LinkQueue<Value>;                             \
  using X##IteratorConst = typename X##Queue::IteratorConst;            \
  using X##Metadata = ::Kel::QueueMetadata;                             \
  Value x(unsigned i) const {                                           \
    const Value* p = x##_.find(i);                                      \
    return p ? *p : Value();                                            \
  }                                                                     \
  size_t x##s() const { return x##_.size(); }                           \
  void x##Is(unsigned i, const Value& v) {                              \
    auto* p = x##_.find(i);                                             \
    if (p && *p == v) return;                                           \
    x##_.set(i, v);                                                     \
    KEL_NOTIFY(x, X, i);                                                \
  }                                                                     \
  unsigned x##Enq(const Value& v) {                                     \
    unsigned i = x##_.enq(v);                                           \
    KEL_NOTIFY(x, X, i);                                                \
    return i;                                                           \
  }                                                                     \
  Value x##Deq() {                                                      \
    if (x##_.empty()) return Value();                                   \
    unsigned i = x##_.headIndex();                                      \
    Value v = x##_.deq();                                               \
    KEL_NOTIFY(x, X, i);                                                \
    return v;                                                           \
  }                                                                     \
  void x##Del(unsigned i) {                                             \
    if (x##_.erase(i)) KEL_NOTIFY(x, X, i);                             \
  }                                                                     \
  void x##DelAll() {                                                    \
    while (!x##_.empty()) x##Deq();                                     \
  }                                                                     \
  const X##Metadata& x##Metadata() const { return x##_.metadata(); }    \
  void x##MetadataIs(const X##Metadata& m) { x##_.metadataIs(m); }      \
  X##IteratorConst x##Iterator() const { return x##_.iteratorConst(); } \
  X##IteratorConst x##IteratorConst() const { return x##_.iteratorConst(); } \
                                                                        \
 protected:                                                             \
  X##Queue x##_;

#define KEL_RECORD(NS, T, Base, LIST)                                                   \
 public:                                                                                \
  using Ptr = ::Kel::Ptr<T>;                                                            \
  using PtrConst = ::Kel::Ptr<const T>;                                                 \
  static constexpr unsigned kelDepth = Base::kelDepth + 1;                              \
  enum : ::Kel::AttributeId { kelAttrFirst = (kelDepth << 7) + 1, KEL_IDS(LIST) kelAttrEnd }; \
  class NotifieeConst : public Base::NotifieeConst {                                    \
   public:                                                                              \
    KEL_ONS(LIST)                                                                       \
    ::Kel::Ptr<const T> notifier() const {                                              \
      return ::Kel::Ptr<const T>(static_cast<const T*>(this->kelNotifier()));           \
    }                                                                                   \
    void notifierIs(const ::Kel::Ptr<const T>& n) { this->kelNotifierIs(n.ptr(), kelDepth); } \
  };                                                                                    \
  class Notifiee : public NotifieeConst {                                               \
   public:                                                                              \
    ::Kel::Ptr<T> notifier() const {                                                    \
      return ::Kel::Ptr<T>(const_cast<T*>(NotifieeConst::notifier().ptr()));            \
    }                                                                                   \
    void notifierIs(const ::Kel::Ptr<T>& n) { NotifieeConst::notifierIs(n); }           \
  };                                                                                    \
  static ::Kel::String8 _fwkType() { return #NS "::" #T; }                              \
  ::Kel::String8 fwkType() const override { return _fwkType(); }                        \
  ::Kel::String8 attributeString(::Kel::AttributeId id) const override {                \
    KEL_NAMES(LIST)                                                                     \
    return Base::attributeString(id);                                                   \
  }                                                                                     \
  template <class... A>                                                                 \
  static Ptr kelCreate(A&&... a) {                                                      \
    return Ptr::adopt(new T(std::forward<A>(a)...));                                    \
  }                                                                                     \
  LIST(KEL_SCALAR, KEL_CTOR, KEL_VALUES, KEL_ENTITIES, KEL_QUEUE)                        \
 public:

// The factory of a record type: tFactory(constructor arguments...).
#define KEL_FACTORY(T, fn)                                          \
  template <class... A>                                             \
  inline T::Ptr fn(A&&... a) {                                      \
    return ::Kel::validPtr(T::kelCreate(std::forward<A>(a)...));    \
  }
