// Entities used by the kernel's own tests: a small tree declared with the entity facility.
#pragma once

#include "kernel/EntityDecl.h"

namespace KivTest {

enum class Colour : uint8_t { red, green, blue };

#define KIVTEST_LEAF_ATTRS(X)            \
  X(scalar, weight, Weight, uint32_t, 0) \
  X(counter, hits, Hits, uint32_t)       \
  X(values, tag, Tag, Kiv::Name, bool, false)

class Leaf : public Kiv::KeyedEntity<uint32_t> {
  KIV_ENTITY_KEYED(Leaf, uint32_t, id, KIVTEST_LEAF_ATTRS)
};

// Five scalars and two collections.
#define KIVTEST_NODE_ATTRS(X)                            \
  X(scalar, count, Count, uint32_t, 0)                   \
  X(scalar, label, Label, Kiv::String, "")               \
  X(scalar, expire, Expire, Kiv::Seconds, Kiv::infinity) \
  X(scalar, colour, Colour, Colour, Colour::red)         \
  X(counter, rx, Rx, uint64_t)                           \
  X(child, best, Best, Leaf)                             \
  X(entities, leaf, Leaf, uint32_t, Leaf)                \
  X(ordered, seen, Seen, uint32_t, Kiv::Seconds, 0.0)

class Node : public Kiv::NamedEntity {
  KIV_ENTITY_NAMED(Node, KIVTEST_NODE_ATTRS)
};

}  // namespace KivTest
