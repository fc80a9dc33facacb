// The snooping core of one VLAN.
//
// What it holds: nothing of its own worth saving. The VLAN's state lies in IgmpContextStatus and the
// entities under it (groups, interfaces, memberships, routers, the querier), which survive a restart;
// the core and its child machines rebuild themselves from them at construction.
//
// How a packet flows: the VLAN glue hands an IPv4 packet whose protocol is IGMP or PIM to doRxPkt.
// doParseIgmp checks, counts and classifies it; reports become group records for
// doIgmpMembershipReportProcess (filter profile and group limit, then the record-type transitions on the
// membership tree); queries age memberships (doIgmpMembershipQueryProcess), elect the querier and
// refresh the router list; PIM, DVMRP and MRD packets refresh routers (doMulticastRouter). The decision
// to forward leaves as an IgmpSnoopingFloodReq on the flooder. Entity changes drive the machine tree
// (CoreGroupMembershipSm, CoreIntfMembershipSm, CoreMembershipSm, CoreRouterSm, CoreQuerierSm) which
// keeps time on the timer wheel.
//
// RFCs: 1112 (mapping), 2236 (IGMPv2), 3376 (IGMPv3), 4541 (snooping), 4286 (MRD), 7761 (PIM).
#pragma once

#include <ostream>
#include <vector>

#include "core/CoreMembershipSm.h"
#include "core/CorePeerSyncSm.h"
#include "core/IgmpSnoopingFlooder.h"
#include "core/IntfStateControl.h"
#include "kernel/Reactor.h"
#include "kernel/StateMachine.h"
#include "model/Config.h"
#include "model/IgmpContextStatus.h"
#include "model/IgmpCounterDir.h"
#include "model/IgmpProfile.h"
#include "model/IgmpProtocolConfig.h"
#include "net/IgmpGroupRecord.h"
#include "net/IgmpQuery.h"
#include "net/IgmpV12Hdr.h"
#include "net/IgmpV3Report.h"
#include "net/IpHdr.h"

namespace Bridging::IgmpSnooping {

class CoreQuerierSm;
class CoreRouterSm;
class IntfQuerySpoofer;

class CoreSm : public Kiv::StateMachine {
 public:
  struct GroupAddressFloodTypePair {
    Lomax::IpAddr groupAddress;
    IgmpSnoopingFloodType floodType = floodTypeVlan;
    bool operator==(const GroupAddressFloodTypePair&) const = default;
  };
  static constexpr uint32_t maxNumQuerierNotSeen = 2;

  CoreSm(Kiv::Ptr<Config const> config, Kiv::Ptr<IgmpContextStatus> status,
         Kiv::Ptr<IgmpCounterDir> counterDir, Kiv::Ptr<IgmpContextConfig const> contextConfig,
         Kiv::Ptr<IgmpProfile::ProfileConfig const> profileConfig, Kiv::Ptr<Bez::TimerWheel const> timerWheel,
         Kiv::Ptr<Bez::TimerWheel const> timerWheel2);
  ~CoreSm() override;

  const Kiv::Ptr<Config const>& config() const { return config_; }
  const Kiv::Ptr<IgmpContextStatus>& status() const { return status_; }
  const Kiv::Ptr<IgmpCounterDir>& counterDir() const { return counterDir_; }
  const Kiv::Ptr<IgmpContextConfig const>& contextConfig() const { return contextConfig_; }
  const Kiv::Ptr<IgmpProfile::ProfileConfig const>& profileConfig() const { return profileConfig_; }
  const Kiv::Ptr<Bez::TimerWheel const>& timerWheel() const { return timerWheel_; }
  const Kiv::Ptr<Bez::TimerWheel const>& timerWheel2() const { return timerWheel2_; }
  bool initialized() const { return initialized_; }
  // The owner sets it once the core's ports and settings are in place; only then does the core look
  // at its status (and a restart begin its replay).
  void initializedIs(bool on);
  // The VLAN for traces and logs: 1 when the core has no contextConfig.
  Bridging::VlanId vlanId() const;
  Kiv::Seconds now() const;

  // Packet intake.
  void doRxPkt(Lomax::IntfId intf, Kiv::Ptr<Lomax::Pkt> pkt, Kiv::Ptr<IgmpSnoopingFlooder> flooder);
  void doParseIgmp(Lomax::IntfId intf, Kiv::Ptr<Lomax::Pkt> pkt, Lomax::IpHdr ipHdr,
                   Kiv::Ptr<IgmpSnoopingFlooder> flooder);
  void doParsePim(Lomax::IntfId intf, Kiv::Ptr<Lomax::Pkt> pkt, Lomax::IpHdr ipHdr);
  bool isProxySuppressed(Lomax::IntfId intf) const;
  void doFlood(Kiv::Ptr<Lomax::Pkt> pkt, IgmpSnoopingFloodType floodType, Lomax::IntfId incomingIntfId,
               Lomax::IntfId outgoingIntfId, IgmpSnoopingPktType pktType, Lomax::IpAddr optionalGroupAddress,
               bool needsPreProcess, const Kiv::Ptr<IgmpSnoopingFlooder>& flooder);

  // Reports and the membership state machine.
  bool doIgmpMembershipReportProcess(const Gmp::Igmp::IgmpGroupRecord& record, Lomax::IntfId intf,
                                     Lomax::IpAddr reporter, Gmp::Igmp::IgmpVersion version,
                                     const Kiv::Ptr<IgmpContextIntfCounter>& counter);
  void doIgmpGroupMembership(const Gmp::Igmp::IgmpGroupRecord& record, Lomax::IntfId intf,
                             Lomax::IpAddr reporter, Gmp::Igmp::IgmpVersion version,
                             Gmp::Igmp::IgmpFilterMode filtermode);
  void doIgmpGroupSources(const Gmp::Igmp::IgmpGroupRecord& record,
                          const Kiv::Ptr<IgmpMembership>& membership, Gmp::Igmp::IgmpFilterMode filtermode);
  void doIgmpGroupNoInfoMembership(Lomax::IpAddr group, const Kiv::Ptr<IgmpIntfStatus>& intfStatus,
                                   const Kiv::Ptr<IgmpMembership>& membership);
  void doIgmpGroupNoInfo(Lomax::IpAddr group, Lomax::IntfId intf, Lomax::IpAddr reporter);

  // What the peer is told of negative membership; inert without a peer.
  void peerNotifyNegStateMode(Lomax::IpAddr group, Lomax::IntfId intf, Lomax::IpAddr reporter,
                              Gmp::Igmp::IgmpFilterMode mode);
  void peerNotifyNegStateSrc(Lomax::IpAddr group, Lomax::IntfId intf, Lomax::IpAddr reporter,
                             Lomax::IpAddr src);
  void doPeerIgmpGroupIncludeModeMembership(const Gmp::Igmp::IgmpGroupRecord& record, Lomax::IntfId intf,
                                            Lomax::IpAddr reporter,
                                            const Kiv::Ptr<IgmpMembership>& membership);
  void doPeerIgmpGroupNoInfoMembership(Lomax::IpAddr group, const Kiv::Ptr<IgmpIntfStatus>& intfStatus,
                                       const Kiv::Ptr<IgmpMembership>& membership);
  const Kiv::Ptr<CorePeerSyncSm>& syncSm() const { return syncSm_; }
  void syncSmIs(const Kiv::Ptr<CorePeerSyncSm>& s) { syncSm_ = s; }
  // True when intf is the MLAG peer link of a present peer.
  bool isPeerLink(Lomax::IntfId intf) const;

  // Group and limit policies.
  bool checkReportPermittedByFilterProfile(Lomax::IpAddr group, Lomax::IntfId intf) const;
  void doResetGroupLimitExceededTimer();
  void handleGroupLimitExceededExpire();
  void handleGroupLimitExceededTimer();

  // The machine tree.
  void handleGroup(Lomax::IpAddr addr);
  void handleGroup();
  CoreGroupMembershipSm* groupSm(Lomax::IpAddr addr) const { return groupSm_.find(addr); }
  size_t groupSmCount() const { return groupSm_.size(); }

  // Queries and the querier.
  GroupAddressFloodTypePair doIgmpMembershipQueryProcess(const Gmp::Igmp::IgmpQuery& query,
                                                         Lomax::IntfId intf, GroupAddressFloodTypePair gaftp);
  void doQuerierElection(Lomax::IntfId intf, Lomax::IpHdr ipHdr, Lomax::IgmpV12Hdr igmp,
                         Gmp::Igmp::IgmpVersion igmpVersion);
  void handleQuerier();
  void handleQuerierNotPresentExpire();
  void handleQuerierNotPresentTimer();
  const Kiv::Ptr<CoreQuerierSm>& querierSm() const { return querierSm_; }

  // Routers.
  void doMulticastRouter(Lomax::IpAddr addr, Lomax::IntfId intf, Kiv::Seconds life, MulticastRouterType type);
  void handleRouter(Lomax::IpAddr addr);
  void handleRouter();
  CoreRouterSm* routerSm(Lomax::IpAddr addr) const;
  const Kiv::Ptr<::IgmpSnooping::IntfStateControls>& intfStateControl() const { return intfStateControl_; }
  void intfStateControlIs(const Kiv::Ptr<::IgmpSnooping::IntfStateControls>& c) { intfStateControl_ = c; }

  // Confidence and restart.
  uint32_t confidence() const { return confidence_; }
  void confidenceIs(uint32_t c);
  void confidenceInc(uint32_t d);
  Kiv::Seconds confidenceIncDelay() const { return confidenceIncDelay_; }
  void confidenceIncDelayIs(Kiv::Seconds d);
  void moreConfidence();
  void handleMoreConfidenceClock();
  void handleConfidence();
  void handleConfidenceIncDelay();
  bool coreSmStateRebuilding() const { return status_->coreSmStateRebuilding(); }
  void coreSmStateRebuildingIs(bool on) { status_->coreSmStateRebuildingIs(on); }
  uint8_t queriesSentForRestart() const { return queriesSentForRestart_; }
  void handleCoreSmRestoreTimer();
  void doResetCoreSmRestoreTimer();
  const Kiv::Ptr<IgmpSnoopingFlooder>& flooder() const { return flooder_; }
  void flooderIs(const Kiv::Ptr<IgmpSnoopingFlooder>& f) { flooder_ = f; }
  void createIntfQuerySpoofer(Lomax::IntfId intf);
  IntfQuerySpoofer* intfQuerySpoofer(Lomax::IntfId intf) const;
  void intfQuerySpooferDel(Lomax::IntfId intf);

  // Interfaces.
  bool enabledIntf(Lomax::IntfId intf) const { return enabledIntf_.find(intf) != nullptr; }
  void enabledIntfIs(Lomax::IntfId intf, bool on);
  void enabledIntfDel(Lomax::IntfId intf);
  void enabledIntfDelAll();
  void handleEnabledIntf(Lomax::IntfId intf);
  void handleDisabledIntf(Lomax::IntfId intf, bool overrideDownState);
  void moveMemberships(const Kiv::Ptr<IgmpIntfStatus const>& fromIntfStatus,
                       const Kiv::Ptr<IgmpIntfStatus>& toIntfStatus);
  void removeOldIntfInfo(const Kiv::Ptr<IgmpIntfStatus>& intfStatus, Lomax::IpAddr reporter);

  // The memberships that a general query ages: those in include mode or with sources. Their machines
  // keep the set, so that a query visits them and not the many exclude memberships without sources.
  void agingMembershipIs(CoreMembershipSm& sm, bool aging);
  size_t agingMembershipCount() const { return agingMembership_.size(); }

 protected:
  void kivZombieChildren(bool on) override;

 private:
  class KivStatus : public IgmpContextStatus::NotifieeConst {
   public:
    explicit KivStatus(CoreSm* sm) : IgmpContextStatus::NotifieeConst(sm) {}
    void onGroup(const Lomax::IpAddr& a) override { sm()->handleGroup(a); }
    void onGroupkivImmediate() override { sm()->handleGroup(); }
    void onRouter(const Lomax::IpAddr& a) override { sm()->handleRouter(a); }
    void onRouterkivImmediate() override { sm()->handleRouter(); }
    void onQuerier() override { sm()->handleQuerier(); }
    void onGroupLimitExceededExpire() override { sm()->handleGroupLimitExceededExpire(); }
    void onQuerierNotPresentExpire() override { sm()->handleQuerierNotPresentExpire(); }

   private:
    CoreSm* sm() const { return static_cast<CoreSm*>(kivOwner()); }
  };
  void handleInitialized();
  // Reports and leaves travel to the routers (and switch ports) unless the proxy takes them.
  void doFloodReport(const char* what, const Kiv::Ptr<Lomax::Pkt>& pkt, Lomax::IntfId intf,
                     IgmpSnoopingPktType pktType, const Kiv::Ptr<IgmpSnoopingFlooder>& flooder);
  void doReviewGroupList();
  void doDeleteAllSources(const Kiv::Ptr<IgmpMembership>& membership);
  // The interface's counters, asked of every packet: kept by intern index, so that the lookup by name
  // runs once per interface and again only after the counters were removed from the directory.
  const Kiv::Ptr<IgmpContextIntfCounter>& intfCounter(Lomax::IntfId intf);

  Kiv::Ptr<Config const> config_;
  Kiv::Ptr<IgmpContextStatus> status_;
  Kiv::Ptr<IgmpCounterDir> counterDir_;
  std::vector<Kiv::Ptr<IgmpContextIntfCounter>> intfCounters_;
  // Record storage kept from one version 3 report to the next.
  Gmp::Igmp::IgmpV3Report spareV3Report_;
  Kiv::Ptr<IgmpContextConfig const> contextConfig_;
  Kiv::Ptr<IgmpProfile::ProfileConfig const> profileConfig_;
  Kiv::Ptr<Bez::TimerWheel const> timerWheel_;
  Kiv::Ptr<Bez::TimerWheel const> timerWheel2_;
  Kiv::Ptr<IgmpSnoopingFlooder> flooder_;
  Kiv::Ptr<CorePeerSyncSm> syncSm_;
  Kiv::Ptr<::IgmpSnooping::IntfStateControls> intfStateControl_;
  Kiv::Ptr<CoreQuerierSm> querierSm_;
  // Keyed by a number the core hands out, so that a query ages them in the same order on every run.
  // Declared before the machines, whose destructors leave it.
  Kiv::HashMap2018<uint32_t, CoreMembershipSm*> agingMembership_;
  uint32_t lastAgingKey_ = 0;
  Kiv::SmMap<Lomax::IpAddr, CoreGroupMembershipSm> groupSm_;
  Kiv::SmMap<Lomax::IpAddr, CoreRouterSm> routerSm_;
  Kiv::SmMap<Lomax::IntfId, IntfQuerySpoofer> intfQuerySpoofer_;
  Kiv::HashMap2018<Lomax::IntfId, bool> enabledIntf_;
  uint32_t confidence_ = 0;
  Kiv::Seconds confidenceIncDelay_ = 0.0;
  uint8_t queriesSentForRestart_ = 0;
  bool initialized_ = false;
  KivStatus kivStatus_;
  Kiv::ClockReactor<CoreSm, &CoreSm::handleMoreConfidenceClock> moreConfidenceClock_;
  Bez::WheelReactor<CoreSm, &CoreSm::handleCoreSmRestoreTimer> coreSmRestoreTimer_;
  Bez::WheelReactor<CoreSm, &CoreSm::handleQuerierNotPresentTimer> querierNotPresentTimer_;
  Bez::WheelReactor<CoreSm, &CoreSm::handleGroupLimitExceededTimer> groupLimitExceededTimer_;
};

std::ostream& operator<<(std::ostream& os, const CoreSm::GroupAddressFloodTypePair& p);

}  // namespace Bridging::IgmpSnooping
