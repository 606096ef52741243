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
constexpr std::size_t kHugePage = 2 * 1024 * 1024;
// Record chunks start small so that the records of a small reply fit in
// the first block: a chunk that did not would map a large block, and clear
// a huge page, for every reply of a running session.
constexpr std::size_t kFirstChunkRecords = 256;
constexpr std::size_t kLargestChunkRecords = 16 * 1024;

std::size_t chunkRecords(std::size_t chunk) {
  return chunk >= 6 ? kLargestChunkRecords : kFirstChunkRecords << chunk;
}

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

// Objects align as their class needs, mostly to 8 bytes: a million of them
// would lose 8 MB to the 16 of std::max_align_t.
void* SoapArena::allocate(std::size_t size, std::size_t align) {
  auto aligned = [align](char* p) {
    return reinterpret_cast<char*>((reinterpret_cast<std::uintptr_t>(p) + align - 1) & ~(align - 1));
  };
  if (!next_ || static_cast<std::size_t>(end_ - aligned(next_)) < size) {
    if (!addBlock(std::max(size, blocks_.empty() ? kFirstBlock : kLargeBlock))) return nullptr;
  }
  char* p = aligned(next_);
  next_ = p + size;
  return p;
}

// The records run from the newest object back: the block of the last
// address asked about is looked at first.
bool SoapArena::holds(const void* p) const {
  auto* c = static_cast<const char*>(p);
  auto in = [c](const Block& b) { return c >= b.begin && c < b.begin + b.size; };
  if (lastHeld_ < blocks_.size() && in(blocks_[lastHeld_])) return true;
  for (std::size_t i = blocks_.size(); i-- > 0;)
    if (in(blocks_[i])) {
      lastHeld_ = i;
      return true;
    }
  return false;
}

std::size_t SoapArena::mapped() const {
  std::size_t bytes = 0;
  for (const Block& b : blocks_) bytes += b.size;
  return bytes;
}

bool SoapArena::roomForRecord() {
  if (!chunks_.empty() && usedInLast_ < chunkRecords(chunks_.size() - 1)) return true;
  auto* chunk = static_cast<Record*>(allocate(chunkRecords(chunks_.size()) * sizeof(Record)));
  if (!chunk) return false;
  chunks_.push_back(chunk);
  usedInLast_ = 0;
  return true;
}

// The scratch entry's object, if one was made, goes into the records.
void SoapArena::record() {
  if (!scratch_ || !scratch_->ptr) return;
  chunks_.back()[usedInLast_++] = {scratch_->ptr, scratch_->type};
  scratch_->ptr = nullptr;
}

struct soap_clist* SoapArena::link(int type, int (*fdelete)(struct soap*, struct soap_clist*)) {
  // One deleter serves every record; the generated code has just one.
  if (fdelete_ && fdelete != fdelete_) return nullptr;
  record();
  if (!scratch_) scratch_ = static_cast<struct soap_clist*>(allocate(sizeof(struct soap_clist)));
  if (!scratch_ || !roomForRecord()) return nullptr;
  fdelete_ = fdelete;
  *scratch_ = {nullptr, nullptr, type, -1, fdelete};
  return scratch_;
}

struct soap_clist* arenaLink(struct soap* soap, int type, int n, int (*fdelete)(struct soap*, struct soap_clist*)) {
  if (SoapArena* arena = n == -1 ? arenaOf(soap) : nullptr)
    if (struct soap_clist* cp = arena->link(type, fdelete)) return cp;
  return soap_link(soap, type, n, fdelete);
}

void SoapArena::rewind() {
  record();
  for (std::size_t c = chunks_.size(); c-- > 0;) {
    const std::size_t used = c + 1 == chunks_.size() ? usedInLast_ : chunkRecords(c);
    for (std::size_t i = used; i-- > 0;) {
      struct soap_clist entry = {nullptr, chunks_[c][i].ptr, chunks_[c][i].type, -1, fdelete_};
      fdelete_(soap_, &entry);
    }
  }
  chunks_.clear();
  usedInLast_ = 0;
  scratch_ = nullptr;
  lastHeld_ = 0;
  if (blocks_.empty()) return;
  for (std::size_t i = 1; i < blocks_.size(); ++i) munmap(blocks_[i].begin, blocks_[i].size);
  blocks_.resize(1);
  next_ = blocks_[0].begin;
  end_ = next_ + blocks_[0].size;
}

}  // namespace Vim25
