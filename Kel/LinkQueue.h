// Queue keyed by a running index. An entry keeps its index for life; the
// metadata record holds the head index and the next index to hand out. The
// head follows every change of the queue; an empty queue's head is the next
// index, which is never reset.
#pragma once
#include <map>

#include "Kel/HashMap.h"

namespace Kel {

struct QueueMetadata {
  unsigned head = 0;
  unsigned next = 0;
  bool operator==(const QueueMetadata& o) const { return head == o.head && next == o.next; }
  bool operator!=(const QueueMetadata& o) const { return !(*this == o); }
};

template <class V, class Index = unsigned>
class LinkQueue : public BaseCollection {
  using Tree = std::map<Index, V>;

 public:
  class IteratorConst {
   public:
    explicit IteratorConst(const Tree* t) : tree_(t) {
      auto i = t->begin();
      done_ = (i == t->end());
      if (!done_) index_ = i->first;
    }
    explicit operator bool() const { return !done_ && tree_->lower_bound(index_) != tree_->end(); }
    // The entry under the iterator: the one it stands on or, once that one
    // is removed, the one that follows it.
    Index index() const {
      auto i = tree_->lower_bound(index_);
      return i == tree_->end() ? index_ : i->first;
    }
    const V& value() const { return tree_->lower_bound(index_)->second; }
    const V& operator*() const { return value(); }
    bool hasBookmark() const {
      auto i = tree_->lower_bound(index_);
      return !done_ && i != tree_->end() && i->first != index_;
    }
    IteratorConst& operator++() {
      if (done_) return *this;
      auto i = tree_->lower_bound(index_);
      if (i != tree_->end() && i->first == index_) ++i;  // still there: step past it
      done_ = (i == tree_->end());
      if (!done_) index_ = i->first;
      return *this;
    }

   private:
    const Tree* tree_;
    Index index_ = 0;
    bool done_ = true;
  };

  size_t size() const { return tree_.size(); }
  bool empty() const { return tree_.empty(); }
  const V* find(Index i) const {
    auto it = tree_.find(i);
    return it == tree_.end() ? nullptr : &it->second;
  }
  V& set(Index i, V v) {
    V& e = tree_[i] = std::move(v);
    syncHead();
    return e;
  }
  bool erase(Index i) {
    if (tree_.erase(i) == 0) return false;
    syncHead();
    return true;
  }
  void clear() {
    tree_.clear();
    syncHead();
  }
  // The index of the head entry; the next index when the queue is empty.
  Index headIndex() const { return tree_.empty() ? meta_.next : tree_.begin()->first; }

  // The new index is the saved next index, or the tail's plus one if larger.
  Index enq(V v) {
    Index i = meta_.next;
    if (!tree_.empty() && tree_.rbegin()->first + 1 > i) i = tree_.rbegin()->first + 1;
    tree_.emplace(i, std::move(v));
    meta_.next = i + 1;
    syncHead();
    return i;
  }
  // The head entry's value, removed; the empty value if the queue is empty.
  V deq() {
    if (tree_.empty()) return V();
    auto i = tree_.begin();
    V v = std::move(i->second);
    tree_.erase(i);
    syncHead();
    return v;
  }
  const QueueMetadata& metadata() const { return meta_; }
  void metadataIs(const QueueMetadata& m) { meta_ = m; }
  IteratorConst iteratorConst() const { return IteratorConst(&tree_); }
  IteratorConst iterator() const { return IteratorConst(&tree_); }

 private:
  void syncHead() { meta_.head = headIndex(); }

  Tree tree_;
  QueueMetadata meta_;
};

}  // namespace Kel
