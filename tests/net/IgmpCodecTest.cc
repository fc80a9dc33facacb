// The IGMP codec against frames from an independent encoder (tests/data/igmp-vectors.txt, made by
// scripts/gen-igmp-vectors.py): our builders must give the same bytes, our parsers must read them, and the
// report rewrite must give the shortened report that the other encoder builds.
#include <gtest/gtest.h>

#include <fstream>
#include <map>
#include <sstream>
#include <string>
#include <vector>

#include "net/FrameBuilder.h"
#include "net/IgmpCommonHdr.h"
#include "net/IgmpQuery.h"
#include "net/IgmpV12Hdr.h"
#include "net/IgmpV3Report.h"
#include "net/IpHdr.h"
#include "net/PimCommonHdr.h"
#include "net/PktVlanTag.h"
#include "net/QQIC.h"

namespace {

using Gmp::Igmp::IgmpGroupRecord;
using Gmp::Igmp::IgmpQuery;
using Gmp::Igmp::SourceList;
using Lomax::IpAddr;
using Lomax::Pkt;
using Bytes = std::vector<uint8_t>;

const std::map<std::string, Bytes>& vectors() {
  static const std::map<std::string, Bytes> v = [] {
    std::map<std::string, Bytes> m;
    std::ifstream in(std::string(IGMPSNOOP_TEST_DATA) + "/igmp-vectors.txt");
    std::string line;
    while (std::getline(in, line)) {
      if (line.empty() || line[0] == '#') continue;
      std::istringstream ls(line);
      std::string name, hex;
      ls >> name >> hex;
      Bytes b;
      for (size_t i = 0; i + 1 < hex.size(); i += 2)
        b.push_back(static_cast<uint8_t>(std::stoul(hex.substr(i, 2), nullptr, 16)));
      m[name] = b;
    }
    return m;
  }();
  return v;
}

Bytes vec(const std::string& name) {
  auto it = vectors().find(name);
  EXPECT_NE(it, vectors().end()) << name;
  return it == vectors().end() ? Bytes() : it->second;
}

Bytes bytesOf(const Kiv::Ptr<Pkt>& p) { return Bytes(p->data(), p->data() + p->len()); }

// Strips the tag, if any, and points the span at the IP payload, cut to the IP length, as the receive
// path does.
Lomax::IpHdr toIgmpSpan(const Kiv::Ptr<Pkt>& p) {
  Lomax::stripPktVlanTag(p);
  p->beginOffsetIs(Lomax::ethHeaderBytes);
  Lomax::IpHdr ip = *Lomax::IpHdr::of(p->offsetFront(), p->offsetBytes());
  p->beginOffsetInc(ip.headerBytes());
  if (p->offsetBytes() > ip.payloadLen())
    p->endOffsetInc(static_cast<uint16_t>(p->offsetBytes() - ip.payloadLen()));
  return ip;
}

Kiv::Ptr<Pkt> pktOf(const Bytes& b) { return Lomax::globalPktManager().newPkt(b); }

const Lomax::EthAddr srcMac(0x0200, 0x0000, 0x0001);
const IpAddr srcIp(10, 0, 0, 1);
const Lomax::FrameBuilder untagged(srcMac, srcIp);

struct RecordSpec {
  Gmp::Igmp::RecordType type;
  IpAddr group;
  std::vector<IpAddr> sources;
};
// As in scripts/gen-igmp-vectors.py.
const std::vector<RecordSpec> reportRecords = {
    {Gmp::Igmp::recordTypeModeIsInclude, IpAddr(239, 1, 1, 1), {IpAddr(10, 0, 0, 5), IpAddr(10, 0, 0, 6)}},
    {Gmp::Igmp::recordTypeModeIsExclude, IpAddr(239, 1, 1, 2), {}},
    {Gmp::Igmp::recordTypeChangeToInclude, IpAddr(239, 1, 1, 3), {IpAddr(10, 1, 1, 1)}},
    {Gmp::Igmp::recordTypeChangeToExclude,
     IpAddr(239, 1, 1, 4),
     {IpAddr(10, 2, 2, 2), IpAddr(10, 2, 2, 3), IpAddr(10, 2, 2, 4)}},
    {Gmp::Igmp::recordTypeAllowNewSources, IpAddr(239, 1, 1, 5), {IpAddr(10, 3, 3, 3)}},
    {Gmp::Igmp::recordTypeBlockOldSources, IpAddr(239, 1, 1, 6), {IpAddr(10, 4, 4, 4), IpAddr(10, 4, 4, 5)}},
};

std::vector<IgmpGroupRecord> recordsOf(const std::vector<RecordSpec>& specs) {
  std::vector<IgmpGroupRecord> r;
  for (const auto& s : specs) r.emplace_back(s.type, s.group, SourceList(s.sources));
  return r;
}

TEST(FrameBuilderTest, FramesMatchTheIndependentEncoder) {
  const IpAddr g(239, 1, 2, 3);
  EXPECT_EQ(bytesOf(untagged.igmpV1Report(g)), vec("v1-report"));
  EXPECT_EQ(bytesOf(untagged.igmpV2Report(g)), vec("v2-report"));
  EXPECT_EQ(bytesOf(Lomax::FrameBuilder(srcMac, srcIp, Bridging::VlanIdOrNone(10)).igmpV2Report(g)),
            vec("v2-report-tagged"));
  EXPECT_EQ(bytesOf(untagged.igmpV2Leave(g)), vec("v2-leave"));
  EXPECT_EQ(bytesOf(untagged.igmpQuery(IgmpQuery(Gmp::Igmp::igmpVersion1, 0, IpAddr()))),
            vec("v1-query-general"));
  EXPECT_EQ(bytesOf(untagged.igmpQuery(IgmpQuery(Gmp::Igmp::igmpVersion2, 100, IpAddr()))),
            vec("v2-query-general"));
  EXPECT_EQ(bytesOf(untagged.igmpQuery(IgmpQuery(Gmp::Igmp::igmpVersion2, 10, g))), vec("v2-query-specific"));
  EXPECT_EQ(bytesOf(untagged.pimV2Hello(105)), vec("pim-hello"));
  EXPECT_EQ(bytesOf(untagged.dvmrpProbe(0x12345678)), vec("dvmrp-probe"));
  EXPECT_EQ(bytesOf(untagged.mrdAdvertisement(20, 125, 2)), vec("mrd-advertisement"));
  EXPECT_EQ(bytesOf(untagged.mrdTermination()), vec("mrd-termination"));

  auto records = recordsOf(reportRecords);
  EXPECT_EQ(bytesOf(untagged.igmpV3Report(records)), vec("v3-report"));
  EXPECT_EQ(bytesOf(Lomax::FrameBuilder(srcMac, srcIp, Bridging::VlanIdOrNone(4094)).igmpV3Report(records)),
            vec("v3-report-tagged"));

  IgmpQuery general(Gmp::Igmp::igmpVersion3, 100, IpAddr());
  general.robustnessIs(2);
  general.queryIntervalCodeIs(125);
  EXPECT_EQ(bytesOf(untagged.igmpQuery(general)), vec("v3-query-general"));
  std::vector<IpAddr> sources = {IpAddr(10, 0, 0, 5), IpAddr(10, 0, 0, 6)};
  IgmpQuery specific(Gmp::Igmp::igmpVersion3, Gmp::Igmp::QQIC::encode(1000), IpAddr(239, 1, 1, 1));
  specific.suppressRouterSideProcessingIs(true);
  specific.robustnessIs(7);
  specific.queryIntervalCodeIs(0x8c);
  specific.sourcesIs(SourceList(sources));
  EXPECT_EQ(bytesOf(untagged.igmpQuery(specific)), vec("v3-query-specific"));
  IgmpQuery max(Gmp::Igmp::igmpVersion3, Gmp::Igmp::QQIC::encode(31744), IpAddr(239, 9, 9, 9));
  max.suppressRouterSideProcessingIs(true);
  max.robustnessIs(3);
  max.queryIntervalCodeIs(0xff);
  EXPECT_EQ(bytesOf(Lomax::FrameBuilder(srcMac, IpAddr(), Bridging::VlanIdOrNone(100)).igmpQuery(max)),
            vec("v3-query-max"));
}

TEST(IgmpHeaderTest, ViewsReadTheVectorsAndChecksumsVerify) {
  for (const auto& [name, bytes] : vectors()) {
    Kiv::Ptr<Pkt> p = pktOf(bytes);
    Lomax::IpHdr ip = toIgmpSpan(p);
    EXPECT_EQ(ip.computedChecksum(), Lomax::zeroChecksum) << name;
    EXPECT_EQ(ip.ttl(), 1) << name;
    EXPECT_EQ(p->offsetBytes(), ip.payloadLen()) << name;
    if (ip.protocol() == Lomax::ipProtocolPim) {
      Lomax::PimCommonHdr pim = *Lomax::PimCommonHdr::of(p->offsetFront(), p->offsetBytes());
      EXPECT_EQ(pim.messageType(), Lomax::pimTypeV2Hello);
      EXPECT_EQ(pim.computedChecksum(ip.payloadLen()), Lomax::zeroChecksum);
    } else {
      EXPECT_EQ(
          Lomax::IgmpCommonHdr::of(p->offsetFront(), p->offsetBytes())->computedChecksum(ip.payloadLen()),
          Lomax::zeroChecksum)
          << name;
    }
  }
  Kiv::Ptr<Pkt> leave = pktOf(vec("v2-leave"));
  toIgmpSpan(leave);
  Lomax::IgmpV12Hdr v12 = *Lomax::IgmpV12Hdr::of(leave->offsetFront(), leave->offsetBytes());
  EXPECT_EQ(v12.type(), Lomax::messageTypeV2LeaveGroup);
  EXPECT_EQ(v12.group(), IpAddr(239, 1, 2, 3));
  // Ethernet padding behind the message is outside the IP length and so outside the checksum.
  Kiv::Ptr<Pkt> report = pktOf(vec("v2-report"));
  Lomax::IpHdr ip = toIgmpSpan(report);
  EXPECT_GT(report->endOffset(), 0);
  EXPECT_EQ(ip.payloadLen(), 8);
}

TEST(IgmpQueryTest, ParsesEveryVersionFromTheVectors) {
  Kiv::Ptr<Pkt> p = pktOf(vec("v3-query-specific"));
  toIgmpSpan(p);
  IgmpQuery q = Gmp::Igmp::doIgmpMembershipQueryParse(p);
  ASSERT_TRUE(q.valid());
  EXPECT_EQ(q.version(), Gmp::Igmp::igmpVersion3);
  EXPECT_EQ(q.maxResponseCode(), 0xaf);
  EXPECT_DOUBLE_EQ(q.maxResponseSeconds(), 99.2);
  EXPECT_EQ(q.group(), IpAddr(239, 1, 1, 1));
  EXPECT_TRUE(q.suppressRouterSideProcessing());
  EXPECT_EQ(q.robustness(), 7);
  EXPECT_EQ(q.queryIntervalCode(), 0x8c);
  EXPECT_EQ(Gmp::Igmp::QQIC(static_cast<uint8_t>(q.queryIntervalCode())).seconds(), 224u);
  ASSERT_EQ(q.numSources(), 2);
  EXPECT_EQ(q.sources()[1], IpAddr(10, 0, 0, 6));

  p = pktOf(vec("v3-query-max"));
  toIgmpSpan(p);
  q = Gmp::Igmp::doIgmpMembershipQueryParse(p);
  EXPECT_DOUBLE_EQ(q.maxResponseSeconds(), 3174.4);
  EXPECT_EQ(q.robustness(), 3);

  p = pktOf(vec("v2-query-specific"));
  toIgmpSpan(p);
  q = Gmp::Igmp::doIgmpMembershipQueryParse(p);
  EXPECT_EQ(q.version(), Gmp::Igmp::igmpVersion2);
  EXPECT_DOUBLE_EQ(q.maxResponseSeconds(), 1.0);
  EXPECT_EQ(q.group(), IpAddr(239, 1, 2, 3));

  p = pktOf(vec("v1-query-general"));
  toIgmpSpan(p);
  EXPECT_EQ(Gmp::Igmp::doIgmpMembershipQueryParse(p).version(), Gmp::Igmp::igmpVersion1);
}

TEST(IgmpQueryTest, LengthsThatDoNotFitAreInvalid) {
  Kiv::Ptr<Pkt> p = pktOf(vec("v3-query-specific"));
  toIgmpSpan(p);
  // Two sources declared; cut the span so that the second no longer fits.
  p->endOffsetInc(1);
  EXPECT_FALSE(Gmp::Igmp::doIgmpMembershipQueryParse(p).valid());
  p->endOffsetIs(static_cast<uint16_t>(p->endOffset() + 9));
  EXPECT_EQ(p->offsetBytes(), 10u);
  EXPECT_FALSE(Gmp::Igmp::doIgmpMembershipQueryParse(p).valid());
  p->endOffsetInc(3);
  EXPECT_FALSE(Gmp::Igmp::doIgmpMembershipQueryParse(p).valid());
  p = pktOf(vec("v2-report"));
  toIgmpSpan(p);
  EXPECT_FALSE(Gmp::Igmp::doIgmpMembershipQueryParse(p).valid());
}

TEST(IgmpV3ReportTest, ParsesRecordsAndSourcesFromTheVector) {
  Kiv::Ptr<Pkt> p = pktOf(vec("v3-report-tagged"));
  toIgmpSpan(p);
  auto report = Gmp::Igmp::doIgmpV3MembershipReportParse(p);
  ASSERT_TRUE(report.valid());
  ASSERT_EQ(report.numberOfRecords(), reportRecords.size());
  for (size_t i = 0; i < reportRecords.size(); ++i) {
    const auto& r = report.records()[i];
    EXPECT_EQ(r.recordType(), reportRecords[i].type);
    EXPECT_EQ(r.group(), reportRecords[i].group);
    EXPECT_EQ(std::vector<IpAddr>(r.sources().begin(), r.sources().end()), reportRecords[i].sources);
  }
}

TEST(IgmpV3ReportTest, CountsAndLengthsThatDoNotFitAreInvalid) {
  Kiv::Ptr<Pkt> p = pktOf(vec("v3-report"));
  toIgmpSpan(p);
  uint8_t* m = p->offsetFront();
  // One record more than the bytes hold.
  m[7] = 7;
  EXPECT_FALSE(Gmp::Igmp::doIgmpV3MembershipReportParse(p).valid());
  m[7] = 6;
  // The last record claims one source too many.
  uint8_t* last = m + p->offsetBytes() - 16;
  ASSERT_EQ(last[3], 2);
  last[3] = 3;
  EXPECT_FALSE(Gmp::Igmp::doIgmpV3MembershipReportParse(p).valid());
  last[3] = 2;
  // Auxiliary data is skipped, and must fit too.
  last[1] = 1;
  EXPECT_FALSE(Gmp::Igmp::doIgmpV3MembershipReportParse(p).valid());
  last[1] = 0;
  // A huge count in a short report asks for nothing.
  m[6] = 0xff, m[7] = 0xff;
  EXPECT_FALSE(Gmp::Igmp::doIgmpV3MembershipReportParse(p).valid());
  m[6] = 0, m[7] = 6;
  // Unknown record types parse as type 0.
  m[8] = 9;
  auto report = Gmp::Igmp::doIgmpV3MembershipReportParse(p);
  ASSERT_TRUE(report.valid());
  EXPECT_EQ(report.records()[0].recordType(), Gmp::Igmp::recordTypeUnknown);
}

TEST(IgmpV3ReportTest, RewriteGivesTheShortenedReportOfTheIndependentEncoder) {
  for (bool shared : {false, true}) {
    Kiv::Ptr<Pkt> p = pktOf(vec("v3-report"));
    Lomax::IpHdr ip = toIgmpSpan(p);
    Kiv::Ptr<Pkt> copy = shared ? Lomax::globalPktManager().newShallowCopy(p) : Kiv::Ptr<Pkt>();
    Gmp::Igmp::GroupList drop;
    for (IpAddr g : {IpAddr(239, 1, 1, 6), IpAddr(239, 1, 1, 2), IpAddr(239, 1, 1, 4)}) {
      drop.groupListIs(g, true);
      drop.groupCountInc(1);
    }
    EXPECT_EQ(drop.groupCount(), 3u);
    ASSERT_TRUE(Gmp::Igmp::doIgmpV3MembershipReportFilterEdit(p, drop, ip));
    EXPECT_EQ(bytesOf(p), vec("v3-report-filtered"));
    if (shared) {
      EXPECT_EQ(bytesOf(copy), vec("v3-report"));
    }
    auto report = Gmp::Igmp::doIgmpV3MembershipReportParse(p);
    ASSERT_TRUE(report.valid());
    EXPECT_EQ(report.numberOfRecords(), 3);
  }
}

TEST(IgmpV3ReportTest, RewriteRefusesWhatDoesNotFitAndLeavesItAlone) {
  Gmp::Igmp::GroupList drop;
  drop.groupListIs(IpAddr(239, 1, 1, 1), true);
  Kiv::Ptr<Pkt> p = pktOf(vec("v3-report"));
  Lomax::IpHdr ip = toIgmpSpan(p);
  Bytes before = bytesOf(p);
  // The header must be the one right before the span, not a copy of it elsewhere.
  std::vector<uint8_t> copy(ip.bytes(), ip.bytes() + ip.headerBytes());
  EXPECT_FALSE(
      Gmp::Igmp::doIgmpV3MembershipReportFilterEdit(p, drop, *Lomax::IpHdr::of(copy.data(), copy.size())));
  p->offsetFront()[7] = 7;
  EXPECT_FALSE(Gmp::Igmp::doIgmpV3MembershipReportFilterEdit(p, drop, ip));
  p->offsetFront()[7] = 6;
  p->endOffsetInc(4);
  EXPECT_FALSE(Gmp::Igmp::doIgmpV3MembershipReportFilterEdit(p, drop, ip));
  EXPECT_EQ(bytesOf(p), before);
}

TEST(IgmpV3ReportTest, AThousandRecordsOfTenSourcesParseInOnePass) {
  std::vector<std::vector<IpAddr>> sources(1000);
  std::vector<IgmpGroupRecord> records;
  for (uint32_t i = 0; i < 1000; ++i) {
    for (uint32_t s = 0; s < 10; ++s) sources[i].push_back(IpAddr::fromHost(0x0a000000 + i * 16 + s));
    records.emplace_back(Gmp::Igmp::recordTypeModeIsInclude, IpAddr::fromHost(0xef000000 + i),
                         SourceList(sources[i]));
  }
  Kiv::Ptr<Pkt> p = untagged.igmpV3Report(records);
  Lomax::IpHdr ip = toIgmpSpan(p);
  auto report = Gmp::Igmp::doIgmpV3MembershipReportParse(p);
  ASSERT_TRUE(report.valid());
  ASSERT_EQ(report.records().size(), 1000u);
  EXPECT_EQ(report.records()[999].sources()[9], IpAddr::fromHost(0x0a000000 + 999 * 16 + 9));

  Gmp::Igmp::GroupList drop;
  for (uint32_t i = 0; i < 1000; i += 2) drop.groupListIs(IpAddr::fromHost(0xef000000 + i), true);
  ASSERT_TRUE(Gmp::Igmp::doIgmpV3MembershipReportFilterEdit(p, drop, ip));
  report = Gmp::Igmp::doIgmpV3MembershipReportParse(p);
  ASSERT_EQ(report.numberOfRecords(), 500);
  EXPECT_EQ(report.records()[0].group(), IpAddr::fromHost(0xef000001));
  EXPECT_EQ(ip.computedChecksum(), Lomax::zeroChecksum);
  EXPECT_EQ(Lomax::IgmpCommonHdr::of(p->offsetFront(), p->offsetBytes())->computedChecksum(p->offsetBytes()),
            Lomax::zeroChecksum);
}

}  // namespace
