#include "SoapArena.h"

#include "Kel/Sanitizers.h"

#include <stdsoap2.h>
#include <sys/mman.h>

#include <algorithm>
#include <cstdint>

namespace Vim25 {

namespace {

#if defined(KEL_UNDER_ASAN) || defined(KEL_UNDER_TSAN)
constexpr bool kEnabled = false;
#else
constexpr bool kEnabled = true;
#endif

// Enough for the replies of a running session; the first update set of a
// large inventory adds large blocks, given back by the next rewind.
constexpr std::size_t kFirstBlock = 64 * 1024;
constexpr std::size_t kLargeBlock = 4 * 1024 * 1024;
constexpr std::size_t kAlign = alignof(std::max_align_t);
constexpr std::size_t kHugePage = 2 * 1024 * 1024;

// Anonymous memory at a huge page boundary, so that all of it can be huge.
void* mapAligned(std::size_t size) {
  void* p = mmap(nullptr, size + kHugePage, PROT_READ | PROT_WRITE, MAP_PRIVATE | MAP_ANONYMOUS, -1, 0);
  if (p == MAP_FAILED) return nullptr;
  auto start = reinterpret_cast<std::uintptr_t>(p);
  auto aligned = (start + kHugePage - 1) & ~(kHugePage - 1);
  if (aligned > start) munmap(p, aligned - start);
  if (std::size_t tail = start + kHugePage - aligned) munmap(reinterpret_cast<void*>(aligned + size), tail);
  return reinterpret_cast<void*>(aligned);
}

}  // namespace

// Objects still listed are left to leak: their context may be gone.
SoapArena::~SoapArena() {
  for (const Block& b : blocks_) munmap(b.begin, b.size);
}

void SoapArena::attach(struct soap* soap) {
  if (!kEnabled || !soap) return;
  soap->user = this;
  soap_ = soap;
}

SoapArena* arenaOf(const struct soap* soap) { return soap ? static_cast<SoapArena*>(soap->user) : nullptr; }

bool SoapArena::addBlock(std::size_t size) {
  size = (size + 4095) & ~std::size_t{4095};
  void* p = mapAligned(size);
  if (!p) return false;
  // One fault per 2 MB instead of one per 4 KB, where the kernel allows.
  if (size >= kHugePage) madvise(p, size, MADV_HUGEPAGE);
  blocks_.push_back({static_cast<char*>(p), size});
  next_ = static_cast<char*>(p);
  end_ = next_ + size;
  return true;
}

void* SoapArena::allocate(std::size_t size) {
  size = (size + kAlign - 1) & ~(kAlign - 1);
  if (static_cast<std::size_t>(end_ - next_) < size &&
      !addBlock(std::max(size, blocks_.empty() ? kFirstBlock : kLargeBlock)))
    return nullptr;
  void* p = next_;
  next_ += size;
  return p;
}

// Newest block first: a deletion list runs from the newest object back.
bool SoapArena::holds(const void* p) const {
  auto* c = static_cast<const char*>(p);
  for (auto b = blocks_.rbegin(); b != blocks_.rend(); ++b)
    if (c >= b->begin && c < b->begin + b->size) return true;
  return false;
}

struct soap_clist* SoapArena::link(int type, int (*fdelete)(struct soap*, struct soap_clist*)) {
  auto* cp = static_cast<struct soap_clist*>(allocate(sizeof(struct soap_clist)));
  if (!cp) return nullptr;
  *cp = {linked_, nullptr, type, -1, fdelete};
  linked_ = cp;
  return cp;
}

struct soap_clist* arenaLink(struct soap* soap, int type, int n, int (*fdelete)(struct soap*, struct soap_clist*)) {
  if (SoapArena* arena = n == -1 ? arenaOf(soap) : nullptr)
    if (struct soap_clist* cp = arena->link(type, fdelete)) return cp;
  return soap_link(soap, type, n, fdelete);
}

void SoapArena::rewind() {
  for (struct soap_clist* cp = linked_; cp; cp = cp->next) cp->fdelete(soap_, cp);
  linked_ = nullptr;
  if (blocks_.empty()) return;
  for (std::size_t i = 1; i < blocks_.size(); ++i) munmap(blocks_[i].begin, blocks_[i].size);
  blocks_.resize(1);
  next_ = blocks_[0].begin;
  end_ = next_ + blocks_[0].size;
}

}  // namespace Vim25
