// A set of VLAN ids 1..4094 plus "untagged", as a switch port is configured
// to carry them. Port groups give their VLANs as text: one id, or a
// comma-separated list of ranges "a-b"; an empty text is untagged traffic.
#pragma once
#include <bitset>
#include <string>

namespace HarbecAgent {

class VlanSet {
 public:
  // Adds what a port group's VLAN text names, or a text of this class's
  // own ("untagged" stands for untagged traffic); ids outside 1..4094 and
  // malformed pieces are ignored.
  void add(const std::string& text);
  void add(const VlanSet& other);
  void addUntagged() { untagged_ = true; }

  bool contains(unsigned vlan) const { return vlan >= 1 && vlan <= 4094 && ids_[vlan]; }
  bool untagged() const { return untagged_; }
  bool empty() const { return !untagged_ && ids_.none(); }

  // "untagged", "100-102,200", "untagged,7"; empty for an empty set.
  std::string text() const;

  bool operator==(const VlanSet& o) const { return untagged_ == o.untagged_ && ids_ == o.ids_; }
  // What this set holds and `other` does not.
  VlanSet minus(const VlanSet& other) const {
    VlanSet out;
    out.ids_ = ids_ & ~other.ids_;
    out.untagged_ = untagged_ && !other.untagged_;
    return out;
  }

 private:
  std::bitset<4095> ids_;
  bool untagged_ = false;
};

}  // namespace HarbecAgent
