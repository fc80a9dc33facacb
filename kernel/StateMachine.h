// Base of the state machines: the zombie sweep over a machine and the machines it owns, keyed
// collections of child machines, and the checks of their constructor arguments.
#pragma once

#include <sstream>
#include <string>

#include "kernel/Exception.h"
#include "kernel/HashMap.h"
#include "kernel/Ptr.h"

namespace Kiv {

class StateMachine : public PtrInterface {
 public:
  // Marks this machine and, recursively, every machine it owns, as zombies (or revives them): a
  // zombie's reactors never reach it again.
  void kivDoZombieReactors(bool on) {
    kivMarkedForDeletionIs(on);
    kivZombieChildren(on);
  }

 protected:
  virtual void kivZombieChildren(bool) {}
};

namespace detail {
template <class T>
std::string paramText(const T& v) {
  if constexpr (requires(std::ostream & os) { os << v; }) {
    std::ostringstream os;
    os << v;
    return os.str();
  } else {
    return std::to_string(reinterpret_cast<uintptr_t>(&*v));
  }
}
}  // namespace detail

// Throws the name-in-use exception when a child is asked for again with a different argument.
template <class T>
void checkParam(const char* name, const T& current, const T& requested) {
  if (current == requested) return;
  throwNameInUseException(
      std::string("Reinstantiating the pointer interface where constructor parameter attribute _") + name +
      " has a different value of " + detail::paramText(requested) + " than the current value of " +
      detail::paramText(current) + " not allowed");
}

// A child machine kept in a keyed collection provides kivKey(), kivCheckParams(args...) and the link.
template <class Sm>
struct SmKeyFn {
  const auto& operator()(const Sm& s) const { return s.kivKey(); }
};
template <class K, class Sm>
using SmMap = HashMap<K, Sm, SmKeyFn<Sm>>;

// The fooIs of a collection of child machines: the existing machine when its arguments match, else a
// new one built from (key, args...) that inherits the parent's zombie flag.
template <class Sm, class K, class... A>
Ptr<Sm> smIs(SmMap<K, Sm>& map, const StateMachine& parent, const K& key, const A&... args) {
  if (Sm* s = map.find(key)) {
    s->kivCheckParams(args...);
    return Ptr<Sm>(s);
  }
  Ptr<Sm> s(new Sm(key, args...));
  s->kivDoZombieReactors(parent.kivMarkedForDeletion());
  map.insert(key, s);
  return s;
}

// Removes a child machine; it becomes a zombie so that nothing it still hears reaches it.
template <class Sm, class K>
Ptr<Sm> smDel(SmMap<K, Sm>& map, const K& key) {
  Ptr<Sm> s = map.take(key);
  if (s) s->kivDoZombieReactors(true);
  return s;
}

template <class K, class Sm>
void smZombieAll(const SmMap<K, Sm>& map, bool on) {
  for (auto& s : map.iter()) s->kivDoZombieReactors(on);
}

}  // namespace Kiv
