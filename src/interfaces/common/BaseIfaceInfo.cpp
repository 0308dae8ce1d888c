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
