// Counted objects and shared strings: the reference word, non-destructing
// objects, never-null pointers, and sharing across threads.
#include <gtest/gtest.h>

#include <string>
#include <thread>
#include <vector>

#include "Kel/Ptr.h"
#include "Kel/String8.h"

namespace {

// Counts its destructions.
class Probe : public Kel::VFPtrInterface {
 public:
  explicit Probe(int* deaths) : deaths_(deaths) {}
  ~Probe() override { ++*deaths_; }
  int value = 0;
 private:
  int* deaths_;
};

class BigProbe : public Probe {  // beyond the pool's size classes
 public:
  using Probe::Probe;
  char payload[700] = {};
};

using ProbePtr = Kel::Ptr<Probe>;

TEST(PtrWord, CountAndFlagsHaveTheirBits) {
  int deaths = 0;
  ProbePtr p = ProbePtr::adopt(new Probe(&deaths));
  EXPECT_EQ(p->word(), 1u);
  {
    ProbePtr q = p, r = q;
    Kel::Ptr<const Probe> c = p;
    EXPECT_EQ(p->references(), 4u);
    ProbePtr moved = std::move(q);
    EXPECT_EQ(p->references(), 4u);
  }
  EXPECT_EQ(p->word(), 1u);
  p->hasNotificationActiveIs(true);
  EXPECT_EQ(p->word(), (1u << 29) | 1u);
  EXPECT_TRUE(p->hasNotificationActive());
  p->kelDoZombieReactors(true);
  EXPECT_EQ(p->word(), (1u << 31) | (1u << 29) | 1u);
  EXPECT_TRUE(p->kelMarkedForDeletion());
  p->hasNotificationActiveIs(false);
  p->kelDoZombieReactors(false);
  EXPECT_EQ(p->word(), 1u);
  ProbePtr& same = p;
  p = same;  // self-assignment keeps the object
  EXPECT_EQ(deaths, 0);
  p = nullptr;
  EXPECT_EQ(deaths, 1);
}

TEST(PtrWord, NondestructingSurvivesAnyDropAndRoundTrips) {
  int deaths = 0;
  ProbePtr p = ProbePtr::adopt(new Probe(&deaths));
  ProbePtr second = p;
  p->hasNotificationActiveIs(true);
  p->isNondestructingIs(true);
  EXPECT_TRUE(p->isNondestructing());
  EXPECT_EQ(p->word() >> 24, 0x1fu);
  const uint32_t frozen = p->word();
  for (int i = 0; i < 1000; ++i) ProbePtr(p.ptr());
  for (int i = 0; i < 5; ++i) p->deleteRef();  // more drops than takes
  EXPECT_EQ(p->word(), frozen);
  EXPECT_EQ(deaths, 0);
  // The flags stay readable and settable while non-destructing.
  EXPECT_TRUE(p->hasNotificationActive());
  p->hasNotificationActiveIs(false);
  EXPECT_TRUE(p->isNondestructing());
  EXPECT_FALSE(p->hasNotificationActive());
  p->hasNotificationActiveIs(true);
  EXPECT_TRUE(p->isNondestructing());

  p->isNondestructingIs(false);
  EXPECT_FALSE(p->isNondestructing());
  EXPECT_EQ(p->word(), (1u << 29) | 2u);  // count and flag as they were
  second = nullptr;
  p = nullptr;
  EXPECT_EQ(deaths, 1);
}

TEST(PtrNull, DereferenceRaisesNullValidPtr) {
  ProbePtr p;
  EXPECT_FALSE(p);
  EXPECT_TRUE(p == nullptr);
  for (auto f : {+[](const ProbePtr& q) { (void)q->value; }, +[](const ProbePtr& q) { (void)(*q).value; },
                 +[](const ProbePtr& q) { Kel::validPtr(q); }}) {
    try {
      f(p);
      ADD_FAILURE() << "no exception";
    } catch (const Kel::RangeException& e) {
      EXPECT_STREQ(e.what(), "null ValidPtr");
    }
  }
}

TEST(PtrThreads, CountsAndStringsAreSharedSafely) {
  int deaths = 0;
  ProbePtr p = ProbePtr::adopt(new Probe(&deaths));
  Kel::String8 s = Kel::format("shared-%d", 42);
  std::vector<std::thread> threads;
  for (int t = 0; t < 4; ++t) {
    threads.emplace_back([p, s] {
      int local = 0;
      for (int i = 0; i < 20000; ++i) {
        ProbePtr q = p;
        Kel::String8 c = s;
        ProbePtr small = ProbePtr::adopt(new Probe(&local));  // pooled
        ProbePtr big = ProbePtr::adopt(new BigProbe(&local));  // heap
        if (c.length() != 9) std::abort();
      }
      if (local != 40000) std::abort();
    });
  }
  for (auto& t : threads) t.join();
  EXPECT_EQ(p->references(), 1u);
  EXPECT_EQ(deaths, 0);
}

TEST(String8, ContentOrderAndComposition) {
  Kel::String8 a = "vm-12", b = std::string("vm-") + "12", empty;
  EXPECT_EQ(a, b);
  EXPECT_EQ(a.hash(), b.hash());
  EXPECT_EQ(empty, "");
  EXPECT_EQ(empty.hash(), Kel::String8("x", 0).hash());
  EXPECT_NE(Kel::String8(std::string("a\0b", 3)), Kel::String8(std::string("a\0c", 3)));
  EXPECT_TRUE(empty < a && Kel::String8("ab") < Kel::String8("abc") && !(a < b));
  Kel::String8 c = a;
  c += "/";
  c += Kel::String8("x");
  EXPECT_EQ(c, "vm-12/x");
  EXPECT_EQ(a, "vm-12");  // the shared buffer is untouched
  EXPECT_EQ(std::string(a.begin(), a.end()), "vm-12");
  Kel::String8 longer = Kel::format("%s-%0300d", "x", 7);  // beyond the stack buffer
  EXPECT_EQ(longer.length(), 302u);
  EXPECT_EQ(longer.charPtr()[301], '7');
}

}  // namespace
