// Notifiee list maintenance; a removal fixes up every visit in progress on the same list.
#include "kernel/Notifiee.h"

namespace Kiv {

thread_local NotifieeList::Visit* NotifieeList::activeVisits_ = nullptr;

NotifieeList::~NotifieeList() {
  for (Visit* v = activeVisits_; v; v = v->outer) {
    if (v->list == this) v->list = nullptr;
  }
  for (NotifieeBase* n = head_; n;) {
    NotifieeBase* next = n->next_;
    n->listGone();
    n = next;
  }
}

void NotifieeList::add(NotifieeBase* n) {
  n->prev_ = tail_;
  n->next_ = nullptr;
  (tail_ ? tail_->next_ : head_) = n;
  tail_ = n;
}

void NotifieeList::remove(NotifieeBase* n) {
  for (Visit* v = activeVisits_; v; v = v->outer) {
    if (v->next == n) v->next = n->next_;
  }
  (n->prev_ ? n->prev_->next_ : head_) = n->next_;
  (n->next_ ? n->next_->prev_ : tail_) = n->prev_;
  n->prev_ = n->next_ = nullptr;
}

}  // namespace Kiv
