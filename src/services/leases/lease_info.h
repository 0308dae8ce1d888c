// Leases as the interface classes use them: what a DHCP, DHCPv6 or SLAAC client, or a PPPoE session, was
// given.
//
// A client appends a block to its lease file with every lease (dhclient.leases(5)): the last valid block
// counts. Valid is a block that is whole (it has its closing brace: a block that a crash or a full disk cut
// off does not count) and holds an address. If it says that the lease was given back ("released"), there is
// none. Whether it has expired is not looked at: the client judges that, and clocks of appliances start
// wrong.
//
// Every text of a record is an address as of inet_pton(3), or empty: what a server did not give, and what is
// no address (foreign bytes, text that is too long), leaves its field empty. Of several routers the first
// counts, of several name servers the first two. Readers zero the record first and fill it on success
// only. They take no lock: a lease file is appended to while it is read, and the last block may be missed.
#pragma once

#include <string>

#pragma GCC visibility push(default)

/// An IPv4 lease; dotted texts, NUL-terminated.
struct DHCP_INFO {
    char ip[16];
    char netmask[16];
    char dns1[16];
    char dns2[16];
    char gateway[16];
    char dhcp_server[16];
};

/// An IPv6 lease; NUL-terminated texts, `prefixlen` decimal (0 to 128).
struct DHCP6_INFO {
    char address[46];
    char prefixlen[4];
    char gateway[46];
    char dns1[46];
    char dns2[46];
};

/// The lease in /etc/networkmanagement/dhclient/<ifname>.leases. 0; NM_ERR_NULL_ARG; NM_ERR_NOT_FOUND if
/// there is no such file; NM_ERR_EMPTY if it is empty or holds no valid block.
int get_interface_dhcp_info(char* ifname, DHCP_INFO& info);

/// The same for DHCPv6: prefix length and gateway from /var/lib/dhcpv6/<ifname>.info, which must be there
/// too, the rest from /etc/networkmanagement/dhclient6/<ifname>.leases.
int get_interface_dhcp6_info(char* ifname, DHCP6_INFO& info);

/// What autoconfiguration gave, as `slaacrrd` reports it. 0; NM_ERR_BAD_TYPE for a null or empty name;
/// NM_ERR_NOT_FOUND where the appliance has no such peer (it comes with /usr/bin/python);
/// NM_ERR_CLI_EMPTY for a name that no command can take; NM_ERR_CLI_RETCODE if the peer cannot be asked;
/// NM_ERR_PARSE for a reply that is not a JSON object.
int get_interface_slaac_info(char* ifname, DHCP6_INFO& info);

/// What the PPPoE session of the port `ifname` was given, as a lease with the netmask 255.255.255.255 and no
/// server. 0, or the code of get_pppoe_runtime_cfg() of vpppoe.h.
int cast_ppp_cfg_into_dhcp_info(std::string ifname, DHCP_INFO& info);

#pragma GCC visibility pop

namespace nm {

/// The readers' parsers: the last valid lease of a lease file; the same with the text of the .info file; a
/// reply of `slaacrrd`. False, with the zeroed record left as it is, if there is none.
bool parse_leases(const std::string& text, DHCP_INFO& info);
bool parse_leases6(const std::string& text, const std::string& details, DHCP6_INFO& info);
bool parse_slaac_reply(const std::string& text, DHCP6_INFO& info);

}  // namespace nm
