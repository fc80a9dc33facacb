// The packet-access objects of the device interfaces, one per interface the agent wants, kept by the
// platform's EthDevPamManager; the agent-wide glue gives each a multiplexer.
#pragma once

#include <map>
#include <vector>

#include "glue/Pam.h"
#include "kernel/Ptr.h"
#include "net/IntfId.h"

namespace Interface {

class EthDevPamCollection : public Kiv::PtrInterface {
 public:
  // Told of every interface whose packet access appears, is replaced or goes.
  class Notifiee {
   public:
    virtual ~Notifiee() = default;
    virtual void onIntfPam(Lomax::IntfId intf) = 0;
  };

  explicit EthDevPamCollection(const Kiv::Name& name) : name_(name) {}
  const Kiv::Name& name() const { return name_; }

  Kiv::Ptr<Lomax::Pam> intfPam(Lomax::IntfId intf) const {
    auto it = intfPam_.find(intf);
    return it == intfPam_.end() ? nullptr : it->second;
  }
  void intfPamIs(Lomax::IntfId intf, Kiv::Ptr<Lomax::Pam> pam) {
    Kiv::Ptr<Lomax::Pam>& slot = intfPam_[intf];
    if (slot == pam) return;
    slot = std::move(pam);
    doNotify(intf);
  }
  void intfPamDel(Lomax::IntfId intf) {
    if (intfPam_.erase(intf)) doNotify(intf);
  }
  size_t intfPamSize() const { return intfPam_.size(); }
  // In interface order.
  const std::map<Lomax::IntfId, Kiv::Ptr<Lomax::Pam>>& intfPams() const { return intfPam_; }

  void notifieeAdd(Notifiee* n) { notifiees_.push_back(n); }
  void notifieeDel(Notifiee* n) { std::erase(notifiees_, n); }

 private:
  void doNotify(Lomax::IntfId intf) {
    // A notifiee may leave while it is told.
    const std::vector<Notifiee*> told = notifiees_;
    for (Notifiee* n : told) n->onIntfPam(intf);
  }

  Kiv::Name name_;
  std::map<Lomax::IntfId, Kiv::Ptr<Lomax::Pam>> intfPam_;
  std::vector<Notifiee*> notifiees_;
};

}  // namespace Interface
