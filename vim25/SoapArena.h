// Where the generated readers put the objects of a reply.
//
// The first update set of a large inventory is some hundred thousand small
// objects that all die together when the session frees the context's
// memory. One heap allocation per object, and a page fault per fresh 4 KB
// page, were a third of the client's CPU time for such a set. With an arena
// the objects are laid one after another in large blocks (huge pages where
// the kernel grants them); the destructors run from the arena's own records
// when the session frees the context's memory, and the blocks go back in
// the same step. A record is the object's address and type, 16 bytes where
// gSOAP's deletion entry takes 48: with a million objects in the first reply
// of a large inventory, that difference was a sixth of the peak.
//
// The generated serializers allocate through vim25/LeanReader.h. A context
// without an arena gets plain new and delete, as do all contexts in
// sanitizer builds, where pooled memory would hide faults.
#pragma once
#include <cstddef>
#include <vector>

struct soap;
struct soap_clist;

namespace Vim25 {

class SoapArena {
 public:
  SoapArena() = default;
  ~SoapArena();
  SoapArena(const SoapArena&) = delete;
  SoapArena& operator=(const SoapArena&) = delete;

  // Makes this the arena of `soap` (through soap->user, which nothing else
  // uses); again after every soap_init of the context.
  void attach(struct soap* soap);
  // Destroys the objects of the last replies and gives back their memory,
  // keeping the first block. After soap_delete(soap, nullptr) and soap_end,
  // and before the context is done.
  void rewind();

  // `align` is a power of two up to that of std::max_align_t.
  void* allocate(std::size_t size, std::size_t align = alignof(std::max_align_t));
  bool holds(const void* p) const;
  // Bytes of the blocks mapped now.
  std::size_t mapped() const;
  // The deletion entry of the single object about to be made, in place of
  // one that soap_link would take from the heap; nullptr if none. The caller
  // writes the object's address into it; it is the arena's one scratch
  // entry, recorded when the next one is asked for or at rewind.
  struct soap_clist* link(int type, int (*fdelete)(struct soap*, struct soap_clist*));

 private:
  struct Block {
    char* begin;
    std::size_t size;
  };
  struct Record {
    void* ptr;
    int type;
  };
  bool addBlock(std::size_t size);
  bool roomForRecord();
  void record();

  struct soap* soap_ = nullptr;
  std::vector<Block> blocks_;
  mutable std::size_t lastHeld_ = 0;  // the block that held the last address asked about
  char* next_ = nullptr;
  char* end_ = nullptr;
  // Records in chunks taken from the blocks, newest last.
  std::vector<Record*> chunks_;
  std::size_t usedInLast_ = 0;
  struct soap_clist* scratch_ = nullptr;
  int (*fdelete_)(struct soap*, struct soap_clist*) = nullptr;
};

// The arena of `soap`, or nullptr.
SoapArena* arenaOf(const struct soap* soap);

// soap_link for the generated code: a single object of a context with an
// arena goes on the arena's list.
struct soap_clist* arenaLink(struct soap* soap, int type, int n, int (*fdelete)(struct soap*, struct soap_clist*));

}  // namespace Vim25
