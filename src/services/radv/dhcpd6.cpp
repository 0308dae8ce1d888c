// The DHCPv6 server of an interface: its generated file and its unit.
#include "services/radv/dhcpd6.h"

#include <arpa/inet.h>
#include <errno.h>
#include <string.h>
#include <unistd.h>

#include "log.h"
#include "result_codes.h"
#include "services/files/generated_file.h"
#include "services/radv/radv_files.h"
#include "utils/files.h"
#include "utils/ip_text.h"
#include "utils/unit_names.h"
#include "utils/units.h"

namespace {

constexpr uint32_t kShortestLease = 300;
constexpr uint32_t kLongestLease = 2592000;
constexpr int kIp6Bits = 128;

std::string conf_path(const std::string& ifname) {
    return "/etc/networkmanagement/dhcp6/dhcpd6_" + ifname + ".conf";
}

std::string lease_path(const std::string& ifname) {
    return "/var/lib/dhcpd6/dhcpd6_" + ifname + ".leases";
}

void log_record(const dhcpd6_iface& iface) {
    NM_LOG(Debug) << "ifname: " << iface.ifname << "; managed: " << iface.managed << "; dns: " << iface.dns
                  << "; lease_time: " << iface.lease_time << "; prefix: " << iface.prefix
                  << "; prefix_len: " << static_cast<int>(iface.prefix_len)
                  << "; range_start: " << iface.range_start << "; range_end: " << iface.range_end;
}

/// Whether the address lies in the network of this length; an address with host bits is no network.
bool is_in_network(const std::string& address, const in6_addr& network, int length) {
    in6_addr own = {};
    if (inet_pton(AF_INET6, address.c_str(), &own) != 1) {
        return false;
    }
    get_ip6_subnet(own, &own, length);
    return memcmp(&own, &network, sizeof(own)) == 0;
}

int check_range(const dhcpd6_iface& iface) {
    if (iface.range_start.empty() || iface.range_end.empty()) {
        NM_LOG(Error) << "Managed bit is set. range6 statement should be set with "
                      << "low-address and high-address!";
        return NM_ERR_EMPTY;
    }
    in6_addr network = {};
    const bool is_network =
        iface.prefix_len <= kIp6Bits && inet_pton(AF_INET6, iface.prefix.c_str(), &network) == 1;
    if (!is_network || !is_in_network(iface.range_start, network, iface.prefix_len) ||
        !is_in_network(iface.range_end, network, iface.prefix_len)) {
        NM_LOG(Error) << "IP in range6 is outof subnet6!";
        return NM_ERR_BAD_PREFIX;
    }
    return NM_OK;
}

int dhcpd6_iface_validate(const dhcpd6_iface* iface) {
    if (iface == nullptr) {
        NM_LOG(Error) << "iface is Null pointer.";
        return NM_ERR_NULL_ARG;
    }
    log_record(*iface);
    const int named = nm::check_ifname(iface->ifname);
    if (named != NM_OK) {
        return named;
    }
    if (iface->lease_time < kShortestLease || iface->lease_time > kLongestLease) {
        NM_LOG(Error) << "lease time should between " << kShortestLease << " and " << kLongestLease;
        return NM_ERR_BAD_FORMAT;
    }
    return iface->managed ? check_range(*iface) : NM_OK;
}

std::string conf_text(const dhcpd6_iface& iface) {
    const std::string lease_time = std::to_string(iface.lease_time);
    std::string text = "max-lease-time " + lease_time + ";\n";
    text += "default-lease-time " + lease_time + ";\n";
    text += "option dhcp6.name-servers " + iface.dns + ";\n";
    text += "subnet6 " + iface.prefix + "/" + std::to_string(iface.prefix_len) + "\n{\n";
    text += iface.managed ? "  range6 " + iface.range_start + " " + iface.range_end + ";\n" : "";
    return text + "}\n";
}

}  // namespace

int dhcpd6_iface_set(const dhcpd6_iface* iface) {
    NM_LOG(Debug) << "Enter";
    int ret = dhcpd6_iface_validate(iface);
    if (ret == NM_OK) {
        ret = nm::check_values({iface->dns, iface->prefix, iface->range_start, iface->range_end});
    }
    if (ret == NM_OK) {
        ret = nm::replace_locked(conf_path(iface->ifname), conf_text(*iface));
    }
    if (ret == NM_OK && !dhcpd6_iface_lease_exist(iface->ifname)) {
        ret = writeValue(lease_path(iface->ifname), "", true);
    }
    return NM_EXIT(ret);
}

int dhcpd6_iface_unset(std::string ifname) {
    NM_LOG(Debug) << "Enter";
    const std::string leases = lease_path(ifname);
    for (const std::string& path : {conf_path(ifname), leases, leases + "~"}) {
        NM_LOG(Info) << "Unset file: " << path;
        const int ret = is_file_exists(path) ? unlink(path.c_str()) : NM_OK;
        if (ret != NM_OK) {
            const int reason = errno;
            NM_LOG(Error) << path << ": " << strerror(reason);
            return NM_EXIT(ret);
        }
    }
    return NM_EXIT(NM_OK);
}

bool dhcpd6_iface_cfg_exist(std::string ifname) {
    return is_file_exists(conf_path(ifname));
}

bool dhcpd6_iface_lease_exist(std::string ifname) {
    return is_file_exists(lease_path(ifname));
}

int dhcpd6_service_start(std::string ifname) {
    return service_start(nm::kDhcp6ServerUnit, ifname.c_str(), nullptr);
}

int dhcpd6_service_stop(std::string ifname) {
    return dhcpd6_iface_cfg_exist(ifname) ? service_stop(nm::kDhcp6ServerUnit, ifname.c_str(), nullptr)
                                          : NM_OK;
}
