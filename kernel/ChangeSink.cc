// Tracked trees: the registry of their sinks, and the calls that an entity's setters and links make
// once it is tracked.
#include "kernel/ChangeSink.h"

#include <algorithm>
#include <utility>
#include <vector>

namespace Kiv {

namespace {

// Few trees are tracked (one per mount), so a list beats a map.
std::vector<std::pair<const Entity*, ChangeSink*>>& sinks() {
  static std::vector<std::pair<const Entity*, ChangeSink*>> all;
  return all;
}

void trackTree(const Entity& root, bool on) {
  forEachEntity(root, [on](const Entity& e) {
    e.kivTrackIs(on ? uint8_t(e.kivTrack() | Entity::trackOn) : uint8_t(e.kivTrack() & Entity::trackRoot));
  });
}

}  // namespace

ChangeSink* changeSinkOf(const Entity& e) {
  for (const Entity* x = &e; x; x = x->parent()) {
    const uint8_t t = x->kivTrack();
    if (!(t & Entity::trackOn)) return nullptr;
    if (t & Entity::trackRoot) {
      for (auto& [root, sink] : sinks()) {
        if (root == x) return sink;
      }
      return nullptr;
    }
  }
  return nullptr;
}

void changeSinkIs(Entity& root, ChangeSink* sink) {
  auto& all = sinks();
  std::erase_if(all, [&](const auto& p) { return p.first == &root; });
  if (!sink) {
    root.kivTrackIs(0);
    trackTree(root, false);
    return;
  }
  all.emplace_back(&root, sink);
  root.kivTrackIs(Entity::trackOn | Entity::trackRoot);
  trackTree(root, true);
}

namespace detail {

void trackChange(const Entity& e, uint16_t id, const void* key) {
  if (ChangeSink* sink = changeSinkOf(e)) sink->onChange(const_cast<Entity&>(e), id, key);
}

void trackParent(Entity& e, Entity* parent) {
  if (e.parent_ && (e.track_ & Entity::trackOn)) {
    if (ChangeSink* sink = changeSinkOf(e)) sink->onDetach(e);
  }
  e.parent_ = parent;
  if (parent && (parent->track_ & Entity::trackOn)) {
    trackTree(e, true);
    if (ChangeSink* sink = changeSinkOf(e)) sink->onAttach(e);
  } else if (parent && !(e.track_ & Entity::trackRoot)) {
    trackTree(e, false);
  }
}

void trackRootGone(const Entity& root) {
  std::erase_if(sinks(), [&](const auto& p) { return p.first == &root; });
}

}  // namespace detail
}  // namespace Kiv
