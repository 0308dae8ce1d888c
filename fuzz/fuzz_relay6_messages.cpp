// Foreign bytes as what a relay hears: a router's advertisement (first byte 0), a neighbour's packet (1), a
// DHCPv6 message of a client or a server (else). What goes on must be well-formed, and what goes there and
// back be the same.
#include <netinet/icmp6.h>

#include "dhcp6.h"
#include "icmp6.h"
#include "target.h"

using namespace relay6;

// It is taken again once it is unmarked, and then nothing changes any more.
static bool advertise(const Bytes& input) {
    const Mac mac{2, 0, 0, 0, 0, 1};
    auto relayed = relay_advertisement(input.data(), input.size(), mac);
    if (!relayed) {
        return true;
    }
    Bytes unmarked = relayed->message;
    unmarked[offsetof(nd_router_advert, nd_ra_flags_reserved)] &= static_cast<std::uint8_t>(~0x04U);
    const auto again = relay_advertisement(unmarked.data(), unmarked.size(), mac);
    const bool same =
        again && again->message == relayed->message && again->prefixes.size() == relayed->prefixes.size();
    end_router_lifetime(relayed->message);
    return same;
}

static bool relay_dhcp(const Bytes& input) {
    const in6_addr client{{{0xfe, 0x80, 0, 0, 0, 0, 0, 0, 0, 0, 0, 0, 0, 0, 0, 1}}};
    auto wrapped = wrap_dhcp6(input, client, in6addr_any, "br_v0");
    (void)unwrap_dhcp6(input, "br_v0");
    if (!wrapped) {
        return true;
    }
    wrapped->front() = 13;  // what a server's answer has in its place
    const auto delivery = unwrap_dhcp6(*wrapped, "br_v0");
    return delivery && delivery->message == input && delivery->to == client;
}

bool holds(const std::string& input) {
    if (input.empty()) {
        return true;
    }
    const Bytes packet(input.begin() + 1, input.end());
    (void)read_neighbor_message(packet.data(), packet.size());
    return input[0] == 0 ? advertise(packet) : input[0] == 1 || relay_dhcp(packet);
}
