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

#define KELTEST_SUB_SUB_NODE_ATTRIBUTES(SCALAR, CTOR, VALUES, ENTITIES, QUEUE) \
  SCALAR(grain, Grain, unsigned, 0)

class SubSubNode : public SubNode {
  KEL_RECORD(KelTest, SubSubNode, SubNode, KELTEST_SUB_SUB_NODE_ATTRIBUTES)
 protected:
  explicit SubSubNode(const Kel::Name& n) : SubNode(n) {}
};
KEL_FACTORY(SubSubNode, subSubNodeFactory)

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

struct LeafListener : Leaf::Notifiee {
  Journal heard;
  void onWeight() override { heard.push_back("weight"); }
  void onParent() override { heard.push_back("parent"); }
};

struct NodeOnlyListener : Node::Notifiee {  // knows Node's attributes only
  int counts = 0;
  void onCount() override { ++counts; }
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

TEST(EntityKeyed, ValuesNotifyWithTheirKey) {
  Journal j;
  auto n = subNodeFactory("n");
  Listener l("l", &j);
  l.notifierIs(n);
  n->tagIs("x", "1");
  n->newTag("y", "2");
  n->tagDel("missing");
  EXPECT_EQ(n->tag("missing"), "");
  EXPECT_EQ(n->tag("y"), "2");
  // Deleting by the key held in the entry itself.
  for (auto i = n->tagIterator(); i; ++i) n->tagDel(i.key());
  EXPECT_EQ(n->tags(), 0u);
  std::sort(j.begin(), j.end());
  EXPECT_EQ(j, (Journal{"l tag x", "l tag x", "l tag y", "l tag y"}));
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

TEST(EntityKeyed, DeletedChildLosesItsParentAndKeepsWorking) {
  Journal j;
  auto n = subNodeFactory("root");
  Listener l("l", &j);
  l.notifierIs(n);
  Leaf::Ptr a = n->childIs("a");
  LeafListener al;
  al.notifierIs(a);
  bool presentWhenTold = true;
  l.childHook = [&](const Kel::Name& k) { presentWhenTold = bool(n->child(k)); };
  EXPECT_EQ(n->childDel("a"), a);
  EXPECT_FALSE(presentWhenTold);
  EXPECT_EQ(a->parent(), nullptr);
  EXPECT_FALSE(n->childDel("a"));
  a->weightIs(4);
  EXPECT_EQ(al.heard, (Journal{"parent", "weight"}));
  EXPECT_EQ(j, (Journal{"l child a", "l child a"}));

  // Replacing a child under the same key orphans the old one.
  Leaf::Ptr b = n->newChild("b");
  Leaf::Ptr b2 = n->newChild("b");
  EXPECT_NE(b, b2);
  EXPECT_EQ(b->parent(), nullptr);
  EXPECT_EQ(b2->parent(), n.ptr());

  // Deleting by the key held in the entry itself, over a walk.
  for (const char* k : {"c", "d", "e"}) n->childIs(k);
  j.clear();
  for (auto i = n->childIterator(); i; ++i) n->childDel(i.key());
  EXPECT_EQ(n->childs(), 0u);
  std::sort(j.begin(), j.end());
  EXPECT_EQ(j, (Journal{"l child b", "l child c", "l child d", "l child e"}));
}

TEST(EntityKeyed, ChildOutlivingItsParentHasNoParent) {
  Leaf::Ptr a;
  {
    auto n = subNodeFactory("root");
    a = n->childIs("a");
  }
  EXPECT_EQ(a->parent(), nullptr);
  EXPECT_EQ(a->fullName(), "a");
  EXPECT_EQ(a->parentAttr(), "");
}

TEST(EntityAttributeIds, ListenerOfABaseHearsOnlyTheBaseAttributes) {
  Journal j;
  auto s = subSubNodeFactory("s");
  NodeOnlyListener base;
  base.notifierIs(s);
  Listener full("f", &j);
  full.notifierIs(s);
  s->depthIs(1);  // not a Node attribute: the base listener must be skipped
  s->countIs(1);
  s->grainIs(1);
  EXPECT_EQ(base.counts, 1);
  EXPECT_EQ(j, (Journal{"f depth", "f count"}));
}

TEST(EntityListener, LifetimeAndCopies) {
  Journal j;
  auto x = subNodeFactory("x");
  auto y = subNodeFactory("y");
  {
    Listener a("a", &j);
    a.notifierIs(x);
    EXPECT_EQ(x->notifiees(), 1u);
    EXPECT_EQ(a.notifier(), x);
  }
  EXPECT_EQ(x->notifiees(), 0u);  // a destroyed listener has left the list
  x->countIs(1);

  Listener a("a", &j);
  a.notifierIs(x);
  {
    Listener copy(a);  // a copy listens to the same entity
    EXPECT_EQ(x->notifiees(), 2u);
    Listener b("b", &j);
    b.notifierIs(y);
    b = a;  // b leaves y for x
    EXPECT_EQ(y->notifiees(), 0u);
    EXPECT_EQ(x->notifiees(), 3u);
  }
  EXPECT_EQ(x->notifiees(), 1u);
  j.clear();
  y->countIs(5);
  x->countIs(5);
  EXPECT_EQ(j, (Journal{"a count"}));

  // A listener keeps its entity alive.
  Kel::Entity* raw = x.ptr();
  x = nullptr;
  EXPECT_EQ(a.notifier().ptr(), raw);
  a.notifier()->countIs(6);
  EXPECT_EQ(j.back(), "a count");

  // Registered first as a plain entity listener, then as a record listener.
  auto z = subNodeFactory("z");
  Listener c("c", &j);
  static_cast<Kel::Entity::NotifieeConst&>(c).notifierIs(z);
  c.notifierIs(z);
  j.clear();
  z->depthIs(2);
  EXPECT_EQ(j, (Journal{"c depth"}));
}

}  // namespace KelTest
