// Walking the records of a version 3 report; each record's length is checked against what is left of the
// span before anything in it is read.
#include "net/IgmpV3Report.h"

#include <cstring>

#include "net/IgmpCommonHdr.h"
#include "net/MessageType.h"
#include "net/NetU16.h"

namespace Gmp::Igmp {

namespace {

// The bytes of the record at p, or 0 if it does not fit in the left bytes.
uint32_t recordBytes(const uint8_t* p, uint32_t left) {
  if (left < IgmpV3Report::recordHeaderBytes) return 0;
  uint32_t bytes = IgmpV3Report::recordHeaderBytes + 4u * Lomax::NetU16::read(p + 2) + 4u * p[1];
  return bytes <= left ? bytes : 0;
}

// The record count if the report at p fits in len bytes, else -1.
int32_t checkedRecordCount(const uint8_t* p, uint32_t len) {
  if (len < IgmpV3Report::headerBytes || p[0] != Lomax::messageTypeV3MembershipReport) return -1;
  uint16_t n = Lomax::NetU16::read(p + 6);
  if (uint32_t{n} * IgmpV3Report::recordHeaderBytes > len - IgmpV3Report::headerBytes) return -1;
  return n;
}

}  // namespace

bool doIgmpV3MembershipReportParse(const Kiv::Ptr<Lomax::Pkt>& pkt, IgmpV3Report& report) {
  report.valid_ = false;
  report.numberOfRecords_ = 0;
  report.records_.clear();
  report.pkt_ = pkt;
  const uint8_t* p = pkt->offsetFront();
  uint32_t len = pkt->offsetBytes();
  int32_t n = checkedRecordCount(p, len);
  if (n < 0) return false;
  // Bounded by the span through the check above, so a forged count cannot ask for much.
  report.records_.reserve(n);
  uint32_t at = IgmpV3Report::headerBytes;
  for (int32_t i = 0; i < n; ++i) {
    uint32_t bytes = recordBytes(p + at, len - at);
    if (!bytes) {
      report.records_.clear();
      return false;
    }
    const uint8_t* r = p + at;
    RecordType type = r[0] <= recordTypeBlockOldSources ? static_cast<RecordType>(r[0]) : recordTypeUnknown;
    report.records_.emplace_back(type, Lomax::IpAddr::fromBytes(r + 4),
                                 SourceList(r + IgmpV3Report::recordHeaderBytes, Lomax::NetU16::read(r + 2)));
    at += bytes;
  }
  report.numberOfRecords_ = static_cast<uint16_t>(n);
  report.valid_ = true;
  return true;
}

IgmpV3Report doIgmpV3MembershipReportParse(const Kiv::Ptr<Lomax::Pkt>& pkt) {
  IgmpV3Report report;
  // The report says itself whether it is valid.
  static_cast<void>(doIgmpV3MembershipReportParse(pkt, report));
  return report;
}

bool doIgmpV3MembershipReportFilterEdit(const Kiv::Ptr<Lomax::Pkt>& pkt, const GroupList& groupList,
                                        Lomax::IpHdr ipHdr) {
  uint8_t* p = pkt->offsetFront();
  uint32_t len = pkt->offsetBytes();
  if (ipHdr.bytes() < pkt->data() || ipHdr.bytes() + Lomax::IpHdr::minBytes > p ||
      ipHdr.bytes() + ipHdr.headerBytes() != p || ipHdr.payloadLen() != len)
    return false;
  int32_t n = checkedRecordCount(p, len);
  if (n < 0) return false;
  uint32_t at = IgmpV3Report::headerBytes;
  for (int32_t i = 0; i < n; ++i) {
    uint32_t bytes = recordBytes(p + at, len - at);
    if (!bytes) return false;
    at += bytes;
  }

  // The report is sound: from here on nothing fails. Bytes about to change must be ours alone.
  ptrdiff_t moved = pkt->doUnshare();
  p += moved;
  ipHdr = ipHdr.movedBy(moved);
  uint32_t read = IgmpV3Report::headerBytes, write = read;
  uint16_t kept = 0;
  for (int32_t i = 0; i < n; ++i) {
    uint32_t bytes = recordBytes(p + read, len - read);
    if (!groupList.groupList(Lomax::IpAddr::fromBytes(p + read + 4))) {
      if (write != read) std::memmove(p + write, p + read, bytes);
      write += bytes;
      ++kept;
    }
    read += bytes;
  }
  uint32_t removed = read - write;
  // What follows the records, in the message and behind the span, moves up with them.
  uint8_t* frameEnd = pkt->data() + pkt->len();
  if (removed) std::memmove(p + write, p + read, frameEnd - (p + read));
  pkt->lenIs(static_cast<uint16_t>(pkt->len() - removed));
  Lomax::NetU16::write(p + 6, kept);
  Lomax::IgmpCommonHdr::of(p, len - removed)->doChecksumUpdate(len - removed);
  ipHdr.totalLenIs(static_cast<uint16_t>(ipHdr.totalLen() - removed));
  ipHdr.doChecksumUpdate();
  return true;
}

}  // namespace Gmp::Igmp
