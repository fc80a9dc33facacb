// The base of every reactor, and the notifiee list that an entity keeps of its reactors.
// A reactor follows an owner: itself when it stands alone, its state machine when it is one of the
// machine's nested reactors. The owner's marked-for-deletion flag makes the reactor a zombie, and the
// owner is kept alive while one of its reactors is being called. Only entity reactors join lists
// (ListedNotifiee); timer reactors keep their own links, so the base carries no list fields.
#pragma once

#include <exception>

#include "kernel/Ptr.h"

namespace Kiv {

class ListedNotifiee;

// Holds an object across a call that may drop its last other reference. An object with no reference
// (one still in its constructor, or one its owner keeps by value or unique_ptr) is left alone: its
// owner may destroy it inside the call, so nothing may touch it afterwards.
class KeepAlive {
 public:
  explicit KeepAlive(const PtrInterface* p) : p_(p && p->references() ? p : nullptr) {
    if (p_) p_->newRef();
  }
  ~KeepAlive() {
    if (p_) p_->deleteRef();
  }
  KeepAlive(const KeepAlive&) = delete;
  KeepAlive& operator=(const KeepAlive&) = delete;

 private:
  const PtrInterface* p_;
};

// Intrusive doubly linked list of notifiees. Visiting survives handlers that add or remove members
// (even the one being called) or drop the list's owner: removal advances any visit that stands on it.
class NotifieeList {
 public:
  NotifieeList() = default;
  NotifieeList(const NotifieeList&) = delete;
  NotifieeList& operator=(const NotifieeList&) = delete;
  ~NotifieeList();

  bool empty() const { return head_ == nullptr; }
  // Starts loading the first member and the memory around it, where the object that embeds it (a
  // reactor's state machine, typically) keeps the state its reaction touches: a caller that knows a
  // change is coming lets that load run alongside its own work.
  void prefetch() const {
    if (!head_) return;
    const char* at = reinterpret_cast<const char*>(head_);
    for (int line = -1; line <= 2; ++line) __builtin_prefetch(at + 64 * line);
  }
  void add(ListedNotifiee* n);
  void remove(ListedNotifiee* n);

  // Calls fn(n) for each member that is not a zombie, holding its owner meanwhile.
  template <class Fn>
  void visit(Fn&& fn) {
    visit([](ListedNotifiee*) { return true; }, fn);
  }
  // The same for the members for which wants(n) holds; the others are passed over before any hold.
  template <class Wants, class Fn>
  void visit(Wants&& wants, Fn&& fn);
  // Whether wants(n) holds for some member.
  template <class Wants>
  bool any(Wants&& wants) const;

 private:
  struct Visit {
    NotifieeList* list;
    ListedNotifiee* next;
    Visit* outer;
  };
  static constinit thread_local Visit* activeVisits_;
  ListedNotifiee* head_ = nullptr;
  friend class ListedNotifiee;
};

class NotifieeBase : public PtrInterface {
 public:
  explicit NotifieeBase(PtrInterface* owner = nullptr) : owner_(owner ? owner : this) {}
  NotifieeBase(const NotifieeBase&) = delete;
  NotifieeBase& operator=(const NotifieeBase&) = delete;

  PtrInterface* kivOwner() const { return owner_; }
  bool kivIsZombie() const { return owner_->kivMarkedForDeletion(); }
  bool isRegisteredNotifiee() const { return registered_; }

  // Called with what one of this notifiee's handlers threw, in place of the unwinding that would end
  // every nested setter at std::terminate; the notification goes on to the next notifiee when it
  // returns. Unless overridden: notificationExceptionUnhandled.
  virtual void onNotificationException(std::exception_ptr e) { notificationExceptionUnhandled(*this, e); }
  // Prints the exception and the handler's site (the notifiee's type) to stderr and the ring, then
  // aborts: an exception no handler expected is a broken invariant.
  [[noreturn]] static void notificationExceptionUnhandled(const NotifieeBase& n, std::exception_ptr e);
  // Runs one handler of n, giving what it throws to n's onNotificationException.
  template <class Fn>
  static void kivCall(NotifieeBase* n, Fn&& fn) {
    try {
      fn();
    } catch (...) {
      n->onNotificationException(std::current_exception());
    }
  }

 protected:
  void registeredIs(bool on) { registered_ = on; }

 private:
  // First, so that it fills the padding behind the reference count: there is one of these in every
  // membership's machine, twice.
  bool registered_ = true;
  PtrInterface* owner_;
};

// A notifiee that joins the NotifieeList of the object it watches.
class ListedNotifiee : public NotifieeBase {
 public:
  using NotifieeBase::NotifieeBase;
  ~ListedNotifiee() override { detach(); }

 protected:
  // The list of the watched object, or null; set by the typed notifierIs of each notifiee kind.
  void listIs(NotifieeList* list) {
    if (list == list_) return;
    detach();
    list_ = list;
    if (list_ && isRegisteredNotifiee()) list_->add(this);
  }
  void registeredIs(bool on) {
    if (on == isRegisteredNotifiee()) return;
    NotifieeBase::registeredIs(on);
    if (!list_) return;
    on ? list_->add(this) : list_->remove(this);
  }
  // Called when the watched object goes away under the notifiee.
  void listGone() { list_ = nullptr, prev_ = next_ = nullptr; }

 private:
  void detach() {
    if (list_ && isRegisteredNotifiee()) list_->remove(this);
    list_ = nullptr;
  }
  NotifieeList* list_ = nullptr;
  ListedNotifiee* prev_ = nullptr;
  ListedNotifiee* next_ = nullptr;
  friend class NotifieeList;
};

template <class Wants>
bool NotifieeList::any(Wants&& wants) const {
  for (ListedNotifiee* n = head_; n; n = n->next_) {
    if (wants(n)) return true;
  }
  return false;
}

template <class Wants, class Fn>
void NotifieeList::visit(Wants&& wants, Fn&& fn) {
  Visit v{this, head_, activeVisits_};
  activeVisits_ = &v;
  struct Pop {
    Visit* v;
    ~Pop() { activeVisits_ = v->outer; }
  } pop{&v};
  // The hold on the owner is taken by hand, outside the try, so that it still stands when what a
  // handler threw reaches the handler's hook; one try around the loop keeps the loop as it was.
  // An owner with no reference is not held, as KeepAlive does not hold one.
  struct Held {
    const PtrInterface* p = nullptr;
    void take(const PtrInterface* o) {
      if (!o->references()) return;
      p = o;
      o->newRef();
    }
    void drop() {
      const PtrInterface* o = p;
      p = nullptr;
      if (o) o->deleteRef();
    }
  } held;
  ListedNotifiee* current = nullptr;
  for (;;) {
    try {
      while (v.list && v.next) {
        ListedNotifiee* n = v.next;
        v.next = n->next_;
        if (!wants(n) || n->kivIsZombie()) continue;
        current = n;
        held.take(n->kivOwner());
        fn(n);
        held.drop();
      }
      return;
    } catch (...) {
      struct Drop {
        Held& h;
        ~Drop() { h.drop(); }
      } drop{held};
      current->onNotificationException(std::current_exception());
    }
  }
}

}  // namespace Kiv
