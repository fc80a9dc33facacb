// Wanted interfaces to Pams over one packet socket.
#include "platform/LinuxEthDevPamManager.h"

#include <vector>

#include "net/PktVlanTag.h"

namespace Platform {

namespace {
Lomax::IntfId intfOf(const std::string& name) { return Lomax::IntfId(Kiv::String(name)); }
}  // namespace

class LinuxEthDevPamManager::KivPamDesiredIntfDir : public Interface::PamDesiredIntfDir::NotifieeConst {
 public:
  explicit KivPamDesiredIntfDir(LinuxEthDevPamManager* m) : NotifieeConst(m), m_(m) {}
  void onIntfDesired(const Lomax::IntfId& intf) override { m_->handleIntf(intf); }
  void onIntfDesiredkivImmediate() override { m_->handleIntf(); }

 private:
  LinuxEthDevPamManager* m_;
};

Kiv::Ptr<Lomax::Pkt> LinuxEthDevPamManager::IntfPam::rxPkt() {
  if (rx_.empty()) return nullptr;
  Kiv::Ptr<Lomax::Pkt> pkt = std::move(rx_.front());
  rx_.pop_front();
  return pkt;
}

void LinuxEthDevPamManager::IntfPam::txPkt(const Kiv::Ptr<Lomax::Pkt>& pkt, Bridging::VlanId vlan,
                                           bool tagged) {
  if (!manager_ || !manager_->access_) {
    ++counters_.txDrops;
    return;
  }
  std::optional<uint16_t> tci;
  if (tagged) tci = vlan.value();
  if (!manager_->access_->txPkt(ifindex_, pkt, tci)) ++counters_.txErrors;
}

LinuxEthDevPamManager::LinuxEthDevPamManager(LinkWatcher& links,
                                             Kiv::Ptr<Interface::PamDesiredIntfDir const> pamDesiredIntfDir,
                                             Kiv::Ptr<Interface::EthDevPamCollection> ethDevPamCollection)
    : links_(links),
      pamDesiredIntfDir_(std::move(pamDesiredIntfDir)),
      ethDevPamCollection_(std::move(ethDevPamCollection)),
      kivPamDesiredIntfDir_(std::make_unique<KivPamDesiredIntfDir>(this)) {
  links_.observerAdd(this);
}

LinuxEthDevPamManager::~LinuxEthDevPamManager() {
  links_.observerDel(this);
  kivPamDesiredIntfDir_.reset();
  for (auto& [intf, pam] : pams_) pam->manager_ = nullptr;
}

void LinuxEthDevPamManager::handleEnabled() {
  if (!enabled()) {
    std::vector<Lomax::IntfId> intfs;
    for (auto& [intf, pam] : pams_) intfs.push_back(intf);
    for (auto intf : intfs) doPamDel(intf);
    access_.reset();
    return;
  }
  PacketAccess::Settings settings;
  settings.ringBytes = sockRcvBuf();
  settings.maxRxPktData = maxRxPktData();
  settings.filter = filterProgram();
  settings.txMark = txMark_;
  access_ = std::make_unique<PacketAccess>(settings, [this](auto frames) { handleRx(frames); });
  kivPamDesiredIntfDir_->notifierIs(pamDesiredIntfDir_);
}

void LinuxEthDevPamManager::txMarkIs(uint32_t mark) {
  txMark_ = mark;
  if (access_) access_->txMarkIs(mark);
}

void LinuxEthDevPamManager::handleIntf(Lomax::IntfId intf) {
  if (!access_) return;
  const LinkWatcher::Link* link =
      pamDesiredIntfDir_->intfDesired(intf) ? links_.linkByName(intf.stringValue().stdString()) : nullptr;
  auto it = pams_.find(intf);
  if (it != pams_.end() && (!link || it->second->ifindex() != link->ifindex)) {
    doPamDel(intf);
    it = pams_.end();
  }
  if (!link || it != pams_.end()) return;
  Kiv::Ptr<IntfPam> pam = Kiv::make<IntfPam>(this, link->ifindex);
  pams_[intf] = pam;
  byIfindex_[link->ifindex] = pam.ptr();
  access_->wantedIntfIs(link->ifindex, true);
  ethDevPamCollection_->intfPamIs(intf, pam);
}

void LinuxEthDevPamManager::handleIntf() {
  std::vector<Lomax::IntfId> intfs;
  for (auto& e : pamDesiredIntfDir_->intfDesiredIter()) intfs.push_back(e.key());
  for (auto& [intf, pam] : pams_) intfs.push_back(intf);
  for (auto intf : intfs) handleIntf(intf);
}

void LinuxEthDevPamManager::doPamDel(Lomax::IntfId intf) {
  auto it = pams_.find(intf);
  if (it == pams_.end()) return;
  Kiv::Ptr<IntfPam> pam = it->second;
  pams_.erase(it);
  byIfindex_.erase(pam->ifindex());
  if (access_) access_->wantedIntfIs(pam->ifindex(), false);
  pam->manager_ = nullptr;
  ethDevPamCollection_->intfPamDel(intf);
}

void LinuxEthDevPamManager::onLink(const LinkWatcher::Link* before, const LinkWatcher::Link* after) {
  if (before) handleIntf(intfOf(before->name));
  if (after && (!before || before->name != after->name)) handleIntf(intfOf(after->name));
}

void LinuxEthDevPamManager::handleRx(std::span<const PacketAccess::RxFrame> frames) {
  std::vector<Kiv::Ptr<IntfPam>> ready;
  for (const auto& f : frames) {
    auto it = byIfindex_.find(f.ifindex);
    if (it == byIfindex_.end()) continue;
    IntfPam* pam = it->second;
    if (pam->rx_.empty()) ready.emplace_back(pam);
    pam->rx_.push_back(f.pkt);
  }
  // A multiplexer may remove Pams while it reads: each is held until its turn is over.
  for (auto& pam : ready) {
    if (pam->manager_) pam->doRxReady();
  }
}

LinuxEthDevPamManager::PamCounters LinuxEthDevPamManager::intfPamCounters(Lomax::IntfId intf) const {
  auto it = pams_.find(intf);
  return it == pams_.end() ? PamCounters{} : it->second->counters();
}

}  // namespace Platform
