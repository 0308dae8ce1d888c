// The lease file of a DHCP server, /var/lib/dhcpd/dhcpd_<ifname>.leases, as the table of its valid leases.
#pragma once

#include <ctime>
#include <map>
#include <string>

#pragma GCC visibility push(default)

/// `IP4_ADDR`, `MAC`, `DEVICE_NAME` (empty if the client gave none) and `EXPIRES` by address. Blocks of the
/// file are worked in order, so that the last one of an address wins; an active block that has expired leaves
/// an earlier one's entry. 0; NM_ERR_NO_IFACE for an empty name; NM_ERR_NOT_FOUND without the file.
int get_dhcpserver_lease(std::string ifname,
                         std::map<std::string, std::map<std::string, std::string>>& leases);

/// The time from now until a date ("2026/11/20", UTC) and clock ("12:00:00"), in the fields tm_yday, tm_hour,
/// tm_min and tm_sec of `out`; days wrap after a year. 0; -1 for a moment that has passed and for what is no
/// date or clock ("ends never;").
int get_difftime(std::string date, std::string clock, tm& out);

/// The fields of a date ("2026/11/20") and of a clock ("12:00:00") in `out`. 0; -1 for any other text.
int date_to_timeStruct(std::string date, tm& out);
int clock_to_timeStruct(std::string clock, tm& out);

#pragma GCC visibility pop
