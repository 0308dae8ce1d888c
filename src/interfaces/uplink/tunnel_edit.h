// The tunnels of all uplinks of one kind at once; a kind is a row.
#pragma once

#include "interfaces/uplink/UplinkKind.h"

namespace nm {

/// As edit_tunnels() of interfaces/uplink/WanIfaceInfo.h, for any kind.
int edit_tunnels_of(const UplinkKind& kind, int op);

}  // namespace nm
