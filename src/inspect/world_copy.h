// The network of a world, made again in an empty network namespace.
#pragma once

#include <string>

#include "inspect/world.h"

namespace nm {

/// Makes devices with the names, indexes, addresses and masters of the source's, and gives them its
/// addresses, routes, rules, sets, chains and settings. A port is one end of a cable whose other end is in
/// the network namespace `far` (a name of ip-netns(8)), with the carrier that the port has. `scratch` is a
/// directory for files on the way. What the kernel refuses is left out; a look at the copy shows that.
void copy_network(const WorldSource& source, const RouteDumps& dumps, const std::string& far,
                  const std::string& scratch);

/// Makes in it what the device has before anything is set up: its ports and other hardware, down and without
/// addresses, and the settings that all devices share. Bridges and VLANs are absent; the device of a PPPoE
/// session, which is made and addressed by the session, is there as it is.
void copy_hardware(const WorldSource& source, const std::string& far, const std::string& scratch);

}  // namespace nm
