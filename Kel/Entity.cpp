#include "Kel/Entity.h"

#include <string>
#include <vector>

#include "Kel/Strep.h"

namespace Kel {

Entity::KelWalk** Entity::KelWalk::activeWalk() {
  static thread_local KelWalk* head = nullptr;
  return &head;
}

void Entity::KelWalk::forget(const NotifieeConst* n) {
  for (KelWalk* w = *activeWalk(); w; w = w->outer_)
    for (size_t i = 0; i < w->size_; ++i)
      if (w->items_[i] == n) w->items_[i] = nullptr;
}

Entity::NotifieeConst::~NotifieeConst() {
  KelWalk::forget(this);
  if (notifier_) notifier_->notifiees_.remove(this);
}

void Entity::NotifieeConst::kelNotifierIs(const Entity* n, unsigned depth) {
  if (notifier_.ptr() == n) {
    // Registered again through a more derived class: it hears more.
    if (depth > kelDepth_) kelDepth_ = depth;
    return;
  }
  if (notifier_) notifier_->notifiees_.remove(this);
  notifier_ = Kel::Ptr<const Entity>(n);
  kelDepth_ = depth;
  if (n) n->notifiees_.push_back(this);
}

Entity::~Entity() { kelMarkedForDeletionIs(true); }

void Entity::parentIs(Entity* p) {
  if (parent_ == p) return;
  parent_ = p;
  kelNotify<NotifieeConst>(fwkKeyAttrId, kelDepth, [](NotifieeConst* n) { n->onParent(); });
}

String8 Entity::fullName() const {
  std::vector<const Entity*> chain;
  for (const Entity* e = this; e; e = e->parent_) chain.push_back(e);
  std::string out;
  for (auto i = chain.rbegin(); i != chain.rend(); ++i) {
    if (!out.empty()) out += "/";
    out += (*i)->name_.str();
  }
  return String8(out);
}

String8 Entity::uriPath() const {
  std::vector<const Entity*> chain;
  for (const Entity* e = this; e; e = e->parent_) chain.push_back(e);
  std::string out;
  for (auto i = chain.rbegin(); i != chain.rend(); ++i) {
    const Entity* e = *i;
    if (e->parent_) out += "/" + e->parentAttr().str();
    out += "/" + e->name_.str();
  }
  return String8(out);
}

String8 Entity::attributeString(AttributeId id) const {
  switch (id) {
    case zeroReferencesAttrId: return "zeroReferences";
    case isNondestructingAttrId: return "isNondestructing";
    case fwkKeyAttrId: return "fwkKey";
    default: return "unknown";
  }
}

void Entity::isNondestructingIs(bool b) {
  if (b == isNondestructing()) return;
  VFPtrInterface::isNondestructingIs(b);
  kelNotify<NotifieeConst>(isNondestructingAttrId, kelDepth,
                           [](NotifieeConst* n) { n->onIsNondestructing(); });
}

void Entity::zeroReferencesIs(bool b) {
  if (!b) return;
  kelNotify<NotifieeConst>(zeroReferencesAttrId, kelDepth,
                           [](NotifieeConst* n) { n->onZeroReferences(); });
}

void Entity::kelReinstantiationRefused(const char* attr, unsigned long long newValue,
                                       unsigned long long current) const {
  throwNameInUseException(String8("Reinstantiating the entity with name ") +
                          valueToStrep(String8(name_)) +
                          " where constructor parameter attribute " + attr +
                          " has a different value of " + valueToStrep(newValue) +
                          " than the current value of " + valueToStrep(current) +
                          " not allowed");
}

}  // namespace Kel
