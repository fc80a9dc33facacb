// Version 3 membership reports (RFC 3376 4.2): parsing into group records, and the in-place rewrite that
// takes refused groups out of a report before it travels on.
#pragma once

#include <cstdint>
#include <vector>

#include "kernel/Ptr.h"
#include "net/GroupList.h"
#include "net/IgmpGroupRecord.h"
#include "net/IpHdr.h"
#include "net/Pkt.h"

namespace Gmp::Igmp {

class IgmpV3Report {
 public:
  static constexpr uint16_t headerBytes = 8;
  static constexpr uint16_t recordHeaderBytes = 8;

  bool valid() const { return valid_; }
  uint16_t numberOfRecords() const { return numberOfRecords_; }
  // In the report's order. Their sources point into the packet, which the report holds; a rewrite of the
  // packet leaves them stale.
  const std::vector<IgmpGroupRecord>& records() const { return records_; }
  const Kiv::Ptr<Lomax::Pkt>& pkt() const { return pkt_; }
  // Lets go of the records and the packet; the record storage stays for the next parse.
  void clear() {
    valid_ = false;
    numberOfRecords_ = 0;
    records_.clear();
    pkt_ = nullptr;
  }

 private:
  friend bool doIgmpV3MembershipReportParse(const Kiv::Ptr<Lomax::Pkt>& pkt, IgmpV3Report& report);
  bool valid_ = false;
  uint16_t numberOfRecords_ = 0;
  std::vector<IgmpGroupRecord> records_;
  Kiv::Ptr<Lomax::Pkt> pkt_;
};

// Reads the report at the front of the packet's span, in one pass and with one allocation (the records).
// A report whose counts and lengths do not fit the span is not valid; bytes behind the last record are
// left alone.
IgmpV3Report doIgmpV3MembershipReportParse(const Kiv::Ptr<Lomax::Pkt>& pkt);
// The same into a report whose record storage is reused, so that a warm report parses with no allocation.
[[nodiscard]] bool doIgmpV3MembershipReportParse(const Kiv::Ptr<Lomax::Pkt>& pkt, IgmpV3Report& report);

// Takes the records of the groups in groupList out of the report at the span's front and mends the
// record count, the IGMP checksum, the IP total length and the IP header checksum; the frame shrinks by
// the bytes removed. ipHdr is the header right before the span, whose length must match the span. False,
// with the packet unchanged, if the report or the header does not fit.
[[nodiscard]] bool doIgmpV3MembershipReportFilterEdit(const Kiv::Ptr<Lomax::Pkt>& pkt,
                                                      const GroupList& groupList, Lomax::IpHdr ipHdr);

}  // namespace Gmp::Igmp
