// Notifiee list maintenance; a removal fixes up every visit in progress on the same list.
#include "kernel/Notifiee.h"

#include <cxxabi.h>

#include <cstdio>
#include <cstdlib>
#include <memory>
#include <string>
#include <typeinfo>

#include "kernel/Exception.h"
#include "kernel/Trace.h"

namespace Kiv {

void NotifieeBase::notificationExceptionUnhandled(const NotifieeBase& n, std::exception_ptr e) {
  std::string what = "an exception of unknown type";
  try {
    std::rethrow_exception(e);
  } catch (const std::exception& x) {
    what = std::string(x.what());
  } catch (...) {
  }
  const char* mangled = typeid(n).name();
  int status = 0;
  std::unique_ptr<char, decltype(&std::free)> demangled(
      abi::__cxa_demangle(mangled, nullptr, nullptr, &status), &std::free);
  const std::string site = status == 0 && demangled ? demangled.get() : mangled;
  KIV_RING(0, "Unhandled exception in notification handler " << site << ": " << what);
  std::fprintf(stderr, "Unhandled exception in notification handler %s: %s\n", site.c_str(), what.c_str());
  std::fflush(stderr);
  std::abort();
}

constinit thread_local NotifieeList::Visit* NotifieeList::activeVisits_ = nullptr;

NotifieeList::~NotifieeList() {
  for (Visit* v = activeVisits_; v; v = v->outer) {
    if (v->list == this) v->list = nullptr;
  }
  for (ListedNotifiee* n = head_; n;) {
    ListedNotifiee* next = n->next_;
    n->listGone();
    n = next;
  }
}

// Appends: members are called in the order they joined. Lists are short, so the walk is cheap, and
// it saves a tail pointer in every entity.
void NotifieeList::add(ListedNotifiee* n) {
  ListedNotifiee* last = head_;
  while (last && last->next_) last = last->next_;
  n->prev_ = last;
  n->next_ = nullptr;
  (last ? last->next_ : head_) = n;
}

void NotifieeList::remove(ListedNotifiee* n) {
  for (Visit* v = activeVisits_; v; v = v->outer) {
    if (v->next == n) v->next = n->next_;
  }
  (n->prev_ ? n->prev_->next_ : head_) = n->next_;
  if (n->next_) n->next_->prev_ = n->prev_;
  n->prev_ = n->next_ = nullptr;
}

}  // namespace Kiv
