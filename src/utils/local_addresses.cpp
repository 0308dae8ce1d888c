// What this host's interfaces are called and which addresses they have.
#include "utils/local_addresses.h"

#include <arpa/inet.h>
#include <ifaddrs.h>
#include <string.h>

#include <bitset>
#include <memory>

#include "log.h"
#include "utils/directories.h"
#include "utils/ip_text.h"

namespace {

using AddressList = std::unique_ptr<ifaddrs, void (*)(ifaddrs*)>;

AddressList read_addresses() {
    ifaddrs* list = nullptr;
    return AddressList(getifaddrs(&list) == 0 ? list : nullptr, &freeifaddrs);
}

const void* address_of(const sockaddr* address) {
    if (address->sa_family == AF_INET) {
        return &reinterpret_cast<const sockaddr_in*>(address)->sin_addr;
    }
    return &reinterpret_cast<const sockaddr_in6*>(address)->sin6_addr;
}

int prefix_length(const sockaddr* mask) {
    if (mask == nullptr) {
        return 0;
    }
    if (mask->sa_family == AF_INET6) {
        return ip6_masklen(reinterpret_cast<const sockaddr_in6*>(mask)->sin6_addr);
    }
    const in_addr_t bits = reinterpret_cast<const sockaddr_in*>(mask)->sin_addr.s_addr;
    return static_cast<int>(std::bitset<32>(bits).count());
}

bool is_wanted(const ifaddrs& entry, const char* ifname, unsigned short family) {
    if (entry.ifa_addr == nullptr || entry.ifa_addr->sa_family != family) {
        return false;
    }
    if (family == AF_INET6 && static_cast<const in6_addr*>(address_of(entry.ifa_addr))->s6_addr[0] == 0xfe) {
        return false;
    }
    return *ifname == '\0' || strcmp(entry.ifa_name, ifname) == 0;
}

}  // namespace

std::vector<std::string> listAddresses(const char* ifname, unsigned short family, bool with_prefix) {
    if (ifname == nullptr || (family != AF_INET && family != AF_INET6)) {
        return {};
    }
    std::vector<std::string> addresses;
    const AddressList list = read_addresses();
    for (const ifaddrs* entry = list.get(); entry != nullptr; entry = entry->ifa_next) {
        char text[INET6_ADDRSTRLEN] = {};
        if (!is_wanted(*entry, ifname, family) ||
            inet_ntop(family, address_of(entry->ifa_addr), text, sizeof(text)) == nullptr) {
            continue;
        }
        const std::string suffix = "/" + std::to_string(prefix_length(entry->ifa_netmask));
        addresses.push_back(text + (with_prefix ? suffix : std::string()));
    }
    return addresses;
}

std::vector<std::string> search_iface_name(const char* pattern) {
    if (pattern == nullptr) {
        NM_LOG(Error) << "pattern is Null pointer.";
        return {};
    }
    std::vector<std::string> names;
    const AddressList list = read_addresses();
    for (const ifaddrs* entry = list.get(); entry != nullptr; entry = entry->ifa_next) {
        // The packet entry is the one that every interface has exactly once.
        if (entry->ifa_addr != nullptr && entry->ifa_addr->sa_family == AF_PACKET &&
            strncmp(entry->ifa_name, pattern, strlen(pattern)) == 0) {
            names.emplace_back(entry->ifa_name);
        }
    }
    return names;
}

bool is_global_ipv6_enable() {
    return is_dir("/proc/sys/net/ipv6");
}
