// Reports about ports, LANs and documents.
#include "control/handlers/reports.h"

#include <array>
#include <cstdlib>
#include <functional>
#include <vector>

#include "config/nmconfig.h"
#include "kernel/address.h"
#include "kernel/ethtool_utils.h"
#include "kernel/link.h"
#include "kernel/link_state.h"
#include "log.h"
#include "result_codes.h"
#include "services/leases/ipv6_record.h"
#include "utils/directories.h"
#include "utils/files.h"
#include "utils/json_text.h"

namespace {

/// In the order of get_iface_rxtx_stats().
constexpr std::array kCounters{"rx_packets", "tx_packets", "rx_bytes",   "tx_bytes",
                               "rx_errors",  "tx_errors",  "rx_dropped", "tx_dropped"};

using Visit = std::function<void(const std::string& key, const Json::Value& entry)>;

/// Calls `visit` with each member of a section that is an object; one that is not says nothing.
void for_each_entry_of(const Json::Value& document, const char* section, const Visit& visit) {
    const Json::Value& entries = nm::json_member(document, section);
    for (auto entry = entries.begin(); entries.isObject() && entry != entries.end(); ++entry) {
        if (entry->isObject()) {
            visit(entry.name(), *entry);
        }
    }
}

int for_each_entry(const std::string& path, const char* section, const Visit& visit) {
    Json::Value document;
    const int ret = json_file_to_mem(path, document);
    if (ret < 0) {
        NM_LOG(Error) << "json_file_to_mem fail. path = " << path;
        return ret;
    }
    for_each_entry_of(document, section, visit);
    return NM_OK;
}

bool has_locked_link(const std::string& ifname) {
    return is_iface_up(ifname) == 1;
}

/// What is configured and what is in force of one family. A runtime address without a prefix is a whole one.
void add_addresses(const Json::Value& entry, const std::string& family, const std::string& in_force,
                   int whole, Json::Value& record) {
    const size_t slash = in_force.find('/');
    record[family + "_TYPE"] = nm::json_string_or(entry, family + "_TYPE", "DISABLED");
    record[family + "_ADDR"] = in_force.substr(0, slash);
    record[family + "_PREFIX"] = slash != std::string::npos ? atoi(in_force.c_str() + slash + 1) : whole;
    if (in_force.empty()) {
        record[family + "_PREFIX"] = 0;
    }
}

Json::Value bridge_members(const std::string& ifname) {
    Json::Value members(Json::arrayValue);
    for (const std::string& member :
         scandir_filter(("/sys/class/net/" + ifname + "/brif").c_str(), nullptr)) {
        members.append(member);
    }
    return members;
}

Json::Value lan_record(const std::string& ifname, const Json::Value& entry, bool comprehensive,
                       nm::LinkQuestion has_link) {
    const int ifindex = get_iface_index(ifname.c_str());
    std::string ip4;
    std::string ip6;
    if (ifindex != 0) {
        (void)get_ipv4_addr(static_cast<unsigned int>(ifindex), ip4);  // no address is reported as none
        (void)get_ipv6_addr(static_cast<unsigned int>(ifindex), ip6);
    }
    Json::Value record;
    record["IFNAME"] = ifname;
    record["IFINDEX"] = ifindex;
    record["UP"] = has_link(ifname);
    add_addresses(entry, "IP4", ip4, 32, record);
    add_addresses(entry, "IP6", ip6, 128, record);
    record["IP6_SERVICE_TYPE"] = nm::json_string_or(entry, "IP6_SERVICE_TYPE", "DISABLED");
    record["IP6_UPLINK"] = nm::json_string_or(entry, "IP6_UPLINK", "");
    record["IP6_PD_PREFIX"] = nm::json_string_or(entry, "IP6_PD_PREFIX", "");
    if (comprehensive) {
        record["MEMBERS"] = bridge_members(ifname);
    }
    return record;
}

/// Speed and duplex mean nothing without a link, and devices without Ethernet settings have none.
Json::Value lan_port_record(const std::string& portname, const Json::Value& entry,
                            nm::LinkQuestion has_link) {
    const std::string ifname = nm::json_string_or(entry, "INTERFACE", "");
    Json::Value record;
    record["PORT_NAME"] = portname;
    record["INTERFACE"] = ifname;
    record["MODE"] = nm::json_string_or(entry, "MODE", "");
    record["UP"] = has_link(ifname);
    physical_status link{};
    if (get_physical_info(ifname.c_str(), &link) == NM_OK && link.speed > 0) {
        record["SPEED"] = link.speed;
        record["DUPLEX"] = link.duplex != 0 ? "full" : "half";
        record["AUTONEG"] = link.autoneg != 0;
    }
    return record;
}

void add_versions(const std::string& path, const std::string& name, Json::Value& data) {
    Json::Value document;
    if (!is_file_exists(path) || json_file_to_mem(path, document) < 0 || !document.isObject()) {
        NM_LOG(Error) << "Failed to load " << path;
        return;
    }
    data[name] = Json::objectValue;
    for (const char* key : {"META", "dbversion"}) {
        if (document.isMember(key)) {
            data[name][key] = document[key];
        }
    }
}

int is_document(const dirent* entry) {
    const std::string name = entry->d_name;
    const std::string ending = ".json";
    return name.size() > ending.size() &&
                   name.compare(name.size() - ending.size(), ending.size(), ending) == 0
               ? 1
               : 0;
}

}  // namespace

int get_available_lan_info(Json::Value& lans, std::string path, int comprehensive) {
    NM_LOG(Debug) << "Enter";
    Json::Value records(Json::arrayValue);
    const int ret =
        for_each_entry(path, "LAN_IFACE_INFO", [&](const std::string& ifname, const Json::Value& entry) {
            records.append(lan_record(ifname, entry, comprehensive != 0, has_locked_link));
        });
    if (ret == NM_OK) {
        lans = records;
    }
    return NM_EXIT(ret);
}

int get_all_wan_dhcp_pd_info(Json::Value& data, std::string path) {
    NM_LOG(Debug) << "Enter";
    Json::Value records(Json::arrayValue);
    const int ret =
        for_each_entry(path, "WAN_IFACE_INFO", [&](const std::string& ifname, const Json::Value& entry) {
            if (nm::json_string_or(entry, "IP6_DHCP_PD", "DISABLED") != "ENABLED") {
                return;
            }
            Json::Value record;
            record["IFNAME"] = ifname;
            record["IP6_TYPE"] = nm::json_string_or(entry, "IP6_TYPE", "DISABLED");
            record["PREFIXES"] = nm::delegated_prefixes(ifname);
            records.append(record);
        });
    if (ret == NM_OK) {
        data = records;
    }
    return NM_EXIT(ret);
}

void get_configs_meta_info(Json::Value& data, std::string path) {
    NM_LOG(Debug) << "Enter";
    data = Json::objectValue;
    if (!is_dir_exists(path)) {
        add_versions(path, path.substr(path.rfind('/') + 1), data);
        return;
    }
    for (const std::string& name : scandir_filter(path.c_str(), is_document)) {
        std::string file = path;
        add_versions(file.append("/").append(name), name, data);
    }
}

namespace nm {

Json::Value lans_of(const Json::Value& document, LinkQuestion has_link) {
    Json::Value records(Json::arrayValue);
    for_each_entry_of(document, "LAN_IFACE_INFO", [&](const std::string& ifname, const Json::Value& entry) {
        records.append(lan_record(ifname, entry, true, has_link));
    });
    return records;
}

Json::Value ports_of(const Json::Value& document, const char* section, LinkQuestion has_link) {
    Json::Value records(Json::arrayValue);
    for_each_entry_of(document, section, [&](const std::string& portname, const Json::Value& entry) {
        records.append(lan_port_record(portname, entry, has_link));
    });
    return records;
}

int count_traffic(const char* section, const std::string& path, Json::Value& data) {
    int failure = NM_OK;
    data = Json::objectValue;
    const int ret = for_each_entry(path, section, [&](const std::string&, const Json::Value& entry) {
        const std::string ifname = json_string_or(entry, "INTERFACE", "");
        std::array<uint64_t, kCounters.size()> counters{};
        if (get_iface_index(ifname.c_str()) == 0) {
            return;
        }
        const int error = get_iface_rxtx_stats(ifname.c_str(), counters.data());
        failure = failure != NM_OK ? failure : error;
        for (size_t i = 0; i < counters.size(); ++i) {
            data[ifname][kCounters[i]] = static_cast<Json::UInt64>(counters[i]);
        }
    });
    return ret != NM_OK ? ret : failure;
}

int lan_port_records(const std::string& path, Json::Value& data) {
    data = Json::arrayValue;
    return for_each_entry(path, "LAN_PORT", [&](const std::string& portname, const Json::Value& entry) {
        data.append(lan_port_record(portname, entry, has_locked_link));
    });
}

}  // namespace nm
