// Entities: notifying setters, and a listener that throws.
#include <gtest/gtest.h>

#include <functional>
#include <stdexcept>
#include <string>
#include <vector>

#include "Kel/Record.h"

namespace KelTest {

#define KELTEST_NODE_ATTRIBUTES(SCALAR, CTOR, VALUES, ENTITIES, QUEUE) \
  SCALAR(count, Count, unsigned, 0)                                    \
  SCALAR(label, Label, Kel::String8, Kel::String8())                   \
  VALUES(tag, Tag, Kel::String8, Kel::String8, Kel::HashMap)

class Node : public Kel::Entity {
  KEL_RECORD(KelTest, Node, Kel::Entity, KELTEST_NODE_ATTRIBUTES)
 protected:
  explicit Node(const Kel::Name& n) : Kel::Entity(n) {}
};
KEL_FACTORY(Node, nodeFactory)

using Journal = std::vector<std::string>;

// Writes "<name> <event>" into a shared journal; the hook runs after the entry.
class Listener : public Node::Notifiee {
 public:
  Listener(std::string name, Journal* journal) : name_(std::move(name)), journal_(journal) {}
  std::function<void()> countHook;

  void onCount() override { note("count"); if (countHook) countHook(); }
  void onLabel() override { note("label"); }
  void onTag(const Kel::String8& k) override { note("tag " + k.str()); }
  void onIsNondestructing() override { note("nondestructing"); }
  void onNotificationException(Kel::AttributeId id) override {
    note("exception " + std::to_string(id));
  }

 private:
  void note(const std::string& s) { journal_->push_back(name_ + " " + s); }
  std::string name_;
  Journal* journal_;
};

TEST(EntityNotification, WritingThePresentValueTellsNobody) {
  Journal j;
  auto n = nodeFactory("n");
  Listener l("a", &j);
  l.notifierIs(n);
  n->countIs(0);
  n->labelIs("");
  n->countIs(7);
  n->countIs(7);
  n->labelIs("abc");
  const char* stored = n->label().charPtr();
  n->labelIs(Kel::String8(std::string("ab") + "c"));  // equal content, another buffer
  EXPECT_EQ(n->label().charPtr(), stored);
  n->tagIs("k", "v");
  n->tagIs("k", Kel::String8(std::string("v")));
  n->isNondestructingIs(true);
  n->isNondestructingIs(true);
  n->isNondestructingIs(false);
  EXPECT_EQ(j, (Journal{"a count", "a label", "a tag k", "a nondestructing", "a nondestructing"}));
}

TEST(EntityNotification, ThrowingListenerIsToldAloneAndTheWalkGoesOn) {
  Journal j;
  auto n = nodeFactory("n");
  Listener a("a", &j), b("b", &j);
  a.notifierIs(n);
  b.notifierIs(n);
  unsigned expectedInside = 99;
  a.countHook = [] { throw std::runtime_error("listener fault"); };
  b.countHook = [&] { expectedInside = Kel::Expect::current(); };
  Kel::Expect outer(Kel::Exception::rangeId);
  EXPECT_NO_THROW(n->countIs(3));
  EXPECT_EQ(j, (Journal{"a count", "a exception 258", "b count"}));
  EXPECT_EQ(expectedInside, 0u);
  EXPECT_EQ(Kel::Expect::current(), unsigned(Kel::Exception::rangeId));
}

}  // namespace KelTest
