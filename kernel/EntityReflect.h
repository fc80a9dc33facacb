// Support for the generated entity code: collections of child entities, their iterators, child
// creation, and the builders of the reflection table's generic accessors.
#pragma once

#include <string>
#include <string_view>

#include "kernel/Entity.h"

namespace Kiv {

template <class K>
struct EntityKeyFn {
  const K& operator()(const KeyedEntity<K>& e) const { return e.kivKey(); }
};
// A parent keeps the first 2^entityBucketsLog2<T> buckets of its collection of T in itself, so that a
// lookup in a small collection reads no bucket array elsewhere in memory. A model raises it for the
// children of which a parent typically has a handful and which are looked up on every packet.
template <class T>
inline constexpr uint8_t entityBucketsLog2 = 0;

template <class K, uint8_t InlineLog2 = 0>
using EntityMap = HashMap<K, KeyedEntity<K>, EntityKeyFn<K>, InlineLog2>;
// The collection of child entities of type T.
template <class T>
using EntityMapOf = EntityMap<typename T::Key, entityBucketsLog2<T>>;

// Iterates a collection of child entities of type T. It holds the current entity, so that entity may
// be deleted from the collection before the iterator advances.
template <class T>
class EntityIterator {
  using K = typename T::Key;
  using Inner = typename EntityMapOf<T>::Iterator;

 public:
  EntityIterator() = default;
  EntityIterator(Inner it) : it_(std::move(it)) {}
  explicit operator bool() const { return bool(it_); }
  bool done() const { return it_.done(); }
  const K& key() const { return it_.key(); }
  T* ptr() const { return static_cast<T*>(it_.ptr()); }
  T* operator->() const { return ptr(); }
  // Null when the entity under the iterator has left the collection.
  Ptr<T> currNodeNonStale() const { return ptr_cast<T>(it_.currNodeNonStale()); }
  bool currNodeMaybeStale() const { return it_.currNodeMaybeStale(); }
  EntityIterator& operator++() {
    ++it_;
    return *this;
  }
  const EntityIterator& operator*() const { return *this; }
  bool operator!=(detail::IterEnd s) const { return it_ != s; }

 private:
  Inner it_;
};

namespace detail {

template <class T, class... A>
Ptr<T> newChild(Entity* parent, uint16_t attrId, const A&... args) {
  Ptr<T> c(new T(args...));
  c->parentIs(parent);
  c->parentAttrIdIs(attrId);
  return c;
}

template <class E, class T, auto Get, auto Set>
AttrInfo scalarAttr(const char* name, uint16_t id, AttrKind kind) {
  AttrInfo a;
  a.name = name, a.kind = kind, a.id = id, a.valueType = ValueTraits<T>::typeName;
  a.text = [](const Entity& e) { return ValueTraits<T>::text((static_cast<const E&>(e).*Get)()); };
  a.textIs = [](Entity& e, std::string_view s) {
    T v{};
    if (!ValueTraits<T>::fromText(s, v)) return false;
    (static_cast<E&>(e).*Set)(v);
    return true;
  };
  a.binary = [](const Entity& e, std::string& out) {
    ValueTraits<T>::binary(out, (static_cast<const E&>(e).*Get)());
  };
  a.binaryIs = [](Entity& e, std::string_view& in) {
    T v{};
    if (!ValueTraits<T>::fromBinary(in, v)) return false;
    (static_cast<E&>(e).*Set)(v);
    return true;
  };
  return a;
}

// The one constructor argument of a child entity: its key, or the name of a named entity.
template <class T>
struct ChildKey {
  using type = Name;
};
template <class T>
requires requires { typename T::Key; }
struct ChildKey<T> {
  using type = typename T::Key;
};
template <class T>
using ChildKeyOf = typename ChildKey<T>::type;

// A pointer child is a collection of at most one element, keyed by the child's constructor argument:
// writing an element creates the child (replacing one made from another argument), deleting it
// unlinks the child whatever its key.
template <class E, class T, auto Member, auto Is, auto Del>
AttrInfo childAttr(const char* name, uint16_t id) {
  using K = ChildKeyOf<T>;
  AttrInfo a;
  a.name = name, a.kind = AttrKind::child, a.id = id;
  a.keyType = ValueTraits<K>::typeName, a.valueType = T::kivTypeInfo().name;
  a.childType = [] { return &T::kivTypeInfo(); };
  a.forEach = [](const Entity& e, void* ctx, AttrInfo::ElementFn fn) {
    if (const auto& c = static_cast<const E&>(e).*Member)
      fn(ctx, c->name().stdString(), std::string(), c.ptr());
  };
  a.elementIs = [](Entity& e, std::string_view ks, std::string_view) {
    K k{};
    if (!ValueTraits<K>::fromText(ks, k)) return false;
    (static_cast<E&>(e).*Is)(k);
    return true;
  };
  a.elementDel = [](Entity& e, std::string_view) {
    (static_cast<E&>(e).*Del)();
    return true;
  };
  a.childAt = [](const Entity& e, std::string_view ks) -> Entity* {
    Entity* c = (static_cast<const E&>(e).*Member).ptr();
    return c && (ks.empty() || c->name().view() == ks) ? c : nullptr;
  };
  return a;
}

template <class E, class K, class V, auto Member, auto Set, auto Del>
AttrInfo valuesAttr(const char* name, uint16_t id) {
  AttrInfo a;
  a.name = name, a.kind = AttrKind::values, a.id = id;
  a.keyType = ValueTraits<K>::typeName, a.valueType = ValueTraits<V>::typeName;
  a.forEach = [](const Entity& e, void* ctx, AttrInfo::ElementFn fn) {
    for (auto& el : (static_cast<const E&>(e).*Member).iter()) {
      fn(ctx, ValueTraits<K>::text(el.key()), ValueTraits<V>::text(*el.value()), nullptr);
    }
  };
  a.elementIs = [](Entity& e, std::string_view ks, std::string_view vs) {
    K k{};
    V v{};
    if (!ValueTraits<K>::fromText(ks, k) || !ValueTraits<V>::fromText(vs, v)) return false;
    (static_cast<E&>(e).*Set)(k, v);
    return true;
  };
  a.elementDel = [](Entity& e, std::string_view ks) {
    K k{};
    if (!ValueTraits<K>::fromText(ks, k)) return false;
    (static_cast<E&>(e).*Del)(k);
    return true;
  };
  a.keyText = [](const void* key) { return ValueTraits<K>::text(*static_cast<const K*>(key)); };
  a.elementText = [](const Entity& e, std::string_view ks, std::string& out) {
    K k{};
    if (!ValueTraits<K>::fromText(ks, k)) return false;
    const V* v = (static_cast<const E&>(e).*Member).find(k);
    if (v) out = ValueTraits<V>::text(*v);
    return v != nullptr;
  };
  return a;
}

template <class E, class K, class T, auto Member, auto Is, auto Del>
AttrInfo entitiesAttr(const char* name, uint16_t id) {
  AttrInfo a;
  a.name = name, a.kind = AttrKind::entities, a.id = id;
  a.keyType = ValueTraits<K>::typeName, a.valueType = T::kivTypeInfo().name;
  a.childType = [] { return &T::kivTypeInfo(); };
  a.forEach = [](const Entity& e, void* ctx, AttrInfo::ElementFn fn) {
    for (auto& el : (static_cast<const E&>(e).*Member).iter()) {
      fn(ctx, ValueTraits<K>::text(el.key()), std::string(), el.ptr());
    }
  };
  a.elementIs = [](Entity& e, std::string_view ks, std::string_view) {
    K k{};
    if (!ValueTraits<K>::fromText(ks, k)) return false;
    (static_cast<E&>(e).*Is)(k);
    return true;
  };
  a.elementDel = [](Entity& e, std::string_view ks) {
    K k{};
    if (!ValueTraits<K>::fromText(ks, k)) return false;
    (static_cast<E&>(e).*Del)(k);
    return true;
  };
  a.childAt = [](const Entity& e, std::string_view ks) -> Entity* {
    K k{};
    if (!ValueTraits<K>::fromText(ks, k)) return nullptr;
    return (static_cast<const E&>(e).*Member).find(k);
  };
  a.keyText = [](const void* key) { return ValueTraits<K>::text(*static_cast<const K*>(key)); };
  return a;
}

}  // namespace detail
}  // namespace Kiv
