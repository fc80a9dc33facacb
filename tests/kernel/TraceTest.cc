// Text traces: the switch text, which handles it turns on, and the cost of a trace that is off.
#include "kernel/Trace.h"

#include <gtest/gtest.h>

#include "kernel/TimeSource.h"

namespace {

using Kiv::traceLevel;

class RecordingTraceSink : public Kiv::TraceSink {
 public:
  RecordingTraceSink() { Kiv::traceSinkIs(this); }
  ~RecordingTraceSink() override { Kiv::traceSinkIs(nullptr); }
  void traceLine(std::string_view line) override { lines.emplace_back(line); }
  std::vector<std::string> lines;
};

Kiv::Seconds fixedNow() { return 1795323662.123456; }

class TraceTest : public ::testing::Test {
 protected:
  void SetUp() override { Kiv::timeSourceIs(&fixedNow); }
  void TearDown() override {
    Kiv::traceSettingsIs("");
    Kiv::timeSourceIs(nullptr);
  }
  RecordingTraceSink sink;
};

TEST_F(TraceTest, SwitchTextGivesEachHandleItsLevel) {
  std::string_view text = "IgmpSnoopingCore/8,IgmpSnooping/6";
  EXPECT_EQ(traceLevel(text, "IgmpSnoopingCore"), 8);
  EXPECT_EQ(traceLevel(text, "IgmpSnooping"), 6);
  EXPECT_EQ(traceLevel(text, "IgmpSnoopingPacket"), std::nullopt);
  EXPECT_EQ(traceLevel("*/9", "LinkLocalTrace"), 9);
  EXPECT_EQ(traceLevel("IgmpSnooping::Proxy::Config/3", "IgmpSnooping::Proxy::Config"), 3);
  // The last entry naming a handle wins, so a wildcard can be narrowed.
  EXPECT_EQ(traceLevel("*/9,IgmpSnoopingPacket/2", "IgmpSnoopingPacket"), 2);
  EXPECT_EQ(traceLevel("*/9,IgmpSnoopingPacket/2", "IgmpSnoopingCore"), 9);
  EXPECT_EQ(traceLevel(" IgmpSnoopingCore / 4 , x/1", "IgmpSnoopingCore"), 4);
  EXPECT_EQ(traceLevel("IgmpSnoopingCore", "IgmpSnoopingCore"), 9);
}

TEST_F(TraceTest, MalformedEntriesAreIgnored) {
  for (std::string_view text : {"IgmpSnoopingCore/x", "IgmpSnoopingCore/10", "IgmpSnoopingCore/", "", ",,",
                                "IgmpSnoopingCor/5", "IgmpSnoopingCore/-1"}) {
    EXPECT_EQ(traceLevel(text, "IgmpSnoopingCore"), std::nullopt) << text;
  }
  EXPECT_EQ(traceLevel("IgmpSnoopingCore/x,IgmpSnoopingCore/3", "IgmpSnoopingCore"), 3);
}

TEST_F(TraceTest, SettingsReachLiveHandlesAndDefaults) {
  Kiv::TraceHandle core("IgmpSnoopingCore", false);
  Kiv::TraceHandle loud("IgmpSnoopingLoud", true);
  EXPECT_EQ(core.level(), -1);
  EXPECT_EQ(loud.level(), 9);
  Kiv::traceSettingsIs("IgmpSnoopingCore/6,IgmpSnoopingLoud/1");
  EXPECT_TRUE(core.isEnabled(6));
  EXPECT_FALSE(core.isEnabled(7));
  EXPECT_TRUE(loud.isEnabled(1));
  EXPECT_FALSE(loud.isEnabled(2));
  {
    Kiv::TraceHandle later("IgmpSnoopingCore", false);
    EXPECT_EQ(later.level(), 6);
  }
  Kiv::traceSettingsIs("");
  EXPECT_EQ(core.level(), -1);
}

int evaluations = 0;
int counted(int v) {
  ++evaluations;
  return v;
}

TEST_F(TraceTest, OffTraceEvaluatesNothingAndOnTraceWritesOneLine) {
  ASSERT_EQ(Vellum::snoopVlHandle, nullptr);
  Kiv::TraceHandle core("IgmpSnoopingCore", false);
  evaluations = 0;
  KIV_TRACE(core, 6, "off " << counted(1));
  Kiv::traceSettingsIs("IgmpSnoopingCore/6");
  KIV_TRACE(core, 7, "above the level " << counted(2));
  EXPECT_EQ(evaluations, 0);
  EXPECT_TRUE(sink.lines.empty());

  int line = __LINE__ + 1;
  KIV_TRACE(core, 6,
            "New querier " << Vellum::Ipv4::fromOctets(10, 0, 0, 3) << " seen " << counted(3) << " " << true);
  EXPECT_EQ(evaluations, 1);
  ASSERT_EQ(sink.lines.size(), 1u);
  EXPECT_EQ(sink.lines[0], "2026-11-22 05:01:02.123456 IgmpSnoopingCore/6 TraceTest.cc:" +
                               std::to_string(line) + " TestBody: New querier 10.0.0.3 seen 3 true");
}

}  // namespace

namespace IgmpShim {
struct GlueSm {
  void vlanSmInitialization(const Kiv::TraceHandle& h) { KIV_TRACE_FUNC(h); }
};
}  // namespace IgmpShim

namespace {

TEST_F(TraceTest, FunctionTraceGivesTheSignatureAtLevel8) {
  Kiv::TraceHandle glue("IgmpSnooping", false);
  Kiv::traceSettingsIs("IgmpSnooping/7");
  IgmpShim::GlueSm().vlanSmInitialization(glue);
  EXPECT_TRUE(sink.lines.empty());
  Kiv::traceSettingsIs("IgmpSnooping/8");
  IgmpShim::GlueSm().vlanSmInitialization(glue);
  ASSERT_EQ(sink.lines.size(), 1u);
  EXPECT_NE(sink.lines[0].find(" IgmpSnooping/8 TraceTest.cc:"), std::string::npos);
  EXPECT_TRUE(sink.lines[0].ends_with(
      "vlanSmInitialization: void IgmpShim::GlueSm::vlanSmInitialization(const Kiv::TraceHandle&)"))
      << sink.lines[0];
}

}  // namespace
