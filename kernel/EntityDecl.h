// The one declaration of an entity type. An attribute list, written as an X-macro, yields the typed
// accessors, the NotifieeConst with its stubs, the change dispatch, the attach sweep and the reflection
// table. Each attribute is X(kind, name, CapitalisedName, ...):
//
//   X(scalar,   foo, Foo, Type, default)      foo(), fooIs(v)                                  onFoo()
//   X(counter,  foo, Foo, Type)               as scalar, starting at 0, plus fooInc(d)         onFoo()
//   X(child,    foo, Foo, EntityType)         foo(), fooIs(args...), fooDel()                  onFoo()
//   X(values,   foo, Foo, Key, Type, default) foo(k), fooIs(k, v), fooDel(k), fooDelAll(), fooInc(k, d)
//   X(ordered,  foo, Foo, Key, Type, default) the same, kept in key order (walks from a key: fooIterFrom)
//   X(entities, foo, Foo, Key, EntityType)    foo(k), fooIs(k), fooDel(k), fooDelAll()
//
// Collections notify onFoo(key) per element and onFookivImmediate() when changed as a whole; they
// give fooSize() and fooIter() (hash collections also fooIterAt(key), the bookmark start).
//
// Writing a child that exists: fooIs(args...) with the child's own arguments returns it; with other
// arguments it replaces the child (the old one leaves the tree, its reactors see onFoo()). A collection
// of child state machines differs: asking it for a key that holds a machine made with other arguments
// throws the name-in-use exception.
// Then, inside the class:  KIV_ENTITY_KEYED(Type, KeyType, keyName, ATTRS)  or  KIV_ENTITY_NAMED(Type,
// ATTRS).
#pragma once

#include "kernel/EntityReflect.h"
#include "kernel/RbTreeMap.h"

// --- accessors ---------------------------------------------------------------------------------------
#define KIV_API_scalar(n, N, T, def) \
  T n() const { return n##_; }       \
  void n##Is(const T& v) {           \
    if (n##_ == v) return;           \
    n##_ = v;                        \
    kivTrackScalar(kivAttr_##n);     \
    kivNotify(kivAttr_##n, nullptr); \
  }
#define KIV_API_counter(n, N, T) \
  KIV_API_scalar(n, N, T, 0) void n##Inc(T d = 1) { n##Is(static_cast<T>(n##_ + d)); }
#define KIV_API_child(n, N, T)                                             \
  ::Kiv::Ptr<T> n() { return n##_; }                                       \
  ::Kiv::Ptr<T const> n() const { return n##_; }                           \
  template <class... A>                                                    \
  ::Kiv::Ptr<T> n##Is(const A&... a) {                                     \
    if (n##_ && n##_->kivSameArgs(a...)) return n##_;                      \
    ::Kiv::Ptr<T> c = ::Kiv::detail::newChild<T>(this, kivAttr_##n, a...); \
    ::Kiv::Ptr<T> old = std::exchange(n##_, c);                            \
    if (old) old->parentIs(nullptr);                                       \
    kivChanged(kivAttr_##n, nullptr);                                      \
    return c;                                                              \
  }                                                                        \
  ::Kiv::Ptr<T> n##Del() {                                                 \
    ::Kiv::Ptr<T> old = std::move(n##_);                                   \
    if (!old) return old;                                                  \
    old->parentIs(nullptr);                                                \
    kivChanged(kivAttr_##n, nullptr);                                      \
    return old;                                                            \
  }
#define KIV_API_valuemap(n, N, K, V, def)            \
  V n(const K& k) const {                            \
    const V* v = n##_.find(k);                       \
    return v ? *v : V(def);                          \
  }                                                  \
  void n##Is(const K& k, const V& v) {               \
    if (n##_.set(k, v)) kivChanged(kivAttr_##n, &k); \
  }                                                  \
  void n##Del(const K& k) {                          \
    if (n##_.erase(k)) kivChanged(kivAttr_##n, &k);  \
  }                                                  \
  void n##DelAll() {                                 \
    if (n##_.empty()) return;                        \
    n##_.clear();                                    \
    kivChanged(kivAttr_##n, nullptr);                \
  }                                                  \
  template <class D>                                 \
  void n##Inc(const K& k, D d) {                     \
    n##Is(k, static_cast<V>(n(k) + d));              \
  }                                                  \
  template <class D>                                 \
  void n##Dec(const K& k, D d) {                     \
    n##Is(k, static_cast<V>(n(k) - d));              \
  }                                                  \
  size_t n##Size() const { return n##_.size(); }     \
  auto n##Iter() const { return n##_.iter(); }
#define KIV_API_values(n, N, K, V, def) \
  KIV_API_valuemap(n, N, K, V, def) auto n##IterAt(const K& k) const { return n##_.startAtHash(k); }
#define KIV_API_ordered(n, N, K, V, def) \
  KIV_API_valuemap(n, N, K, V, def) auto n##IterFrom(const K& k) const { return n##_.lowerBound(k); }
#define KIV_API_entities(n, N, K, T)                                                              \
  ::Kiv::Ptr<T> n(const K& k) { return ::Kiv::Ptr<T>(static_cast<T*>(n##_.find(k))); }            \
  ::Kiv::Ptr<T const> n(const K& k) const {                                                       \
    return ::Kiv::Ptr<T const>(static_cast<T const*>(n##_.find(k)));                              \
  }                                                                                               \
  /* Finding an existing child is the common case: it stays small enough to inline. */            \
  ::Kiv::Ptr<T> n##Is(const K& k) {                                                               \
    if (auto* e = n##_.find(k)) return ::Kiv::Ptr<T>(static_cast<T*>(e));                         \
    return kivChildNew_##n(k);                                                                    \
  }                                                                                               \
                                                                                                  \
 private:                                                                                         \
  [[gnu::noinline]] ::Kiv::Ptr<T> kivChildNew_##n(const K& k) {                                   \
    ::Kiv::Ptr<T> c = ::Kiv::detail::newChild<T>(this, kivAttr_##n, k);                           \
    n##_.insert(k, c);                                                                            \
    kivChanged(kivAttr_##n, &k);                                                                  \
    return c;                                                                                     \
  }                                                                                               \
                                                                                                  \
 public:                                                                                          \
  ::Kiv::Ptr<T> n##Del(const K& k) {                                                              \
    ::Kiv::Ptr<T> old = ::Kiv::ptr_cast<T>(n##_.take(k));                                         \
    if (!old) return old;                                                                         \
    old->parentIs(nullptr);                                                                       \
    kivChanged(kivAttr_##n, &k);                                                                  \
    return old;                                                                                   \
  }                                                                                               \
  void n##DelAll() {                                                                              \
    if (n##_.empty()) return;                                                                     \
    for (auto& e : n##_.iter()) e.ptr()->parentIs(nullptr);                                       \
    n##_.clear();                                                                                 \
    kivChanged(kivAttr_##n, nullptr);                                                             \
  }                                                                                               \
  size_t n##Size() const { return n##_.size(); }                                                  \
  void n##Prefetch() const { n##_.prefetch(); }                                                   \
  ::Kiv::detail::IterRange<::Kiv::EntityIterator<T>> n##Iter() const { return {{n##_.begin()}}; } \
  ::Kiv::EntityIterator<T> n##IterAt(const K& k) const { return {n##_.startAtHash(k)}; }

// --- stored data -------------------------------------------------------------------------------------
#define KIV_DATA_scalar(n, N, T, def) T n##_ = def;
#define KIV_DATA_counter(n, N, T) T n##_ = 0;
#define KIV_DATA_child(n, N, T) ::Kiv::Ptr<T> n##_;
#define KIV_DATA_values(n, N, K, V, def) ::Kiv::HashMap2018<K, V> n##_;
#define KIV_DATA_ordered(n, N, K, V, def) ::Kiv::RbTreeMap<K, V> n##_;
#define KIV_DATA_entities(n, N, K, T) ::Kiv::EntityMapOf<T> n##_;

// --- notifiee stubs, dispatch and attach sweep ----------------------------------------------------------
#define KIV_STUB_scalar(n, N, ...) \
  virtual void on##N() {}
#define KIV_STUB_counter KIV_STUB_scalar
#define KIV_STUB_child KIV_STUB_scalar
#define KIV_STUB_values(n, N, K, ...) \
  virtual void on##N(const K&) {}     \
  virtual void on##N##kivImmediate() {}
#define KIV_STUB_ordered KIV_STUB_values
#define KIV_STUB_entities KIV_STUB_values

#define KIV_CASE_scalar(n, N, ...) \
  case Self_::kivAttr_##n:         \
    on##N();                       \
    break;
#define KIV_CASE_counter KIV_CASE_scalar
#define KIV_CASE_child KIV_CASE_scalar
#define KIV_CASE_values(n, N, K, ...)                                 \
  case Self_::kivAttr_##n:                                            \
    key ? on##N(*static_cast<const K*>(key)) : on##N##kivImmediate(); \
    break;
#define KIV_CASE_ordered KIV_CASE_values
#define KIV_CASE_entities KIV_CASE_values

// A reactor R is interested in an attribute when it overrides one of its stubs: an inherited stub's
// member pointer has the type of the class that declares it.
#define KIV_OVERRIDES(stub) !std::is_same_v<decltype(&R::stub), decltype(&NotifieeConst::stub)>
#define KIV_INTEREST_scalar(n, N, ...) | ::Kiv::detail::interestBit(Self_::kivAttr_##n, KIV_OVERRIDES(on##N))
#define KIV_INTEREST_counter KIV_INTEREST_scalar
#define KIV_INTEREST_child KIV_INTEREST_scalar
#define KIV_INTEREST_values(n, N, ...) \
  | ::Kiv::detail::interestBit(Self_::kivAttr_##n, KIV_OVERRIDES(on##N) || KIV_OVERRIDES(on##N##kivImmediate))
#define KIV_INTEREST_ordered KIV_INTEREST_values
#define KIV_INTEREST_entities KIV_INTEREST_values

#define KIV_SWEEP_scalar(n, N, ...) \
  if (this->kivIsZombie()) return;  \
  on##N();
#define KIV_SWEEP_counter KIV_SWEEP_scalar
#define KIV_SWEEP_child KIV_SWEEP_scalar
#define KIV_SWEEP_values(n, N, ...) \
  if (this->kivIsZombie()) return;  \
  on##N##kivImmediate();
#define KIV_SWEEP_ordered KIV_SWEEP_values
#define KIV_SWEEP_entities KIV_SWEEP_values

// --- reflection and teardown -------------------------------------------------------------------------
#define KIV_REFL_scalar(n, N, T, ...)                                                   \
  ::Kiv::detail::scalarAttr<Self_, T, &Self_::n, &Self_::n##Is>(#n, Self_::kivAttr_##n, \
                                                                ::Kiv::AttrKind::scalar),
#define KIV_REFL_counter(n, N, T)                                                       \
  ::Kiv::detail::scalarAttr<Self_, T, &Self_::n, &Self_::n##Is>(#n, Self_::kivAttr_##n, \
                                                                ::Kiv::AttrKind::counter),
#define KIV_REFL_child(n, N, T)                                                                 \
  ::Kiv::detail::childAttr<Self_, T, &Self_::n##_, &Self_::n##Is<::Kiv::detail::ChildKeyOf<T>>, \
                           &Self_::n##Del>(#n, Self_::kivAttr_##n),
#define KIV_REFL_values(n, N, K, V, ...) \
  ::Kiv::detail::valuesAttr<Self_, K, V, &Self_::n##_, &Self_::n##Is, &Self_::n##Del>(#n, Self_::kivAttr_##n),
#define KIV_REFL_ordered KIV_REFL_values
#define KIV_REFL_entities(n, N, K, T)                                                       \
  ::Kiv::detail::entitiesAttr<Self_, K, T, &Self_::n##_, &Self_::n##Is, &Self_::n##Del>(#n, \
                                                                                        Self_::kivAttr_##n),

#define KIV_ORPHAN_scalar(...)
#define KIV_ORPHAN_counter(...)
#define KIV_ORPHAN_values(...)
#define KIV_ORPHAN_ordered(...)
#define KIV_ORPHAN_child(n, ...) \
  if (n##_) n##_->parentIs(nullptr);
#define KIV_ORPHAN_entities(n, ...) \
  for (auto& e : n##_.iter()) e.ptr()->parentIs(nullptr);

// --- dispatch on kind ------------------------------------------------------------------------------------
#define KIV_X_API(kind, ...) KIV_API_##kind(__VA_ARGS__)
#define KIV_X_DATA(kind, ...) KIV_DATA_##kind(__VA_ARGS__)
#define KIV_X_STUB(kind, ...) KIV_STUB_##kind(__VA_ARGS__)
#define KIV_X_CASE(kind, ...) KIV_CASE_##kind(__VA_ARGS__)
#define KIV_X_SWEEP(kind, ...) KIV_SWEEP_##kind(__VA_ARGS__)
#define KIV_X_INTEREST(kind, ...) KIV_INTEREST_##kind(__VA_ARGS__)
#define KIV_X_REFL(kind, ...) KIV_REFL_##kind(__VA_ARGS__)
#define KIV_X_ORPHAN(kind, ...) KIV_ORPHAN_##kind(__VA_ARGS__)
#define KIV_X_ID(kind, n, ...) kivAttr_##n,

#define KIV_ENTITY_BODY(Self, ATTRS)                                             \
 public:                                                                         \
  using Self_ = Self;                                                            \
  enum KivAttr : uint16_t { ATTRS(KIV_X_ID) kivAttrCount };                      \
  ATTRS(KIV_X_API)                                                               \
  class NotifieeConst : public ::Kiv::EntityNotifiee<Self> {                     \
   public:                                                                       \
    using ::Kiv::EntityNotifiee<Self>::EntityNotifiee;                           \
    ATTRS(KIV_X_STUB)                                                            \
    void kivOnAttr(uint16_t id, [[maybe_unused]] const void* key) override {     \
      switch (id) {                                                              \
        ATTRS(KIV_X_CASE)                                                        \
        default:                                                                 \
          break;                                                                 \
      }                                                                          \
    }                                                                            \
    void kivSweep() override { ATTRS(KIV_X_SWEEP) }                              \
    /* The attributes whose stubs the reactor R overrides, for kivInterestIs. */ \
    template <class R>                                                           \
    static constexpr uint64_t kivInterestOf() {                                  \
      return 0 ATTRS(KIV_X_INTEREST);                                            \
    }                                                                            \
  };                                                                             \
  static const ::Kiv::TypeInfo& kivTypeInfo() {                                  \
    static const ::Kiv::TypeInfo info{#Self, {ATTRS(KIV_X_REFL)}};               \
    return info;                                                                 \
  }                                                                              \
  const ::Kiv::TypeInfo& typeInfo() const override { return kivTypeInfo(); }     \
  ~Self() override { ATTRS(KIV_X_ORPHAN) }                                       \
                                                                                 \
 private:                                                                        \
  ATTRS(KIV_X_DATA)                                                              \
                                                                                 \
 public:

#define KIV_ENTITY_KEYED(Self, K, keyName, ATTRS)         \
 public:                                                  \
  explicit Self(const K& k) : ::Kiv::KeyedEntity<K>(k) {} \
  K keyName() const { return this->kivKey(); }            \
  KIV_ENTITY_BODY(Self, ATTRS)

#define KIV_ENTITY_NAMED(Self, ATTRS)                            \
 public:                                                         \
  explicit Self(const ::Kiv::Name& n) : ::Kiv::NamedEntity(n) {} \
  KIV_ENTITY_BODY(Self, ATTRS)
