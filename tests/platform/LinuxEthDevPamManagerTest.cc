// Packet access per wanted interface over one socket on a real bridge: the collection follows the
// wanted set and the interfaces, frames reach their own interface's Pam, and transmit tags as asked.
#include "platform/LinuxEthDevPamManager.h"

#include <gtest/gtest.h>

#include <memory>

#include "glue/SocketFilter.h"
#include "net/FrameBuilder.h"
#include "tests/support/BridgeLab.h"
#include "tests/support/LoopWait.h"
#include "tests/support/RawPort.h"

namespace {

using Bytes = std::vector<uint8_t>;
using Lomax::IpAddr;

Lomax::IntfId intf(const std::string& n) { return Lomax::IntfId(Kiv::String(n)); }
Bytes bytesOf(const Kiv::Ptr<Lomax::Pkt>& p) { return Bytes(p->data(), p->data() + p->len()); }
Bytes report(IpAddr group, Bridging::VlanIdOrNone vlan = {}) {
  return bytesOf(
      Lomax::FrameBuilder(Lomax::EthAddr(0x0200, 0, 0x0001), IpAddr(10, 0, 0, 1), vlan).igmpV2Report(group));
}

// The bridge floods the hosts' own reports to the other hosts too: look past them.
bool receives(TestNet::RawPort& port, const Bytes& want) {
  while (auto f = port.recv(2)) {
    if (*f == want) return true;
  }
  return false;
}

class Reader : public Lomax::Pam::Notifiee {
 public:
  explicit Reader(Kiv::Ptr<Lomax::Pam> pam) : pam_(std::move(pam)) { pam_->notifieeIs(this); }
  ~Reader() override { pam_->notifieeIs(nullptr); }
  void onRxPkt() override {
    while (auto p = pam_->rxPkt()) got.push_back(bytesOf(p));
  }
  std::vector<Bytes> got;

 private:
  Kiv::Ptr<Lomax::Pam> pam_;
};

class LinuxEthDevPamManagerTest : public ::testing::Test {
 protected:
  void SetUp() override {
    if (!TestNet::NetNs::unavailable().empty()) GTEST_SKIP() << TestNet::NetNs::unavailable();
    lab_ = std::make_unique<TestNet::BridgeLab>(3);
    ASSERT_TRUE(lab_->ok());
    TestNet::NetNs::Inside in(lab_->sw());
    watcher_.start();
    ASSERT_TRUE(TestNet::turnUntil([&] { return watcher_.synced(); }));
    manager_ = Kiv::Ptr<Platform::LinuxEthDevPamManager>(
        new Platform::LinuxEthDevPamManager(watcher_, desired_, collection_));
    desired_->intfDesiredIs(intf("p1"), true);
    desired_->intfDesiredIs(intf("p2"), true);
    EXPECT_EQ(collection_->intfPamSize(), 0u) << "nothing before the settings are complete";
    manager_->sockRcvBufIs(1 << 20);
    manager_->maxRxPktDataIs(10000);
    manager_->filterProgramIs(IgmpShim::SocketFilter::program);
    manager_->enabledIs(true);
  }

  std::unique_ptr<TestNet::BridgeLab> lab_;
  Platform::LinkWatcher watcher_;
  Kiv::Ptr<Interface::PamDesiredIntfDir> desired_ = Kiv::make<Interface::PamDesiredIntfDir>("pdid");
  Kiv::Ptr<Interface::EthDevPamCollection> collection_ = Kiv::make<Interface::EthDevPamCollection>("edpc");
  Kiv::Ptr<Platform::LinuxEthDevPamManager> manager_;
};

TEST_F(LinuxEthDevPamManagerTest, EachWantedPortHasItsPamForFramesInAndOut) {
  ASSERT_EQ(collection_->intfPamSize(), 2u);
  Reader r1(collection_->intfPam(intf("p1"))), r2(collection_->intfPam(intf("p2")));
  TestNet::RawPort h1(lab_->hosts(), "h1"), h2(lab_->hosts(), "h2"), h3(lab_->hosts(), "h3");
  const Bytes tagged = report(IpAddr(239, 1, 1, 2), Bridging::VlanIdOrNone(10));
  ASSERT_TRUE(h1.send(report(IpAddr(239, 1, 1, 1))) && h2.send(tagged) &&
              h3.send(report(IpAddr(239, 1, 1, 3))));
  ASSERT_TRUE(TestNet::turnUntil([&] { return r1.got.size() == 1 && r2.got.size() == 1; }));
  EXPECT_EQ(r1.got[0], report(IpAddr(239, 1, 1, 1)));
  EXPECT_EQ(r2.got[0], tagged) << "the tag is back in front of the EtherType";

  const Bytes frame = report(IpAddr(239, 2, 2, 2));
  collection_->intfPam(intf("p2"))
      ->txPkt(Lomax::globalPktManager().newPkt(frame), Bridging::VlanId(30), true);
  collection_->intfPam(intf("p1"))
      ->txPkt(Lomax::globalPktManager().newPkt(frame), Bridging::VlanId(30), false);
  EXPECT_TRUE(receives(h2, report(IpAddr(239, 2, 2, 2), Bridging::VlanIdOrNone(30))));
  EXPECT_TRUE(receives(h1, frame));
  EXPECT_EQ(manager_->intfPamCounters(intf("p1")).txErrors, 0u);
}

TEST_F(LinuxEthDevPamManagerTest, TheCollectionFollowsTheWantedSetAndTheInterfaces) {
  desired_->intfDesiredIs(intf("p3"), true);
  desired_->intfDesiredIs(intf("ghost"), true);
  desired_->intfDesiredDel(intf("p2"));
  EXPECT_TRUE(collection_->intfPam(intf("p3")));
  EXPECT_FALSE(collection_->intfPam(intf("p2")));
  EXPECT_FALSE(collection_->intfPam(intf("ghost"))) << "no such interface";

  ASSERT_TRUE(lab_->sw().ip("link set p1 down") && lab_->sw().ip("link set p1 name uplink"));
  ASSERT_TRUE(TestNet::turnUntil([&] { return !collection_->intfPam(intf("p1")); }));
  ASSERT_TRUE(lab_->sw().ip("link add ghost type veth peer name ghost-peer"));
  ASSERT_TRUE(TestNet::turnUntil([&] { return bool(collection_->intfPam(intf("ghost"))); }));
  ASSERT_TRUE(lab_->sw().ip("link del ghost"));
  ASSERT_TRUE(TestNet::turnUntil([&] { return !collection_->intfPam(intf("ghost")); }));
  EXPECT_EQ(collection_->intfPamSize(), 1u);
}

}  // namespace
