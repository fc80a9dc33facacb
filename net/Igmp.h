// The small enumerations of the group-membership protocol: versions, filter modes, group record types.
#pragma once

#include <cstdint>
#include <ostream>

namespace Gmp::Igmp {

enum IgmpVersion : uint8_t {
  igmpVersionUnknown = 0,
  igmpVersion1 = 1,
  igmpVersion2 = 2,
  igmpVersion3 = 3,
};

enum IgmpFilterMode : uint8_t {
  filterModeExclude = 0,
  filterModeInclude = 1,
};

// Numbered as on the wire (RFC 3376 4.2.12); 0 stands for a type the parser did not know.
enum RecordType : uint8_t {
  recordTypeUnknown = 0,
  recordTypeModeIsInclude = 1,
  recordTypeModeIsExclude = 2,
  recordTypeChangeToInclude = 3,
  recordTypeChangeToExclude = 4,
  recordTypeAllowNewSources = 5,
  recordTypeBlockOldSources = 6,
};

std::ostream& operator<<(std::ostream& os, IgmpVersion v);
std::ostream& operator<<(std::ostream& os, IgmpFilterMode m);
std::ostream& operator<<(std::ostream& os, RecordType t);

}  // namespace Gmp::Igmp
