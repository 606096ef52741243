// One blocking HTTP GET against vShield Manager, into a growing buffer. A
// new curl handle is made for every request and dropped after it: nothing
// survives from one exchange to the next, and the credentials go with each.
#pragma once
#include <cstddef>
#include <string>

#include <pugixml.hpp>

#include "vshield/VmwareVsSm.h"

namespace Harbec {

// The body of one reply, grown chunk by chunk to its exact size, plus one
// byte for the terminator. Until the first chunk has come the block holds
// one uninitialised byte: test size before reading it as a string.
class MemoryBuffer {
 public:
  MemoryBuffer();
  ~MemoryBuffer();
  MemoryBuffer(const MemoryBuffer&) = delete;
  MemoryBuffer& operator=(const MemoryBuffer&) = delete;

  char* buffer;
  size_t size;      // bytes held, without the terminator
  size_t prevSize;  // size before the last growth: where the newest chunk goes

  // Beside the three: a cap on the reply that the callback keeps (0: none),
  // and what went wrong with the exchange, on one line for an operator.
  size_t cap = 0;
  std::string failure;

 private:
  friend size_t populateMemoryCallback(void* ptr, size_t size, size_t nmemb, void* userdata);
  void incrSize(size_t n);
  // Ends the process with status 1 when the block can't grow.
  void resize(size_t newSize);
};

// libcurl's write function; userdata is the MemoryBuffer.
size_t populateMemoryCallback(void* ptr, size_t size, size_t nmemb, void* userdata);

// GET of vsConfig's url + "/" + endpoint with basic credentials. Returns 200
// on success, the server's status for any other answer, and 400 when no
// answer came; logs by the status.
long httpGetRequest(VmwareVsSm::Ptr sm, const Kel::String8& endpoint, MemoryBuffer& buffer);

// A node and its subtree as indented text; for debugging.
std::string nodeToString(pugi::xml_node node);

}  // namespace Harbec
