// Sorted keyed collection. Iterators remember the key they stand on, so
// removing that element leaves them valid: they go on with the next key.
#pragma once
#include <map>

#include "Kel/HashMap.h"

namespace Kel {

template <class V, class K>
class RbTreeMap : public BaseCollection {
  using Tree = std::map<K, V>;

 public:
  class IteratorConst {
   public:
    explicit IteratorConst(const Tree* t) : tree_(t) {
      auto i = t->begin();
      done_ = (i == t->end());
      if (!done_) key_ = i->first;
    }
    explicit operator bool() const { return !done_ && resolve() != tree_->end(); }
    // The element under the iterator: the one it stands on or, once that one
    // is removed, the one that follows it.
    const K& key() const {
      auto i = resolve();
      return i == tree_->end() ? key_ : i->first;
    }
    const V& value() const { return resolve()->second; }
    const V& operator*() const { return value(); }
    bool hasBookmark() const {
      auto i = resolve();
      return !done_ && i != tree_->end() && tree_->key_comp()(key_, i->first);
    }
    IteratorConst& operator++() {
      if (done_) return *this;
      auto i = resolve();
      if (i != tree_->end() && !tree_->key_comp()(key_, i->first)) ++i;  // still there: step past it
      done_ = (i == tree_->end());
      if (!done_) key_ = i->first;
      return *this;
    }

   private:
    typename Tree::const_iterator resolve() const { return tree_->lower_bound(key_); }
    const Tree* tree_;
    K key_;
    bool done_ = false;
  };

  size_t size() const { return tree_.size(); }
  bool empty() const { return tree_.empty(); }
  const V* find(const K& k) const {
    auto i = tree_.find(k);
    return i == tree_.end() ? nullptr : &i->second;
  }
  V* find(const K& k) {
    auto i = tree_.find(k);
    return i == tree_.end() ? nullptr : &i->second;
  }
  std::pair<V*, bool> insert(const K& k, V v) {
    auto r = tree_.emplace(k, std::move(v));
    return {&r.first->second, r.second};
  }
  V& set(const K& k, V v) { return tree_[k] = std::move(v); }
  bool erase(const K& k, V* out = nullptr) {
    auto i = tree_.find(k);
    if (i == tree_.end()) return false;
    if (out) *out = std::move(i->second);
    tree_.erase(i);
    return true;
  }
  void clear() { tree_.clear(); }
  IteratorConst iteratorConst() const { return IteratorConst(&tree_); }
  IteratorConst iterator() const { return IteratorConst(&tree_); }

 private:
  Tree tree_;
};

}  // namespace Kel
