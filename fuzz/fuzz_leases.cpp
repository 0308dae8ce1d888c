// Foreign bytes as lease files and as a reply about autoconfiguration: what gets into a record is an address
// or nothing, and a lease that is appended to the file is the one that counts.

#include "services/leases/lease_info.h"
#include "target.h"
#include "utils/ip_text.h"

bool holds(const std::string& text) {
    DHCP_INFO v4{}, next{};
    DHCP6_INFO v6{}, ra{};
    (void)nm::parse_leases(text, v4);
    (void)nm::parse_leases6(text, text, v6);
    (void)nm::parse_slaac_reply(text, ra);
    bool sound =
        nm::parse_leases(text + "\nlease {\n  fixed-address 192.0.2.1;\n}", next) && *next.gateway == 0;
    for (const char* field : {v4.ip, v4.netmask, v4.dns1, v4.dns2, v4.gateway, v4.dhcp_server}) {
        sound = sound && (*field == '\0' || is_valid_ip(field));
    }
    for (const char* field :
         {v6.address, v6.gateway, v6.dns1, v6.dns2, ra.address, ra.gateway, ra.dns1, ra.dns2}) {
        sound = sound && (*field == '\0' || is_valid_ip6(field));
    }
    return sound && atoi(v6.prefixlen) <= 128 && atoi(ra.prefixlen) <= 128;
}
