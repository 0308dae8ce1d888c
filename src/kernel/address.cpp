// Addresses on devices, by libnl's address objects.
#include "kernel/address.h"

#include <linux/if_addr.h>
#include <net/if.h>
#include <netlink/errno.h>
#include <netlink/route/rtnl.h>
#include <netlink/utils.h>

#include <algorithm>
#include <array>
#include <cstdint>
#include <cstdio>
#include <cstring>
#include <limits>
#include <string>
#include <utility>

#include "kernel/netlink.h"
#include "log.h"
#include "result_codes.h"

namespace {

constexpr nm::ConnectCodes kByIndex{NM_ERR_SOCKET, NM_ERR_NL_CONNECT};
/// The lifetime of an address that does not end (linux/if_addr.h: ifa_cacheinfo).
constexpr uint32_t kForever = UINT32_MAX;

constexpr nm::ConnectCodes kByName{NM_ERR_NL_SOCKET, NM_ERR_NL_CONNECT};

bool has_any_scope(rtnl_addr*) {
    return true;
}

bool has_universe_scope(rtnl_addr* address) {
    return rtnl_addr_get_scope(address) == RT_SCOPE_UNIVERSE;
}

bool has_link_scope(rtnl_addr* address) {
    return rtnl_addr_get_scope(address) == RT_SCOPE_LINK;
}

bool has_wider_scope(rtnl_addr* address) {
    if (!has_link_scope(address)) {
        return true;
    }
    NM_LOG(Debug) << "ignoring IPv6 link-local address";
    return false;
}

using AddressPredicate = bool (*)(rtnl_addr* address);

rtnl_addr* address_of(const nm::NlObjects::value_type& object) {
    return reinterpret_cast<rtnl_addr*>(object.get());
}

int read_first(unsigned int ifindex, int family, AddressPredicate has_wanted_scope, std::string& out) {
    nm::AddressTable table;
    const int ret = nm::read_address_table(ifindex, family, kByIndex, table);
    if (ret != NM_OK) {
        return ret;
    }
    const auto found = std::find_if(table.addresses.begin(), table.addresses.end(),
                                    [=](const auto& object) { return has_wanted_scope(address_of(object)); });
    if (found != table.addresses.end()) {
        std::array<char, 128> text{};
        out = nl_addr2str(rtnl_addr_get_local(address_of(*found)), text.data(), text.size());
    }
    return NM_OK;
}

/// The address in the text, or null. The kernel judges the prefix, of which it gets one byte.
nm::NlAddr parse_address(const std::string& text, int family) {
    nl_addr* parsed = nullptr;
    nm::NlAddr address(nl_addr_parse(text.c_str(), family, &parsed) == 0 ? parsed : nullptr);
    // libnl reads "default" as an address without bytes.
    const bool fits = address != nullptr && nl_addr_get_len(address.get()) != 0 &&
                      nl_addr_get_prefixlen(address.get()) <= std::numeric_limits<unsigned char>::max();
    return fits ? std::move(address) : nullptr;
}

/// Adds the address of the text to the device and family that `address` carries.
int add_address(rtnl_addr* address, const std::string& text) {
    nm::NlSocket socket;
    const int ret = nm::connect_route_socket(socket, kByIndex);
    if (ret != NM_OK) {
        return ret;
    }
    const nm::NlAddr local = parse_address(text, rtnl_addr_get_family(address));
    if (local == nullptr || rtnl_addr_set_local(address, local.get()) < 0) {
        NM_LOG(Error) << "Bad IP address: " << text;
        return NM_ERR_BAD_IP;
    }
    const int error = rtnl_addr_add(socket.get(), address, NLM_F_REPLACE);
    if (error < 0) {
        NM_LOG(Error) << "Add address " << text << " failed: " << nl_geterror(error);
        return NM_ERR_IOCTL;
    }
    return NM_OK;
}

nm::RtnlAddr address_on(unsigned int ifindex, int family) {
    nm::RtnlAddr address(rtnl_addr_alloc());
    if (address != nullptr) {
        rtnl_addr_set_ifindex(address.get(), static_cast<int>(ifindex));
        rtnl_addr_set_family(address.get(), family);
    }
    return address;
}

int flush(unsigned int ifindex, int family, AddressPredicate has_wanted_scope) {
    nm::AddressTable table;
    const int ret = nm::read_address_table(ifindex, family, kByIndex, table);
    if (ret != NM_OK) {
        return ret;
    }
    // The table is what was there at the start. The kernel takes an IPv4 primary's secondaries along with it,
    // so that some of what is listed has gone when its turn comes.
    for (const auto& object : table.addresses) {
        if (!has_wanted_scope(address_of(object))) {
            continue;
        }
        const int error = rtnl_addr_delete(table.socket.get(), address_of(object), 0);
        if (error < 0 && error != -NLE_NOADDR) {
            NM_LOG(Error) << "Delete address failed: " << nl_geterror(error)
                          << ". Interface index: " << ifindex;
            return NM_ERR_IOCTL;
        }
    }
    return NM_OK;
}

/// Goes on after a refusal, which standard error takes.
void delete_each(const nm::AddressTable& table, AddressPredicate has_wanted_scope) {
    for (const auto& object : table.addresses) {
        const int error = has_wanted_scope(address_of(object))
                              ? rtnl_addr_delete(table.socket.get(), address_of(object), 0)
                              : 0;
        if (error < 0) {
            nl_perror(error, "Unable to delete address");
        }
    }
}

int flush_by_name(const char* function, const char* ifname, int family) {
    if (ifname == nullptr) {
        return NM_ERR_NL_ARG;
    }
    // A name without a device has the index 0, which is no address's.
    nm::AddressTable table;
    const int ret = nm::read_address_table(if_nametoindex(ifname), family, kByName, table);
    if (ret == NM_ERR_NL_SOCKET) {
        fprintf(stderr, "%s: socket for netlink operation is created failed\n", function);
    }
    if (ret == NM_ERR_NOMEM) {
        fprintf(stderr, "%s: Cannot allocate memory for addr cache\n", function);
    }
    if (ret != NM_OK) {
        return ret;
    }
    // The number is part of the line that operators' filters know.
    fprintf(stderr, "%s(%d): %s\n", function, 327, ifname);
    delete_each(table, family == AF_INET6 ? has_universe_scope : has_any_scope);
    return NM_OK;
}

void append_device_name(nl_object* object, void* argument) {
    auto* names = static_cast<char*>(argument);
    const int ifindex = rtnl_addr_get_ifindex(reinterpret_cast<rtnl_addr*>(object));
    nl_cache* links = nl_cache_mngt_require_safe("route/link");
    if (links == nullptr) {
        fprintf(stderr, "link cache is NULL, dev=%d\n", ifindex);
        return;
    }
    std::array<char, IFNAMSIZ> name{};
    if (rtnl_link_i2name(links, ifindex, name.data(), name.size()) != nullptr) {
        const std::string appended = (*names != '\0' ? " " : "") + std::string(name.data());
        std::copy_n(appended.c_str(), appended.size() + 1, names + strlen(names));
    }
    nl_cache_put(links);
}

}  // namespace

int get_ipv4_addr(unsigned int ifindex, std::string& out) {
    return read_first(ifindex, AF_INET, has_any_scope, out);
}

int get_ipv6_addr(unsigned int ifindex, std::string& out) {
    return read_first(ifindex, AF_INET6, has_wider_scope, out);
}

int get_ipv6_link_addr(unsigned int ifindex, std::string& out) {
    return read_first(ifindex, AF_INET6, has_link_scope, out);
}

int set_ipv4_addr(unsigned int ifindex, std::string addr) {
    NM_LOG(Debug) << "Enter";
    const nm::RtnlAddr address = address_on(ifindex, AF_INET);
    return NM_EXIT(address != nullptr ? add_address(address.get(), addr) : NM_ERR_NOMEM);
}

int set_ipv6_addr(unsigned int ifindex, std::string& addr, int scope) {
    NM_LOG(Debug) << "Enter";
    const nm::RtnlAddr address = address_on(ifindex, AF_INET6);
    if (address == nullptr) {
        return NM_EXIT(NM_ERR_NOMEM);
    }
    rtnl_addr_set_scope(address.get(), scope);
    return NM_EXIT(add_address(address.get(), addr));
}

int flush_ipv4_addr(unsigned int ifindex) {
    NM_LOG(Debug) << "Enter";
    return NM_EXIT(flush(ifindex, AF_INET, has_any_scope));
}

int flush_ipv6_addr(unsigned int ifindex) {
    NM_LOG(Debug) << "Enter";
    return NM_EXIT(flush(ifindex, AF_INET6, has_universe_scope));
}

int flush_ipaddr(const char* ifname, int family) {
    NM_LOG(Debug) << "Enter";
    return NM_EXIT(flush_by_name(__func__, ifname, family));
}

bool nm::has_only_address(unsigned int ifindex, int family, const std::string& address) {
    const NlAddr wanted = parse_address(address, family);
    AddressTable table;
    if (wanted == nullptr || read_address_table(ifindex, family, kByIndex, table) != NM_OK) {
        return false;
    }
    const AddressPredicate is_flushed = family == AF_INET6 ? has_universe_scope : has_any_scope;
    const auto is_wanted = [&](const NlObjects::value_type& object) {
        rtnl_addr* const present = address_of(object);
        return nl_addr_cmp(rtnl_addr_get_local(present), wanted.get()) == 0 &&
               rtnl_addr_get_flags(present) == IFA_F_PERMANENT &&
               rtnl_addr_get_preferred_lifetime(present) == kForever &&
               rtnl_addr_get_peer(present) == nullptr;
    };
    NlObjects& present = table.addresses;
    const auto stays = [is_flushed](const auto& object) { return !is_flushed(address_of(object)); };
    present.erase(std::remove_if(present.begin(), present.end(), stays), present.end());
    return present.size() == 1 && is_wanted(present.front());
}

int get_interface_with_address(const char* scope, const char* family, char* names) {
    if (scope == nullptr || family == nullptr || names == nullptr) {
        return NM_ERR_NULL_ARG;
    }
    bool connected = false;
    const nm::NlSocket socket = nm::open_route_socket(connected);
    if (socket == nullptr) {
        return NM_ERR_NOMEM;
    }
    if (!connected) {
        return NM_ERR_SOCKET;
    }
    const nm::NlCache links = nm::read_links(socket.get());
    const nm::NlCache addresses = nm::read_addresses(socket.get());
    const nm::RtnlAddr filter(rtnl_addr_alloc());
    if (links == nullptr || addresses == nullptr || filter == nullptr) {
        return NM_ERR_NOMEM;
    }
    nl_cache_mngt_provide(links.get());
    rtnl_addr_set_family(filter.get(), nl_str2af(family));
    rtnl_addr_set_scope(filter.get(), rtnl_str2scope(scope));
    nl_cache_foreach_filter(addresses.get(), OBJ_CAST(filter.get()), append_device_name, names);
    return *names != '\0' ? 1 : 0;
}
