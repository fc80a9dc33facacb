// Keeps the agent's list of interfaces that want packet access free of the MLAG peer's interfaces,
// whose names begin with "Peer": they never get a packet source on this switch.
#pragma once

#include "glue/PamDesiredIntfDir.h"
#include "kernel/StateMachine.h"

namespace IgmpShim {

class LocalIntfFilter : public Kiv::StateMachine {
 public:
  LocalIntfFilter(Kiv::Ptr<Interface::PamDesiredIntfDir const> inputIntfDir,
                  Kiv::Ptr<Interface::PamDesiredIntfDir> localIntfDir);

  const Kiv::Ptr<Interface::PamDesiredIntfDir const>& inputIntfDir() const { return inputIntfDir_; }
  const Kiv::Ptr<Interface::PamDesiredIntfDir>& localIntfDir() const { return localIntfDir_; }
  void handleIntf(Lomax::IntfId intf);
  void handleIntf();

 private:
  class KivInputIntfDir : public Interface::PamDesiredIntfDir::NotifieeConst {
   public:
    explicit KivInputIntfDir(LocalIntfFilter* f) : NotifieeConst(f) {}
    void onIntfDesired(const Lomax::IntfId& intf) override { filter()->handleIntf(intf); }
    void onIntfDesiredkivImmediate() override { filter()->handleIntf(); }

   private:
    LocalIntfFilter* filter() const { return static_cast<LocalIntfFilter*>(kivOwner()); }
  };

  Kiv::Ptr<Interface::PamDesiredIntfDir const> inputIntfDir_;
  Kiv::Ptr<Interface::PamDesiredIntfDir> localIntfDir_;
  KivInputIntfDir kivInputIntfDir_;
};

}  // namespace IgmpShim
