#include "agent/VlanSet.h"

namespace HarbecAgent {

namespace {

// A decimal number filling the whole of [from, to); -1 otherwise.
long number(const std::string& s, size_t from, size_t to) {
  while (from < to && s[from] == ' ') ++from;
  while (to > from && s[to - 1] == ' ') --to;
  if (from == to || to - from > 5) return -1;
  long n = 0;
  for (size_t i = from; i < to; ++i) {
    if (s[i] < '0' || s[i] > '9') return -1;
    n = n * 10 + (s[i] - '0');
  }
  return n;
}

}  // namespace

void VlanSet::add(const std::string& text) {
  if (text.find_first_not_of(' ') == std::string::npos) {
    untagged_ = true;
    return;
  }
  for (size_t from = 0; from <= text.size();) {
    size_t end = text.find(',', from);
    if (end == std::string::npos) end = text.size();
    size_t dash = text.find('-', from);
    long first, last;
    if (text.compare(from, end - from, "untagged") == 0) {
      untagged_ = true;
      first = last = -1;
    } else if (dash != std::string::npos && dash < end) {
      first = number(text, from, dash);
      last = number(text, dash + 1, end);
    } else {
      first = last = number(text, from, end);
    }
    if (first >= 0 && last >= first) {
      for (long v = first < 1 ? 1 : first; v <= last && v <= 4094; ++v) ids_.set(static_cast<size_t>(v));
    }
    from = end + 1;
  }
}

void VlanSet::add(const VlanSet& other) {
  ids_ |= other.ids_;
  untagged_ = untagged_ || other.untagged_;
}

std::string VlanSet::text() const {
  std::string out = untagged_ ? "untagged" : "";
  for (unsigned v = 1; v <= 4094; ++v) {
    if (!ids_[v]) continue;
    unsigned last = v;
    while (last + 1 <= 4094 && ids_[last + 1]) ++last;
    if (!out.empty()) out += ",";
    out += std::to_string(v);
    if (last > v) out += "-" + std::to_string(last);
    v = last;
  }
  return out;
}

}  // namespace HarbecAgent
