// A sorted vector of groups.
#include "net/GroupList.h"

#include <algorithm>

namespace Gmp::Igmp {

void GroupList::groupListIs(Lomax::IpAddr group, bool present) {
  auto it = std::lower_bound(groups_.begin(), groups_.end(), group);
  bool there = it != groups_.end() && *it == group;
  if (present && !there) groups_.insert(it, group);
  if (!present && there) groups_.erase(it);
}

bool GroupList::groupList(Lomax::IpAddr group) const {
  return std::binary_search(groups_.begin(), groups_.end(), group);
}

}  // namespace Gmp::Igmp
