// Hand-built vim25 change records for the tests of the update handlers:
// plain objects that the fixture owns, shaped as a reply would leave them.
#pragma once
#include <gtest/gtest.h>

#include <deque>
#include <memory>
#include <utility>
#include <string>
#include <vector>

#include "inventory/VI.h"
#include "session/updates/UpdateHandlers.h"

class UpdateRecords : public ::testing::Test {
 protected:
  template <class T>
  T* make() {
    records_.emplace_back(new T());
    return static_cast<T*>(records_.back().get());
  }
  std::string* text(const std::string& s) { return &texts_.emplace_back(s); }
  xsd__string* str(const std::string& s) {
    auto* v = make<xsd__string>();
    v->__item = s;
    return v;
  }
  ns2__ManagedObjectReference* ref(const std::string& value, const std::string& type = "HostSystem") {
    auto* v = make<ns2__ManagedObjectReference>();
    v->__item = value;
    v->type = text(type);
    return v;
  }
  ns2__PropertyChange* change(const std::string& name, xsd__anyType* val) {
    auto* c = make<ns2__PropertyChange>();
    c->name = name;
    c->val = val;
    return c;
  }
  ns2__ObjectUpdate* update(ns2__ObjectUpdateKind kind, const std::string& type, const std::string& key,
                            std::vector<ns2__PropertyChange*> changes = {}) {
    auto* u = make<ns2__ObjectUpdate>();
    u->kind = kind;
    u->obj = ref(key, type);
    u->changeSet = std::move(changes);
    return u;
  }

  static constexpr ns2__ObjectUpdateKind modify = ns2__ObjectUpdateKind__modify;
  static constexpr ns2__ObjectUpdateKind enter = ns2__ObjectUpdateKind__enter;
  static constexpr ns2__ObjectUpdateKind leave = ns2__ObjectUpdateKind__leave;
  Harbec::VI::Ptr vi = Harbec::vIFactory("vi");

 private:
  std::vector<std::unique_ptr<xsd__anyType>> records_;
  std::deque<std::string> texts_;
};
