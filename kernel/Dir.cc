// Directory entries and the process root.
#include "kernel/Dir.h"

namespace Kiv {

Dir::~Dir() {
  for (auto& e : entries_.iter()) {
    if (const Ptr<Entity>* p = e.value(); p && (*p)->parent() == this) (*p)->parentIs(nullptr);
  }
}

const TypeInfo& Dir::typeInfo() const {
  static const TypeInfo info{"Dir", {}};
  return info;
}

Ptr<Entity> Dir::entityRefPath(std::string_view path) {
  Ptr<Entity> at(this);
  while (!path.empty() && at) {
    size_t slash = path.find('/');
    std::string_view step = path.substr(0, slash);
    path = slash == std::string_view::npos ? std::string_view() : path.substr(slash + 1);
    if (step.empty()) continue;
    auto dir = dynamic_cast<Dir*>(at.ptr());
    at = dir ? dir->entityRef(Name(step)) : nullptr;
  }
  return at;
}

void Dir::entryIs(const Name& n, const Ptr<Entity>& e) {
  if (entityRef(n) == e) return;
  adopt(n, e);
}

void Dir::adopt(const Name& n, const Ptr<Entity>& e) {
  if (!e->parent()) e->parentIs(this);
  entries_.set(n, e);
  kivNotify(0, &n);
}

Ptr<Entity> Dir::entryDel(const Name& n) {
  Ptr<Entity> e = entityRef(n);
  if (!e) return e;
  if (e->parent() == this) e->parentIs(nullptr);
  entries_.erase(n);
  kivNotify(0, &n);
  return e;
}

Ptr<Dir> globalDir() {
  static Ptr<Dir> root(new Dir("/"));
  return root;
}

}  // namespace Kiv
