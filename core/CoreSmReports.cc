// Group records against the membership tree: the filter profile, the group limit, and the transitions
// of each record type in the No Info, Include and Exclude states.
#include "core/CoreSm.h"
#include "core/CoreTrace.h"
#include "model/Logs.h"

namespace Bridging::IgmpSnooping {

using Gmp::Igmp::filterModeExclude;
using Gmp::Igmp::filterModeInclude;
using Gmp::Igmp::IgmpFilterMode;
using Gmp::Igmp::IgmpGroupRecord;
using Gmp::Igmp::IgmpVersion;
using Lomax::IntfId;
using Lomax::IpAddr;

namespace {
// Hosts of this group (SSDP) report without any querier being about; they must not raise the log.
const IpAddr ssdpGroup = IpAddr::fromHost(0xeffffffa);  // 239.255.255.250
constexpr uint16_t noGroupLimit = 0xffff;

bool includeSemantics(uint8_t type) {
  return type == Gmp::Igmp::recordTypeModeIsInclude || type == Gmp::Igmp::recordTypeChangeToInclude;
}
bool excludeSemantics(uint8_t type) {
  return type == Gmp::Igmp::recordTypeModeIsExclude || type == Gmp::Igmp::recordTypeChangeToExclude;
}
}  // namespace

bool CoreSm::doIgmpMembershipReportProcess(const IgmpGroupRecord& record, IntfId intf, IpAddr reporter,
                                           IgmpVersion version,
                                           const Kiv::Ptr<IgmpContextIntfCounter>& counter) {
  KIV_TRACE_FUNC(coreTrace);
  const IpAddr group = record.group();
  if (group.isReservedMulticast()) {
    KIV_TRACE(coreTrace, 9,
              "Found a packet with reserved multicast group dst " << group << " at " << now()
                                                                  << " for interface " << intf);
    return true;
  }
  if (!status_->querier() && group != ssdpGroup && Kiv::isNever(status_->querierNotPresentExpire())) {
    uint32_t wait = maxNumQuerierNotSeen * status_->robustness() * status_->queryInterval();
    status_->querierNotPresentExpireIs(now() + wait);
    status_->noQuerierLogInfoIs(NoQuerierLogInfo{reporter, intf, group});
  }
  if (!checkReportPermittedByFilterProfile(group, intf)) {
    KIV_TRACE(coreTrace, 6,
              "Dropping join from " << reporter << " for group " << group
                                    << " due to filtered ip multicast address ");
    return false;
  }
  if (isPeerLink(intf)) {
    KIV_TRACE(coreTrace, 6, "ignoring report from peerLink intd: " << intf);
    return true;
  }
  const uint8_t type = record.recordType();
  const uint16_t n = record.numSources();
  Kiv::Ptr<IgmpGroup> igmpGroup = status_->group(group);
  if (!igmpGroup) {
    const uint16_t maxGroups = contextConfig_ ? contextConfig_->maxGroups() : noGroupLimit;
    const bool asksNothing = includeSemantics(type) && n == 0;
    // The largest count is no limit at all.
    if (maxGroups != noGroupLimit && status_->groupSize() >= maxGroups && !asksNothing) {
      if (!status_->groupLimitExceeded())
        Kiv::log(IGMPSNOOPING_GROUP_LIMIT_EXCEEDED, maxGroups, vlanId().value());
      KIV_TRACE(coreTrace, 6,
                "Failed to add group due to exceeding the number of allowed groups "
                    << "for this vlan. Details: group = " << group << " intf = " << intf
                    << " reporter = " << reporter << " version = " << version << ".");
      KIV_TRACE(
          coreTrace, 6,
          "Dropping group " << group << " from intf " << intf << " because max group limit is exceeded");
      status_->groupLimitExceededIs(true);
      doResetGroupLimitExceededTimer();
      return false;
    }
  }
  KIV_TRACE(coreTrace, 9,
            "Adding or processing group. Details: group = " << group << " intf = " << intf << " reporter = "
                                                            << reporter << " version = " << version);
  Kiv::Ptr<IgmpIntfStatus> intfStatus = igmpGroup ? igmpGroup->intf(intf) : nullptr;
  Kiv::Ptr<IgmpMembership> membership = intfStatus ? intfStatus->membership(reporter) : nullptr;
  const bool unknownType =
      type == Gmp::Igmp::recordTypeUnknown || type > Gmp::Igmp::recordTypeBlockOldSources;
  auto unknown = [&] {
    KIV_TRACE(
        coreTrace, 6,
        "Not processing IGMP group record with unknown type 0x" << std::hex << unsigned(type) << std::dec);
    counter->inPktIgmpOtherInc(1);
  };

  if (!membership) {
    KIV_TRACE(coreTrace, 9, "In No Info state");
    if (unknownType) {
      unknown();
    } else if (includeSemantics(type)) {
      KIV_TRACE(coreTrace, 9, "Record type include");
      if (n == 0) {
        peerNotifyNegStateSrc(group, intf, reporter, IpAddr());
      } else {
        KIV_TRACE(coreTrace, 9, "Calling doIgmpGroup( IncludeMode )");
        doIgmpGroupMembership(record, intf, reporter, version, filterModeInclude);
        peerNotifyNegStateMode(group, intf, reporter, filterModeExclude);
      }
    } else if (excludeSemantics(type)) {
      KIV_TRACE(coreTrace, 9, "Record type exclude");
      KIV_TRACE(coreTrace, 9, "Calling doIgmpGroup( ExcludeMode )");
      doIgmpGroupMembership(record, intf, reporter, version, filterModeExclude);
      peerNotifyNegStateMode(group, intf, reporter, filterModeInclude);
    } else if (type == Gmp::Igmp::recordTypeAllowNewSources) {
      if (n > 0) {
        KIV_TRACE(coreTrace, 9, "Calling doIgmpGroup( IncludeMode )");
        doIgmpGroupMembership(record, intf, reporter, version, filterModeInclude);
      }
    } else {
      KIV_TRACE(coreTrace, 9, "Record type block while in No Info (Include{ }) mode. NOP");
      for (IpAddr s : record.sources()) peerNotifyNegStateSrc(group, intf, reporter, s);
    }
    status_->newIgmpReportInc(1);
    return true;
  }

  // All three exist: groupIs, intfIs and membershipIs would only find them again. The record will
  // change the membership: its machine loads while the record is read.
  membership->kivNotifiees().prefetch();
  if (n) membership->sourcePrefetch();
  KIV_TRACE(coreTrace, 9, "Have info about group");
  KIV_TRACE(coreTrace, 9, "Info about intf: " << intf);
  KIV_TRACE(coreTrace, 9, "Info about membership: " << reporter);
  membership->igmpVersionIs(version);
  if (intfStatus->oldIntfSize()) removeOldIntfInfo(intfStatus, reporter);

  if (membership->filterMode() == filterModeInclude) {
    KIV_TRACE(coreTrace, 9, "Group in Include mode mode");
    if (unknownType) {
      unknown();
    } else if (includeSemantics(type) && n == 0) {
      KIV_TRACE(coreTrace, 9, "Record type include");
      KIV_TRACE(coreTrace, 9, "Calling doIgmpGroupNoInfoMembership");
      doIgmpGroupNoInfoMembership(group, intfStatus, membership);
      peerNotifyNegStateSrc(group, intf, reporter, IpAddr());
    } else if (includeSemantics(type)) {
      KIV_TRACE(coreTrace, 9, "Calling doIgmpGroupIncludeModeMembership");
      doIgmpGroupSources(record, membership, filterModeInclude);
      peerNotifyNegStateMode(group, intf, reporter, filterModeExclude);
    } else if (excludeSemantics(type)) {
      KIV_TRACE(coreTrace, 9, "Record type exclude");
      if (!syncSm_) doDeleteAllSources(membership);
      KIV_TRACE(coreTrace, 9, "Calling doIgmpGroupExcludeModeMembership");
      doIgmpGroupSources(record, membership, filterModeExclude);
      peerNotifyNegStateMode(group, intf, reporter, filterModeInclude);
    } else if (type == Gmp::Igmp::recordTypeAllowNewSources) {
      if (n == 0) {
        KIV_TRACE(coreTrace, 9, "Record type allow");
      } else {
        KIV_TRACE(coreTrace, 9, "Calling doIgmpGroupIncludeModeMembership");
        doIgmpGroupSources(record, membership, filterModeInclude);
      }
    } else {
      KIV_TRACE(coreTrace, 9, "Record type block");
      KIV_TRACE(coreTrace, 9, "Calling sourceDel");
      for (IpAddr s : record.sources()) {
        if (membership->sourceSize()) membership->sourceDel(s);
        peerNotifyNegStateSrc(group, intf, reporter, s);
      }
      if (!membership->sourceSize()) {
        KIV_TRACE(coreTrace, 9, "Calling doIgmpGroupNoInfoMembership");
        doIgmpGroupNoInfoMembership(group, intfStatus, membership);
      }
    }
  } else if (membership->filterMode() == filterModeExclude) {
    KIV_TRACE(coreTrace, 9, "Group in Exclude mode");
    if (unknownType) {
      unknown();
    } else if (includeSemantics(type)) {
      KIV_TRACE(coreTrace, 9, "Record type include / change to include");
      if (!syncSm_) doDeleteAllSources(membership);
      if (n == 0) {
        KIV_TRACE(coreTrace, 9, "Calling doIgmpGroupNoInfoMembership");
        doIgmpGroupNoInfoMembership(group, intfStatus, membership);
        peerNotifyNegStateSrc(group, intf, reporter, IpAddr());
      } else {
        KIV_TRACE(coreTrace, 9, "Calling doIgmpGroupIncludeModeMembership");
        doIgmpGroupSources(record, membership, filterModeInclude);
        peerNotifyNegStateMode(group, intf, reporter, filterModeExclude);
      }
    } else if (type == Gmp::Igmp::recordTypeModeIsExclude) {
      KIV_TRACE(coreTrace, 9, "Record type exclude");
      doIgmpGroupSources(record, membership, filterModeExclude);
      peerNotifyNegStateMode(group, intf, reporter, filterModeInclude);
    } else if (type == Gmp::Igmp::recordTypeChangeToExclude) {
      KIV_TRACE(coreTrace, 9, "Record type change to exclude");
      if (!syncSm_) {
        // Keep only the sources that the record names.
        for (auto it = membership->sourceIter().begin(); it; ++it) {
          bool named = false;
          for (IpAddr s : record.sources()) named = named || s == it.key();
          if (!named) {
            KIV_TRACE(coreTrace, 9, "Deleting source (mode change) " << it.key());
            membership->sourceDel(it.key());
          }
        }
      }
      doIgmpGroupSources(record, membership, filterModeExclude);
      peerNotifyNegStateMode(group, intf, reporter, filterModeInclude);
    } else if (type == Gmp::Igmp::recordTypeAllowNewSources) {
      KIV_TRACE(coreTrace, 9, "Record type allow");
      if (syncSm_ && n == 0) {
        KIV_TRACE(coreTrace, 9, "Calling doIgmpGroupNoInfoMembership");
        doPeerIgmpGroupNoInfoMembership(group, intfStatus, membership);
        peerNotifyNegStateSrc(group, intf, reporter, IpAddr());
      } else if (syncSm_) {
        KIV_TRACE(coreTrace, 9, "Calling doIgmpGroupIncludeModeMembership");
        doPeerIgmpGroupIncludeModeMembership(record, intf, reporter, membership);
      } else {
        KIV_TRACE(coreTrace, 9, "Calling sourceDel");
        for (IpAddr s : record.sources()) membership->sourceDel(s);
      }
    } else {
      KIV_TRACE(coreTrace, 9, "Record type block");
      if (syncSm_) {
        for (IpAddr s : record.sources()) peerNotifyNegStateSrc(group, intf, reporter, s);
      } else if (n > 0) {
        KIV_TRACE(coreTrace, 9, "Calling doIgmpGroupExcludeModeMembership");
        doIgmpGroupSources(record, membership, filterModeExclude);
      }
    }
  } else {
    Kiv::assertionFailed("false", __FILE__, __LINE__, __PRETTY_FUNCTION__);
  }
  status_->newIgmpReportInc(1);
  return true;
}

void CoreSm::doDeleteAllSources(const Kiv::Ptr<IgmpMembership>& membership) {
  for (auto it = membership->sourceIter().begin(); it; ++it) {
    KIV_TRACE(coreTrace, 9, "Deleting source (mode change) " << it.key());
    membership->sourceDel(it.key());
  }
}

void CoreSm::doIgmpGroupMembership(const IgmpGroupRecord& record, IntfId intf, IpAddr reporter,
                                   IgmpVersion version, IgmpFilterMode filtermode) {
  KIV_TRACE_FUNC(coreTrace);
  const IpAddr group = record.group();
  Kiv::Ptr<IgmpGroup> g = status_->group(group);
  if (!g) {
    KIV_RING(2, "Group " << group << " status on Vlan " << vlanId() << " created.");
    g = status_->groupIs(group);
  }
  Kiv::Ptr<IgmpIntfStatus> s = g->intf(intf);
  if (!s) {
    KIV_RING(2,
             "Interface " << intf << " status for group " << group << " on Vlan " << vlanId() << " created.");
    s = g->intfIs(intf);
  }
  Kiv::Ptr<IgmpMembership> m = s->membership(reporter);
  if (!m) {
    KIV_RING(2, "Membership of group " << group << " by reporter " << reporter << " on interface " << intf
                                       << " on Vlan " << vlanId() << " began.");
    m = s->membershipIs(reporter);
  }
  m->igmpVersionIs(version);
  doIgmpGroupSources(record, m, filtermode);
  KIV_ASSERT_TEXT(!s->oldIntf(reporter), "!s->oldIntf( reporter )");
}

void CoreSm::doIgmpGroupSources(const IgmpGroupRecord& record, const Kiv::Ptr<IgmpMembership>& membership,
                                IgmpFilterMode filtermode) {
  KIV_TRACE_FUNC(coreTrace);
  const Kiv::Seconds t = now();
  if (membership->firstReport() == 0) membership->firstReportIs(t);
  membership->filterModeIs(filtermode);
  if (filtermode == filterModeInclude || membership->igmpVersion() == Gmp::Igmp::igmpVersion3) {
    membership->lastReportIs(t);
    if (syncSm_ && filtermode == filterModeExclude) return;
  } else {
    switch (membership->state()) {
      case checkingMembership:
        KIV_TRACE(coreTrace, 9, "Moving form checkingMembership to checkingGotReport");
        membership->stateIs(checkingGotReport);
        break;
      case checkingGotReport:
        KIV_TRACE(coreTrace, 9, "Ignoring join becuase in checkingGotReport");
        break;
      case membershipStateMember:
        membership->lastReportIs(t);
        break;
    }
    if (syncSm_) return;
  }
  for (IpAddr s : record.sources()) {
    Kiv::Ptr<IgmpSourceMembership> sn = membership->sourceIs(s);
    KIV_ASSERT(sn);
    sn->sourceAgeIs(0);
  }
}

void CoreSm::doIgmpGroupNoInfoMembership(IpAddr group, const Kiv::Ptr<IgmpIntfStatus>& intfStatus,
                                         const Kiv::Ptr<IgmpMembership>& membership) {
  KIV_TRACE_FUNC(coreTrace);
  if (!membership) return;
  // A version 1 host never leaves: its membership only times out.
  if (membership->igmpVersion() != Gmp::Igmp::igmpVersion2 &&
      membership->igmpVersion() != Gmp::Igmp::igmpVersion3) {
    return;
  }
  KIV_RING(2, "Membership of group " << group << " by reporter " << membership->reporter() << " on interface "
                                     << intfStatus->intf() << " on Vlan " << vlanId() << " ended.");
  intfStatus->membershipDel(membership->reporter());
}

void CoreSm::doIgmpGroupNoInfo(IpAddr group, IntfId intf, IpAddr reporter) {
  KIV_TRACE_FUNC(coreTrace);
  Kiv::Ptr<IgmpGroup> g = status_->group(group);
  Kiv::Ptr<IgmpIntfStatus> s = g ? g->intf(intf) : nullptr;
  if (s) doIgmpGroupNoInfoMembership(group, s, s->membership(reporter));
}

bool CoreSm::checkReportPermittedByFilterProfile(IpAddr group, IntfId intf) const {
  KIV_TRACE(coreTrace, 8,
            "bool CoreSm::checkReportPermittedByFilterProfile for " << intf << "with group " << group);
  if (!profileConfig_ || !contextConfig_ || !profileConfig_->profileSize()) return true;
  // Asked of every report: the parent's type is told by its type table, without a dynamic_cast.
  const Kiv::Entity* parent = contextConfig_->parent();
  if (!parent || &parent->typeInfo() != &IgmpProtocolConfig::kivTypeInfo()) return true;
  Kiv::Ptr<IntfConfig const> ic = static_cast<const IgmpProtocolConfig*>(parent)->intfConfig(intf);
  if (!ic) return true;
  Kiv::Ptr<IgmpProfile::Profile const> profile = profileConfig_->profile(ic->profileName());
  if (!profile) return true;
  return profile->permits(group);
}

void CoreSm::doResetGroupLimitExceededTimer() {
  status_->groupLimitExceededExpireIs(now() + Kiv::Seconds(status_->robustness()) * status_->queryInterval() +
                                      status_->queryResponseInterval());
}

void CoreSm::handleGroupLimitExceededExpire() {
  if (!initialized_) return;
  KIV_TRACE(coreTrace, 8,
            " Timer tracking group limit "
                << "exceeded is set. Time is " << status_->groupLimitExceededExpire() << ", time now is "
                << now());
  if (status_->groupLimitExceededExpire() != 0)
    groupLimitExceededTimer_.timeMinIs(status_->groupLimitExceededExpire());
}

void CoreSm::handleGroupLimitExceededTimer() {
  KIV_TRACE(coreTrace, 8,
            " Timer tracking group limits exceeded is about "
                << "to expire.");
  status_->groupLimitExceededIs(false);
  const uint16_t maxGroups = contextConfig_ ? contextConfig_->maxGroups() : noGroupLimit;
  if (maxGroups == noGroupLimit) {
    Kiv::log(IGMPSNOOPING_GROUP_LIMIT_NO_LONGER_EXCEEDED_NO_LIMIT, vlanId().value());
  } else {
    Kiv::log(IGMPSNOOPING_GROUP_LIMIT_NO_LONGER_EXCEEDED, maxGroups, vlanId().value());
  }
}

}  // namespace Bridging::IgmpSnooping
