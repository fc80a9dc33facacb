// The reflection walk behind entityDump.
#include "tests/support/EntityDump.h"

namespace TestSupport {

namespace {

void dumpInto(const Kiv::Entity& e, const std::string& path, EntityDump& out) {
  for (const Kiv::AttrInfo& a : e.typeInfo().attrs) {
    if (a.text) {
      out[path + a.name] = a.text(e);
      continue;
    }
    struct Ctx {
      std::string prefix;
      EntityDump* out;
    } ctx{path + a.name, &out};
    a.forEach(e, &ctx, [](void* c, const std::string& k, const std::string& v, const Kiv::Entity* child) {
      auto* x = static_cast<Ctx*>(c);
      const std::string at = x->prefix + "[" + k + "]";
      (*x->out)[at] = v;
      if (child) dumpInto(*child, at + ".", *x->out);
    });
  }
}

}  // namespace

EntityDump entityDump(const Kiv::Entity& root) {
  EntityDump out;
  dumpInto(root, "", out);
  return out;
}

}  // namespace TestSupport
