// The bridge as data plane, on a real bridge: the published state is written by hand in the order the
// agent publishes it, a host streams to groups, and the frames each host and the bridge's own stack
// get are counted. Plus the comparison of published and held state, which needs no bridge.
#include "platform/BridgeDataplane.h"

#include <gtest/gtest.h>
#include <sys/socket.h>

#include <atomic>
#include <memory>
#include <optional>
#include <thread>

#include "net/FrameBuilder.h"
#include "net/IpToEthGroupMap.h"
#include "platform/BridgeSetup.h"
#include "tests/support/BridgeLab.h"
#include "tests/support/LoopWait.h"
#include "tests/support/RawPort.h"
#include "tests/support/RecordingLogSink.h"

namespace {

using Bridging::VlanId;
using Bridging::IgmpSnooping::IgmpContextStatus;
using Bridging::IgmpSnooping::IgmpProtocolStatus;
using Bridging::IgmpSnooping::IpToEthGroupMap;
using Bridging::IgmpSnooping::Status;
using Bridging::IgmpSnooping::VlanStatus;
using Lomax::IntfId;
using Lomax::IpAddr;
using Platform::BridgeDataplane;
using Platform::BridgeSetup;
using Platform::DataplaneView;
using TestNet::RawPort;
using Bytes = std::vector<uint8_t>;

const IpAddr g1(239, 1, 1, 1), g2(239, 2, 2, 2);

// A UDP datagram from host 4 to a group, as it leaves the host.
Bytes streamFrame(IpAddr group) {
  auto p = Lomax::FrameBuilder(Lomax::EthAddr(0x0200, 0, 4), IpAddr(10, 7, 0, 4)).udpDatagram(group, 9, 16);
  return Bytes(p->data(), p->data() + p->len());
}

void turn() {
  TestNet::turnUntil([n = 0]() mutable { return n++ == 1; });
}

// The IPv4 destination of a frame, or 0 for anything else.
uint32_t ipDestOf(const Bytes& f) {
  if (f.size() < 34 || f[12] != 0x08 || f[13] != 0x00) return 0;
  return uint32_t{f[30]} << 24 | uint32_t{f[31]} << 16 | uint32_t{f[32]} << 8 | f[33];
}

class BridgeDataplaneTest : public ::testing::Test {
 protected:
  static constexpr int ports = 4;

  void SetUp() override {
    if (!TestNet::NetNs::unavailable().empty()) GTEST_SKIP() << TestNet::NetNs::unavailable();
    lab_ = std::make_unique<TestNet::BridgeLab>(ports);
    ASSERT_TRUE(lab_->ok());
    // No IPv6: the hosts' own MLD would be frames that no one here explains.
    ASSERT_TRUE(lab_->hosts().exec("sysctl -qw net.ipv6.conf.all.disable_ipv6=1"));
    ASSERT_TRUE(lab_->sw().exec("sysctl -qw net.ipv6.conf.all.disable_ipv6=1"));
    inside_.emplace(lab_->sw());
    links_.start();
    ASSERT_TRUE(TestNet::turnUntil([&] { return links_.synced(); }));
    setup_ = std::make_unique<BridgeSetup>(links_, BridgeSetup::Settings{"br0", 1000, "tc"});
    ASSERT_EQ(setup_->state(), BridgeSetup::State::ready);
    for (int i = 1; i <= ports; ++i) host_[i] = hostOpen(i);
    cpu_ = std::make_unique<RawPort>(lab_->sw(), "br0");
    status_ = Kiv::make<Status>("status");
    protocol_ = Kiv::make<IgmpProtocolStatus>("protocol");
    core_ = protocol_->contextStatusIs(VlanId(1));
    ASSERT_TRUE(querierCounts());
  }

  void TearDown() override {
    writer_.reset();
    setup_.reset();
    inside_.reset();
  }

  std::unique_ptr<RawPort> hostOpen(int i) {
    auto p = std::make_unique<RawPort>(lab_->hosts(), "h" + std::to_string(i));
    // Room for every frame of a long stream: the counts are read after it.
    const int size = 16 << 20;
    setsockopt(p->fd(), SOL_SOCKET, SO_RCVBUFFORCE, &size, sizeof size);
    return p;
  }

  // The bridge forwards selectively only once its querier counts, a response interval after it
  // started: until then a group nobody joined still reaches h1.
  bool querierCounts() {
    const Bytes probe = streamFrame(IpAddr(239, 255, 0, 1));
    for (int tries = 0; tries < 100; ++tries) {
      host_[4]->send(probe);
      if (!host_[1]->recv(0.05)) {
        drain();
        return true;
      }
      drain();
    }
    return false;
  }

  void drain() {
    for (int i = 1; i <= ports; ++i)
      while (host_[i]->recv(0.01)) {
      }
    while (cpu_->recv(0.01)) {
    }
  }

  void writerMake() {
    writer_ = std::make_unique<BridgeDataplane>(
        links_, BridgeDataplane::Settings{"br0", 1, setup_->hashMax()}, status_, protocol_);
    converge();
  }
  void converge() {
    ASSERT_TRUE(TestNet::turnUntil([&] { return writer_->converged(); }));
  }

  IntfId port(int i) { return IntfId(Kiv::String("p" + std::to_string(i))); }

  // What the glue publishes when the core finds a member: the core's status, then VlanStatus.
  void join(IpAddr g, int p) {
    core_->groupIs(g)->intfIs(port(p));
    vlan()->ethGroupIs(IpToEthGroupMap(g))->groupIntfIs(port(p), true);
  }
  void leave(IpAddr g, int p) {
    auto grp = core_->group(g);
    grp->intfDel(port(p));
    if (!grp->intfSize()) core_->groupDel(g);
    auto eth = vlan()->ethGroup(IpToEthGroupMap(g));
    bool stillWanted = false;
    for (const auto& other : core_->groupIter())
      stillWanted |= IpToEthGroupMap(other.key()) == IpToEthGroupMap(g) && other->intf(port(p));
    if (!stillWanted) eth->groupIntfDel(port(p));
    if (!eth->groupIntfSize()) vlan()->ethGroupDel(IpToEthGroupMap(g));
  }
  Kiv::Ptr<VlanStatus> vlan() { return status_->vlanStatusIs(VlanId(1)); }
  // Snooping active and confident, as the glue ends its publishing.
  void active() { vlan()->useVlanFloodsetIs(false); }

  // Sends count frames to each group from h4 and counts what each host and the bridge got per group.
  struct Counts {
    int host[ports + 1][2] = {};
    int cpu = 0;
  };
  Counts stream(int count = 20) {
    const Bytes f1 = streamFrame(g1), f2 = streamFrame(g2);
    for (int i = 0; i < count; ++i) {
      host_[4]->send(f1);
      host_[4]->send(f2);
    }
    Counts c;
    for (int i = 1; i <= 3; ++i) {
      while (auto f = host_[i]->recv(0.1)) {
        const uint32_t d = ipDestOf(*f);
        // Anything but the stream here is unexplained.
        EXPECT_TRUE(d == g1.value() || d == g2.value()) << "h" << i << " got a frame of " << f->size();
        if (d != g1.value() && d != g2.value()) continue;
        ++c.host[i][d == g1.value() ? 0 : 1];
      }
    }
    while (auto f = cpu_->recv(0.05))
      if (ipDestOf(*f) >> 28 == 0xe) ++c.cpu;
    return c;
  }

  std::vector<std::string> differences() {
    std::vector<std::string> names;
    for (int i = 1; i <= ports; ++i)
      if (lab_->sw().ifindex("p" + std::to_string(i))) names.push_back("p" + std::to_string(i));
    auto v = status_->vlanStatus(VlanId(1));
    return Platform::dataplaneDifferences(Platform::dataplanePublished(v.ptr(), core_.ptr(), names),
                                          Platform::dataplaneHeld("br0"));
  }

  std::unique_ptr<TestNet::BridgeLab> lab_;
  std::optional<TestNet::NetNs::Inside> inside_;
  Platform::LinkWatcher links_;
  std::unique_ptr<BridgeSetup> setup_;
  std::unique_ptr<BridgeDataplane> writer_;
  std::unique_ptr<RawPort> host_[ports + 1];
  std::unique_ptr<RawPort> cpu_;
  Kiv::Ptr<Status> status_;
  Kiv::Ptr<IgmpProtocolStatus> protocol_;
  Kiv::Ptr<IgmpContextStatus> core_;
};

TEST_F(BridgeDataplaneTest, GroupsReachMembersAndRouterPortsOnlyAndALeaveStopsThem) {
  vlan()->useVlanFloodsetIs(true);
  join(g1, 1);
  vlan()->routerIntfIs(port(3), true);
  active();
  writerMake();
  const Counts c = stream();
  EXPECT_EQ(c.host[1][0], 20);  // member of g1
  EXPECT_EQ(c.host[1][1], 0);
  EXPECT_EQ(c.host[2][0] + c.host[2][1], 0);
  EXPECT_EQ(c.host[3][0], 20);  // router port: every group
  EXPECT_EQ(c.host[3][1], 20);
  EXPECT_EQ(c.cpu, 0);
  EXPECT_EQ(differences(), std::vector<std::string>());

  leave(g1, 1);
  join(g2, 2);
  converge();
  const Counts after = stream();
  EXPECT_EQ(after.host[1][0], 0);
  EXPECT_EQ(after.host[2][1], 20);
  EXPECT_EQ(after.host[2][0], 0);
  EXPECT_EQ(after.host[3][0] + after.host[3][1], 40);
  EXPECT_EQ(differences(), std::vector<std::string>());
}

TEST_F(BridgeDataplaneTest, EntriesAreByIpGroupAndPeerOnlyPortsGetThePeersGroups) {
  // 239.1.1.1 and 239.129.1.1 share 01:00:5e:01:01:01; the bridge forwards by IP group.
  const IpAddr twin(239, 129, 1, 1);
  join(g1, 1);
  join(twin, 2);
  active();
  writerMake();
  EXPECT_EQ(differences(), std::vector<std::string>());
  // p3 is published for a peer switch's members of g2, which the core knows only from the peer.
  core_->peerGroupListIs(g2, true);
  vlan()->ethGroupIs(IpToEthGroupMap(g2))->groupIntfIs(port(3), true);
  converge();
  const DataplaneView held = Platform::dataplaneHeld("br0");
  EXPECT_EQ(held.entries, (std::set<std::pair<std::string, IpAddr>>{{"p1", g1}, {"p2", twin}, {"p3", g2}}));
  EXPECT_TRUE(held.routerPorts.empty());
  const Counts c = stream();
  EXPECT_EQ(c.host[1][0], 20);
  EXPECT_EQ(c.host[2][0], 0);
  EXPECT_EQ(c.host[3][1], 20);
  EXPECT_EQ(c.host[3][0], 0);
}

TEST_F(BridgeDataplaneTest, FloodStateFloodsAndTheWayBackNeverCutsAMember) {
  vlan()->useVlanFloodsetIs(true);
  writerMake();
  Counts c = stream();
  for (int i = 1; i <= 3; ++i) EXPECT_EQ(c.host[i][0] + c.host[i][1], 40) << "h" << i;
  EXPECT_EQ(c.cpu, 0);

  // Confident: a continuous stream to g1 through the switch from flooding to the groups must reach
  // its member whole.
  std::atomic<bool> stop{false};
  std::atomic<int> sent{0};
  std::thread sender([&] {
    const Bytes f = streamFrame(g1);
    while (!stop) sent += host_[4]->send(f) ? 1 : 0;
  });
  join(g1, 1);
  active();
  converge();
  // Counted from convergence on: a slow build may have sent the first thousands while still flooding.
  const int converged = sent;
  while (sent < converged + 2000) turn();
  stop = true;
  sender.join();
  int got1 = 0, got2 = 0;
  while (host_[1]->recv(0.1)) ++got1;
  while (host_[2]->recv(0.1)) ++got2;
  EXPECT_EQ(got1, sent.load());
  EXPECT_LT(got2, sent.load());
  c = stream();
  EXPECT_EQ(c.host[2][0] + c.host[2][1], 0);
  EXPECT_EQ(c.host[1][0], 20);

  // Losing confidence: flooding comes on before the groups go.
  vlan()->useVlanFloodsetIs(true);
  leave(g1, 1);
  converge();
  c = stream();
  for (int i = 1; i <= 3; ++i) EXPECT_EQ(c.host[i][0] + c.host[i][1], 40) << "h" << i;
  EXPECT_EQ(differences(), std::vector<std::string>());
}

TEST_F(BridgeDataplaneTest, ARestartedWriterKeepsTheStreamAndConverges) {
  join(g1, 1);
  active();
  writerMake();
  std::atomic<bool> stop{false};
  std::atomic<int> sent{0};
  std::thread sender([&] {
    const Bytes f = streamFrame(g1);
    while (!stop) sent += host_[4]->send(f) ? 1 : 0;
  });
  while (sent < 500) turn();
  writer_.reset();
  // What changed while no writer ran is found by the next one.
  join(g1, 2);
  writerMake();
  EXPECT_EQ(writer_->counters().entriesRemoved, 0u);
  EXPECT_EQ(writer_->counters().entriesAdded, 1u);
  const int before = sent;
  while (sent < before + 500) turn();
  stop = true;
  sender.join();
  int got1 = 0;
  while (host_[1]->recv(0.1)) ++got1;
  EXPECT_EQ(got1, sent.load());
  EXPECT_EQ(differences(), std::vector<std::string>());
}

TEST_F(BridgeDataplaneTest, PortsThatFlapOrRejoinKeepTheirGroupsAndNewPortsAreSetUp) {
  join(g1, 1);
  vlan()->routerIntfIs(port(3), true);
  active();
  writerMake();
  ASSERT_TRUE(lab_->sw().ip("link set p1 down"));
  ASSERT_TRUE(lab_->sw().ip("link set p1 up"));
  ASSERT_TRUE(lab_->sw().ip("link set p3 down"));
  ASSERT_TRUE(lab_->sw().ip("link set p3 up"));
  TestNet::turnUntil([&] { return links_.link(lab_->portIndex(1))->operUp; });
  converge();
  EXPECT_EQ(differences(), std::vector<std::string>());
  // Out of the bridge and back: the kernel dropped its entries; the writer puts them back.
  ASSERT_TRUE(lab_->sw().ip("link set p1 nomaster"));
  ASSERT_TRUE(TestNet::turnUntil([&] { return links_.link(lab_->portIndex(1))->master == 0; }));
  ASSERT_TRUE(lab_->sw().ip("link set p1 master br0"));
  ASSERT_TRUE(
      TestNet::turnUntil([&] { return links_.link(lab_->portIndex(1))->master == lab_->bridgeIndex(); }));
  converge();
  EXPECT_EQ(differences(), std::vector<std::string>());
  ASSERT_TRUE(querierCounts());
  Counts c = stream();
  EXPECT_EQ(c.host[1][0], 20);
  EXPECT_EQ(c.host[1][1], 0);
  EXPECT_EQ(c.host[3][0] + c.host[3][1], 40);
  EXPECT_EQ(c.host[2][0] + c.host[2][1], 0);

  ASSERT_TRUE(lab_->portAdd(5));
  ASSERT_TRUE(TestNet::turnUntil([&] {
    const auto* l = links_.linkByName("p5");
    return l && l->master == lab_->bridgeIndex();
  }));
  converge();
  EXPECT_TRUE(lab_->sw().exec("tc filter show dev p5 ingress | grep -q 'bpf.*direct-action'"));
  EXPECT_TRUE(lab_->sw().exec("tc filter show dev p5 egress | grep -q 'bpf.*direct-action'"));
  EXPECT_EQ(differences(), std::vector<std::string>());
}

TEST_F(BridgeDataplaneTest, NoGroupBeyondTheHashLimitAndNoSilentFlooding) {
  TestSupport::RecordingLogSink logs;
  // The kernel's table takes 4 groups; the writer is told 8, as if someone else held the rest.
  ASSERT_TRUE(lab_->sw().ip("link set br0 type bridge mcast_hash_max 4"));
  for (uint8_t i = 1; i <= 6; ++i) join(IpAddr(239, 1, 1, i), 1);
  active();
  writer_ =
      std::make_unique<BridgeDataplane>(links_, BridgeDataplane::Settings{"br0", 1, 8}, status_, protocol_);
  converge();
  ASSERT_TRUE(TestNet::turnUntil([&] { return !logs.entries.empty() && writer_->converged(); }));
  bool restored = false, full = false;
  for (const auto& e : logs.entries) {
    restored |= e.name == "DATAPLANE_SNOOPING_RESTORED";
    full |= e.name == "DATAPLANE_HASH_FULL";
  }
  EXPECT_TRUE(restored);
  EXPECT_TRUE(full);
  EXPECT_TRUE(lab_->sw().exec("ip -d link show br0 | grep -q 'mcast_snooping 1'"));
  EXPECT_EQ(Platform::dataplaneHeld("br0").entries.size(), 4u);
  ASSERT_TRUE(querierCounts());
  // g2 was never joined and the bridge still snoops: it reaches no one.
  Counts c = stream();
  EXPECT_EQ(c.host[1][0], 20);
  EXPECT_EQ(c.host[1][1] + c.host[2][1] + c.host[3][1], 0);

  // A group that goes makes room for one that was left out.
  logs.entries.clear();
  const DataplaneView before = Platform::dataplaneHeld("br0");
  const IpAddr gone = before.entries.begin()->second;
  leave(gone, 1);
  converge();
  ASSERT_TRUE(TestNet::turnUntil([&] { return writer_->converged(); }));
  const DataplaneView after = Platform::dataplaneHeld("br0");
  EXPECT_EQ(after.entries.size(), 4u);
  EXPECT_EQ(after.entries.count({"p1", gone}), 0u);
  // The room was waited for: no second overflow.
  EXPECT_EQ(logs.lines(), std::vector<std::string>());
  EXPECT_TRUE(lab_->sw().exec("ip -d link show br0 | grep -q 'mcast_snooping 1'"));
}

TEST(BridgeDataplaneViewTest, PublishedEntriesAreTheIpGroupsBehindEachPublishedPort) {
  auto protocol = Kiv::make<IgmpProtocolStatus>("protocol");
  auto core = protocol->contextStatusIs(VlanId(1));
  auto status = Kiv::make<Status>("status");
  auto vlan = status->vlanStatusIs(VlanId(1));
  const std::vector<std::string> names = {"p1", "p2", "p3"};
  const IntfId p1(Kiv::String("p1")), p2(Kiv::String("p2"));
  // Two IP groups behind one Ethernet group, one port each; a reserved group the bridge floods anyway;
  // a core group whose Ethernet group is not published (the glue is not confident yet).
  core->groupIs(IpAddr(224, 1, 1, 1))->intfIs(p1);
  core->groupIs(IpAddr(225, 1, 1, 1))->intfIs(p2);
  core->groupIs(IpAddr(224, 0, 0, 251))->intfIs(p1);
  core->groupIs(IpAddr(239, 9, 9, 9))->intfIs(p1);
  auto eth = vlan->ethGroupIs(IpToEthGroupMap(IpAddr(224, 1, 1, 1)));
  eth->groupIntfIs(p1, true);
  eth->groupIntfIs(p2, true);
  vlan->ethGroupIs(IpToEthGroupMap(IpAddr(224, 0, 0, 251)))->groupIntfIs(p1, true);
  vlan->routerIntfIs(IntfId(Kiv::String("p3")), true);
  // A port published for the peer alone: the peer's groups of that address are behind it.
  core->peerGroupListIs(IpAddr(239, 5, 5, 5), true);
  vlan->ethGroupIs(IpToEthGroupMap(IpAddr(239, 5, 5, 5)))->groupIntfIs(IntfId(Kiv::String("p3")), true);
  DataplaneView v = Platform::dataplanePublished(vlan.ptr(), core.ptr(), names);
  EXPECT_EQ(v.entries,
            (std::set<std::pair<std::string, IpAddr>>{
                {"p1", IpAddr(224, 1, 1, 1)}, {"p2", IpAddr(225, 1, 1, 1)}, {"p3", IpAddr(239, 5, 5, 5)}}));
  EXPECT_EQ(v.routerPorts, std::set<std::string>{"p3"});

  vlan->useVlanFloodsetIs(true);
  EXPECT_EQ(Platform::dataplanePublished(vlan.ptr(), core.ptr(), names).routerPorts,
            std::set<std::string>(names.begin(), names.end()));
  EXPECT_EQ(Platform::dataplanePublished(nullptr, nullptr, names).routerPorts.size(), 3u);

  DataplaneView held = v;
  held.entries.erase({"p2", IpAddr(225, 1, 1, 1)});
  held.entries.insert({"p3", IpAddr(239, 9, 9, 9)});
  held.routerPorts = {"p2"};
  EXPECT_EQ(Platform::dataplaneDifferences(v, held),
            (std::vector<std::string>{"missing entry p2 225.1.1.1", "extra entry p3 239.9.9.9",
                                      "missing router port p3", "extra router port p2"}));
}

}  // namespace
