// Event logs: the limiter's keys and windows in virtual time, and the renderer.
#include "kernel/Log.h"

#include <gtest/gtest.h>

#include "kernel/TimeSource.h"
#include "tests/support/RecordingLogSink.h"

namespace {

Kiv::Seconds virtualNow = 1000.0;
Kiv::Seconds now() { return virtualNow; }

class LogTest : public ::testing::Test {
 protected:
  void SetUp() override {
    virtualNow = 1000.0;
    Kiv::timeSourceIs(&now);
  }
  void TearDown() override { Kiv::timeSourceIs(nullptr); }
  TestSupport::RecordingLogSink sink;
};

TEST_F(LogTest, SameArgumentsAreHeldForTheWindowDifferentOnesPass) {
  Kiv::LogHandle limit("TEST_LIMIT", Kiv::logWarning, "limit %d in VLAN %d", "", "", 0.0, 1.0, 0);
  ASSERT_TRUE(limit.rateLimitArgs());
  Kiv::log(limit, 5, 10);
  Kiv::log(limit, 5, 10);
  Kiv::log(limit, 5, 20);
  Kiv::log(limit, 10, 5);  // the same strings in another order are another event
  virtualNow += Kiv::defaultLogWindow - 0.5;
  Kiv::log(limit, 5, 10);
  virtualNow += 0.5;
  Kiv::log(limit, 5, 10);
  EXPECT_EQ(sink.lines(),
            (std::vector<std::string>{"%TEST_LIMIT: limit 5 in VLAN 10", "%TEST_LIMIT: limit 5 in VLAN 20",
                                      "%TEST_LIMIT: limit 10 in VLAN 5", "%TEST_LIMIT: limit 5 in VLAN 10"}));
  ASSERT_EQ(sink.entries.size(), 4u);
  EXPECT_NE(sink.entries[0].key, sink.entries[1].key);
  EXPECT_NE(sink.entries[0].key, sink.entries[2].key);
  EXPECT_EQ(sink.entries[0].key, sink.entries[3].key);
  EXPECT_NE(sink.entries[0].key ^ limit.idHash(), 0u);
}

TEST_F(LogTest, IgnoringArgumentsGivesOneKeyAndRatesFollowTheHandle) {
  Kiv::LogHandle quiet("TEST_QUIET", Kiv::logInfo, "seen %d", "", "", 10.0, 2.0, Kiv::logIgnoreArgs);
  ASSERT_FALSE(quiet.rateLimitArgs());
  for (int i = 0; i < 4; ++i) Kiv::log(quiet, i);
  virtualNow += 10.0;
  Kiv::log(quiet, 9);
  EXPECT_EQ(sink.lines(),
            (std::vector<std::string>{"%TEST_QUIET: seen 0", "%TEST_QUIET: seen 1", "%TEST_QUIET: seen 9"}));
  EXPECT_EQ(sink.entries[0].key, quiet.idHash());
  // A clock set back (a new virtual run) opens a new window.
  virtualNow = 5.0;
  Kiv::log(quiet, 7);
  EXPECT_EQ(sink.entries.size(), 4u);
}

TEST_F(LogTest, EveryConversionTakesTheNextArgumentAsText) {
  Kiv::LogHandle h("TEST_TEXT", Kiv::logInfo, "%d/%s/%5.2f %% %lu%", "", "", 0.0, 1.0, 0);
  std::string args[] = {"Ethernet1", "10.0.0.1", "true"};
  EXPECT_EQ(h.text(args, 3), "Ethernet1/10.0.0.1/true % %");
  EXPECT_EQ(h.text(args, 1), "Ethernet1// % %");
  Kiv::log(h, std::string("a"), true, 2.5);
  EXPECT_EQ(sink.lines(), std::vector<std::string>{"%TEST_TEXT: a/true/2.5 % %"});
}

}  // namespace
