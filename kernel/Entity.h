// Entities: addressable attribute holders with notifiee lists, and the reflection table that every
// entity type gets from its one declaration (see EntityDecl.h). A setter compares first; a change is
// delivered synchronously, before the setter returns, to every registered notifiee.
#pragma once

#include <cstdint>
#include <string>
#include <string_view>
#include <type_traits>
#include <vector>

#include "kernel/HashMap.h"
#include "kernel/Notifiee.h"
#include "kernel/Value.h"

namespace Kiv {

class Entity;
struct TypeInfo;

enum class AttrKind : uint8_t { scalar, counter, child, values, entities };

// One attribute of an entity type, with its generic (text and binary) access. Collections are
// visited element by element; child entities are reached through childAt.
struct AttrInfo {
  using ElementFn = void (*)(void* ctx, const std::string& key, const std::string& value,
                             const Entity* child);
  const char* name = nullptr;
  AttrKind kind = AttrKind::scalar;
  uint16_t id = 0;
  const char* keyType = nullptr;
  const char* valueType = nullptr;
  const TypeInfo* (*childType)() = nullptr;
  std::string (*text)(const Entity&) = nullptr;
  bool (*textIs)(Entity&, std::string_view) = nullptr;
  void (*binary)(const Entity&, std::string&) = nullptr;
  bool (*binaryIs)(Entity&, std::string_view&) = nullptr;
  void (*forEach)(const Entity&, void* ctx, ElementFn fn) = nullptr;
  bool (*elementIs)(Entity&, std::string_view key, std::string_view value) = nullptr;
  bool (*elementDel)(Entity&, std::string_view key) = nullptr;
  Entity* (*childAt)(const Entity&, std::string_view key) = nullptr;
  // Collections: the text of a key as a change notification passes it (a const K*).
  std::string (*keyText)(const void* key) = nullptr;
  // Value collections: the text of the element at key, false when there is none.
  bool (*elementText)(const Entity&, std::string_view key, std::string& out) = nullptr;
};

struct TypeInfo {
  const char* name;
  std::vector<AttrInfo> attrs;
  const AttrInfo* attr(std::string_view n) const {
    for (auto& a : attrs) {
      if (n == a.name) return &a;
    }
    return nullptr;
  }
};

namespace detail {
void trackChange(const Entity& e, uint16_t id, const void* key);
void trackParent(Entity& e, Entity* parent);
void trackRootGone(const Entity& root);
}  // namespace detail

class Entity : public PtrInterface {
 public:
  // Bits of kivTrack(). The kernel keeps trackOn and trackRoot (see ChangeSink.h); the sink of a
  // tree owns the others, and while trackQueued is set it is not told of scalar changes: the setter
  // of a refreshed membership tests one byte and calls nobody.
  static constexpr uint8_t trackOn = 1, trackRoot = 2, trackQueued = 4, trackSink1 = 8, trackSink2 = 16;

  Entity() { hasNotificationActiveIs(true); }
  ~Entity() override {
    if (track_ & trackRoot) detail::trackRootGone(*this);
  }
  Entity(const Entity&) = delete;
  Entity& operator=(const Entity&) = delete;

  virtual Name name() const = 0;
  virtual const TypeInfo& typeInfo() const = 0;
  Entity* parent() const { return parent_; }
  // Linking into or out of a tracked tree tells the tree's sink.
  void parentIs(Entity* p) {
    if ((track_ | (p ? p->track_ : 0)) & trackOn) [[unlikely]]
      return detail::trackParent(*this, p);
    parent_ = p;
  }
  uint16_t parentAttrId() const { return parentAttrId_; }
  void parentAttrIdIs(uint16_t id) { parentAttrId_ = id; }
  NotifieeList& kivNotifiees() const { return notifiees_; }
  uint8_t kivTrack() const { return track_; }
  void kivTrackIs(uint8_t bits) const { track_ = bits; }

 protected:
  // Tells the sink of a tracked tree of a change, before any reactor hears of it: the setters call
  // these in their own frames, so that an untracked entity pays one test and no call. A sink that has
  // the entity's scalars queued is not told of scalar changes.
  [[gnu::always_inline]] void kivTrackScalar(uint16_t id) const {
    if ((track_ & (trackOn | trackQueued)) == trackOn) [[unlikely]]
      detail::trackChange(*this, id, nullptr);
  }
  [[gnu::always_inline]] void kivTrackChange(uint16_t id, const void* key) const {
    if (track_ & trackOn) [[unlikely]]
      detail::trackChange(*this, id, key);
  }
  // Delivers a change of attribute id (and element *key of a collection; null for the whole).
  void kivNotify(uint16_t id, const void* key) const;
  // A change of a collection or a pointer child: the sink, then the reactors.
  [[gnu::always_inline]] void kivChanged(uint16_t id, const void* key) const {
    kivTrackChange(id, key);
    kivNotify(id, key);
  }

 private:
  friend void detail::trackParent(Entity& e, Entity* parent);
  // First, so that they fill the padding behind the reference count.
  uint16_t parentAttrId_ = 0;
  mutable uint8_t track_ = 0;
  Entity* parent_ = nullptr;
  mutable NotifieeList notifiees_;
};

// A notifiee of some entity type: the generated NotifieeConst of each type derives from this.
namespace detail {
constexpr uint64_t interestBit(uint16_t id, bool interested) {
  return interested && id < 64 ? uint64_t{1} << id : 0;
}
}  // namespace detail

class EntityNotifieeBase : public ListedNotifiee {
 public:
  using ListedNotifiee::ListedNotifiee;
  // Dispatches a change to the typed stub; a generic observer may override it directly.
  virtual void kivOnAttr(uint16_t id, const void* key) = 0;
  // Runs every keyless stub in declared order, as if everything had just changed.
  virtual void kivSweep() = 0;
  // The attributes whose changes reach kivOnAttr, one bit per attribute id; ids from 64 up always do.
  // All of them unless the reactor says otherwise (E::NotifieeConst::kivInterestOf<R>() says which
  // stubs R overrides): a counter bumped by every packet then costs nothing to those that ignore it.
  void kivInterestIs(uint64_t mask) { interest_ = mask; }
  bool kivInterested(uint16_t id) const { return id >= 64 || (interest_ >> id & 1); }

 private:
  uint64_t interest_ = ~uint64_t{0};
};

template <class E>
class EntityNotifiee : public EntityNotifieeBase {
 public:
  using EntityNotifieeBase::EntityNotifieeBase;
  const Ptr<E const>& notifier() const { return notifier_; }
  // Moves to the new notifier's list and, for a live notifier, runs the attach sweep.
  void notifierIs(const Ptr<E const>& n) {
    if (n == notifier_) return;
    notifier_ = n;
    listIs(n ? &n->kivNotifiees() : nullptr);
    if (n && !kivIsZombie()) {
      // As safe as a delivery: the owner is held, and what a stub throws goes to the hook.
      KeepAlive hold(kivOwner());
      NotifieeBase::kivCall(this, [this] { kivSweep(); });
    }
  }
  void isRegisteredNotifieeIs(bool on) { registeredIs(on); }

 private:
  Ptr<E const> notifier_;
};

inline void Entity::kivNotify(uint16_t id, const void* key) const {
  if (notifiees_.empty() || !hasNotificationActive()) return;
  auto interested = [id](ListedNotifiee* n) {
    return static_cast<EntityNotifieeBase*>(n)->kivInterested(id);
  };
  if (!notifiees_.any(interested)) return;
  Ptr<Entity const> hold(references() ? this : nullptr);
  notifiees_.visit(interested,
                   [&](ListedNotifiee* n) { static_cast<EntityNotifieeBase*>(n)->kivOnAttr(id, key); });
}

// An entity with a name of its own (directories, singletons, configuration roots).
class NamedEntity : public Entity {
 public:
  explicit NamedEntity(const Name& n) : name_(n) {}
  Name name() const override { return name_; }
  bool kivSameArgs(const Name& n) const { return n == name_; }

 private:
  Name name_;
};

// An entity that is an element of a keyed collection: it carries its key and the chain link.
template <class K>
class KeyedEntity : public Entity, public HashLink<KeyedEntity<K>> {
 public:
  using Key = K;
  explicit KeyedEntity(const K& k) : key_(k) {}
  const K& kivKey() const { return key_; }
  Name name() const override { return Name(ValueTraits<K>::text(key_)); }
  bool kivSameArgs(const K& k) const { return k == key_; }

 private:
  K key_;
};

}  // namespace Kiv
