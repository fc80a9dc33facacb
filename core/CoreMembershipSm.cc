// The membership machine tree: creation follows the entities down, deletion comes back up through them.
#include "core/CoreMembershipSm.h"

#include "core/CoreSm.h"
#include "core/CoreTrace.h"

namespace Bridging::IgmpSnooping {

using Lomax::IntfId;
using Lomax::IpAddr;

// --- one reporter ---------------------------------------------------------------------------------

CoreMembershipSm::CoreMembershipSm(IpAddr, Kiv::Ptr<IgmpMembership> membership,
                                   Kiv::Ptr<Bez::TimerWheel const> timerWheel, CoreIntfMembershipSm* intfSm)
    : membership_(std::move(membership)),
      intfSm_(intfSm),
      coreSm_(intfSm->groupSm()->coreSm()),
      kivMembership_(this),
      membershipTimer_(this) {
  membershipTimer_.notifierIs(timerWheel);
  handleMembershipInterest();
  kivMembership_.notifierIs(membership_);
  handleInitialized();
}

void CoreMembershipSm::handleMembershipInterest() {
  constexpr uint64_t all = IgmpMembership::NotifieeConst::kivInterestOf<KivMembership>();
  constexpr uint64_t lastReport = uint64_t{1} << IgmpMembership::kivAttr_lastReport;
  const bool exclude = membership_->filterMode() == Gmp::Igmp::filterModeExclude;
  kivMembership_.kivInterestIs(exclude ? all : all & ~lastReport);
}

// The entities above the membership are in cache on the report path, where the machines above this one
// are not; the machines answer only once the membership has left its interface.
IpAddr CoreMembershipSm::groupAddr() const {
  const Kiv::Entity* intfStatus = membership_->parent();
  const Kiv::Entity* group = intfStatus ? intfStatus->parent() : nullptr;
  return group ? static_cast<const IgmpGroup*>(group)->addr() : intfSm_->groupSm()->addr();
}

IntfId CoreMembershipSm::intfId() const {
  const Kiv::Entity* intfStatus = membership_->parent();
  return intfStatus ? static_cast<const IgmpIntfStatus*>(intfStatus)->intf() : intfSm_->intfId();
}

CoreMembershipSm::~CoreMembershipSm() {
  if (agingKey_) coreSm_->agingMembershipIs(*this, false);
}

void CoreMembershipSm::handleInitialized() {
  initialized_ = true;
  handleMembershipExpire();
  handleMembershipVersion();
  handleMembershipAging();
}

void CoreMembershipSm::handleMembershipAging() {
  if (!initialized_) return;
  coreSm_->agingMembershipIs(
      *this, membership_->filterMode() == Gmp::Igmp::filterModeInclude || membership_->sourceSize() != 0);
}

void CoreMembershipSm::handleMembershipLastReport() {
  if (!initialized_) return;
  // Include memberships do not age by reports; their sources age by general queries.
  if (membership_->filterMode() != Gmp::Igmp::filterModeExclude) return;
  membership_->expireIs(membership_->lastReport() + coreSm_->status()->groupMembershipInterval());
}

void CoreMembershipSm::handleMembershipExpire() {
  if (!initialized_) return;
  const Kiv::Seconds expire = membership_->expire();
  if (expire == 0) return;
  KIV_TRACE(groupTimerTrace, 9,
            "Setting membership expire for group "
                << groupAddr() << " on " << intfId() << " for reporter " << membership_->reporter()
                << ". In membership:" << membership_->reporter() << " " << membership_->firstReport() << " "
                << membership_->lastReport() << " " << expire << " " << membership_->state() << " "
                << membership_->igmpVersion() << " " << membership_->filterMode());
  membershipTimer_.timeMinIs(expire);
}

void CoreMembershipSm::handleMembershipVersion() {
  if (!initialized_) return;
  const Gmp::Igmp::IgmpVersion v = membership_->igmpVersion();
  if (v == Gmp::Igmp::igmpVersionUnknown) return;
  const Kiv::Ptr<IgmpIntfStatus>& s = intfSm_->intfStatus();
  // The value never rises here; only the recomputation when a membership goes raises it.
  if (s->lowestVersion() == Gmp::Igmp::igmpVersionUnknown || s->lowestVersion() > v) s->lowestVersionIs(v);
}

void CoreMembershipSm::handleMembershipTimer() {
  KIV_TRACE(groupTimerTrace, 8,
            "void Bridging::IgmpSnooping::CoreMembershipSm::handleMembershipTimer() for "
                << intfSm_->groupSm()->addr() << " on " << intfSm_->intfId());
  if (membership_->state() == checkingGotReport) {
    // The check was answered: a full life again, through the reaction to lastReport.
    membership_->stateIs(membershipStateMember);
    membership_->lastReportIs(coreSm_->now());
    return;
  }
  if (membership_->filterMode() != Gmp::Igmp::filterModeExclude) return;
  KIV_RING(2, "Membership of group " << intfSm_->groupSm()->addr() << " by reporter "
                                     << membership_->reporter() << " on interface " << intfSm_->intfId()
                                     << " on Vlan " << coreSm_->vlanId() << " timed out and is deleted.");
  // This machine goes with the entity; the wheel holds it until the handler returns.
  intfSm_->intfStatus()->membershipDel(membership_->reporter());
}

// --- one interface of a group -------------------------------------------------------------------------

CoreIntfMembershipSm::CoreIntfMembershipSm(IntfId intfId, Kiv::Ptr<IgmpIntfStatus> intfStatus,
                                           Kiv::Ptr<Bez::TimerWheel const> timerWheel,
                                           CoreGroupMembershipSm* groupSm)
    : intfId_(intfId),
      intfStatus_(std::move(intfStatus)),
      timerWheel_(std::move(timerWheel)),
      groupSm_(groupSm),
      kivIntfStatus_(this) {
  kivIntfStatus_.notifierIs(intfStatus_);
  handleInitialized();
}

void CoreIntfMembershipSm::handleInitialized() {
  initialized_ = true;
  for (auto& m : intfStatus_->membershipIter()) handleIntfStatusMembership(m.key());
}

void CoreIntfMembershipSm::handleIntfStatusMembership() {
  if (!initialized_) return;
  for (auto it = membership_.begin(); it; ++it) {
    if (!intfStatus_->membership(it.key())) handleIntfStatusMembership(it.key());
  }
  for (auto& m : intfStatus_->membershipIter()) handleIntfStatusMembership(m.key());
}

void CoreIntfMembershipSm::handleIntfStatusMembership(IpAddr reporter) {
  if (!initialized_) return;
  if (Kiv::Ptr<IgmpMembership> m = intfStatus_->membership(reporter)) {
    Kiv::smIs(membership_, *this, reporter, m, timerWheel_, this);
    return;
  }
  Kiv::smDel(membership_, reporter);
  if (intfStatus_->oldIntfSize()) groupSm_->coreSm()->removeOldIntfInfo(intfStatus_, reporter);
  if (!intfStatus_->membershipSize() && !intfStatus_->staticEntry()) {
    KIV_RING(2, "No more memberships for group " << groupSm_->addr() << " on interface " << intfId_
                                                 << " on Vlan " << groupSm_->coreSm()->vlanId()
                                                 << ", so deleting interface status.");
    groupSm_->group()->intfDel(intfId_);
    return;
  }
  Gmp::Igmp::IgmpVersion lowest = Gmp::Igmp::igmpVersionUnknown;
  for (auto& m : intfStatus_->membershipIter()) {
    const Gmp::Igmp::IgmpVersion v = m->igmpVersion();
    if (v != Gmp::Igmp::igmpVersionUnknown && (lowest == Gmp::Igmp::igmpVersionUnknown || v < lowest))
      lowest = v;
  }
  intfStatus_->lowestVersionIs(lowest);
}

// --- one group
// ----------------------------------------------------------------------------------------------

CoreGroupMembershipSm::CoreGroupMembershipSm(IpAddr addr, Kiv::Ptr<IgmpGroup> group, CoreSm* coreSm)
    : addr_(addr), group_(std::move(group)), coreSm_(coreSm), kivIgmpGroup_(this) {
  kivIgmpGroup_.notifierIs(group_);
  handleInitialized();
}

void CoreGroupMembershipSm::handleInitialized() {
  initialized_ = true;
  for (auto& i : group_->intfIter()) handleGroupIntf(i.key());
}

void CoreGroupMembershipSm::handleGroupIntf() {
  if (!initialized_) return;
  for (auto it = intfSm_.begin(); it; ++it) {
    if (!group_->intf(it.key())) handleGroupIntf(it.key());
  }
  for (auto& i : group_->intfIter()) handleGroupIntf(i.key());
}

void CoreGroupMembershipSm::handleGroupIntf(IntfId intf) {
  if (!initialized_) return;
  if (Kiv::Ptr<IgmpIntfStatus> s = group_->intf(intf)) {
    Kiv::smIs(intfSm_, *this, intf, s, coreSm_->timerWheel(), this);
    return;
  }
  Kiv::smDel(intfSm_, intf);
  if (group_->intfSize()) return;
  KIV_RING(2, "No interfaces on group " << addr_ << " on Vlan " << coreSm_->vlanId()
                                        << ", so deleting group status.");
  coreSm_->status()->groupDel(addr_);
}

}  // namespace Bridging::IgmpSnooping
