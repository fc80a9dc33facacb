// The VLAN status: the protocol times it computes.
#include <gtest/gtest.h>

#include "model/IgmpContextStatus.h"

namespace {

using namespace Bridging::IgmpSnooping;

TEST(IgmpContextStatusTest, ProtocolTimesPreferTheQuerierThenConfigurationThenDefaults) {
  auto s = Kiv::make<IgmpContextStatus>(Bridging::VlanId(10));
  EXPECT_EQ(s->robustness(), 2u);
  EXPECT_EQ(s->queryInterval(), 125u);
  EXPECT_EQ(s->groupMembershipInterval(), 2 * 125 + 10.0);
  EXPECT_EQ(s->otherQuerierPresentInterval(), 2 * 125 + 5.0);
  EXPECT_EQ(s->restartQueryInterval(), 125 / 4.0);
  s->configuredRobustnessIs(3);
  s->configuredQueryIntervalIs(60);
  s->configuredRestartQueryIntervalIs(5.0);
  EXPECT_EQ(s->robustness(), 3u);
  EXPECT_EQ(s->queryInterval(), 60u);
  EXPECT_EQ(s->restartQueryInterval(), 5.0);
  s->lastQueryRobustnessIs(4);
  s->lastQueryQueryIntervalIs(0x8f);  // exponential form: (0xf | 0x10) << 3 = 248 s
  s->queryResponseIntervalIs(2.0);
  EXPECT_EQ(s->robustness(), 4u);
  EXPECT_EQ(s->queryInterval(), 248u);
  EXPECT_EQ(s->groupMembershipInterval(), 4 * 248 + 2.0);
  EXPECT_EQ(s->otherQuerierPresentInterval(), 4 * 248 + 1.0);
}

}  // namespace
