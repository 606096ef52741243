// The arena that holds the objects of a reply: what lives in it, that
// their destructors still run, and that its memory goes back.
#include <gtest/gtest.h>
#include <malloc.h>

#include <soapH.h>

#include <string>
#include <vector>

#include "vim25/SoapArena.h"

namespace {

class SoapArenaTest : public ::testing::Test {
 protected:
  void SetUp() override {
    soap = soap_new();
    arena.attach(soap);
    if (!Vim25::arenaOf(soap)) GTEST_SKIP() << "sanitizer build: objects come from the heap";
  }
  void TearDown() override {
    soap_delete(soap, nullptr);
    soap_end(soap);
    arena.rewind();
    soap_free(soap);
  }
  static size_t heapInUse() { return mallinfo2().uordblks; }

  Vim25::SoapArena arena;
  struct soap* soap = nullptr;
};

// Strings too long for the string itself hold heap memory, which only their
// destructors give back.
TEST_F(SoapArenaTest, ObjectsLiveInTheArenaAndTheirDestructorsRunAtRewind) {
  const std::string text(200, 'x');
  std::vector<ns2__ManagedObjectReference*> refs;
  refs.reserve(20000);
  size_t before = heapInUse();
  for (int round = 0; round < 3; ++round) {
    refs.clear();
    for (int i = 0; i < 20000; ++i) {
      auto* ref = soap_new_ns2__ManagedObjectReference(soap);
      ASSERT_NE(nullptr, ref);
      ref->__item = text;
      refs.push_back(ref);
    }
    EXPECT_TRUE(arena.holds(refs.front()));
    EXPECT_TRUE(arena.holds(refs.back()));
    EXPECT_EQ(0u, reinterpret_cast<uintptr_t>(refs.back()) % alignof(std::max_align_t));
    EXPECT_GT(heapInUse(), before + 20000 * text.size());
    soap_delete(soap, nullptr);
    soap_end(soap);
    arena.rewind();
    EXPECT_LT(heapInUse(), before + 64 * 1024) << "round " << round;
  }
}

TEST_F(SoapArenaTest, ArraysAndContextsWithoutAnArenaUseTheHeap) {
  std::string* strings = soap_new_std__string(soap, 3);
  ASSERT_NE(nullptr, strings);
  EXPECT_FALSE(arena.holds(strings));

  struct soap* plain = soap_new();
  EXPECT_EQ(nullptr, Vim25::arenaOf(plain));
  auto* ref = soap_new_ns2__ManagedObjectReference(plain);
  EXPECT_FALSE(arena.holds(ref));
  soap_delete(plain, nullptr);
  soap_end(plain);
  soap_free(plain);
}

// Large blocks go back at a rewind; the first block is used again.
TEST_F(SoapArenaTest, RewindKeepsOnlyTheFirstBlock) {
  void* first = arena.allocate(64);
  void* late = nullptr;
  for (int i = 0; i < 100000; ++i) late = arena.allocate(100);
  void* huge = arena.allocate(9 * 1024 * 1024);
  ASSERT_NE(nullptr, huge);
  static_cast<char*>(huge)[9 * 1024 * 1024 - 1] = 1;
  EXPECT_TRUE(arena.holds(late));
  arena.rewind();
  EXPECT_FALSE(arena.holds(late));
  EXPECT_FALSE(arena.holds(huge));
  EXPECT_EQ(first, arena.allocate(64));
}

}  // namespace
