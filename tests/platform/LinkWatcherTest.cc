// The interface table against a real namespace's rtnetlink: the first reading, then interfaces that
// appear, go up and down, are renamed, join and leave a bridge, change STP state and vanish; and the
// reading of a bridge's VLAN table, which this kernel can't produce, from bytes.
#include "platform/LinkWatcher.h"

#include <gtest/gtest.h>
#include <linux/if_bridge.h>
#include <linux/netlink.h>

#include <cstring>
#include <memory>
#include <string>
#include <vector>

#include "tests/support/LoopWait.h"
#include "tests/support/NetNs.h"

namespace {

using Platform::LinkWatcher;

class Recorder : public LinkWatcher::Observer {
 public:
  void onLink(const LinkWatcher::Link* before, const LinkWatcher::Link* after) override {
    if (!before) {
      events.push_back("add " + after->name);
    } else if (!after) {
      events.push_back("del " + before->name);
    } else if (before->name != after->name) {
      events.push_back("rename " + before->name + " " + after->name);
    }
  }
  void onLinksSynced() override { events.push_back("synced"); }
  bool saw(const std::string& e) const { return std::find(events.begin(), events.end(), e) != events.end(); }
  std::vector<std::string> events;
};

class LinkWatcherTest : public ::testing::Test {
 protected:
  void SetUp() override {
    if (!TestNet::NetNs::unavailable().empty()) GTEST_SKIP() << TestNet::NetNs::unavailable();
    ns_ = std::make_unique<TestNet::NetNs>("links");
    ASSERT_TRUE(ns_->ok());
    ASSERT_TRUE(ns_->ip("link add ea type veth peer name eb"));
    watcher_.observerAdd(&recorder_);
    TestNet::NetNs::Inside in(*ns_);
    watcher_.start();
  }

  // Waits until the named interface is there and pred holds of it.
  bool linkBecomes(const std::string& name, const std::function<bool(const LinkWatcher::Link&)>& pred) {
    return TestNet::turnUntil([&] {
      const LinkWatcher::Link* l = watcher_.linkByName(name);
      return l && pred(*l);
    });
  }

  std::unique_ptr<TestNet::NetNs> ns_;
  LinkWatcher watcher_;
  Recorder recorder_;
};

TEST_F(LinkWatcherTest, FollowsInterfacesFromTheFirstReadingOn) {
  ASSERT_TRUE(TestNet::turnUntil([&] { return watcher_.synced(); }));
  EXPECT_EQ(recorder_.events.back(), "synced");
  EXPECT_TRUE(recorder_.saw("add lo") && recorder_.saw("add ea") && recorder_.saw("add eb"));
  const int a = ns_->ifindex("ea"), b = ns_->ifindex("eb");
  EXPECT_EQ(watcher_.link(a)->kind, "veth");
  EXPECT_FALSE(watcher_.link(a)->adminUp);

  ASSERT_TRUE(ns_->ip("link set ea up"));
  ASSERT_TRUE(linkBecomes("ea", [](auto& l) { return l.adminUp && !l.operUp; }));
  ASSERT_TRUE(ns_->ip("link set eb up"));
  ASSERT_TRUE(linkBecomes("ea", [](auto& l) { return l.operUp; }));
  ASSERT_TRUE(ns_->ip("link set eb down") && ns_->ip("link set eb name ec"));
  ASSERT_TRUE(linkBecomes("ec", [](auto& l) { return !l.adminUp; }));
  EXPECT_EQ(watcher_.linkByName("ec")->ifindex, b);
  EXPECT_EQ(watcher_.linkByName("eb"), nullptr);
  EXPECT_TRUE(recorder_.saw("rename eb ec"));

  // Into a bridge: master, port, and the STP state, whose changes only the bridge's own messages tell.
  ASSERT_TRUE(ns_->ip("link add br0 type bridge") && ns_->ip("link set br0 up"));
  ASSERT_TRUE(ns_->ip("link set ec master br0") && ns_->ip("link set ec up"));
  const int br0 = ns_->ifindex("br0");
  ASSERT_TRUE(linkBecomes("ec", [&](auto& l) {
    return l.master == br0 && l.bridgePort && l.operUp && l.stpState == BR_STATE_FORWARDING;
  }));
  EXPECT_EQ(watcher_.link(br0)->kind, "bridge");
  EXPECT_FALSE(watcher_.link(br0)->vlanFiltering);
  ASSERT_TRUE(ns_->exec("bridge link set dev ec state 0"));
  ASSERT_TRUE(linkBecomes("ec", [](auto& l) { return l.stpState == BR_STATE_DISABLED && l.operUp; }));
  ASSERT_TRUE(ns_->exec("bridge link set dev ec state 3"));
  ASSERT_TRUE(linkBecomes("ec", [](auto& l) { return l.stpState == BR_STATE_FORWARDING; }));
  ASSERT_TRUE(ns_->ip("link set ec nomaster"));
  ASSERT_TRUE(linkBecomes("ec", [](auto& l) { return l.master == 0 && !l.bridgePort; }));

  ASSERT_TRUE(ns_->ip("link del ea"));
  ASSERT_TRUE(TestNet::turnUntil([&] { return !watcher_.link(a) && !watcher_.link(b); }));
  EXPECT_TRUE(recorder_.saw("del ea") && recorder_.saw("del ec"));
  EXPECT_EQ(watcher_.malformedMsgs(), 0u);
}

std::vector<uint8_t> vlanAttrs(std::initializer_list<bridge_vlan_info> infos) {
  std::vector<uint8_t> bytes;
  for (const bridge_vlan_info& info : infos) {
    nlattr attr{NLA_HDRLEN + sizeof info, IFLA_BRIDGE_VLAN_INFO};
    const auto* a = reinterpret_cast<const uint8_t*>(&attr);
    const auto* i = reinterpret_cast<const uint8_t*>(&info);
    bytes.insert(bytes.end(), a, a + sizeof attr);
    bytes.insert(bytes.end(), i, i + sizeof info);
  }
  return bytes;
}

TEST(LinkWatcherVlanTest, ABridgesVlanTableReadsWithRangesSpreadOut) {
  using V = LinkWatcher::BridgeVlan;
  const auto bytes = vlanAttrs({
      {BRIDGE_VLAN_INFO_PVID | BRIDGE_VLAN_INFO_UNTAGGED, 1},
      {BRIDGE_VLAN_INFO_RANGE_BEGIN, 10},
      {BRIDGE_VLAN_INFO_RANGE_END, 12},
      {0, 4095},
      {BRIDGE_VLAN_INFO_UNTAGGED, 5},
  });
  EXPECT_EQ(
      LinkWatcher::bridgeVlansOf(bytes),
      (std::vector<V>{
          {1, true, true}, {5, false, true}, {10, false, false}, {11, false, false}, {12, false, false}}));
}

}  // namespace
