// The default routes of all uplinks.
#include "kernel/default_route.h"

#include <arpa/inet.h>
#include <linux/rtnetlink.h>

#include <cstdio>

#include "kernel/policy_netlink.h"
#include "kernel/route.h"
#include "result_codes.h"

namespace {

/// The family of an address text, AF_UNSPEC if it is of neither; its bytes go to `address`.
unsigned char parse_gateway(const char* text, in6_addr& address) {
    for (const unsigned char family : {AF_INET, AF_INET6}) {
        if (inet_pton(family, text, &address) == 1) {
            return family;
        }
    }
    return AF_UNSPEC;
}

}  // namespace

int nm::add_default_route(unsigned int ifindex, const char* gw, unsigned int metric) {
    if (gw == nullptr || *gw == '\0') {
        fprintf(stderr, "Error: Add def route but no gw provided, ifindex: %u\n", ifindex);
        return NM_ERR_NULL_ARG;
    }
    in6_addr gateway{};
    const unsigned char family = parse_gateway(gw, gateway);
    if (family == AF_UNSPEC) {
        fprintf(stderr, "Error: Fail to parse def route, ifindex: %u\n", ifindex);
        return NM_ERR_BAD_FORMAT;
    }
    const int ret = set_route(kDefaultRoutesTable, family, nullptr, 0, &gateway, ifindex, RTPROT_STATIC,
                              RT_SCOPE_UNIVERSE, metric, 1);
    if (ret != NM_OK) {
        fprintf(stderr, "Add def route failed, ifindex: %u, metric: %u\n", ifindex, metric);
    }
    return ret;
}

int nm::delete_default_route(unsigned int ifindex, unsigned char family) {
    const int ret = set_route(kDefaultRoutesTable, family, nullptr, 0, nullptr, ifindex, RTPROT_STATIC,
                              RT_SCOPE_UNIVERSE, 0, 0);
    if (ret != NM_OK) {
        fprintf(stderr, "Del def route failed, ifindex: %u (IPv%hhu)\n", ifindex, family_version(family));
    }
    return ret;
}

int nm::clear_default_routes(unsigned int ifindex, unsigned char family) {
    unsigned int count = 0;
    int ret = count_device_routes(kDefaultRoutesTable, family, ifindex, count);
    while (ret == NM_OK && count-- > 0) {
        ret = delete_default_route(ifindex, family);
    }
    return ret;
}

bool nm::has_only_default_route6(unsigned int ifindex, const char* gw, unsigned int metric) {
    in6_addr gateway{};
    if (inet_pton(AF_INET6, gw, &gateway) == 1) {
        return has_only_routes(kDefaultRoutesTable, AF_INET6,
                               {{AF_INET6, nullptr, 0, &gateway, ifindex, metric}}, ifindex);
    }
    return *gw == '\0' && has_only_routes(kDefaultRoutesTable, AF_INET6, {}, ifindex);
}
