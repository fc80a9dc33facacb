// The hook through which a tree of entities tells one observer of its every change: the state
// database replicating a mounted tree. Entities of a tracked tree carry a flag that makes their
// setters call out; any other entity pays one test of a byte it has already loaded.
#pragma once

#include <cstdint>

#include "kernel/Entity.h"

namespace Kiv {

class ChangeSink {
 public:
  virtual ~ChangeSink() = default;
  // Attribute id of e changed: the element *key of a collection, or (key null) a scalar, a pointer
  // child or a collection as a whole. Called before any reactor hears of it.
  virtual void onChange(Entity& e, uint16_t id, const void* key) = 0;
  // e has just been linked under a tracked parent; it and everything beneath it are tracked now.
  virtual void onAttach(Entity& e) = 0;
  // e is about to leave its parent: it and its subtree still hang in the tree.
  virtual void onDetach(Entity& e) = 0;
};

// Starts tracking the tree under root for sink, or (sink null) stops it.
void changeSinkIs(Entity& root, ChangeSink* sink);
// The sink of the tracked tree that e hangs in, or null.
ChangeSink* changeSinkOf(const Entity& e);

// Calls fn(entity) on e and every entity beneath it, parents before their children, through the
// reflection table.
template <class Fn>
void forEachEntity(const Entity& e, Fn&& fn) {
  fn(e);
  for (const AttrInfo& a : e.typeInfo().attrs) {
    if (a.kind != AttrKind::child && a.kind != AttrKind::entities) continue;
    a.forEach(e, &fn, [](void* ctx, const std::string&, const std::string&, const Entity* child) {
      forEachEntity(*child, *static_cast<std::remove_reference_t<Fn>*>(ctx));
    });
  }
}

}  // namespace Kiv
