// Initial queries on a port: the last general query, made to come from 0.0.0.0, sent on that port only.
#include "core/IntfQuerySpoofer.h"

#include "core/CoreSm.h"
#include "core/CoreTrace.h"
#include "net/IpHdr.h"

namespace Bridging::IgmpSnooping {

namespace {
constexpr int16_t ethHeaderBytes = 14;
}

IntfQuerySpoofer::IntfQuerySpoofer(Lomax::IntfId intf, Kiv::Ptr<Config const> config,
                                   Kiv::Ptr<IgmpContextStatus const> status,
                                   Kiv::Ptr<Bez::TimerWheel const> timerWheel, CoreSm* coreSm)
    : intf_(intf),
      config_(std::move(config)),
      status_(std::move(status)),
      coreSm_(coreSm),
      queryTimer_(this) {
  queryTimer_.notifierIs(timerWheel);
  handleInitialized();
}

uint32_t IntfQuerySpoofer::queryTime(uint32_t i) const { return config_ ? config_->initialQueryTime(i) : 0; }

void IntfQuerySpoofer::handleInitialized() {
  KIV_ASSERT(status()->querier());
  KIV_ASSERT_TEXT(!status()->latestQuery().empty(), "status()->latestQuery()");
  KIV_ASSERT(!status()->coreSmStateRebuilding());
  initialized_ = true;
  const bool noTable = !config_ || config_->initialQueryTimeSize() == 0;
  const Kiv::Seconds delay = noTable ? defaultFirstDelay : Kiv::Seconds(queryTime(0) / 1000);
  KIV_TRACE(coreTrace, 9, "Setting initial query timer for " << intf_ << " to " << delay);
  queryTimer_.timeMinIs(coreSm_->now() + delay);
}

void IntfQuerySpoofer::handleQueryTimer() {
  if (!initialized_) return;
  Kiv::Ptr<Lomax::Pkt> pkt = Lomax::globalPktManager().newPkt();
  std::optional<Lomax::IpHdr> ip;
  if (pkt->stringValueIs(status_->latestQuery(), false) && pkt->len() >= ethHeaderBytes) {
    pkt->beginOffsetIs(ethHeaderBytes);
    ip = Lomax::IpHdr::of(pkt->offsetFront(), pkt->offsetBytes());
  }
  if (!ip) {
    KIV_TRACE(coreTrace, 6, "Not sending initial query for " << intf_ << ", stored query is not an IP frame");
  } else {
    ip->srcIs(Lomax::IpAddr());
    ip->doChecksumUpdate();
    KIV_TRACE(coreTrace, 9, "Sending initial query for " << intf_);
    coreSm_->doFlood(pkt, floodTypeSinglePort, Lomax::emptyIntfId, intf_, pktTypeQuery, Lomax::IpAddr(), true,
                     coreSm_->flooder());
  }
  ++queriesSent_;
  const uint32_t entries = config_ ? static_cast<uint32_t>(config_->initialQueryTimeSize()) : 0;
  if (queriesSent_ >= entries) {
    KIV_TRACE(coreTrace, 9, "Finished sending initial queries for " << intf_);
    coreSm_->intfQuerySpooferDel(intf_);
    return;
  }
  const Kiv::Seconds delay = (Kiv::Seconds(queryTime(queriesSent_)) - queryTime(queriesSent_ - 1)) / 1000.0;
  KIV_TRACE(coreTrace, 9,
            "Setting initial query timer for " << intf_ << " to " << delay
                                               << " Queries sent so far: " << queriesSent_);
  queryTimer_.timeMinIs(coreSm_->now() + delay);
}

}  // namespace Bridging::IgmpSnooping
