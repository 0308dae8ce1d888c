// The table of the library's entries, and how their arguments are checked.
#include "nm_bin/entries.h"

#include <networkinterface.h>

#include <algorithm>
#include <array>
#include <fstream>
#include <iostream>
#include <iterator>
#include <sstream>

namespace nm_bin {

namespace {

template <int (*entry)(char*)>
int run_with_text(Arguments& words) {
    return entry(words[0].data());
}

/// The table is as large as the network has clients: the buffer grows until it fits.
int show_dhcp_clients(Arguments& words) {
    constexpr size_t kFirst = size_t{1} << 20;
    constexpr size_t kLast = size_t{1} << 26;
    for (size_t size = kFirst;; size *= 2) {
        std::string table(size, '\0');
        const int code = Get_dhcp_client_table(words[0].data(), table.data(), table.size());
        if (code == NM_ERR_BUFFER && size < kLast) {
            continue;
        }
        std::cout << table.substr(0, table.find('\0'));
        return code;
    }
}

constexpr std::array kEntries{
    Entry{"Setup_wanif", "REQUEST", run_with_text<Setup_wanif>,
          "add, delete or alter WAN ports (MTU, QoS, TCP buffers)"},
    Entry{"Setup_waninfo", "REQUEST", run_with_text<Setup_waninfo>,
          "add, delete or alter the addressing of WAN interfaces (static, DHCP, PPPoE)"},
    Entry{"Setup_privateif", "REQUEST", run_with_text<Setup_privateif>,
          "add, delete or alter private ports (as Setup_wanif)"},
    Entry{"Setup_privateinfo", "REQUEST", run_with_text<Setup_privateinfo>,
          "add, delete or alter the addressing of private interfaces (static)"},
    Entry{"Setup_rglinkif", "REQUEST", run_with_text<Setup_rglinkif>,
          "add, delete or alter RGLinks (as Setup_wanif)"},
    Entry{"Setup_rglinkinfo", "REQUEST", run_with_text<Setup_rglinkinfo>,
          "add, delete or alter the addressing of RGLinks (static, DHCP, PPPoE)"},
    Entry{"Update_rglink_info", "REQUEST", run_with_text<Update_rglink_info>,
          "report the addresses of all RGLinks to the health manager ({\"path\": ...} or {})"},
    Entry{"Setup_vlanbr", "REQUEST", run_with_text<Setup_vlanbr>,
          "add, delete or alter the bridges of VLAN segments (MTU, spanning tree)"},
    Entry{"Setup_lanif", "REQUEST", run_with_text<Setup_lanif>,
          "add, delete or alter LAN ports (VLAN devices, members of bridges)"},
    Entry{"Setup_laninfo", "REQUEST", run_with_text<Setup_laninfo>,
          "add, delete or alter the addressing of LAN interfaces"},
    Entry{"Setup_dhcpservice", "REQUEST", run_with_text<Setup_dhcpservice>,
          "start, stop or alter the DHCP server or relay of LAN interfaces"},
    Entry{"Setup_services", "REQUEST", run_with_text<Setup_services>,
          "add, delete or alter services of the device (its name servers)"},
    Entry{"Setup_misc", "REQUEST", run_with_text<Setup_misc>,
          "hand on the parameters of the uplinks' probes and of the network stack"},
    Entry{"Setup_topology", "REQUEST", run_with_text<Setup_topology>, "start or stop the site's VPN"},
    Entry{"Get_dhcp_client_table", "IFNAME", show_dhcp_clients,
          "print an interface's DHCP reservations and leases as a line of JSON"},
    Entry{"Add_hosts", "ADDRESS IFNAME",
          [](Arguments& words) { return Add_hosts(words[0].data(), words[1].data()); },
          "add the host line of an interface's address"},
    Entry{"Del_hosts", "IFNAME", run_with_text<Del_hosts>,
          "delete the host lines of an interface's IPv4 addresses"},
    Entry{"Lease_event", "IFNAME add|del",
          [](Arguments& words) { return Lease_event(words[0].data(), words[1].data()); },
          "work what a DHCP client or PPPoE session reports (called by their hooks)"},
    Entry{"Lease6_event", "IFNAME report|apply",
          [](Arguments& words) { return Lease6_event(words[0].data(), words[1].data()); },
          "note, or work, what a DHCPv6 client reports (called by its hook)"},
    Entry{"Apply_firewall", "NEW OLD", apply_firewall_document,
          "replace the firewall rules of the document OLD by those of NEW, and keep NEW as OLD"},
    Entry{"Apply_policy", "NEW OLD", apply_policy_document, "the same for QoS classes and steering"},
    Entry{"Apply_segment", "NEW OLD", apply_segment_document, "the same for the sets of segments"},
    Entry{"Apply_dnat", "NEW OLD", apply_dnat_document,
          "the same for the port forwards of a firewall document"},
    Entry{"Apply_static_route", "NEW OLD", apply_static_route_document, "the same for static routes of IPv4"},
    Entry{"Apply_static_route6", "NEW OLD", apply_static_route6_document,
          "the same for static routes of IPv6"},
    Entry{"Reload_tcpmss", "REQUEST", run_with_text<Reload_tcpmss>,
          "clamp the TCP segment size on the WAN links ({\"path\": ...} or {})"},
    Entry{"Reload_dnat", "REQUEST", run_with_text<Reload_dnat>,
          "write the stored port forwards anew ({\"path\": ...} or {})"},
    Entry{"Reload_lan_ipv6", "REQUEST", run_with_text<Reload_lan_ipv6>,
          "renew what LANs have from their uplink's IPv6 ({\"uplink\": \"PORT1\", \"path\": ...} or {})"},
    Entry{"Reload_static_route", "REQUEST", run_with_text<Reload_static_route>,
          "write the stored static routes anew ({\"family\": \"4\" or \"6\", \"path\": ...} or {})"},
};

std::string read_all(std::istream& in) {
    return {std::istreambuf_iterator<char>(in), std::istreambuf_iterator<char>()};
}

/// Puts the request's text in the place of what names it; false if its file cannot be read.
bool read_request(std::string& word) {
    if (word == "-") {
        word = read_all(std::cin);
        return true;
    }
    if (word.empty() || word.front() != '@') {
        return true;
    }
    std::ifstream file(word.substr(1), std::ios::binary);
    if (!file) {
        return false;
    }
    word = read_all(file);
    return !file.bad();
}

bool is_address(std::string& word) {
    return is_valid_ip(word.c_str()) || is_valid_ip6(word.c_str());
}

/// What the kernel takes as the name of a device (dev_valid_name() of its net/core/dev.c).
bool is_interface_name(std::string& word) {
    constexpr size_t kLongest = 15;
    return !word.empty() && word.size() <= kLongest && word != "." && word != ".." &&
           word.find_first_of("/: \t\n\v\f\r") == std::string::npos;
}

/// A kind of argument: its word in the usage, its check, and what is said about a word that fails it.
struct ArgumentKind {
    std::string_view name;
    bool (*take)(std::string& word);
    std::string_view failure;
};

constexpr std::array kArgumentKinds{
    ArgumentKind{"REQUEST", read_request, "cannot read "},
    ArgumentKind{"ADDRESS", is_address, "not an IP address: "},
    ArgumentKind{"IFNAME", is_interface_name, "not the name of an interface: "},
};

std::string take_argument(const std::string& kind, std::string& word) {
    const auto* const row =
        std::find_if(kArgumentKinds.begin(), kArgumentKinds.end(),
                     [&kind](const ArgumentKind& candidate) { return candidate.name == kind; });
    const std::string given = word;
    if (row == kArgumentKinds.end() || row->take(word)) {
        return "";
    }
    return std::string(row->failure) + given.substr(kind == "REQUEST" ? 1 : 0);
}

}  // namespace

const std::vector<Entry>& entries() {
    static const std::vector<Entry> all(kEntries.begin(), kEntries.end());
    return all;
}

const Entry* find_entry(const std::string& name) {
    const auto* const found = std::find_if(kEntries.begin(), kEntries.end(),
                                           [&name](const Entry& row) { return row.name == name; });
    return found == kEntries.end() ? nullptr : found;
}

std::string take_arguments(const Entry& entry, Arguments& words) {
    std::istringstream usage{std::string(entry.arguments)};
    const Arguments kinds{std::istream_iterator<std::string>(usage), {}};
    if (words.size() != kinds.size()) {
        return std::string(entry.name) + " takes " + std::string(entry.arguments);
    }
    for (size_t i = 0; i < words.size(); ++i) {
        const std::string failure = take_argument(kinds[i], words[i]);
        if (!failure.empty()) {
            return failure;
        }
    }
    return "";
}

}  // namespace nm_bin
