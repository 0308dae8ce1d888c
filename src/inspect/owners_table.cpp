// The table of ownership.
#include <linux/rtnetlink.h>

#include <cstdlib>

#include "config/actions.h"
#include "control/migrate_documents.h"
#include "inspect/owners_view.h"
#include "inspect/read_command.h"
#include "interfaces/uplink/UplinkKind.h"
#include "kernel/marks.h"
#include "kernel/route_table.h"
#include "policy/common/packet_names.h"
#include "policy/common/presence.h"
#include "services/dhcp/dhcp_files.h"
#include "services/dns/hosts.h"
#include "services/dns/name_servers.h"
#include "utils/unit_names.h"

namespace nm {

namespace {

constexpr const char* kKernel = "kernel";
constexpr const char* kUplinks = "uplinks";
constexpr const char* kBase = "base rules";
constexpr const char* kRoutes = "static routes";
constexpr const char* kPolicy = "packet policy";
constexpr const char* kOverlay = "overlay";
constexpr const char* kFamilies[] = {"4", "6"};
constexpr const char* kAny = "*";

using Claims = std::vector<Claim>;

std::string with_any(const std::string& prefix) {
    return prefix + kAny;
}

/// A chain, and those of segments below it.
std::vector<std::string> with_segments(const std::string& chain) {
    return {chain, segment_name(chain, kAny)};
}

void add_marks(Claims& claims) {
    const auto add = [&claims](uint32_t bits, const char* owner, const char* purpose,
                               std::vector<std::string> writers) {
        writers.emplace_back("BASE_*");
        claims.push_back({Resource::Mark, "", "", bits, bits, owner, purpose, "", std::move(writers)});
    };
    const std::string steering = segment_name(kSteeringChain, kAny);
    add(kEgressPort.mask, kPolicy, "port by which the packet leaves",
        {kSteeringChain, steering, kSiteBalanceChain, kPlainSiteBalanceChain, kLanBalanceChain,
         kReplyMarkChain});
    add(kQosClass.mask, kPolicy, "class of the traffic", with_segments(kClassChain));
    add(kVerdict.mask, kPolicy, "verdict of the firewall", with_segments(kVerdictChain));
    add(kDnatReply, kPolicy, "answer of a forwarded connection", {kReplyMarkChain});
    add(kLanToWan, kPolicy, "balanced over the uplinks", {kLanBalanceChain});
    add(kAid.mask, kOverlay, "AID of the connection", {kAny});
    add(kCid.mask, kOverlay, "CID of the connection", {kAny});
}

void add_tables(Claims& claims) {
    const auto add = [&claims](uint32_t first, uint32_t last, const char* owner, const char* purpose) {
        claims.push_back({Resource::Table, "", "", first, last, owner, purpose});
    };
    add(kSecondStaticTable, kSecondStaticTable, kRoutes, "asked after the uplinks");
    add(kFirstStaticTable, kFirstStaticTable, kRoutes, "asked before the uplinks");
    add(kDefaultRoutesTable, kDefaultRoutesTable, kUplinks, "default routes of all uplinks, by metric");
    add(RT_TABLE_MAIN, RT_TABLE_MAIN, kKernel, "connected networks");
    add(RT_TABLE_LOCAL, RT_TABLE_LOCAL, kKernel, "own addresses");
    add(uplink_table(1), uplink_table(kUplinkIndexEnd - 1), kUplinks,
        "256 and the index of the uplink, or of a LAN with a lent prefix");
}

/// The kernel's own two, which lie within the blocks of the indices 0 and 2047, come with the rest.
void add_priorities(Claims& claims) {
    constexpr uint32_t kMain = 32766;
    const uint32_t first = uplink_rule_base(1) + 1;
    const uint32_t end = uplink_rule_base(kUplinkIndexEnd);
    for (const char* const family : kFamilies) {
        const auto add = [&](uint32_t from, uint32_t to, const char* owner, const char* purpose) {
            claims.push_back({Resource::Priority, family, "", from, to, owner, purpose});
        };
        add(0, 0, kKernel, "own addresses");
        add(1, first - 1, kBase, "asked before all uplinks");
        add(first, end - 1, kUplinks, "16 for each interface index");
        add(kMain, kMain, kKernel, "connected networks");
        add(end, UINT32_MAX, kBase, "asked after all uplinks");
    }
}

void add_sets(Claims& claims) {
    const auto add = [&claims](const std::string& name, const char* purpose, const char* shape) {
        claims.push_back({Resource::Set, "", name, 0, 0, kPolicy, purpose, shape});
    };
    add(segment_name(kSegmentSets, kAny), "networks of a segment", "hash:net");
    add(with_any(kClientSystemSets), "clients of a system", "");
    claims.push_back({Resource::Set, "", with_any(kHostnameSets), 0, kMostHostnameSets - 1, kPolicy,
                      "addresses of a host name", "hash:net"});
}

void add_chains(Claims& claims) {
    for (const char* const chain : {kVerdictChain, kClassChain, kSteeringChain}) {
        claims.push_back({Resource::Chain, "iptables mangle", segment_name(chain, kAny), 0, 0, kPolicy,
                          "rules of a segment"});
    }
}

/// A directory, what lies in it, whose it is and what for. The end of each directory is a slash.
struct FileRow {
    const char* directory;
    const char* pattern;
    const char* owner;
    const char* purpose;
};

constexpr const char* kStore = "/etc/networkmanagement/";
constexpr const char* kRun = "/var/run/network/";
constexpr const char* kLogs = "/var/log/network/";
constexpr const char* kServices = "services";

constexpr FileRow kFiles[] = {
    {kStore, "*.json", "documents", "of callers, to be applied"},
    {kStore, "*.json.*", "documents", "being written, or kept when they were broken"},
    {kStore, "nm_bin.undo*", "nm_bin", "what takes the last edit back"},
    {kStore, "ncaas.conf*", "ncaas", "what the device is"},
    {kStore, "*.dhcpcd.conf*", kServices, "DHCPv6 client of a port"},
    {kStore, "dhcp", kServices, "directory"},
    {kStore, "dhcp6", kServices, "directory"},
    {kStore, "dhclient", kServices, "directory"},
    {kStore, "dhclient6", kServices, "directory"},
    {"/etc/networkmanagement/dhcp6/", "dhcpd6_*.conf*", kServices, "DHCPv6 server of a LAN"},
    {"/etc/networkmanagement/dhclient/", "*.leases*", kServices, "leases of a port"},
    {"/etc/networkmanagement/dhclient6/", "*.leases*", kServices, "leases of a port"},
    {"/var/lib/dhcpd6/", "dhcpd6_*.leases*", kServices, "leases that were given"},
    {kRun, "*.curr*", "documents", "what is in force"},
    {kRun, "qos.json*", "documents", "what is in force"},
    {kRun, "static_route6.json*", "documents", "what is in force"},
    {kRun, ".boot_fin", "boot", "the device is up"},
    {kRun, ".reboot", "boot", "the device goes down"},
    {kRun, ".poweroff", "boot", "the device goes down"},
    {kRun, ".nm-*.env*", kServices, "environment of a unit"},
    {kRun, "dhclient-*.pid", kServices, "DHCP client of a port"},
    {kRun, "dnsmasq.listen*", "dnsmasqmgr", "where dnsmasq listens"},
    {kRun, "dnsmasq.pid", "dnsmasqmgr", "dnsmasq"},
    {kRun, "?lmd-*", kOverlay, "link daemon of a port"},
    {kRun, "*.sock", kOverlay, "socket of a peer daemon"},
    {kRun, "dnsmasq.d", "names", "directory"},
    {kRun, "ipv6", kUplinks, "directory"},
    {kRun, "dpi", kOverlay, "state of the packet inspection"},
    {"/var/run/network/dnsmasq.d/", kAny, "names", "host names and their sets"},
    {"/var/run/network/ipv6/", "*.json*", kUplinks, "record of an uplink's IPv6"},
    {"/var/run/network/ipv6/", "*.radvd.conf*", kServices, "advertisements of a LAN"},
    {"/var/run/network/ipv6/", "*.withdrawn*", kServices, "prefixes withdrawn from a LAN"},
    {kLogs, "*.log*", "logging", "logs, and compressed ones"},
    {kLogs, "err_log*", "logging", "standard error"},
    {kLogs, "diff_*.json", "documents", "what a migration changed"},
    {kLogs, "overlayd.journal*", kOverlay, "calls"},
    {"/tmp/log_config/", "*.conf", "logging", "settings of a log"},
};

void add_files(Claims& claims) {
    const auto add = [&claims](const std::string& path, const std::string& owner, const char* purpose) {
        const size_t name = path.rfind('/') + 1;
        claims.push_back({Resource::File, path.substr(0, name), path.substr(name), 0, 0, owner, purpose});
    };
    for (const std::string& document : migrated_documents()) {
        add(kStore + document + ".json", "documents", "stored");
    }
    add(with_any(kNameServersPath), "names", "name servers");
    add(with_any(dhcp_server_conf(kAny)), kServices, "DHCP server of a LAN");
    add(dhcp_relay_env(kAny), kServices, "DHCP relay of a LAN");
    add(with_any(dhcp_lease_file(kAny)), kServices, "leases that were given");
    for (const FileRow& row : kFiles) {
        add(std::string(row.directory) + row.pattern, row.owner, row.purpose);
    }
}

/// Units with their endings; those of templates with any instance.
void add_units(Claims& claims) {
    const auto add = [&claims](const std::string& unit, const char* owner, const char* purpose) {
        const std::string instance = unit.back() == '@' ? kAny : "";
        claims.push_back({Resource::Unit, "", unit + instance + ".service", 0, 0, owner, purpose});
    };
    add(kDhcpClientUnit, kUplinks, "DHCP client");
    add(kDhcp6ClientUnit, kUplinks, "DHCPv6 and SLAAC client");
    add(kDhcp6DnsUnit, kUplinks, "name servers by DHCPv6");
    add("nm-pppoe@", kUplinks, "PPPoE session");
    add(kDhcpServerUnit, kServices, "DHCP server");
    add(kDhcpRelayUnit, kServices, "DHCP relay");
    add(kDhcp6ServerUnit, kServices, "DHCPv6 server");
    add(kAdvertiserUnit, kServices, "router advertisements");
    add(kRelay6Unit, kServices, "relay of a LAN that shares an uplink's IPv6 prefix");
    for (const int kind : {KIND_WAN, KIND_PRIVATE, KIND_RGLINK}) {
        add(std::string("nm-") + uplink_kind(kind).link_daemon + "@", kOverlay, "link daemon");
    }
    for (const char* const unit :
         {"nm-boot-begin", "nm-bringup", "nm-boot-finish", "nm-reboot", "nm-poweroff"}) {
        add(unit, "boot", "a step of the boot, or of the way down");
    }
    add("nm-base-rules", kBase, "lays the chains and sets");
    add("nm-serviced", kServices, "serves the methods of the bus");
    // These may be active only where nobody of ours is: they use the same ports, files or tables.
    for (const char* const unit : {"radvd", "isc-dhcp-server", "isc-dhcp-relay", "dnsmasq", "dhcpcd",
                                   "NetworkManager", "systemd-networkd"}) {
        claims.push_back({Resource::Unit, "", std::string(unit) + ".service", 0, 0, "nobody",
                          "uses the same ports, files or routing tables", "inactive"});
    }
}

void add_locks(Claims& claims) {
    const auto add = [&claims](const std::string& name, const char* owner, const char* purpose) {
        claims.push_back({Resource::Lock, "", name + ".lck", 0, 0, owner, purpose});
    };
    add(kAny, "interfaces and files", "a setup of the interface, or a write of the file");
    add(kDhcpLock, kServices, "all work on DHCP servers and relays");
    add(kNameServersLock, "names", "the list of name servers");
    add(kHostsLock, "names", "/etc/hosts");
}

/// What the lines of the base rules say.
void add_base_line(const std::vector<std::string>& words, const std::string& line, Claims& claims) {
    const std::string& kind = words[0];
    if (kind == "rule" && words.size() > 2) {
        const std::string rule = line.substr(line.find(words[2], kind.size() + words[1].size() + 1));
        const auto priority = static_cast<uint32_t>(strtoul(rule.c_str(), nullptr, 10));
        claims.push_back({Resource::Priority, words[1], "", priority, priority, kBase, "", rule});
    } else if (kind == "set" && words.size() > 2) {
        claims.push_back({Resource::Set, "", words[1], 0, 0, kBase, "filled by the setups and the overlay",
                          line.substr(line.find(words[2], line.find(words[1]) + words[1].size()))});
    } else if (kind == "sets" && words.size() > 3) {
        const auto count = static_cast<uint32_t>(strtoul(words[2].c_str(), nullptr, 10));
        claims.push_back({Resource::Set, "", with_any(words[1]), 0, count - 1, kBase,
                          "filled by the port forwards", words[3]});
    } else if ((kind == "chain" || kind == "own") && words.size() > 3) {
        const bool is_own = kind == "own" && words.size() > 4;
        claims.push_back({Resource::Chain, words[1] + " " + words[2], words[3], 0, 0,
                          is_own ? kBase : kPolicy, is_own ? "hooks" : "laid by the base rules",
                          is_own ? words[4] : ""});
    }
}

}  // namespace

std::vector<Claim> library_claims() {
    Claims claims;
    for (const auto add :
         {add_marks, add_tables, add_priorities, add_sets, add_chains, add_files, add_units, add_locks}) {
        add(claims);
    }
    return claims;
}

std::vector<Claim> base_claims(const std::string& lines) {
    Claims claims;
    for (const std::string& line : lines_of(lines)) {
        const std::vector<std::string> words = words_of(line);
        if (!words.empty()) {
            add_base_line(words, line, claims);
        }
    }
    return claims;
}

}  // namespace nm
