// The tree of machines that mirrors a VLAN's membership entities and keeps their time: one machine per
// group, per interface of a group, and per reporter. They are made and dropped by entity changes only,
// so a tree found at start (a restart) and a tree built by reports run the same way.
#pragma once

#include "kernel/EntityDecl.h"
#include "kernel/Reactor.h"
#include "kernel/StateMachine.h"
#include "model/IgmpGroup.h"

namespace Bridging::IgmpSnooping {

class CoreSm;
class CoreGroupMembershipSm;
class CoreIntfMembershipSm;

// Ages one reporter's membership: exclude memberships end at expire; a check that got its answer
// renews the membership instead.
class CoreMembershipSm : public Kiv::StateMachine, public Kiv::HashLink<CoreMembershipSm> {
 public:
  CoreMembershipSm(Lomax::IpAddr reporter, Kiv::Ptr<IgmpMembership> membership,
                   Kiv::Ptr<Bez::TimerWheel const> timerWheel, CoreIntfMembershipSm* intfSm);
  ~CoreMembershipSm() override;
  const Lomax::IpAddr& kivKey() const { return membership_->kivKey(); }
  void kivCheckParams(const Kiv::Ptr<IgmpMembership>& m, const Kiv::Ptr<Bez::TimerWheel const>&,
                      CoreIntfMembershipSm*) const {
    Kiv::checkParam("membership", membership_, m);
  }

  const Kiv::Ptr<IgmpMembership>& membership() const { return membership_; }
  CoreIntfMembershipSm* intfSm() const { return intfSm_; }
  bool initialized() const { return initialized_; }
  Gmp::Igmp::IgmpFilterMode peerFilterMode() const { return peerFilterMode_; }
  void peerFilterModeIs(Gmp::Igmp::IgmpFilterMode m) { peerFilterMode_ = m; }
  Kiv::Seconds timerTime() const { return membershipTimer_.timeMin(); }
  // The key of this machine in the core's set of memberships that general queries age; 0: not in it.
  uint32_t agingKey() const { return agingKey_; }
  void agingKeyIs(uint32_t k) { agingKey_ = k; }

  void handleMembershipLastReport();
  void handleMembershipExpire();
  void handleMembershipVersion();
  void handleMembershipTimer();
  void handleMembershipAging();

 private:
  class KivMembership : public IgmpMembership::NotifieeConst {
   public:
    explicit KivMembership(CoreMembershipSm* sm) : IgmpMembership::NotifieeConst(sm) {}
    void onExpire() override { sm()->handleMembershipExpire(); }
    void onIgmpVersion() override { sm()->handleMembershipVersion(); }
    void onLastReport() override { sm()->handleMembershipLastReport(); }
    void onFilterMode() override {
      sm()->handleMembershipInterest();
      sm()->handleMembershipAging();
    }
    void onSource(const Lomax::IpAddr&) override { sm()->handleMembershipAging(); }
    void onSourcekivImmediate() override { sm()->handleMembershipAging(); }

   private:
    CoreMembershipSm* sm() const { return static_cast<CoreMembershipSm*>(kivOwner()); }
  };
  void handleInitialized();
  // Report times matter only to an exclude membership: an include one is not told of them.
  void handleMembershipInterest();
  // The membership's group and interface, for traces.
  Lomax::IpAddr groupAddr() const;
  Lomax::IntfId intfId() const;

  Kiv::Ptr<IgmpMembership> membership_;
  CoreIntfMembershipSm* intfSm_;
  // Kept at hand: a refresh reaches the core's status without walking up the machines.
  CoreSm* coreSm_;
  KivMembership kivMembership_;
  Bez::WheelReactor<CoreMembershipSm, &CoreMembershipSm::handleMembershipTimer> membershipTimer_;
  bool initialized_ = false;
  Gmp::Igmp::IgmpFilterMode peerFilterMode_ = Gmp::Igmp::filterModeExclude;
  uint32_t agingKey_ = 0;
};

// Keeps one machine per reporter of a group on an interface, the interface's lowest version, and
// removes the interface's status when its last membership goes.
class CoreIntfMembershipSm : public Kiv::StateMachine, public Kiv::HashLink<CoreIntfMembershipSm> {
 public:
  CoreIntfMembershipSm(Lomax::IntfId intfId, Kiv::Ptr<IgmpIntfStatus> intfStatus,
                       Kiv::Ptr<Bez::TimerWheel const> timerWheel, CoreGroupMembershipSm* groupSm);
  const Lomax::IntfId& kivKey() const { return intfId_; }
  void kivCheckParams(const Kiv::Ptr<IgmpIntfStatus>& s, const Kiv::Ptr<Bez::TimerWheel const>&,
                      CoreGroupMembershipSm*) const {
    Kiv::checkParam("intfStatus", intfStatus_, s);
  }

  Lomax::IntfId intfId() const { return intfId_; }
  const Kiv::Ptr<IgmpIntfStatus>& intfStatus() const { return intfStatus_; }
  const Kiv::Ptr<Bez::TimerWheel const>& timerWheel() const { return timerWheel_; }
  CoreGroupMembershipSm* groupSm() const { return groupSm_; }
  bool initialized() const { return initialized_; }
  CoreMembershipSm* membership(Lomax::IpAddr reporter) const { return membership_.find(reporter); }
  size_t membershipSmCount() const { return membership_.size(); }

  void handleIntfStatusMembership(Lomax::IpAddr reporter);
  void handleIntfStatusMembership();

 protected:
  void kivZombieChildren(bool on) override { Kiv::smZombieAll(membership_, on); }

 private:
  class KivIntfStatus : public IgmpIntfStatus::NotifieeConst {
   public:
    explicit KivIntfStatus(CoreIntfMembershipSm* sm) : IgmpIntfStatus::NotifieeConst(sm) {}
    void onMembership(const Lomax::IpAddr& r) override { sm()->handleIntfStatusMembership(r); }
    void onMembershipkivImmediate() override { sm()->handleIntfStatusMembership(); }

   private:
    CoreIntfMembershipSm* sm() const { return static_cast<CoreIntfMembershipSm*>(kivOwner()); }
  };
  void handleInitialized();

  Lomax::IntfId intfId_;
  Kiv::Ptr<IgmpIntfStatus> intfStatus_;
  Kiv::Ptr<Bez::TimerWheel const> timerWheel_;
  CoreGroupMembershipSm* groupSm_;
  Kiv::SmMap<Lomax::IpAddr, CoreMembershipSm> membership_;
  KivIntfStatus kivIntfStatus_;
  bool initialized_ = false;
};

// Keeps one machine per interface of a group and removes the group when its last interface goes.
class CoreGroupMembershipSm : public Kiv::StateMachine, public Kiv::HashLink<CoreGroupMembershipSm> {
 public:
  CoreGroupMembershipSm(Lomax::IpAddr addr, Kiv::Ptr<IgmpGroup> group, CoreSm* coreSm);
  const Lomax::IpAddr& kivKey() const { return addr_; }
  void kivCheckParams(const Kiv::Ptr<IgmpGroup>& g, CoreSm*) const { Kiv::checkParam("group", group_, g); }

  Lomax::IpAddr addr() const { return addr_; }
  const Kiv::Ptr<IgmpGroup>& group() const { return group_; }
  CoreSm* coreSm() const { return coreSm_; }
  bool initialized() const { return initialized_; }
  CoreIntfMembershipSm* intfSm(Lomax::IntfId intf) const { return intfSm_.find(intf); }

  void handleGroupIntf(Lomax::IntfId intf);
  void handleGroupIntf();

 protected:
  void kivZombieChildren(bool on) override { Kiv::smZombieAll(intfSm_, on); }

 private:
  class KivIgmpGroup : public IgmpGroup::NotifieeConst {
   public:
    explicit KivIgmpGroup(CoreGroupMembershipSm* sm) : IgmpGroup::NotifieeConst(sm) {}
    void onIntf(const Lomax::IntfId& i) override { sm()->handleGroupIntf(i); }
    void onIntfkivImmediate() override { sm()->handleGroupIntf(); }

   private:
    CoreGroupMembershipSm* sm() const { return static_cast<CoreGroupMembershipSm*>(kivOwner()); }
  };
  void handleInitialized();

  Lomax::IpAddr addr_;
  Kiv::Ptr<IgmpGroup> group_;
  CoreSm* coreSm_;
  Kiv::SmMap<Lomax::IntfId, CoreIntfMembershipSm> intfSm_;
  KivIgmpGroup kivIgmpGroup_;
  bool initialized_ = false;
};

}  // namespace Bridging::IgmpSnooping
