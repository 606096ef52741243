// Queue keyed by a running index. An entry keeps its index for life; the
// metadata record holds the head index and the next index to hand out.
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
    Index index() const { return index_; }
    const V& value() const { return tree_->lower_bound(index_)->second; }
    const V& operator*() const { return value(); }
    IteratorConst& operator++() {
      auto i = tree_->upper_bound(index_);
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
  V& set(Index i, V v) { return tree_[i] = std::move(v); }
  bool erase(Index i) { return tree_.erase(i) > 0; }
  void clear() { tree_.clear(); }

  // The new index is the saved next index, or the tail's plus one if larger.
  Index enq(V v) {
    Index i = meta_.next;
    if (!tree_.empty() && tree_.rbegin()->first + 1 > i) i = tree_.rbegin()->first + 1;
    tree_.emplace(i, std::move(v));
    meta_.next = i + 1;
    meta_.head = tree_.begin()->first;
    return i;
  }
  // The head entry's value, removed; the empty value if the queue is empty.
  V deq() {
    if (tree_.empty()) return V();
    auto i = tree_.begin();
    V v = std::move(i->second);
    tree_.erase(i);
    meta_.head = tree_.empty() ? meta_.next : tree_.begin()->first;
    return v;
  }
  const QueueMetadata& metadata() const { return meta_; }
  void metadataIs(const QueueMetadata& m) { meta_ = m; }
  IteratorConst iteratorConst() const { return IteratorConst(&tree_); }
  IteratorConst iterator() const { return IteratorConst(&tree_); }

 private:
  Tree tree_;
  QueueMetadata meta_;
};

}  // namespace Kel
