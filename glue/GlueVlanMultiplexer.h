// The multiplexers of the VLAN glue. A received frame is sorted by its tag (or the port's default VLAN)
// and handed, tag removed, to that VLAN's GlueVlanSm; a transmitted frame leaves tagged or untagged as
// the bridge configures the port in that VLAN. VirtualIntfGlueVlanMultiplexer serves the pseudo-
// interface "Switch" of the switch's own stack, GlueVlanMultiplexer each front-panel port.
#pragma once

#include "glue/BridgingConfig.h"
#include "glue/VlanPktMultiplexer.h"

namespace IgmpShim {

class GlueVlanSm;
class GlueVlanMultiplexerDir;

class VirtualIntfGlueVlanMultiplexer : public Lomax::VlanPktMultiplexer {
 public:
  VirtualIntfGlueVlanMultiplexer(Lomax::IntfId intf, Kiv::Ptr<Lomax::Pam> innerPam);
  ~VirtualIntfGlueVlanMultiplexer() override;

  // The directory that holds this multiplexer; it holds the multiplexer, so this is no reference.
  GlueVlanMultiplexerDir* manager() const { return manager_; }
  void managerIs(GlueVlanMultiplexerDir* m) { manager_ = m; }

  // The VLANs that take packets from this interface.
  GlueVlanSm* vlanSm(Bridging::VlanId vlan) const;
  void vlanSmIs(const Kiv::Ptr<GlueVlanSm>& sm);
  void vlanSmDel(Bridging::VlanId vlan);
  void vlanSmDelAll();
  size_t vlanSmSize() const { return vlanSm_.size(); }

  // The VLAN of an untagged frame, 0 when such frames are dropped.
  uint16_t defaultVlan() const { return defaultVlan_; }
  void defaultVlanIs(uint16_t v) { defaultVlan_ = v; }

  void handleRxPkt() override;
  void handleTxPkt(Bridging::VlanId vlan, Kiv::Ptr<Lomax::Pkt> pkt) override;
  virtual void doUpdateDefaultVlan();
  // Bring blocked up to date from the topology of the VLANs served.
  void handleVlanIntf(Bridging::VlanId vlan);
  void handleVlanIntf();

 protected:
  // A VLAN served, with what transmit last found of this port's membership of it in the bridge's
  // configuration; an entry that has left the configuration has lost its parent and is looked up
  // again.
  struct Served {
    Kiv::Ptr<GlueVlanSm> sm;
    Kiv::Ptr<Bridging::VlanPortConfig const> egress;
    bool operator==(const Served&) const = default;
  };
  Served* served(Bridging::VlanId vlan) { return vlanSm_.find(vlan); }

 private:
  Kiv::HashMap2018<Bridging::VlanId, Served> vlanSm_;
  GlueVlanMultiplexerDir* manager_ = nullptr;
  uint16_t defaultVlan_ = 0;
};

class GlueVlanMultiplexer : public VirtualIntfGlueVlanMultiplexer {
 public:
  using VirtualIntfGlueVlanMultiplexer::VirtualIntfGlueVlanMultiplexer;

  // The bridge's configuration of this port, read afresh for every untagged frame.
  const Kiv::Ptr<Bridging::SwitchIntfConfig const>& switchIntfConfig() const { return switchIntfConfig_; }
  void switchIntfConfigIs(Kiv::Ptr<Bridging::SwitchIntfConfig const> c) { switchIntfConfig_ = std::move(c); }

  void handleTxPkt(Bridging::VlanId vlan, Kiv::Ptr<Lomax::Pkt> pkt) override;
  void doUpdateDefaultVlan() override;

 private:
  Kiv::Ptr<Bridging::SwitchIntfConfig const> switchIntfConfig_;
};

}  // namespace IgmpShim
