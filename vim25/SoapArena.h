// Where the generated readers put the objects of a reply.
//
// The first update set of a large inventory is some hundred thousand small
// objects that all die together when the session frees the context's
// memory. One heap allocation per object, and a page fault per fresh 4 KB
// page, were a third of the client's CPU time for such a set. With an arena
// the objects and their deletion entries are laid one after another in
// large blocks (huge pages where the kernel grants them); the destructors
// run from the arena's own list when the session frees the context's
// memory, and the blocks go back in the same step.
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

  void* allocate(std::size_t size);
  bool holds(const void* p) const;
  // An entry of this arena's own deletion list, which rewind runs, in place
  // of one that soap_link would take from the heap; nullptr if none.
  struct soap_clist* link(int type, int (*fdelete)(struct soap*, struct soap_clist*));

 private:
  struct Block {
    char* begin;
    std::size_t size;
  };
  bool addBlock(std::size_t size);

  struct soap* soap_ = nullptr;
  std::vector<Block> blocks_;
  struct soap_clist* linked_ = nullptr;
  char* next_ = nullptr;
  char* end_ = nullptr;
};

// The arena of `soap`, or nullptr.
SoapArena* arenaOf(const struct soap* soap);

// soap_link for the generated code: a single object of a context with an
// arena goes on the arena's list.
struct soap_clist* arenaLink(struct soap* soap, int type, int n, int (*fdelete)(struct soap*, struct soap_clist*));

}  // namespace Vim25
