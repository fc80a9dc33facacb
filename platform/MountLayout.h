// How a mounted entity tree lies in Redis, layout version 1 (docs/state-database.md has the full
// description). A record is an entity with a hash of its own, keyed by the mount's path and the
// steps down to it; a folded entity (a pointer child, an entity of a folded type, and everything
// under one) lives as fields of the record above it. In a record's hash:
//   <attr>              a scalar of the record, as text
//   <attr>=<key>        an element of a value collection, its value as text
//   <step>|<step>...    a folded entity: its scalars as text joined by ',' (declared order)
//   <steps>|<attr>=<key>  an element of a folded entity's value collection
//   _seq                the sequence of the change that last wrote the hash
// A step is <attr>=<key>, or the bare <key> where the owning type has one collection of entities (or
// one pointer child) and the key is no attribute's name. Keys and joined scalars escape % | = , and
// control bytes as %XX. Everything is read and written through the reflection table.
#pragma once

#include <functional>
#include <string>
#include <string_view>
#include <utility>
#include <vector>

#include "kernel/Entity.h"

namespace Platform {

using Fields = std::vector<std::pair<std::string, std::string>>;

class MountLayout {
 public:
  static constexpr int version = 1;

  // path: where the tree is mounted, which prefixes its keys ('|', '*', '?', '[', ']' and '\' are
  // not allowed in it); foldedTypes: names of the entity types kept in their parent's record.
  MountLayout(std::string path, std::vector<std::string> foldedTypes);
  static bool pathValid(std::string_view path);

  const std::string& path() const { return path_; }
  std::string metaKey() const { return "meta|" + path_; }
  std::string logKey() const { return "log|" + path_; }
  std::string scanPattern() const { return path_ + "|*"; }
  void rootIs(const Kiv::Entity* root) { root_ = root; }
  const Kiv::Entity* root() const { return root_; }

  // Whether e (in the tree) starts a folded subtree, or lies in one.
  bool foldsItself(const Kiv::Entity& e) const;
  bool folded(const Kiv::Entity& e) const;
  // The record whose hash holds e: e itself, or the record above its folded subtree.
  const Kiv::Entity* recordOf(const Kiv::Entity& e) const;
  std::string recordKey(const Kiv::Entity& record) const;
  // The field that holds a folded entity's scalars.
  std::string fieldOf(const Kiv::Entity& folded) const;
  // The field of element key of the value collection a of e (a record or a folded entity).
  std::string elementField(const Kiv::Entity& e, const Kiv::AttrInfo& a, std::string_view key) const;
  std::string compactValue(const Kiv::Entity& folded) const;

  // Every field of a record's hash but _seq.
  void encodeRecord(const Kiv::Entity& record, Fields& out) const;
  // The fields that a folded entity and its subtree take in their record, with and without values.
  void encodeFolded(const Kiv::Entity& folded, Fields& out) const;
  void foldedFields(const Kiv::Entity& folded, std::vector<std::string>& out) const;
  // Calls fn on a record and every record beneath it, parents first.
  void forEachRecord(const Kiv::Entity& record, const std::function<void(const Kiv::Entity&)>& fn) const;

  // The record of key under root, made with its missing ancestors when create is set; null with the
  // reason in why when the key is not one of this mount's or does not parse.
  Kiv::Entity* recordAt(Kiv::Entity& root, std::string_view key, bool create, std::string& why) const;
  // Removes the record of key and its subtree; false when there was none or the key is bad.
  bool recordDel(Kiv::Entity& root, std::string_view key) const;
  // Makes record (with its folded subtree) what the fields say: scalars set, elements and folded
  // entities added, changed or removed, through the setters. A field that does not parse is skipped
  // and named in problems.
  void recordApply(Kiv::Entity& record, const Fields& fields, std::vector<std::string>& problems) const;

 private:
  std::string stepOf(const Kiv::Entity& e) const;
  void encodeFoldedAt(const Kiv::Entity& e, const std::string& field, Fields& out) const;
  struct Keep;
  bool applyField(Kiv::Entity& record, std::string_view field, std::string_view value, Keep& keep,
                  std::string& why) const;
  // Removes the elements and folded entities of e that keep does not name; a record's collections of
  // records are not its to prune.
  void prune(Kiv::Entity& e, const Keep& keep, bool isRecord) const;
  bool typeFolded(const char* name) const;
  // Whether a record holds no element and no folded entity.
  bool empty(const Kiv::Entity& record) const;

  std::string path_;
  std::vector<std::string> foldedTypes_;
  const Kiv::Entity* root_ = nullptr;
};

}  // namespace Platform
