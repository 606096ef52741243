// Keyed collection with a power-of-two bucket array. The bucket of a key is
// the top bits of its bit-reversed hash, and each chain is kept in order of
// the bit-reversed hash, so that the whole map is one sequence whose order
// does not depend on the number of buckets: a walk goes on unharmed while the
// map grows or shrinks under it. Iterators register with the map and keep a
// bookmark: deleting the element under an iterator moves it to the element
// that follows, so a walk may delete as it goes.
#pragma once
#include <cstddef>
#include <cstdint>
#include <cstdlib>
#include <new>
#include <utility>

#include "Kel/Ptr.h"
#include "Kel/String8.h"

namespace Kel {

inline uint32_t kelHash(const String8& s) { return s.hash(); }
inline uint32_t kelHash(unsigned v) {
  uint32_t h = v * 0x9e3779b1u;
  return h ^ (h >> 15);
}

inline uint32_t bitReverse(uint32_t v) {
  v = ((v >> 1) & 0x55555555u) | ((v & 0x55555555u) << 1);
  v = ((v >> 2) & 0x33333333u) | ((v & 0x33333333u) << 2);
  v = ((v >> 4) & 0x0f0f0f0fu) | ((v & 0x0f0f0f0fu) << 4);
  v = ((v >> 8) & 0x00ff00ffu) | ((v & 0x00ff00ffu) << 8);
  return (v >> 16) | (v << 16);
}

class BaseCollection {
 public:
  BaseCollection() = default;
  BaseCollection(const BaseCollection&) = delete;
  BaseCollection& operator=(const BaseCollection&) = delete;
};

template <class V, class K>
class HashMap : public BaseCollection {
  struct Node : KelMemPool {
    Node(uint32_t r, const K& k, V v) : rev(r), key(k), value(std::move(v)) {}
    Node* next = nullptr;
    uint32_t rev;  // the bit-reversed hash: the order of the map
    K key;
    V value;
  };
  // Registration of a live iterator with its map.
  struct IterLink {
    void* self = nullptr;
    void (*notify)(void*, Node*, Node*) = nullptr;  // element removed, successor
    void (*reset)(void*) = nullptr;                 // map emptied
    void (*detachMap)(void*) = nullptr;             // map destroyed
    IterLink* prev = nullptr;
    IterLink* next = nullptr;
  };

 public:
  template <bool IsConst>
  class IteratorT {
    using Map = typename std::conditional<IsConst, const HashMap, HashMap>::type;
    using Ref = typename std::conditional<IsConst, const V&, V&>::type;

   public:
    IteratorT() = default;
    explicit IteratorT(Map* m) : map_(const_cast<HashMap*>(m)) {
      attach();
      cur_ = map_->first();
    }
    IteratorT(const IteratorT& o) : map_(o.map_), cur_(o.cur_), bookmark_(o.bookmark_) { attach(); }
    IteratorT& operator=(const IteratorT& o) {
      if (this != &o) { detach(); map_ = o.map_; cur_ = o.cur_; bookmark_ = o.bookmark_; attach(); }
      return *this;
    }
    ~IteratorT() { detach(); }

    explicit operator bool() const { return cur_ != nullptr; }
    const K& key() const { return cur_->key; }
    Ref value() const { return cur_->value; }
    Ref operator*() const { return cur_->value; }
    bool hasBookmark() const { return bookmark_; }

    IteratorT& operator++() {
      if (bookmark_) bookmark_ = false;
      else if (cur_) cur_ = map_->after(cur_);
      return *this;
    }

    // Called by the map when the element under this iterator is removed.
    void deleteNotify(Node* successor) { cur_ = successor; bookmark_ = true; }

   private:
    friend class HashMap;
    void attach() {
      if (!map_) return;
      link_.self = this;
      link_.notify = [](void* self, Node* removed, Node* successor) {
        auto* it = static_cast<IteratorT*>(self);
        if (it->cur_ == removed) it->deleteNotify(successor);
      };
      link_.reset = [](void* self) {
        auto* it = static_cast<IteratorT*>(self);
        it->cur_ = nullptr;
        it->bookmark_ = false;
      };
      link_.detachMap = [](void* self) {
        auto* it = static_cast<IteratorT*>(self);
        it->map_ = nullptr;
        it->cur_ = nullptr;
      };
      map_->attach(&link_);
    }
    void detach() { if (map_) map_->detach(&link_); map_ = nullptr; }

    HashMap* map_ = nullptr;
    Node* cur_ = nullptr;
    bool bookmark_ = false;
    IterLink link_;
  };
  using Iterator = IteratorT<false>;
  using IteratorConst = IteratorT<true>;

  HashMap() = default;
  ~HashMap() {
    do clear(); while (buckets_);  // a value's destructor may have added again
    for (IterLink* l = iters_; l;) { IterLink* n = l->next; l->detachMap(l->self); l->prev = l->next = nullptr; l = n; }
  }

  size_t size() const { return size_; }
  bool empty() const { return size_ == 0; }

  V* find(const K& k) {
    if (!buckets_) return nullptr;
    uint32_t r = bitReverse(kelHash(k));
    for (Node* n = buckets_[bucketOf(r)]; n && n->rev <= r; n = n->next)
      if (n->rev == r && n->key == k) return &n->value;
    return nullptr;
  }
  const V* find(const K& k) const { return const_cast<HashMap*>(this)->find(k); }

  // Inserts unless present; returns the entry and whether it is new.
  std::pair<V*, bool> insert(const K& k, V v) {
    if (V* e = find(k)) return {e, false};
    return {&add(k, std::move(v)), true};
  }

  // Inserts or replaces.
  V& set(const K& k, V v) {
    if (V* e = find(k)) { *e = std::move(v); return *e; }
    return add(k, std::move(v));
  }

  // Removes the entry and hands its value to *out; false if there was none.
  bool erase(const K& k, V* out = nullptr) {
    if (!buckets_) return false;
    uint32_t r = bitReverse(kelHash(k));
    Node** link = &buckets_[bucketOf(r)];
    for (Node* n = *link; n && n->rev <= r; link = &n->next, n = n->next) {
      if (n->rev != r || !(n->key == k)) continue;
      if (iters_) {
        Node* s = after(n);
        for (IterLink* l = iters_; l; l = l->next) l->notify(l->self, n, s);
      }
      *link = n->next;
      --size_;
      if (out) *out = std::move(n->value);
      delete n;
      maybeShrink();
      return true;
    }
    return false;
  }

  // Empties the map and gives its buckets back. The map is empty before the
  // first value is destroyed, so a value's destructor may use it again.
  void clear() {
    if (!buckets_) return;
    for (IterLink* l = iters_; l; l = l->next) l->reset(l->self);
    Node** ob = buckets_;
    uint32_t oldCount = bucketCount_;
    buckets_ = nullptr;
    bucketCount_ = 0;
    bits_ = 0;
    size_ = 0;
    for (uint32_t b = 0; b < oldCount; ++b)
      for (Node* n = ob[b]; n;) { Node* next = n->next; delete n; n = next; }
    std::free(ob);
  }

  Iterator iterator() { return Iterator(this); }
  IteratorConst iterator() const { return IteratorConst(this); }
  IteratorConst iteratorConst() const { return IteratorConst(this); }

  size_t bucketCount() const { return bucketCount_; }

 private:
  void attach(IterLink* l) {
    l->prev = nullptr;
    l->next = iters_;
    if (iters_) iters_->prev = l;
    iters_ = l;
  }
  void detach(IterLink* l) {
    if (l->prev) l->prev->next = l->next;
    else if (iters_ == l) iters_ = l->next;
    if (l->next) l->next->prev = l->prev;
    l->prev = l->next = nullptr;
  }

  uint32_t bucketOf(uint32_t rev) const { return bits_ == 0 ? 0 : rev >> (32 - bits_); }

  Node* first() const {
    for (uint32_t b = 0; b < bucketCount_; ++b)
      if (buckets_[b]) return buckets_[b];
    return nullptr;
  }
  Node* after(const Node* n) const {
    if (n->next) return n->next;
    for (uint32_t b = bucketOf(n->rev) + 1; b < bucketCount_; ++b)
      if (buckets_[b]) return buckets_[b];
    return nullptr;
  }

  // Adds an entry behind those of an equal or lower bit-reversed hash.
  V& add(const K& k, V v) {
    if (size_ + 1 > bucketCount_) rehash(bucketCount_ == 0 ? kMinBits : bits_ + 1);
    uint32_t r = bitReverse(kelHash(k));
    Node* n = new Node(r, k, std::move(v));
    Node** link = &buckets_[bucketOf(r)];
    while (*link && (*link)->rev <= r) link = &(*link)->next;
    n->next = *link;
    *link = n;
    ++size_;
    return n->value;
  }

  void maybeShrink() {
    if (bits_ <= kMinBits || size_ * 4 >= bucketCount_) return;
    rehash(bits_ - 1);
  }

  // Walking the old buckets in order visits the entries in map order, and
  // their new buckets come in ascending order: appending keeps each chain
  // sorted.
  void rehash(uint32_t newBits) {
    uint32_t newCount = 1u << newBits;
    Node** nb = static_cast<Node**>(std::calloc(newCount, sizeof(Node*)));
    if (!nb) throw std::bad_alloc();
    uint32_t oldCount = bucketCount_;
    Node** ob = buckets_;
    buckets_ = nb;
    bucketCount_ = newCount;
    bits_ = newBits;
    Node* last = nullptr;
    uint32_t lastBucket = 0;
    for (uint32_t b = 0; b < oldCount; ++b) {
      for (Node* n = ob[b]; n;) {
        Node* next = n->next;
        n->next = nullptr;
        uint32_t nbucket = bucketOf(n->rev);
        if (last && nbucket == lastBucket) last->next = n;
        else buckets_[nbucket] = n;
        last = n;
        lastBucket = nbucket;
        n = next;
      }
    }
    std::free(ob);
  }

  static constexpr uint32_t kMinBits = 3;

  Node** buckets_ = nullptr;
  uint32_t bucketCount_ = 0;
  uint32_t bits_ = 0;
  size_t size_ = 0;
  IterLink* iters_ = nullptr;
};

}  // namespace Kel
