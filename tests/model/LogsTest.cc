// The event-log catalogue's names, severities and texts as the operator sees them.
#include "model/Logs.h"

#include <gtest/gtest.h>

#include "kernel/TimeSource.h"
#include "tests/support/RecordingLogSink.h"

namespace {

using namespace Bridging::IgmpSnooping;

Kiv::Seconds virtualNow = 0.0;
Kiv::Seconds now() { return virtualNow; }

TEST(LogsTest, CatalogueTexts) {
  struct Row {
    const Kiv::LogHandle& h;
    Kiv::LogSeverity severity;
    const char* explanationEnd;
    const char* action;
  };
  const Row rows[] = {
      {IGMPSNOOPING_GROUP_LIMIT_EXCEEDED, Kiv::logWarning, "allowed for this VLAN.",
       "Increase the max-groups limit for the VLAN or configure the hosts in the VLAN to join fewer groups."},
      {IGMPSNOOPING_GROUP_LIMIT_NO_LONGER_EXCEEDED, Kiv::logWarning, "configured max-groups limit.",
       Kiv::NoActionRequired},
      {IGMPSNOOPING_GROUP_LIMIT_NO_LONGER_EXCEEDED_NO_LIMIT, Kiv::logWarning,
       "previously configured max-groups limit.", Kiv::NoActionRequired},
      {IGMPSNOOPING_NO_IGMP_QUERIER, Kiv::logInfo, "flooded to all members of the VLAN.",
       "Configure an IGMP querier for the specified VLAN."},
      {IGMPSNOOPING_NOT_EXPECT_ROUTER, Kiv::logWarning, "designed for pure L2 environment ",
       "Please correct network configuration"},
  };
  for (const Row& r : rows) {
    SCOPED_TRACE(r.h.name());
    EXPECT_EQ(r.h.severity(), r.severity);
    EXPECT_TRUE(std::string(r.h.explanation()).ends_with(r.explanationEnd)) << r.h.explanation();
    EXPECT_STREQ(r.h.recommendedAction(), r.action);
    EXPECT_EQ(r.h.rateLimitInterval(), 0.0);
    EXPECT_EQ(r.h.rateLimitBurst(), 1.0);
    EXPECT_EQ(r.h.rateLimitFlags(), 0);
  }
  EXPECT_STREQ(IGMPSNOOPING_NOT_EXPECT_ROUTER.explanation(),
               "The switch report-flooding feature is designed for pure L2 environment ");
}

TEST(LogsTest, RenderedLines) {
  Kiv::timeSourceIs(&now);
  TestSupport::RecordingLogSink sink;
  Kiv::log(IGMPSNOOPING_GROUP_LIMIT_EXCEEDED, 100, 10);
  Kiv::log(IGMPSNOOPING_GROUP_LIMIT_NO_LONGER_EXCEEDED, 100, 10);
  Kiv::log(IGMPSNOOPING_GROUP_LIMIT_NO_LONGER_EXCEEDED_NO_LIMIT, 10);
  Kiv::log(IGMPSNOOPING_NO_IGMP_QUERIER, 10, "10.0.0.5", "Ethernet1", "239.1.1.1");
  Kiv::log(IGMPSNOOPING_NOT_EXPECT_ROUTER, 10);
  Kiv::log(IGMPSNOOPING_NOT_EXPECT_ROUTER, 10);
  Kiv::timeSourceIs(nullptr);
  EXPECT_EQ(
      sink.lines(),
      (std::vector<std::string>{
          "%IGMPSNOOPING_GROUP_LIMIT_EXCEEDED: IGMP group limit of 100 groups exceeded in VLAN 10",
          "%IGMPSNOOPING_GROUP_LIMIT_NO_LONGER_EXCEEDED: IGMP group limit of 100 groups no longer exceeded "
          "in VLAN 10",
          "%IGMPSNOOPING_GROUP_LIMIT_NO_LONGER_EXCEEDED_NO_LIMIT: IGMP group limit no longer exceeded in "
          "VLAN 10",
          "%IGMPSNOOPING_NO_IGMP_QUERIER: No IGMP querier detected in VLAN 10. IGMP report received from "
          "10.0.0.5 on Ethernet1 for 239.1.1.1",
          "%IGMPSNOOPING_NOT_EXPECT_ROUTER: Router detected in VLAN 10"}));
}

}  // namespace
