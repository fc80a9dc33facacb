// The nested reactors of GlueVlanSm, shared by the files that implement it.
#pragma once

#include "glue/GlueVlanSm.h"

namespace IgmpShim {

using Bridging::IgmpSnooping::IgmpContextStatus;
using Bridging::IgmpSnooping::IgmpGroup;
using Bridging::IgmpSnooping::IpGroup;
using Bridging::IgmpSnooping::VlanConfig;

class GlueVlanSm::KivIgmpVlanConfig : public VlanConfig::NotifieeConst {
 public:
  explicit KivIgmpVlanConfig(GlueVlanSm* sm) : VlanConfig::NotifieeConst(sm) {}
  void onEnabled() override { sm()->handleIgmpSnoopingEnabled(); }
  void onMaxGroups() override { sm()->handleMaxGroups(); }
  void onImmediateLeave() override { sm()->handleVlanImmediateLeave(); }
  void onIpGroup(const Lomax::IpAddr& ip) override { sm()->handleIgmpIpGroup(ip); }
  void onIpGroupkivImmediate() override { sm()->handleIgmpIpGroup(); }
  void onRouterIntf(const Lomax::IntfId& intf) override { sm()->handleStaticRouter(intf); }
  void onRouterIntfkivImmediate() override { sm()->handleStaticRouter(); }
  void onSwitchPort(const Lomax::IntfId& intf) override { sm()->handleSwitchPort(intf); }
  void onSwitchPortkivImmediate() override { sm()->handleSwitchPort(); }
  void onReportFloodingConfig() override { sm()->handleReportFloodingEnabled(); }
  void onVlanQuerierConfig() override { sm()->handleVlanQuerierConfig(); }

 private:
  GlueVlanSm* sm() const { return static_cast<GlueVlanSm*>(kivOwner()); }
};

class GlueVlanSm::KivVlanQuerierConfig : public Bridging::IgmpSnooping::VlanQuerierConfig::NotifieeConst {
 public:
  explicit KivVlanQuerierConfig(GlueVlanSm* sm) : NotifieeConst(sm) {}
  void onEnabledConfigured() override { sm()->handleQuerierEnabled(); }
  void onIpAddrConfigured() override { sm()->handleQuerierIpAddr(); }
  void onQueryIntervalConfigured() override { sm()->handleQuerierQueryInterval(); }
  void onQueryResponseIntervalConfigured() override { sm()->handleQuerierQueryResponseInterval(); }
  void onLastMemberQueryCountConfigured() override { sm()->handleQuerierLastMemberQueryCount(); }
  void onLastMemberQueryIntervalConfigured() override { sm()->handleQuerierLastMemberQueryInterval(); }
  void onStartupQueryCountConfigured() override { sm()->handleQuerierStartupQueryCount(); }
  void onStartupQueryIntervalConfigured() override { sm()->handleQuerierStartupQueryInterval(); }
  void onQuerierVersionConfigured() override { sm()->handleQuerierVersion(); }
  void onMtuConfigured() override { sm()->handleMtu(); }

 private:
  GlueVlanSm* sm() const { return static_cast<GlueVlanSm*>(kivOwner()); }
};

class GlueVlanSm::KivCoreStatus : public IgmpContextStatus::NotifieeConst {
 public:
  explicit KivCoreStatus(GlueVlanSm* sm) : IgmpContextStatus::NotifieeConst(sm) {}
  void onGroup(const Lomax::IpAddr& ip) override { sm()->handleIgmpGroup(ip); }
  void onGroupkivImmediate() override { sm()->handleIgmpGroup(); }
  void onRouter(const Lomax::IpAddr& ip) override { sm()->handleRouter(ip); }
  void onRouterkivImmediate() override { sm()->handleRouter(); }
  void onConfident() override { sm()->handleConfident(); }
  void onReportFloodingEnabled() override { sm()->handleReportFloodingEnabled(); }
  void onCoreSmStateRebuilding() override { sm()->handleEthGroup(); }

 private:
  GlueVlanSm* sm() const { return static_cast<GlueVlanSm*>(kivOwner()); }
};

// Follows one IP group of the core's status: its ports come and go.
class GlueVlanSm::KivIgmpGroup : public IgmpGroup::NotifieeConst {
 public:
  explicit KivIgmpGroup(GlueVlanSm* sm) : IgmpGroup::NotifieeConst(sm) {}
  void onIntf(const Lomax::IntfId& intf) override { sm()->handleIgmpGroupIntfs(ip(), intf); }
  void onIntfkivImmediate() override { sm()->handleIgmpGroup(ip()); }

 private:
  GlueVlanSm* sm() const { return static_cast<GlueVlanSm*>(kivOwner()); }
  Lomax::IpAddr ip() const { return notifier()->addr(); }
};

// Follows one static group of the configuration.
class GlueVlanSm::KivStaticGroup : public IpGroup::NotifieeConst {
 public:
  explicit KivStaticGroup(GlueVlanSm* sm) : IpGroup::NotifieeConst(sm) {}
  void onIntf(const Lomax::IntfId& intf) override { sm()->handleStaticIntf(notifier()->addr(), intf); }
  void onIntfkivImmediate() override { sm()->handleStaticIntfs(notifier()->addr()); }

 private:
  GlueVlanSm* sm() const { return static_cast<GlueVlanSm*>(kivOwner()); }
};

class GlueVlanSm::KivTopoVlan : public TopoVlan::NotifieeConst {
 public:
  explicit KivTopoVlan(GlueVlanSm* sm) : TopoVlan::NotifieeConst(sm) {}
  void onPort(const Lomax::IntfId& intf) override { sm()->handleTopoPort(intf); }
  void onPortkivImmediate() override {
    for (auto& p : notifier()->portIter()) sm()->handleTopoPort(p.key());
  }

 private:
  GlueVlanSm* sm() const { return static_cast<GlueVlanSm*>(kivOwner()); }
};

class GlueVlanSm::KivGlueTopoPort : public Topology::Library::Vlan::Port::NotifieeConst {
 public:
  explicit KivGlueTopoPort(GlueVlanSm* sm) : Topology::Library::Vlan::Port::NotifieeConst(sm) {}
  void onBlocked() override { sm()->handleTopoPortBlocked(notifier()->intf()); }
  void onAllowedTrafficDirection() override { sm()->handleTopoPortDirection(notifier()->intf()); }

 private:
  GlueVlanSm* sm() const { return static_cast<GlueVlanSm*>(kivOwner()); }
};

}  // namespace IgmpShim
