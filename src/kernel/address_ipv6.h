// What IPv6 has beyond plain addresses: a device's link-local address and when it is usable, the device's
// switches, and the records that the DNS helpers keep for it.
//
// Nothing here takes a lock. Names with a "/" are no device's and are refused where a path is made of them.
#pragma once

#include <string>

#pragma GCC visibility push(default)

/// Makes the link-local address of the device from its MAC (modified EUI-64: RFC 4291, appendix A; "/64"),
/// stores it in `out` and adds it to the device, then waits as wait_for_link_address() does, whatever comes
/// of it. 0, or the code of reading the MAC or of set_ipv6_addr(); NM_ERR_NO_IFACE for an index without a
/// device; NM_ERR_NULL_ARG if the address has no text.
int gen_ipv6_default_link_addr(unsigned int ifindex, std::string& out);

/// The number of IPv6 addresses on the device, link-local ones included; 0 for a name without a device.
/// NM_ERR_NULL_ARG for null; NM_ERR_NULL_IFNAME if the addresses can't be listed.
int get_ipv6_addr_count(const char* ifname);

/// Waits until the device is up with a link-local address (22 seconds at most) and until duplicate address
/// detection (RFC 4862) is done with it (6 more). 0 when it is usable, 1 when not. The caller is blocked.
int wait_for_link_address(const char* ifname);

/// Stores 1 in `tentative` if a link-local address of the device is still being checked for duplicates
/// (IFA_F_TENTATIVE), and otherwise leaves it: the caller clears it first. NM_ERR_NO_IFACE;
/// NM_ERR_NL_SOCKET, NM_ERR_NL_CONNECT; NM_ERR_NOMEM.
int check_tentative_state(const char* ifname, int& tentative);

/// Sets how the kernel makes link-local addresses for the device (ip-link(8), addrgenmode: "eui64", "none",
/// "stable_secret", "random"). The command's exit code; NM_ERR_BAD_FORMAT for texts that no command can take.
int set_ipv6_addrgenmode(std::string& ifname, std::string mode);

/// Switches IPv6 forwarding on the device on (1) or off (0). NM_ERR_FORWARDING if it has no such switch; a
/// value that the kernel refuses is logged and gives 0.
int do_ipv6_forwarding(std::string ifname, unsigned short value);

/// Starts (`enable` 1) or stops the helper that takes DNS servers from DHCPv6, after removing what it left
/// for the device. 0 in every case; failures are logged.
int setup_dh6dns(std::string ifname, unsigned short enable);

/// Removes what the watcher of router-advertised DNS servers recorded for the device, if there is a record.
void remove_rdnssd_record(std::string ifname);

#pragma GCC visibility pop
