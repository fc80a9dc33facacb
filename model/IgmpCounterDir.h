// Per-interface packet counters of a VLAN, found by the text form of the interface.
#pragma once

#include "kernel/EntityDecl.h"

namespace Bridging::IgmpSnooping {

#define IGMP_CONTEXT_INTF_COUNTER_ATTRS(X)                         \
  X(counter, inPktIgmpV1Query, InPktIgmpV1Query, uint32_t)         \
  X(counter, inPktIgmpV2Query, InPktIgmpV2Query, uint32_t)         \
  X(counter, inPktIgmpV3Query, InPktIgmpV3Query, uint32_t)         \
  X(counter, inPktIgmpV1Report, InPktIgmpV1Report, uint32_t)       \
  X(counter, inPktIgmpV2Report, InPktIgmpV2Report, uint32_t)       \
  X(counter, inPktIgmpV3Report, InPktIgmpV3Report, uint32_t)       \
  X(counter, inPktIgmpV2Leave, InPktIgmpV2Leave, uint32_t)         \
  X(counter, inPktIgmpOther, InPktIgmpOther, uint32_t)             \
  X(counter, inPktPim, InPktPim, uint32_t)                         \
  X(counter, inPktBadPimChecksum, InPktBadPimChecksum, uint32_t)   \
  X(counter, inPktDvmrp, InPktDvmrp, uint32_t)                     \
  X(counter, inPktMrd, InPktMrd, uint32_t)                         \
  X(counter, inPktBadIgmpChecksum, InPktBadIgmpChecksum, uint32_t) \
  X(counter, inPktTooShort, InPktTooShort, uint32_t)               \
  X(counter, inPktBadIpChecksum, InPktBadIpChecksum, uint32_t)     \
  X(counter, inPktNonIp, InPktNonIp, uint32_t)                     \
  X(counter, inPktUnknown, InPktUnknown, uint32_t)                 \
  X(counter, outPktIgmpQuery, OutPktIgmpQuery, uint32_t)           \
  X(counter, outPktIgmpReport, OutPktIgmpReport, uint32_t)         \
  X(counter, outPktIgmpLeave, OutPktIgmpLeave, uint32_t)           \
  X(counter, outPktOther, OutPktOther, uint32_t)

class IgmpContextIntfCounter : public Kiv::KeyedEntity<Kiv::Name> {
  KIV_ENTITY_KEYED(IgmpContextIntfCounter, Kiv::Name, intfName, IGMP_CONTEXT_INTF_COUNTER_ATTRS)

 public:
  void doCopy(const IgmpContextIntfCounter& other);
};

#define IGMP_COUNTER_DIR_ATTRS(X) X(entities, intfCounter, IntfCounter, Kiv::Name, IgmpContextIntfCounter)

class IgmpCounterDir : public Kiv::NamedEntity {
  KIV_ENTITY_NAMED(IgmpCounterDir, IGMP_COUNTER_DIR_ATTRS)
};

}  // namespace Bridging::IgmpSnooping
