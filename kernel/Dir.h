// Directory entities: named entries of any entity type, nested directories, and the process root.
#pragma once

#include "kernel/Entity.h"
#include "kernel/Exception.h"

namespace Kiv {

class Dir : public NamedEntity {
 public:
  explicit Dir(const Name& n) : NamedEntity(n) {}
  ~Dir() override;
  const TypeInfo& typeInfo() const override;

  // Through a read-only directory, entries are read-only too.
  Ptr<Entity> entityRef(const Name& n) {
    const Ptr<Entity>* e = entries_.find(n);
    return e ? *e : nullptr;
  }
  Ptr<Entity const> entityRef(const Name& n) const { return const_cast<Dir*>(this)->entityRef(n); }
  // Follows a path of entry names separated by '/'; null if any step is missing.
  Ptr<Entity> entityRefPath(std::string_view path);
  Ptr<Entity const> entityRefPath(std::string_view path) const {
    return const_cast<Dir*>(this)->entityRefPath(path);
  }
  // The entry n of type T, made if absent; an entry of another type under that name is an error.
  template <class T>
  Ptr<T> entryIs(const Name& n) {
    if (Ptr<Entity> e = entityRef(n)) {
      if (auto t = dynamic_cast<T*>(e.ptr())) return Ptr<T>(t);
      throwNameInUseException("entry " + n.stdString() + " of " + name().stdString() +
                              " exists with another type");
    }
    Ptr<T> t(new T(n));
    adopt(n, t);
    return t;
  }
  // Places an existing entity under this directory (a mount).
  void entryIs(const Name& n, const Ptr<Entity>& e);
  Ptr<Dir> subdirIs(const Name& n) { return entryIs<Dir>(n); }
  Ptr<Entity> entryDel(const Name& n);
  size_t entries() const { return entries_.size(); }
  auto entryIter() const { return entries_.iter(); }

  class NotifieeConst : public EntityNotifiee<Dir> {
   public:
    using EntityNotifiee<Dir>::EntityNotifiee;
    virtual void onEntry(const Name&) {}
    virtual void onEntrykivImmediate() {}
    void kivOnAttr(uint16_t, const void* key) override {
      key ? onEntry(*static_cast<const Name*>(key)) : onEntrykivImmediate();
    }
    void kivSweep() override { onEntrykivImmediate(); }
  };

 private:
  void adopt(const Name& n, const Ptr<Entity>& e);
  HashMap2018<Name, Ptr<Entity>> entries_;
};

// The root of the process's entity tree.
Ptr<Dir> globalDir();

}  // namespace Kiv
