// Foreign bytes as what a relay hears: a router's advertisement (first byte 0), a neighbour's packet (1), a
// DHCPv6 message of a client or a server (else). What goes on must be well-formed, and what goes there and
// back be the same.
#include <netinet/icmp6.h>

#include <cstdlib>

#include "dhcp6.h"
#include "icmp6.h"

using namespace relay6;

static void must(bool holds) {
    holds ? void() : std::abort();
}

// It is taken again once it is unmarked, and then nothing changes any more.
static void advertise(const Bytes& input) {
    const Mac mac{2, 0, 0, 0, 0, 1};
    auto relayed = relay_advertisement(input.data(), input.size(), mac);
    if (!relayed) {
        return;
    }
    Bytes unmarked = relayed->message;
    unmarked[offsetof(nd_router_advert, nd_ra_flags_reserved)] &= static_cast<std::uint8_t>(~0x04U);
    const auto again = relay_advertisement(unmarked.data(), unmarked.size(), mac);
    must(again && again->message == relayed->message && again->prefixes.size() == relayed->prefixes.size());
    end_router_lifetime(relayed->message);
}

static void relay_dhcp(const Bytes& input) {
    const in6_addr client{{{0xfe, 0x80, 0, 0, 0, 0, 0, 0, 0, 0, 0, 0, 0, 0, 0, 1}}};
    auto wrapped = wrap_dhcp6(input, client, in6addr_any, "br_v0");
    if (wrapped) {
        wrapped->front() = 13;  // what a server's answer has in its place
        const auto delivery = unwrap_dhcp6(*wrapped, "br_v0");
        must(delivery && delivery->message == input && delivery->to == client);
    }
    (void)unwrap_dhcp6(input, "br_v0");
}

extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t* bytes, std::size_t size) {
    if (size == 0) {
        return 0;
    }
    const Bytes input(bytes + 1, bytes + size);
    switch (bytes[0]) {
        case 0:
            advertise(input);
            break;
        case 1:
            (void)read_neighbor_message(input.data(), input.size());
            break;
        default:
            relay_dhcp(input);
    }
    return 0;
}
