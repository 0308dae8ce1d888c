// Ports, uplinks and LANs as they are.
#include <algorithm>
#include <array>
#include <cstdio>
#include <exception>
#include <map>

#include "config/actions.h"
#include "config/nmconfig.h"
#include "control/handlers/reports.h"
#include "inspect/status_view.h"
#include "interfaces/uplink/available_info.h"
#include "kernel/condition.h"
#include "kernel/device_path.h"
#include "kernel/link.h"
#include "kernel/link_state.h"
#include "policy/balance/load_balance.h"
#include "services/dhcp/DhcpService.h"
#include "services/dhcp/dhcp_files.h"
#include "services/dhcp/server_leases.h"
#include "utils/file_io.h"
#include "utils/json_text.h"

namespace nm {

namespace {

struct Kind {
    int type;
    const char* name;
};

constexpr Kind kKinds[] = {{KIND_WAN, "wan"}, {KIND_PRIVATE, "private"}, {KIND_RGLINK, "rglink"}};

/// What is not as the schema has it throws, and must not take the rest away.
template <class Work>
void guarded(Json::Value& report, const std::string& what, Work work) {
    try {
        work();
    } catch (const std::exception& failure) {
        note_unread(report, what, failure.what());
    }
}

Json::Value mtu_of(const std::string& ifname) {
    int mtu = 0;
    (void)get_iface_mtu(ifname.c_str(), &mtu);  // without a device it stays 0
    return mtu;
}

Json::Value port_record(const Json::Value& seen, const char* kind) {
    const std::string ifname = seen["INTERFACE"].asString();
    Json::Value record;
    record["port"] = seen["PORT_NAME"];
    record["kind"] = kind;
    record["interface"] = ifname;
    record["link"] = get_iface_index(ifname.c_str()) == 0 ? "absent" : seen["UP"].asBool() ? "up" : "down";
    record["mtu_bytes"] = mtu_of(ifname);
    if (seen.isMember("SPEED")) {
        record["speed_mbit_per_s"] = seen["SPEED"];
        record["duplex"] = seen["DUPLEX"];
    }
    return record;
}

Json::Value address_record(const Json::Value& seen, const std::string& family) {
    Json::Value record;
    record["type"] = seen[family + "_TYPE"];
    record["address"] = seen[family + "_ADDR"];
    record["prefix_bits"] = seen[family + "_PREFIX"];
    return record;
}

Json::Value address_record(const available_address& seen) {
    Json::Value record;
    record["type"] = seen.type;
    record["address"] = seen.addr;
    record["prefix_bits"] = seen.prefix;
    record["gateway"] = seen.gw;
    record["name_servers"] = Json::arrayValue;
    for (const std::string& server : seen.dns) {
        record["name_servers"].append(server);
    }
    return record;
}

/// In the order of get_iface_rxtx_stats().
constexpr std::array kCounters{"received_packets", "sent_packets", "received_bytes",   "sent_bytes",
                               "received_errors",  "sent_errors",  "received_dropped", "sent_dropped"};

Json::Value traffic_of(const std::string& ifname) {
    std::array<uint64_t, kCounters.size()> counters{};
    (void)get_iface_rxtx_stats(ifname.c_str(), counters.data());  // without a device they stay 0
    Json::Value record;
    for (size_t i = 0; i < counters.size(); ++i) {
        record[kCounters[i]] = static_cast<Json::UInt64>(counters[i]);
    }
    return record;
}

/// What the link monitor has reported to the packet policy.
std::string health_of(const std::string& interface) {
    const std::string name = interface + kLanBalanceCondition;
    const std::string state = leaves_directory(name) ? "" : read_file(condition_path(name)).value_or("");
    if (state.empty()) {
        return "unknown";
    }
    return state.front() == '1' ? "alive" : "dead";
}

/// The share of new connections, by rate, and the rate; none for a port that takes no part.
void add_weight(const std::vector<load_balance_if>& balanced, const std::string& interface,
                Json::Value& record) {
    double sum = 0;
    uint64_t own = 0;
    for (const load_balance_if& port : balanced) {
        sum += static_cast<double>(port.rate);
        own = port.interface == interface ? port.rate : own;
    }
    record["rate_bit_per_s"] = static_cast<Json::UInt64>(own);
    record["weight_percent"] = sum > 0 ? static_cast<double>(own) * 100 / sum : 0.0;
}

Json::Value uplink_record(const available_base_wan_status& seen, const char* kind,
                          const std::vector<load_balance_if>& balanced) {
    Json::Value record;
    record["port"] = seen.portname;
    record["kind"] = kind;
    record["interface"] = seen.interface;
    record["traffic_interface"] = seen.ifname;
    record["up"] = seen.up;
    record["health"] = health_of(seen.interface);
    add_weight(balanced, seen.interface, record);
    record["ip4"] = address_record(seen.ip4);
    record["ip6"] = address_record(seen.ip6);
    record["traffic"] = traffic_of(seen.ifname);
    return record;
}

/// "1D 2:3:4", of which the days may be missing.
Json::Int64 seconds_of(const std::string& expires) {
    constexpr Json::Int64 kDay = 86400;
    constexpr Json::Int64 kHour = 3600;
    constexpr Json::Int64 kMinute = 60;
    int hours = 0, minutes = 0, seconds = 0;
    const size_t behind = expires.find("D ");
    const std::string clock = behind == std::string::npos ? expires : expires.substr(behind + 2);
    const int days = behind == std::string::npos ? 0 : atoi(expires.c_str());
    (void)sscanf(clock.c_str(), "%d:%d:%d", &hours, &minutes, &seconds);  // of another form it is 0
    return days * kDay + hours * kHour + minutes * kMinute + seconds;
}

Json::Value clients_of(const std::string& ifname) {
    Json::Value clients(Json::arrayValue);
    std::map<std::string, std::map<std::string, std::string>> leases;
    if (!leaves_directory(ifname)) {
        (void)get_dhcpserver_lease(ifname, leases);  // a LAN without a server has no file of leases
    }
    for (auto& [address, lease] : leases) {
        Json::Value& client = clients.append(Json::objectValue);
        client["address"] = address;
        client["mac"] = lease["MAC"];
        client["name"] = lease["DEVICE_NAME"];
        client["expires_in_s"] = seconds_of(lease["EXPIRES"]);
    }
    return clients;
}

Json::Value lan_record(const Json::Value& seen, const Json::Value& services) {
    const std::string ifname = seen["IFNAME"].asString();
    Json::Value record;
    record["interface"] = ifname;
    record["link"] = seen["IFINDEX"].asInt() == 0 ? "absent" : seen["UP"].asBool() ? "up" : "down";
    record["ip4"] = address_record(seen, "IP4");
    record["ip6"] = address_record(seen, "IP6");
    record["members"] = seen["MEMBERS"];
    record["dhcp"] = json_string_or(json_member(services, ifname), "SERVICE", "DISABLED");
    record["clients"] = clients_of(ifname);
    record["traffic"] = traffic_of(ifname);
    return record;
}

}  // namespace

void add_ports(Json::Value& report, const Json::Value& device) {
    Json::Value& ports = report["ports"] = Json::arrayValue;
    const auto add = [&](const char* section, const char* kind) {
        guarded(report, section, [&] {
            for (const Json::Value& seen : ports_of(device, section, has_link)) {
                ports.append(port_record(seen, kind));
            }
        });
    };
    for (const Kind& kind : kKinds) {
        add(uplink_kind(kind.type).ports, kind.name);
    }
    add("LAN_PORT", "lan");
}

void add_uplinks(Json::Value& report, const Json::Value& device) {
    Json::Value& uplinks = report["uplinks"] = Json::arrayValue;
    std::vector<load_balance_if> balanced;
    guarded(report, "the weights of the uplinks", [&] { balanced = balanced_uplinks(device); });
    for (const Kind& kind : kKinds) {
        const UplinkKind& row = uplink_kind(kind.type);
        guarded(report, row.infos, [&] {
            for (const auto& seen : uplinks_of(device, kDeviceInfoPath, row, true, has_link)) {
                uplinks.append(uplink_record(seen, kind.name, balanced));
            }
        });
    }
}

void add_lans(Json::Value& report, const Json::Value& device) {
    Json::Value& lans = report["lans"] = Json::arrayValue;
    const Json::Value document = look_at_document(report, kDhcpServicePath);
    guarded(report, "LAN_IFACE_INFO", [&] {
        for (const Json::Value& seen : lans_of(device, has_link)) {
            note_unreadable(report, dhcp_lease_file(seen["IFNAME"].asString()));
            lans.append(lan_record(seen, json_member(document, "DHCP_SERVICE")));
        }
    });
}

}  // namespace nm
