// Encoding and decoding of records, fields and keys of a mounted tree.
#include "platform/MountLayout.h"

#include <algorithm>
#include <set>
#include <tuple>

namespace Platform {

using Kiv::AttrInfo;
using Kiv::AttrKind;
using Kiv::Entity;
using Kiv::TypeInfo;

namespace {

bool special(unsigned char c) {
  return c == '%' || c == '|' || c == '=' || c == ',' || c < 0x20 || c == 0x7f;
}

std::string escape(std::string_view s) {
  if (std::none_of(s.begin(), s.end(), [](char c) { return special(static_cast<unsigned char>(c)); }))
    return std::string(s);
  static const char hex[] = "0123456789ABCDEF";
  std::string out;
  for (char ch : s) {
    const auto c = static_cast<unsigned char>(ch);
    if (special(c)) {
      out += '%';
      out += hex[c >> 4];
      out += hex[c & 15];
    } else {
      out += ch;
    }
  }
  return out;
}

int hexDigit(char c) {
  if (c >= '0' && c <= '9') return c - '0';
  if (c >= 'A' && c <= 'F') return c - 'A' + 10;
  if (c >= 'a' && c <= 'f') return c - 'a' + 10;
  return -1;
}

bool unescape(std::string_view s, std::string& out) {
  out.clear();
  for (size_t i = 0; i < s.size(); ++i) {
    if (s[i] != '%') {
      out += s[i];
      continue;
    }
    if (i + 2 >= s.size()) return false;
    const int hi = hexDigit(s[i + 1]), lo = hexDigit(s[i + 2]);
    if (hi < 0 || lo < 0) return false;
    out += static_cast<char>(hi << 4 | lo);
    i += 2;
  }
  return true;
}

bool isCollectionOfEntities(const AttrInfo& a) {
  return a.kind == AttrKind::entities || a.kind == AttrKind::child;
}

// The type's one collection of entities or pointer child, if it has exactly one.
const AttrInfo* soleEntityAttr(const TypeInfo& t) {
  const AttrInfo* sole = nullptr;
  for (const AttrInfo& a : t.attrs) {
    if (!isCollectionOfEntities(a)) continue;
    if (sole) return nullptr;
    sole = &a;
  }
  return sole;
}

std::string stepText(const TypeInfo& t, const AttrInfo& a, std::string_view key) {
  std::string k = escape(key);
  if (soleEntityAttr(t) == &a && !k.empty() && k[0] != '_' && !t.attr(k)) return k;
  return std::string(a.name) + "=" + k;
}

// The attribute and key a step names at type t.
bool stepParse(const TypeInfo& t, std::string_view step, const AttrInfo*& a, std::string& key) {
  const size_t eq = step.find('=');
  if (eq == std::string_view::npos) {
    a = soleEntityAttr(t);
    return a && unescape(step, key);
  }
  a = t.attr(step.substr(0, eq));
  return a && unescape(step.substr(eq + 1), key);
}

std::vector<std::string_view> split(std::string_view s, char sep) {
  std::vector<std::string_view> parts;
  for (;;) {
    const size_t at = s.find(sep);
    parts.push_back(s.substr(0, at));
    if (at == std::string_view::npos) return parts;
    s.remove_prefix(at + 1);
  }
}

template <class Fn>
void forEachElement(const Entity& e, const AttrInfo& a, Fn&& fn) {
  a.forEach(e, &fn, [](void* ctx, const std::string& k, const std::string& v, const Entity* child) {
    (*static_cast<std::remove_reference_t<Fn>*>(ctx))(k, v, child);
  });
}

}  // namespace

MountLayout::MountLayout(std::string path, std::vector<std::string> foldedTypes)
    : path_(std::move(path)), foldedTypes_(std::move(foldedTypes)) {}

bool MountLayout::pathValid(std::string_view path) {
  return !path.empty() && path.find_first_of("|*?[]\\") == std::string_view::npos &&
         std::none_of(path.begin(), path.end(), [](char c) { return static_cast<unsigned char>(c) <= ' '; });
}

bool MountLayout::typeFolded(const char* name) const {
  return std::find(foldedTypes_.begin(), foldedTypes_.end(), name) != foldedTypes_.end();
}

bool MountLayout::foldsItself(const Entity& e) const {
  const Entity* p = e.parent();
  if (&e == root_ || !p) return false;
  const auto& attrs = p->typeInfo().attrs;
  return (e.parentAttrId() < attrs.size() && attrs[e.parentAttrId()].kind == AttrKind::child) ||
         typeFolded(e.typeInfo().name);
}

bool MountLayout::folded(const Entity& e) const { return recordOf(e) != &e; }

const Entity* MountLayout::recordOf(const Entity& e) const {
  const Entity* record = &e;
  for (const Entity* x = &e; x && x != root_; x = x->parent()) {
    if (foldsItself(*x)) record = x->parent();
  }
  return record;
}

std::string MountLayout::stepOf(const Entity& e) const {
  const Entity& p = *e.parent();
  const TypeInfo& t = p.typeInfo();
  return stepText(t, t.attrs[e.parentAttrId()], e.name().view());
}

std::string MountLayout::recordKey(const Entity& record) const {
  std::vector<std::string> steps;
  for (const Entity* x = &record; x && x != root_; x = x->parent()) steps.push_back(stepOf(*x));
  std::string key = path_;
  for (auto it = steps.rbegin(); it != steps.rend(); ++it) key += "|" + *it;
  return key;
}

std::string MountLayout::fieldOf(const Entity& folded) const {
  const Entity* record = recordOf(folded);
  std::vector<std::string> steps;
  for (const Entity* x = &folded; x != record; x = x->parent()) steps.push_back(stepOf(*x));
  std::string field;
  for (auto it = steps.rbegin(); it != steps.rend(); ++it) field += (field.empty() ? "" : "|") + *it;
  return field;
}

std::string MountLayout::elementField(const Entity& e, const AttrInfo& a, std::string_view key) const {
  std::string at = std::string(a.name) + "=" + escape(key);
  return folded(e) ? fieldOf(e) + "|" + at : at;
}

std::string MountLayout::compactValue(const Entity& folded) const {
  std::string value;
  bool first = true;
  for (const AttrInfo& a : folded.typeInfo().attrs) {
    if (!a.text) continue;
    if (!first) value += ',';
    first = false;
    value += escape(a.text(folded));
  }
  return value;
}

void MountLayout::encodeFoldedAt(const Entity& e, const std::string& field, Fields& out) const {
  out.emplace_back(field, compactValue(e));
  for (const AttrInfo& a : e.typeInfo().attrs) {
    if (a.kind == AttrKind::values) {
      forEachElement(e, a, [&](const std::string& k, const std::string& v, const Entity*) {
        out.emplace_back(field + "|" + a.name + "=" + escape(k), v);
      });
    } else if (isCollectionOfEntities(a)) {
      forEachElement(e, a, [&](const std::string& k, const std::string&, const Entity* child) {
        encodeFoldedAt(*child, field + "|" + stepText(e.typeInfo(), a, k), out);
      });
    }
  }
}

void MountLayout::encodeRecord(const Entity& record, Fields& out) const {
  for (const AttrInfo& a : record.typeInfo().attrs) {
    if (a.text) {
      out.emplace_back(a.name, a.text(record));
    } else if (a.kind == AttrKind::values) {
      forEachElement(record, a, [&](const std::string& k, const std::string& v, const Entity*) {
        out.emplace_back(std::string(a.name) + "=" + escape(k), v);
      });
    } else if (a.kind == AttrKind::child || typeFolded(a.valueType)) {
      // Collections of records are passed over whole: their elements have hashes of their own.
      forEachElement(record, a, [&](const std::string& k, const std::string&, const Entity* child) {
        encodeFoldedAt(*child, stepText(record.typeInfo(), a, k), out);
      });
    }
  }
}

void MountLayout::encodeFolded(const Entity& folded, Fields& out) const {
  encodeFoldedAt(folded, fieldOf(folded), out);
}

void MountLayout::foldedFields(const Entity& folded, std::vector<std::string>& out) const {
  Fields fields;
  encodeFolded(folded, fields);
  for (auto& f : fields) out.push_back(std::move(f.first));
}

void MountLayout::forEachRecord(const Entity& record, const std::function<void(const Entity&)>& fn) const {
  fn(record);
  for (const AttrInfo& a : record.typeInfo().attrs) {
    if (a.kind != AttrKind::entities || typeFolded(a.valueType)) continue;
    forEachElement(record, a, [&](const std::string&, const std::string&, const Entity* child) {
      forEachRecord(*child, fn);
    });
  }
}

Entity* MountLayout::recordAt(Entity& root, std::string_view key, bool create, std::string& why) const {
  if (key.substr(0, path_.size()) != path_ || (key.size() > path_.size() && key[path_.size()] != '|')) {
    why = "not a key of this mount";
    return nullptr;
  }
  Entity* e = &root;
  if (key.size() == path_.size()) return e;
  for (std::string_view step : split(key.substr(path_.size() + 1), '|')) {
    const AttrInfo* a = nullptr;
    std::string k;
    if (!stepParse(e->typeInfo(), step, a, k) || a->kind != AttrKind::entities || typeFolded(a->valueType)) {
      why = "step " + std::string(step) + " names no record";
      return nullptr;
    }
    Entity* child = a->childAt(*e, k);
    if (!child && create) {
      if (!a->elementIs(*e, k, "")) {
        why = "key " + k + " does not parse";
        return nullptr;
      }
      child = a->childAt(*e, k);
    }
    if (!child) {
      if (create) why = "key " + k + " does not parse";
      return nullptr;
    }
    e = child;
  }
  return e;
}

bool MountLayout::recordDel(Entity& root, std::string_view key) const {
  const size_t bar = key.rfind('|');
  if (bar == std::string_view::npos || bar < path_.size()) return false;
  std::string why;
  Entity* parent = recordAt(root, key.substr(0, bar), false, why);
  const AttrInfo* a = nullptr;
  std::string k;
  if (!parent || !stepParse(parent->typeInfo(), key.substr(bar + 1), a, k) || a->kind != AttrKind::entities ||
      !a->childAt(*parent, k))
    return false;
  return a->elementDel(*parent, k);
}

struct MountLayout::Keep {
  bool on = true;
  std::set<std::tuple<const Entity*, uint16_t, std::string>> elements;
  void add(const Entity* e, uint16_t id, std::string key) {
    if (on) elements.emplace(e, id, std::move(key));
  }
};

bool MountLayout::applyField(Entity& record, std::string_view field, std::string_view value, Keep& keep,
                             std::string& why) const {
  const std::vector<std::string_view> steps = split(field, '|');
  const TypeInfo& rt = record.typeInfo();
  if (steps.size() == 1 && field.find('=') == std::string_view::npos) {
    if (const AttrInfo* a = rt.attr(field); a && a->textIs) {
      if (a->textIs(record, value)) return true;
      why = "value " + std::string(value) + " does not parse";
      return false;
    }
  }
  Entity* e = &record;
  for (size_t i = 0; i < steps.size(); ++i) {
    const AttrInfo* a = nullptr;
    std::string k;
    if (!stepParse(e->typeInfo(), steps[i], a, k) || a->textIs) {
      why = "names no attribute";
      return false;
    }
    const bool last = i + 1 == steps.size();
    if (a->kind == AttrKind::values) {
      if (!last || !a->elementIs(*e, k, value)) {
        why = last ? "element does not parse" : "names no entity";
        return false;
      }
      keep.add(e, a->id, k);
      return true;
    }
    if (a->kind != AttrKind::child && e == &record && !typeFolded(a->valueType)) {
      why = "names a record";
      return false;
    }
    Entity* child = a->childAt(*e, k);
    if (!child && a->elementIs(*e, k, "")) child = a->childAt(*e, k);
    if (!child) {
      why = "key " + k + " does not parse";
      return false;
    }
    keep.add(e, a->id, child->name().stdString());
    e = child;
  }
  std::vector<const AttrInfo*> scalars;
  for (const AttrInfo& a : e->typeInfo().attrs) {
    if (a.textIs) scalars.push_back(&a);
  }
  const std::vector<std::string_view> parts = split(value, ',');
  if (parts.size() != std::max<size_t>(scalars.size(), 1) || (scalars.empty() && !value.empty())) {
    why = "holds " + std::to_string(parts.size()) + " values for " + std::to_string(scalars.size()) +
          " attributes";
    return false;
  }
  std::string text;
  for (size_t i = 0; i < scalars.size(); ++i) {
    if (!unescape(parts[i], text) || !scalars[i]->textIs(*e, text)) {
      why = std::string(scalars[i]->name) + " " + std::string(parts[i]) + " does not parse";
      return false;
    }
  }
  return true;
}

void MountLayout::prune(Entity& e, const Keep& keep, bool isRecord) const {
  for (const AttrInfo& a : e.typeInfo().attrs) {
    if (a.kind != AttrKind::values && !isCollectionOfEntities(a)) continue;
    if (isRecord && a.kind == AttrKind::entities && !typeFolded(a.valueType)) continue;
    std::vector<std::string> gone;
    std::vector<Kiv::Ptr<Entity>> stay;
    forEachElement(e, a, [&](const std::string& k, const std::string&, const Entity* child) {
      if (child && !foldsItself(*child)) return;
      if (!keep.elements.count({&e, a.id, k})) {
        gone.push_back(k);
      } else if (child) {
        stay.emplace_back(const_cast<Entity*>(child));
      }
    });
    for (const std::string& k : gone) a.elementDel(e, k);
    for (const auto& child : stay) prune(*child, keep, false);
  }
}

bool MountLayout::empty(const Entity& record) const {
  bool any = false;
  for (const AttrInfo& a : record.typeInfo().attrs) {
    if (a.kind == AttrKind::values || a.kind == AttrKind::child ||
        (a.kind == AttrKind::entities && typeFolded(a.valueType)))
      forEachElement(record, a, [&](const std::string&, const std::string&, const Entity*) { any = true; });
  }
  return !any;
}

void MountLayout::recordApply(Entity& record, const Fields& fields,
                              std::vector<std::string>& problems) const {
  // A record read for the first time (a restart, a snapshot) has nothing to prune.
  const bool prunes = !empty(record);
  Keep keep;
  keep.on = prunes;
  std::string why;
  for (const auto& [field, value] : fields) {
    if (!field.empty() && field[0] == '_') continue;
    if (!applyField(record, field, value, keep, why)) problems.push_back("field " + field + ": " + why);
  }
  if (prunes) prune(record, keep, true);
}

}  // namespace Platform
