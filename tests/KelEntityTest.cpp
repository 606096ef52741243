// Entities: notifying setters, keyed children, attribute ids and the
// lifetime of listeners.
#include <gtest/gtest.h>

#include <algorithm>
#include <functional>
#include <memory>
#include <stdexcept>
#include <string>
#include <vector>

#include "Kel/Record.h"

namespace KelTest {

#define KELTEST_LEAF_ATTRIBUTES(SCALAR, CTOR, VALUES, ENTITIES, QUEUE) \
  SCALAR(weight, Weight, unsigned, 0)

class Leaf : public Kel::Entity {
  KEL_RECORD(KelTest, Leaf, Kel::Entity, KELTEST_LEAF_ATTRIBUTES)
 protected:
  explicit Leaf(const Kel::Name& n) : Kel::Entity(n) {}
};

#define KELTEST_NODE_ATTRIBUTES(SCALAR, CTOR, VALUES, ENTITIES, QUEUE) \
  SCALAR(count, Count, unsigned, 0)                                    \
  SCALAR(label, Label, Kel::String8, Kel::String8())                   \
  VALUES(tag, Tag, Kel::String8, Kel::String8, Kel::HashMap)           \
  ENTITIES(child, Child, Leaf)

class Node : public Kel::Entity {
  KEL_RECORD(KelTest, Node, Kel::Entity, KELTEST_NODE_ATTRIBUTES)
 protected:
  explicit Node(const Kel::Name& n) : Kel::Entity(n) {}
};
KEL_FACTORY(Node, nodeFactory)

#define KELTEST_SUB_NODE_ATTRIBUTES(SCALAR, CTOR, VALUES, ENTITIES, QUEUE) \
  SCALAR(depth, Depth, unsigned, 0)                                        \
  SCALAR(shade, Shade, unsigned, 0)

class SubNode : public Node {
  KEL_RECORD(KelTest, SubNode, Node, KELTEST_SUB_NODE_ATTRIBUTES)
 protected:
  explicit SubNode(const Kel::Name& n) : Node(n) {}
};
KEL_FACTORY(SubNode, subNodeFactory)

using Journal = std::vector<std::string>;

// Writes "<name> <event>" into a shared journal; hooks run after the entry.
class Listener : public SubNode::Notifiee {
 public:
  Listener(std::string name, Journal* journal) : name_(std::move(name)), journal_(journal) {}
  std::function<void()> countHook;
  std::function<void(const Kel::Name&)> childHook;

  void onCount() override { note("count"); if (countHook) countHook(); }
  void onLabel() override { note("label"); }
  void onTag(const Kel::String8& k) override { note("tag " + k.str()); }
  void onChild(const Kel::Name& k) override { note("child " + k.str()); if (childHook) childHook(k); }
  void onDepth() override { note("depth"); }
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
  auto n = subNodeFactory("n");
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

TEST(EntityNotification, ListenersComingAndGoingMidWalk) {
  Journal j;
  auto n = subNodeFactory("n");
  Listener a("a", &j), b("b", &j), c("c", &j), d("d", &j);
  a.notifierIs(n);
  b.notifierIs(n);
  c.notifierIs(n);
  a.countHook = [&] {
    a.notifierIs(nullptr);  // leaves
    b.notifierIs(nullptr);  // sends another away
    d.notifierIs(n);        // brings a new one
  };
  n->countIs(1);
  EXPECT_EQ(j, (Journal{"a count", "b count", "c count"}));
  j.clear();
  n->countIs(2);
  EXPECT_EQ(j, (Journal{"c count", "d count"}));

  // One destroyed during the walk is not called.
  auto e = std::make_unique<Listener>("e", &j);
  e->notifierIs(n);
  d.countHook = [&] { e.reset(); };
  j.clear();
  n->countIs(3);
  EXPECT_EQ(j, (Journal{"c count", "d count"}));
  EXPECT_EQ(n->notifiees(), 2u);
}

TEST(EntityNotification, ThrowingListenerIsToldAloneAndTheWalkGoesOn) {
  Journal j;
  auto n = subNodeFactory("n");
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

TEST(EntityKeyed, NewChildIsParentedBeforeListenersHear) {
  Journal j;
  auto n = subNodeFactory("root");
  Listener l("l", &j);
  l.notifierIs(n);
  l.childHook = [&](const Kel::Name& k) {
    Leaf::Ptr c = n->child(k);
    ASSERT_TRUE(c);
    EXPECT_EQ(c->parent(), n.ptr());
    EXPECT_EQ(c->parentAttrId(), Node::childAttrId);
  };
  Leaf::Ptr a = n->childIs("a");
  EXPECT_EQ(a->parentAttr(), "child");
  EXPECT_EQ(a->fullName(), "root/a");
  EXPECT_EQ(a->uriPath(), "/root/child/a");
  EXPECT_EQ(n->childIs("a"), a);  // existing entity, nobody told
  EXPECT_EQ(j, (Journal{"l child a"}));
}

}  // namespace KelTest
