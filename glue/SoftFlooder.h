// The flooder of one VLAN: turns a flood request of the core or the VLAN glue into the set of ports it
// names, from the VLAN's snooping state, and hands the frame to each port's multiplexer.
#pragma once

#include <vector>
#include "core/IgmpSnoopingFlooder.h"
#include "glue/FloodControl.h"

#include "kernel/HashMap.h"
#include "model/IgmpGroup.h"
#include "model/Status.h"

namespace IgmpShim {

class GlueVlanSm;
class GlueVlanMultiplexerDir;

class SoftFlooder : public Bridging::IgmpSnooping::IgmpSnoopingFlooder {
 public:
  using FloodReq = Bridging::IgmpSnooping::IgmpSnoopingFloodReq;

  // The VLAN owns its flooder, so the flooder's link back is no reference.
  SoftFlooder(const Kiv::Name& name, GlueVlanSm* glueVlanSm, Kiv::Ptr<GlueVlanMultiplexerDir> dir);
  ~SoftFlooder() override;

  GlueVlanSm* glueVlanSm() const { return glueVlanSm_; }
  const Kiv::Ptr<GlueVlanMultiplexerDir>& glueVlanMultiplexerDir() const { return glueVlanMultiplexerDir_; }

  // The ports of this VLAN on which the agent may send.
  // Asked once for each port of a flood: by intern index.
  bool enabledIntf(Lomax::IntfId intf) const {
    const uint32_t i = intf.internIndex();
    return i < enabledByIndex_.size() && enabledByIndex_[i];
  }
  void enabledIntfIs(Lomax::IntfId intf, bool on);
  void enabledIntfDel(Lomax::IntfId intf) { enabledIntfIs(intf, false); }
  void enabledIntfDelAll();
  size_t enabledIntfSize() const { return enabledIntf_.size(); }
  auto enabledIntfIter() const { return enabledIntf_.iter(); }

  void floodReqIs(Kiv::Ptr<FloodReq> req) override;
  void doFloodToRouters(const FloodReq& req, const Bridging::IgmpSnooping::IgmpGroup* group,
                        const Bridging::IgmpSnooping::EthernetGroup* ethGroup,
                        IgmpSnooping::FloodControl::PktType floodCtrlPktType, bool includeSwitchPort);
  // The one place that sends.
  void doTxPkt(Lomax::IntfId intf, const FloodReq& req, IgmpSnooping::FloodControl::PktType floodCtrlPktType);

 private:
  IgmpSnooping::FloodControl::PktType floodControlPktType(const FloodReq& req) const;

  GlueVlanSm* glueVlanSm_;
  Kiv::Ptr<GlueVlanMultiplexerDir> glueVlanMultiplexerDir_;
  Kiv::HashMap2018<Lomax::IntfId, bool> enabledIntf_;
  // The same set by intern index, for the test.
  std::vector<uint8_t> enabledByIndex_;
};

}  // namespace IgmpShim
