// A membership query of any version, as parsed from a packet or built by hand for version 1 and 2.
#pragma once

#include <cstdint>

#include "kernel/Ptr.h"
#include "net/Igmp.h"
#include "net/IgmpGroupRecord.h"
#include "net/IpAddr.h"
#include "net/Pkt.h"

namespace Gmp::Igmp {

class IgmpQuery {
 public:
  static constexpr uint16_t v12Bytes = 8;
  static constexpr uint16_t v3MinBytes = 12;

  // Not valid.
  IgmpQuery() = default;
  // Valid, with no suppress flag, robustness 0, query interval code 0 and no sources.
  IgmpQuery(IgmpVersion version, uint8_t maxResponseCode, Lomax::IpAddr group)
      : valid_(true), version_(version), maxResponseCode_(maxResponseCode), group_(group) {}

  bool valid() const { return valid_; }
  IgmpVersion version() const { return version_; }
  uint8_t maxResponseCode() const { return maxResponseCode_; }
  Lomax::IpAddr group() const { return group_; }
  bool suppressRouterSideProcessing() const { return suppress_; }
  void suppressRouterSideProcessingIs(bool v) { suppress_ = v; }
  // The querier's robustness variable (QRV), 3 bits on the wire.
  uint8_t robustness() const { return robustness_; }
  void robustnessIs(uint8_t v) { robustness_ = v; }
  // The querier's query interval code (QQIC).
  uint16_t queryIntervalCode() const { return queryIntervalCode_; }
  void queryIntervalCodeIs(uint16_t v) { queryIntervalCode_ = v; }
  // Point into the packet the query was parsed from.
  const SourceList& sources() const { return sources_; }
  void sourcesIs(SourceList s) { sources_ = s; }
  uint16_t numSources() const { return sources_.size(); }

  // Version 3 reads the code in its exponential form; versions 1 and 2 in tenths of a second.
  double maxResponseSeconds() const;

 private:
  bool valid_ = false;
  IgmpVersion version_ = igmpVersionUnknown;
  uint8_t maxResponseCode_ = 0;
  Lomax::IpAddr group_;
  bool suppress_ = false;
  uint8_t robustness_ = 0;
  uint16_t queryIntervalCode_ = 0;
  SourceList sources_;
};

// Reads the query at the front of the packet's span. The version follows from the length (RFC 3376 7.1):
// 8 bytes is version 1 with a zero code and version 2 otherwise, 12 or more is version 3; other lengths,
// another type, or sources that do not fit the span give a query that is not valid.
IgmpQuery doIgmpMembershipQueryParse(const Kiv::Ptr<Lomax::Pkt>& pkt);

}  // namespace Gmp::Igmp
