// Foreign bytes as lease files and as a reply about autoconfiguration: what gets into a record is an address
// or nothing, and a lease that is appended to the file is the one that counts.
#include <cstdint>
#include <cstdlib>

#include "interfaces/lease_info.h"
#include "kernel/utils/ip_text.h"

extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t* bytes, std::size_t size) {
    const std::string text(reinterpret_cast<const char*>(bytes), size);
    DHCP_INFO lease{};
    DHCP_INFO next{};
    DHCP6_INFO lease6{};
    DHCP6_INFO reply{};
    (void)nm::parse_leases(text, lease);
    (void)nm::parse_leases6(text, text, lease6);
    (void)nm::parse_slaac_reply(text, reply);
    bool sound =
        nm::parse_leases(text + "\nlease {\n  fixed-address 192.0.2.1;\n}\n", next) && *next.gateway == 0;
    for (const char* field :
         {lease.ip, lease.netmask, lease.dns1, lease.dns2, lease.gateway, lease.dhcp_server}) {
        sound = sound && (*field == '\0' || is_valid_ip(field));
    }
    for (const DHCP6_INFO& info : {lease6, reply}) {
        for (const char* field : {info.address, info.gateway, info.dns1, info.dns2}) {
            sound = sound && (*field == '\0' || is_valid_ip6(field));
        }
        sound = sound && atoi(info.prefixlen) <= 128;
    }
    return sound ? 0 : (abort(), 1);
}
