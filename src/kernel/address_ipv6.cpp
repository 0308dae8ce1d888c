// A device's IPv6 link-local address, IPv6 switches and DNS records.
#include "kernel/address_ipv6.h"

#include <arpa/inet.h>
#include <ifaddrs.h>
#include <net/if.h>
#include <netlink/route/rtnl.h>
#include <unistd.h>

#include <array>
#include <cerrno>
#include <cstdio>
#include <cstring>
#include <memory>
#include <optional>

#include "kernel/address.h"
#include "kernel/device_path.h"
#include "kernel/link.h"
#include "kernel/netlink.h"
#include "log.h"
#include "result_codes.h"
#include "utils/file_io.h"
#include "utils/files.h"
#include "utils/handles.h"
#include "utils/ip_text.h"
#include "utils/mac.h"
#include "utils/process.h"
#include "utils/shell_text.h"
#include "utils/unit_names.h"
#include "utils/units.h"

namespace {

constexpr int kLastAppearanceRound = 10;
constexpr int kTentativeRounds = 3;
constexpr unsigned int kRoundSeconds = 2;
constexpr unsigned char kLinkLocalByte = 0xfe;

using AddressList = std::unique_ptr<ifaddrs, void (*)(ifaddrs*)>;

/// Nothing if the addresses can't be listed; a list that is null has no entries.
std::optional<AddressList> list_addresses() {
    ifaddrs* list = nullptr;
    return getifaddrs(&list) == 0 ? std::optional<AddressList>({list, &freeifaddrs}) : std::nullopt;
}

bool is_ipv6_of(const ifaddrs& entry, const char* ifname) {
    return strcmp(entry.ifa_name, ifname) == 0 && entry.ifa_addr != nullptr &&
           entry.ifa_addr->sa_family == AF_INET6;
}

bool is_link_address_of(const ifaddrs& entry, const char* ifname) {
    if (!is_ipv6_of(entry, ifname) || (entry.ifa_flags & IFF_UP) == 0) {
        return false;
    }
    return reinterpret_cast<const sockaddr_in6*>(entry.ifa_addr)->sin6_addr.s6_addr[0] == kLinkLocalByte;
}

template <class Predicate>
int count_addresses(const AddressList& list, const char* ifname, Predicate is_counted) {
    int count = 0;
    for (const ifaddrs* entry = list.get(); entry != nullptr; entry = entry->ifa_next) {
        count += is_counted(*entry, ifname) ? 1 : 0;
    }
    return count;
}

bool wait_for_appearance(const char* ifname) {
    for (int round = 0; round <= kLastAppearanceRound; ++round) {
        const std::optional<AddressList> list = list_addresses();
        if (!list) {
            break;
        }
        if (count_addresses(*list, ifname, is_link_address_of) > 0) {
            NM_LOG(Debug) << "Got the link address.";
            return true;
        }
        NM_LOG(Debug) << "wait for address: " << round;
        sleep(kRoundSeconds);
    }
    NM_LOG(Error) << "No interface!";
    NM_LOG(Error) << "Error: Link address is still not ready.";
    return false;
}

int wait_for_detection(const char* ifname) {
    for (int round = 0; round < kTentativeRounds; ++round) {
        int tentative = 0;
        (void)check_tentative_state(ifname, tentative);  // what can't be asked for counts as not tentative
        if (tentative != 1) {
            NM_LOG(Debug) << "Link address is ready.";
            return 0;
        }
        NM_LOG(Debug) << "TENTATIVE FLAG: " << tentative;
        NM_LOG(Debug) << "wait for flag: " << round;
        sleep(kRoundSeconds);
    }
    NM_LOG(Error) << "Error: Link address's status is still TENTATIVE.";
    return 1;
}

void find_tentative(rtnl_addr* address, int& tentative) {
    std::array<char, 128> text{};
    NM_LOG(Debug) << "ADDR: " << nl_addr2str(rtnl_addr_get_local(address), text.data(), text.size());
    if ((rtnl_addr_get_flags(address) & IFA_F_TENTATIVE) != 0) {
        NM_LOG(Debug) << "ADDR TENTATIVE.";
        tentative = 1;
    }
}

int generate_link_address(unsigned int ifindex, std::string& out) {
    std::array<char, IFNAMSIZ> ifname{};
    if (get_iface_name(static_cast<int>(ifindex), ifname.data()) == nullptr) {
        return NM_ERR_NO_IFACE;
    }
    std::array<unsigned char, 6> mac{};
    int ret = get_raw_mac_addr(ifname.data(), mac.data());
    if (ret != NM_OK) {
        return ret;
    }
    const in6_addr address = nm::link_local_address(mac.data());
    std::array<char, INET6_ADDRSTRLEN> text{};
    if (inet_ntop(AF_INET6, &address, text.data(), text.size()) == nullptr) {
        return NM_ERR_NULL_ARG;
    }
    out = std::string(text.data()) + "/64";
    ret = set_ipv6_addr(ifindex, out, RT_SCOPE_LINK);
    (void)wait_for_link_address(ifname.data());  // an address that is late is not a failure of making it
    return ret;
}

int run_addrgenmode(const std::string& ifname, const std::string& mode) {
    const std::optional<std::string> device = nm::shell_word(ifname);
    const std::optional<std::string> word = nm::shell_word(mode);
    if (!device || !word) {
        return NM_ERR_BAD_FORMAT;
    }
    return system_cmd(("/sbin/ip link set dev " + *device + " addrgenmode " + *word).c_str());
}

/// Removes a record of a DNS helper; false if there is none.
bool remove_record(const std::string& path) {
    if (!is_file_exists(path)) {
        return false;
    }
    if (remove(path.c_str()) != 0) {
        NM_LOG(Error) << path << " remove fail.";
        return true;
    }
    NM_LOG(Debug) << "Previous " << path << " is removed.";
    return true;
}

int control_dh6dns(const std::string& ifname, bool start) {
    if (nm::leaves_directory(ifname)) {
        NM_LOG(Error) << "No such interface: " << ifname;
        return NM_ERR_NO_IFACE;
    }
    const std::string path = "/var/lib/dh6dns/" + ifname;
    if (!remove_record(path)) {
        NM_LOG(Debug) << "No previous dns info " << path;
    }
    if (!start) {
        return service_stop(nm::kDhcp6DnsUnit, ifname.c_str(), nullptr);
    }
    NM_LOG(Debug) << "VNE: skip wait_for_link_address";
    return service_start(nm::kDhcp6DnsUnit, ifname.c_str(), nullptr);
}

}  // namespace

int gen_ipv6_default_link_addr(unsigned int ifindex, std::string& out) {
    NM_LOG(Debug) << "Enter";
    return NM_EXIT(generate_link_address(ifindex, out));
}

int get_ipv6_addr_count(const char* ifname) {
    if (ifname == nullptr) {
        NM_LOG(Error) << "ifname is Null pointer.";
        return NM_ERR_NULL_ARG;
    }
    const std::optional<AddressList> list = list_addresses();
    if (!list) {
        NM_LOG(Error) << "Get interface status fail.";
        return NM_ERR_NULL_IFNAME;
    }
    return count_addresses(*list, ifname, is_ipv6_of);
}

int wait_for_link_address(const char* ifname) {
    NM_LOG(Debug) << "Enter";
    if (ifname == nullptr) {
        NM_LOG(Error) << "No interface!";
        return NM_EXIT(1);
    }
    return NM_EXIT(wait_for_appearance(ifname) ? wait_for_detection(ifname) : 1);
}

int check_tentative_state(const char* ifname, int& tentative) {
    const int ifindex = get_iface_index(ifname);
    if (ifindex == 0) {
        NM_LOG(Error) << "No such interface: " << (ifname != nullptr ? ifname : "");
        return NM_ERR_NO_IFACE;
    }
    nm::AddressTable table;
    const int ret = nm::read_address_table(static_cast<unsigned int>(ifindex), AF_INET6,
                                           {NM_ERR_NL_SOCKET, NM_ERR_NL_CONNECT}, table);
    if (ret == NM_ERR_NOMEM) {
        NM_LOG(Error) << "Cannot allocate memory for route object, addr cache.";
    }
    for (const auto& object : table.addresses) {
        auto* address = reinterpret_cast<rtnl_addr*>(object.get());
        if (rtnl_addr_get_scope(address) == RT_SCOPE_LINK) {
            find_tentative(address, tentative);
        }
    }
    return ret;
}

int set_ipv6_addrgenmode(std::string& ifname, std::string mode) {
    NM_LOG(Debug) << "Enter";
    const int ret = run_addrgenmode(ifname, mode);
    if (ret != 0) {
        NM_LOG(Error) << ifname << " set addrgenmode: " << mode << " failed.";
    }
    return NM_EXIT(ret);
}

int do_ipv6_forwarding(std::string ifname, unsigned short value) {
    NM_LOG(Debug) << "Enter";
    const std::string path = "/proc/sys/net/ipv6/conf/" + ifname + "/forwarding";
    const auto file = nm::leaves_directory(ifname)
                          ? nm::FileDescriptor()
                          : nm::FileDescriptor::open(path.c_str(), O_WRONLY | O_TRUNC);
    if (!file) {
        NM_LOG(Error) << "Could not open the" << path << " file!";
        return NM_EXIT(NM_ERR_FORWARDING);
    }
    if (!nm::write_all(file.get(), std::to_string(value))) {
        NM_LOG(Error) << "Cannot write " << path << ": " << strerror(errno);
    }
    return NM_EXIT(NM_OK);
}

int setup_dh6dns(std::string ifname, unsigned short enable) {
    NM_LOG(Debug) << "Enter";
    const int ret = control_dh6dns(ifname, enable == 1);
    if (ret != 0) {
        NM_LOG(Error) << "Setup dh6dns failed, ret=" << ret;
    }
    return NM_EXIT(NM_OK);
}

void remove_rdnssd_record(std::string ifname) {
    if (nm::leaves_directory(ifname)) {
        NM_LOG(Error) << "No such interface: " << ifname;
        return;
    }
    (void)remove_record("/var/lib/rdnssd/" + ifname);  // no record is what is wanted
}
