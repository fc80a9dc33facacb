// Packet access to the wanted interfaces on Linux: one PacketAccess socket (perIntfSocket is false)
// for all of them, its frames sorted by interface into one Pam each. An interface is served while it
// is wanted and exists; a rename or a new ifindex gives it a new Pam.
#pragma once

#include <deque>
#include <map>
#include <memory>

#include "glue/EthDevPamCollection.h"
#include "glue/EthDevPamManager.h"
#include "glue/PamDesiredIntfDir.h"
#include "platform/LinkWatcher.h"
#include "platform/PacketAccess.h"

namespace Platform {

class LinuxEthDevPamManager : public Interface::EthDevPamManager, private LinkWatcher::Observer {
 public:
  // The packet access of one interface: frames queued by the shared socket, sent through it.
  class IntfPam : public Lomax::Pam {
   public:
    IntfPam(LinuxEthDevPamManager* manager, int ifindex) : manager_(manager), ifindex_(ifindex) {}
    int ifindex() const { return ifindex_; }
    Kiv::Ptr<Lomax::Pkt> rxPkt() override;
    void txPkt(const Kiv::Ptr<Lomax::Pkt>& pkt, Bridging::VlanId vlan, bool tagged) override;
    const PamCounters& counters() const { return counters_; }

   private:
    friend class LinuxEthDevPamManager;
    // Null once the manager has let go of this Pam.
    LinuxEthDevPamManager* manager_;
    int ifindex_;
    std::deque<Kiv::Ptr<Lomax::Pkt>> rx_;
    PamCounters counters_;
  };

  // Serves nothing until enabled; the socket lives in the calling thread's network namespace.
  LinuxEthDevPamManager(LinkWatcher& links, Kiv::Ptr<Interface::PamDesiredIntfDir const> pamDesiredIntfDir,
                        Kiv::Ptr<Interface::EthDevPamCollection> ethDevPamCollection);
  ~LinuxEthDevPamManager() override;

  PamCounters intfPamCounters(Lomax::IntfId intf) const override;
  // Null until enabled.
  PacketAccess* packetAccess() const { return access_.get(); }
  // SO_MARK of every frame sent from now on (0: unmarked), so that filters can tell the agent's own.
  void txMarkIs(uint32_t mark);
  uint32_t txMark() const { return txMark_; }

  void handleIntf(Lomax::IntfId intf);
  void handleIntf();

 private:
  class KivPamDesiredIntfDir;
  void handleEnabled() override;
  void onLink(const LinkWatcher::Link* before, const LinkWatcher::Link* after) override;
  void handleRx(std::span<const PacketAccess::RxFrame> frames);
  void doPamDel(Lomax::IntfId intf);

  LinkWatcher& links_;
  Kiv::Ptr<Interface::PamDesiredIntfDir const> pamDesiredIntfDir_;
  Kiv::Ptr<Interface::EthDevPamCollection> ethDevPamCollection_;
  std::unique_ptr<KivPamDesiredIntfDir> kivPamDesiredIntfDir_;
  std::unique_ptr<PacketAccess> access_;
  std::map<Lomax::IntfId, Kiv::Ptr<IntfPam>> pams_;
  std::map<int, IntfPam*> byIfindex_;
  uint32_t txMark_ = 0;
};

}  // namespace Platform
