// Names of the units that the library starts; those that end in "@" are templates, whose instance is an
// interface (utils/units.h).
#pragma once

namespace nm {

constexpr const char* kDhcpClientUnit = "nm-dhclient@";
constexpr const char* kDhcp6ClientUnit = "nm-dhcpcd@";
constexpr const char* kDhcp6DnsUnit = "nm-dhclient-6-dns@";
constexpr const char* kDhcpServerUnit = "nm-dhcpd@";
constexpr const char* kDhcp6ServerUnit = "nm-dhcpd6@";
constexpr const char* kDhcpRelayUnit = "nm-dhcrelay@";
constexpr const char* kRelay6Unit = "nm-6relayd@";
constexpr const char* kAdvertiserUnit = "nm-radvd";

}  // namespace nm
