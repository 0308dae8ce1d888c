// What all information objects share.
#include "interfaces/common/BaseIfaceInfo.h"

#include <utility>

#include "kernel/address.h"
#include "result_codes.h"

BaseIfaceInfo::BaseIfaceInfo(std::string ifname, std::string path)
    : path(std::move(path)), ifname(std::move(ifname)) {
    if (this->ifname.empty() || this->path.empty()) {
        throw NM_ERR_NULL_ARG;
    }
}

int BaseIfaceInfo::get_ip_addr() {
    const int ret4 = get_ipv4_addr(ifindex, runtime_ip4);
    const int ret6 = get_ipv6_addr(ifindex, runtime_ip6);
    return ret4 != NM_OK ? ret4 : ret6;
}

std::string BaseIfaceInfo::get_ifname() {
    return ifname;
}

int BaseIfaceInfo::get_ifindex() {
    return ifindex;
}

std::string BaseIfaceInfo::get_ip4_type() {
    return ip4_type;
}

std::string BaseIfaceInfo::get_ip6_type() {
    return ip6_type;
}

std::string BaseIfaceInfo::get_ip4_addr() {
    return ip4_addr;
}

std::string BaseIfaceInfo::get_ip6_addr() {
    return ip6_addr;
}

int BaseIfaceInfo::get_ip4_prefix() {
    return ip4_prefix;
}

int BaseIfaceInfo::get_ip6_prefix() {
    return ip6_prefix;
}

std::string BaseIfaceInfo::get_runtime_ip4() {
    return runtime_ip4;
}

std::string BaseIfaceInfo::get_runtime_ip6() {
    return runtime_ip6;
}
