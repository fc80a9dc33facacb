// The event-log catalogue: names, severities, texts; all limited per key at the default window.
#include "model/Logs.h"

namespace Bridging::IgmpSnooping {

Kiv::LogHandle IGMPSNOOPING_GROUP_LIMIT_EXCEEDED(
    "IGMPSNOOPING_GROUP_LIMIT_EXCEEDED", Kiv::logWarning, "IGMP group limit of %d groups exceeded in VLAN %d",
    "The switch detected that the number of IGMP groups joined by hosts in the specified VLAN exceeds the "
    "configured number allowed for this VLAN.",
    "Increase the max-groups limit for the VLAN or configure the hosts in the VLAN to join fewer groups.",
    0.0, 1.0, 0);

Kiv::LogHandle IGMPSNOOPING_GROUP_LIMIT_NO_LONGER_EXCEEDED(
    "IGMPSNOOPING_GROUP_LIMIT_NO_LONGER_EXCEEDED", Kiv::logWarning,
    "IGMP group limit of %d groups no longer exceeded in VLAN %d",
    "The switch detected that the number of IGMP groups joined by hosts in the specified VLAN no longer "
    "exceeds the VLAN's configured max-groups limit.",
    Kiv::NoActionRequired, 0.0, 1.0, 0);

Kiv::LogHandle IGMPSNOOPING_GROUP_LIMIT_NO_LONGER_EXCEEDED_NO_LIMIT(
    "IGMPSNOOPING_GROUP_LIMIT_NO_LONGER_EXCEEDED_NO_LIMIT", Kiv::logWarning,
    "IGMP group limit no longer exceeded in VLAN %d",
    "The switch detected that the number of IGMP groups joined by hosts in the specified VLAN no longer "
    "exceeds the VLAN's previously configured max-groups limit.",
    Kiv::NoActionRequired, 0.0, 1.0, 0);

Kiv::LogHandle IGMPSNOOPING_NO_IGMP_QUERIER(
    "IGMPSNOOPING_NO_IGMP_QUERIER", Kiv::logInfo,
    "No IGMP querier detected in VLAN %d. IGMP report received from %d on %d for %d",
    "The switch did not detect an IGMP querier running in the specified VLAN. This will cause multicast "
    "traffic to be flooded to all members of the VLAN.",
    "Configure an IGMP querier for the specified VLAN.", 0.0, 1.0, 0);

Kiv::LogHandle IGMPSNOOPING_NOT_EXPECT_ROUTER("IGMPSNOOPING_NOT_EXPECT_ROUTER", Kiv::logWarning,
                                              "Router detected in VLAN %d",
                                              "The switch report-flooding feature is designed for pure L2 "
                                              "environment ",
                                              "Please correct network configuration", 0.0, 1.0, 0);

}  // namespace Bridging::IgmpSnooping
