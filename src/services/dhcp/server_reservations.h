// The reservations that a DHCP server works with, read back from its generated file.
#pragma once

#include <json/value.h>

#include <string>

#pragma GCC visibility push(default)

/// Appends an object with `DEVICE_NAME`, `MAC`, `IP4_ADDR`, `EXPIRES` ("Reservation") and `ALIVE` (0) per
/// complete host block of the interface's server file to `out["RESERVATION"]`, which is "" if there is none.
/// 0; NM_ERR_NO_IFACE for an empty name; NM_ERR_NOT_FOUND without the file.
int get_reserved_ip(std::string ifname, Json::Value& out);

#pragma GCC visibility pop

namespace nm {

/// A field of a reservation of the configuration as text; empty also for an object or a list in its place.
std::string reservation_field(const Json::Value& reservation, const std::string& key);

}  // namespace nm
