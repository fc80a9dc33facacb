// The groups whose records are to be taken out of a version 3 report, and how many were refused.
#pragma once

#include <cstdint>
#include <vector>

#include "net/IpAddr.h"

namespace Gmp::Igmp {

class GroupList {
 public:
  // Kept sorted, so that a rewrite looks each record up in log time.
  void groupListIs(Lomax::IpAddr group, bool present);
  bool groupList(Lomax::IpAddr group) const;
  uint32_t groupCount() const { return groupCount_; }
  void groupCountInc(uint32_t n) { groupCount_ += n; }

 private:
  std::vector<Lomax::IpAddr> groups_;
  uint32_t groupCount_ = 0;
};

}  // namespace Gmp::Igmp
