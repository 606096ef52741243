// How far the reader has come: object updates made so far by every
// context of the process. Read from any thread while a reply is being read.
#pragma once
#include <atomic>
#include <cstdint>

namespace Vim25 {

extern std::atomic<uint64_t> objectUpdatesRead;

inline void countObjectUpdate() { objectUpdatesRead.fetch_add(1, std::memory_order_relaxed); }

}  // namespace Vim25
