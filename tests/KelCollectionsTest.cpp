// Collections: growth and shrink, iterators that survive the deletion of the
// element under them, the sorted map, and the running index of queues.
#include <gtest/gtest.h>

#include <map>
#include <memory>
#include <set>
#include <string>
#include <vector>

#include "Kel/Record.h"

namespace KelTest {

using NameMap = Kel::HashMap<unsigned, Kel::Name>;

Kel::Name key(unsigned i) { return Kel::format("vm-%u", i); }

void fill(NameMap& m, unsigned from, unsigned to) {
  for (unsigned i = from; i < to; ++i) m.set(key(i), i);
}

std::vector<std::string> order(const NameMap& m) {
  std::vector<std::string> out;
  for (auto i = m.iteratorConst(); i; ++i) out.push_back(i.key().str());
  return out;
}

TEST(HashMap, GrowsAndShrinksWithAHundredThousandKeys) {
  NameMap m;
  fill(m, 0, 100000);
  EXPECT_EQ(m.size(), 100000u);
  EXPECT_GE(m.bucketCount(), m.size());
  EXPECT_EQ(m.bucketCount() & (m.bucketCount() - 1), 0u);
  for (unsigned i = 0; i < 100000; ++i) ASSERT_EQ(*m.find(key(i)), i);
  EXPECT_FALSE(m.insert(key(7), 99).second);
  EXPECT_EQ(m.find(key(100000)), nullptr);
  unsigned out = 0;
  EXPECT_TRUE(m.erase(key(7), &out));
  EXPECT_EQ(out, 7u);
  for (unsigned i = 0; i < 100000; ++i) m.erase(key(i));
  EXPECT_TRUE(m.empty());
  EXPECT_LE(m.bucketCount(), 16u);
}

TEST(HashMap, DeletingEveryElementDuringAWalkVisitsEachOnce) {
  NameMap m;
  fill(m, 0, 5000);
  std::multiset<std::string> seen;
  for (auto i = m.iterator(); i; ++i) {
    seen.insert(i.key().str());
    m.erase(i.key());
  }
  EXPECT_TRUE(m.empty());
  EXPECT_EQ(seen.size(), 5000u);
  EXPECT_EQ(std::set<std::string>(seen.begin(), seen.end()).size(), 5000u);
}

TEST(HashMap, DeletionUnderTheIteratorLeavesABookmark) {
  NameMap m;
  fill(m, 0, 40);
  const std::vector<std::string> all = order(m);
  auto i = m.iterator();
  for (int step = 0; step < 5; ++step) ++i;
  auto twin = i;  // a second iterator on the same element
  m.erase(i.key());
  EXPECT_TRUE(i.hasBookmark());
  EXPECT_EQ(i.key().str(), all[6]);
  EXPECT_EQ(*i, *m.find(i.key()));
  m.erase(Kel::Name(all[6]));  // the successor goes too: the bookmark moves on
  EXPECT_EQ(i.key().str(), all[7]);
  m.erase(Kel::Name(all[9]));  // one ahead of the walk
  std::vector<std::string> rest;
  for (++i; i; ++i) rest.push_back(i.key().str());
  std::vector<std::string> expected(all.begin() + 7, all.end());
  expected.erase(expected.begin() + 2);
  EXPECT_EQ(rest, expected);
  EXPECT_EQ(twin.key().str(), all[7]);
  EXPECT_TRUE(twin.hasBookmark());
}

TEST(HashMap, WalkAcrossGrowthAndShrinkSeesEverySurvivorOnce) {
  NameMap m;
  fill(m, 0, 64);
  std::multiset<unsigned> seen;
  unsigned next = 1000;
  for (auto i = m.iterator(); i; ++i) {
    seen.insert(*i);
    for (int k = 0; k < 300 && next < 1000 + 20000; ++k) m.set(key(next), next), ++next;
  }
  for (unsigned v = 0; v < 64; ++v) EXPECT_EQ(seen.count(v), 1u) << v;
  for (unsigned v : seen) EXPECT_EQ(seen.count(v), 1u) << v;

  m.clear();
  fill(m, 0, 8192);
  seen.clear();
  unsigned victim = 8191;
  for (auto i = m.iterator(); i; ++i) {
    seen.insert(*i);
    for (int k = 0; k < 40 && victim >= 1024; ++k, --victim)
      if (victim != *i) m.erase(key(victim));
  }
  EXPECT_LT(m.bucketCount(), 8192u);
  for (unsigned v = 0; v < 1024; ++v) EXPECT_EQ(seen.count(v), 1u) << v;
  for (unsigned v : seen) EXPECT_EQ(seen.count(v), 1u) << v;
}

TEST(HashMap, ClearAndDestructionUnderLiveIterators) {
  NameMap m;
  fill(m, 0, 1000);
  auto a = m.iterator();
  auto b = m.iteratorConst();
  ++b;
  m.erase(b.key());
  m.clear();
  EXPECT_TRUE(m.empty());
  EXPECT_FALSE(a);
  EXPECT_FALSE(b);
  ++a;
  ++b;
  EXPECT_FALSE(a);
  fill(m, 0, 3);
  EXPECT_EQ(order(m).size(), 3u);
  EXPECT_FALSE(a);

  auto outlived = std::make_unique<NameMap>();
  fill(*outlived, 0, 10);
  NameMap::Iterator late = outlived->iterator();
  outlived.reset();
  EXPECT_FALSE(late);
  ++late;
}

TEST(RbTreeMap, AscendingWalkSurvivesDeletion) {
  Kel::RbTreeMap<unsigned, Kel::String8> m;
  for (const char* k : {"d", "b", "e", "a", "c"}) m.set(k, unsigned(k[0]));
  auto i = m.iteratorConst();
  ++i;
  EXPECT_EQ(i.key(), "b");
  m.erase("b");
  EXPECT_TRUE(i.hasBookmark());
  EXPECT_EQ(i.key(), "c");
  EXPECT_EQ(i.value(), unsigned('c'));
  std::string rest;
  for (++i; i; ++i) {
    rest += i.key().charPtr();
    m.erase(i.key());
  }
  EXPECT_EQ(rest, "cde");
  EXPECT_EQ(m.size(), 1u);
  auto j = m.iteratorConst();
  m.clear();
  EXPECT_FALSE(j);
}

#define KELTEST_DESK_ATTRIBUTES(SCALAR, CTOR, VALUES, ENTITIES, QUEUE) \
  QUEUE(job, Job, unsigned)

class Desk : public Kel::Entity {
  KEL_RECORD(KelTest, Desk, Kel::Entity, KELTEST_DESK_ATTRIBUTES)
 protected:
  explicit Desk(const Kel::Name& n) : Kel::Entity(n) {}
};
KEL_FACTORY(Desk, deskFactory)

class DeskListener : public Desk::Notifiee {
 public:
  std::vector<unsigned> heard;
  void onJob(unsigned i) override { heard.push_back(i); }
};

TEST(LinkQueue, IndexRuleAndOrder) {
  Kel::LinkQueue<unsigned> q;
  EXPECT_EQ(q.enq(10), 0u);
  EXPECT_EQ(q.enq(11), 1u);
  EXPECT_EQ(q.enq(12), 2u);
  EXPECT_EQ(q.deq(), 10u);
  EXPECT_EQ(q.metadata().head, 1u);
  q.deq();
  q.deq();
  EXPECT_EQ(q.deq(), 0u);  // empty
  EXPECT_EQ(q.metadata().head, 3u);
  EXPECT_EQ(q.enq(13), 3u);  // not reset when the queue ran empty
  q.set(10, 20);
  EXPECT_EQ(q.enq(21), 11u);  // tail + 1 beats the saved next index
  q.metadataIs({q.metadata().head, 30});
  EXPECT_EQ(q.enq(22), 30u);  // the saved next index beats tail + 1
  q.erase(3);
  EXPECT_EQ(q.metadata().head, 10u);

  auto i = q.iteratorConst();
  EXPECT_EQ(i.index(), 10u);
  q.erase(10);
  EXPECT_EQ(i.index(), 11u);
  EXPECT_EQ(*i, 21u);
  std::vector<unsigned> rest;
  for (++i; i; ++i) rest.push_back(i.index());
  EXPECT_EQ(rest, (std::vector<unsigned>{11, 30}));
}

TEST(LinkQueue, RecordQueueTellsTheIndexItTouched) {
  auto d = deskFactory("d");
  DeskListener l;
  l.notifierIs(d);
  EXPECT_EQ(d->jobEnq(5), 0u);
  EXPECT_EQ(d->jobEnq(6), 1u);
  EXPECT_EQ(d->jobEnq(7), 2u);
  d->jobDel(0);
  EXPECT_EQ(d->jobDeq(), 6u);
  d->jobIs(2, 7);  // present value
  d->jobIs(9, 8);
  EXPECT_EQ(d->jobEnq(9), 10u);
  d->jobDelAll();
  EXPECT_EQ(d->jobs(), 0u);
  EXPECT_EQ(d->jobDeq(), 0u);
  EXPECT_EQ(l.heard, (std::vector<unsigned>{0, 1, 2, 0, 1, 9, 10, 2, 9, 10}));
  EXPECT_EQ(d->jobMetadata().head, 11u);
  EXPECT_EQ(d->jobEnq(1), 11u);
}

}  // namespace KelTest
