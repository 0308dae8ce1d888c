// What each uplink has in force, put together from its configuration, the kernel, and its lease or session.
#include "interfaces/uplink/available_info.h"

#include <vpppoe.h>

#include <cstdlib>
#include <memory>

#include "config/actions.h"
#include "config/nmconfig.h"
#include "interfaces/uplink/UplinkIfaceInfo.h"
#include "kernel/link_state.h"
#include "log.h"
#include "result_codes.h"
#include "services/leases/ipv6_record.h"
#include "utils/json_text.h"

namespace {

/// A runtime address has a prefix unless it is `whole`, the length of a whole address.
available_address address_in_force(const std::string& type, const std::string& runtime, int whole) {
    const size_t slash = runtime.find('/');
    available_address address;
    address.type = type;
    address.addr = runtime.substr(0, slash);
    if (!address.addr.empty()) {
        address.prefix = slash == std::string::npos ? whole : atoi(runtime.c_str() + slash + 1);
    }
    return address;
}

template <class Lease>
std::vector<std::string> servers_of(const Lease& lease) {
    std::vector<std::string> servers;
    for (const char* server : {lease.dns1, lease.dns2}) {
        if (*server != '\0') {
            servers.emplace_back(server);
        }
    }
    return servers;
}

/// A lease that cannot be read is logged and has no servers.
std::vector<std::string> ip4_servers(BaseWanIfaceInfo& info) {
    DHCP_INFO lease{};
    if (info.get_ip4_type() == "STATIC") {
        return info.get_ip4_dns();
    }
    if (info.get_ip4_type() == "DHCP") {
        (void)info.get_dhcp_info(lease);
    }
    if (info.get_ip4_type() == "PPPOE") {
        (void)cast_ppp_cfg_into_dhcp_info(info.get_ifname(), lease);
    }
    return servers_of(lease);
}

/// A lease file outlives its lease: what it says counts as long as the interface has an address.
available_address ip4_in_force(BaseWanIfaceInfo& info, bool comprehensive) {
    available_address address = address_in_force(info.get_ip4_type(), info.get_runtime_ip4(), 32);
    if (address.type == "STATIC" || !address.addr.empty()) {
        address.gw = info.get_curr_gw();
        address.dns = comprehensive ? ip4_servers(info) : address.dns;
    }
    return address;
}

/// What the record of the port's client says of the address in force: the length of the link, which the
/// kernel does not know of a leased address, the gateway and the servers.
bool take_record(BaseWanIfaceInfo& info, bool comprehensive, available_address& address) {
    Json::Value record;
    if (nm::read_ipv6_record(info.get_ifname(), record) != NM_OK) {
        return false;
    }
    address.gw = nm::json_string_or(record, "curr_gateway", "");
    if (!address.addr.empty() && nm::json_string_or(record, "curr_ip", "") == address.addr) {
        address.prefix = atoi(nm::json_string_or(record, "curr_prefix_length", "128").c_str());
    }
    for (const Json::Value& server : nm::json_member(record, "dns")) {
        if (comprehensive) {
            address.dns.push_back(nm::json_scalar(server));
        }
    }
    return true;
}

available_address ip6_in_force(BaseWanIfaceInfo& info, bool comprehensive) {
    available_address address = address_in_force(info.get_ip6_type(), info.get_runtime_ip6(), 128);
    const bool is_static = address.type == "STATIC";
    if (!is_static && take_record(info, comprehensive, address)) {
        return address;
    }
    DHCP6_INFO lease{};
    if (!is_static && !address.addr.empty()) {
        (void)info.get_dhcp6_info(lease);  // as above
    }
    address.gw = is_static ? info.get_ip6_gw() : lease.gateway;
    if (comprehensive) {
        address.dns = is_static ? info.get_ip6_dns() : servers_of(lease);
    }
    return address;
}

bool has_locked_link(const std::string& ifname) {
    return is_iface_up(ifname) == 1;
}

/// The port's device says nothing of a session on it.
bool is_up(BaseWanIfaceInfo& info, nm::LinkQuestion has_link) {
    if (info.get_ip4_type() != "PPPOE") {
        return has_link(info.get_run_ifname());
    }
    pppoe_status session{};
    return get_pppoe_status(info.get_ifname().c_str(), &session) == VPPPOE_SUCCESS && session.running == 1;
}

void write_address(const available_address& address, const std::string& family, bool comprehensive,
                   Json::Value& record) {
    record[family + "_TYPE"] = address.type;
    record[family + "_ADDR"] = address.addr;
    record[family + "_PREFIX"] = address.prefix;
    record[family + "_GW"] = address.gw;
    if (!comprehensive) {
        return;
    }
    record[family + "_DNS"] = Json::arrayValue;
    for (const std::string& server : address.dns) {
        record[family + "_DNS"].append(server);
    }
}

int collect(std::vector<available_base_wan_status>& records, const std::string& path, const UplinkKind& kind,
            bool comprehensive) {
    Json::Value document;
    const int ret = json_file_to_mem(path, document);
    if (ret < 0) {
        return ret;
    }
    records = nm::uplinks_of(document, path, kind, comprehensive, has_locked_link);
    return NM_OK;
}

}  // namespace

namespace nm {

std::vector<available_base_wan_status> uplinks_of(const Json::Value& document, const std::string& path,
                                                  const UplinkKind& kind, bool comprehensive,
                                                  LinkQuestion has_link) {
    std::vector<available_base_wan_status> records;
    const Json::Value& entries = json_member(document, kind.infos);
    for (auto entry = entries.begin(); entries.isObject() && entry != entries.end(); ++entry) {
        int create_ret = NM_OK;
        const std::unique_ptr<UplinkIfaceInfo> info =
            kind.make_info(entry.name(), path, document, create_ret);
        if (info == nullptr) {
            NM_LOG(Error) << entry.name() << " has no status, ret=" << create_ret;
            continue;
        }
        records.push_back(uplink_status(*info, comprehensive, has_link));
    }
    return records;
}

available_base_wan_status uplink_status(BaseWanIfaceInfo& info, bool comprehensive) {
    return uplink_status(info, comprehensive, has_locked_link);
}

available_base_wan_status uplink_status(BaseWanIfaceInfo& info, bool comprehensive, LinkQuestion has_link) {
    available_base_wan_status status;
    status.id = info.id();
    status.portname = info.get_portname();
    status.interface = info.get_ifname();
    status.ifname = info.get_run_ifname();
    status.ifindex = info.get_ifindex();
    status.up = is_up(info, has_link);
    status.ip4 = ip4_in_force(info, comprehensive);
    status.ip6 = ip6_in_force(info, comprehensive);
    return status;
}

Json::Value status_json(const std::vector<available_base_wan_status>& records, bool comprehensive) {
    Json::Value list(Json::arrayValue);
    for (const available_base_wan_status& status : records) {
        Json::Value record;
        record["ID"] = status.id;
        record["PORT_NAME"] = status.portname;
        record["INTERFACE"] = status.interface;
        record["IFNAME"] = status.ifname;
        record["IFINDEX"] = status.ifindex;
        record["UP"] = status.up;
        write_address(status.ip4, "IP4", comprehensive, record);
        write_address(status.ip6, "IP6", comprehensive, record);
        list.append(record);
    }
    return list;
}

}  // namespace nm

int get_available_wan_info(std::vector<available_base_wan_status>& wans, std::string path,
                           int comprehensive) {
    NM_LOG(Debug) << "Enter";
    return NM_EXIT(collect(wans, path, nm::uplink_kind(KIND_WAN), comprehensive != 0));
}

int get_available_private_info(std::vector<available_base_wan_status>& ports, std::string path,
                               int comprehensive) {
    NM_LOG(Debug) << "Enter";
    return NM_EXIT(collect(ports, path, nm::uplink_kind(KIND_PRIVATE), comprehensive != 0));
}

int get_available_rglink_info(std::vector<available_base_wan_status>& links, std::string path,
                              int comprehensive) {
    NM_LOG(Debug) << "Enter";
    const int ret = collect(links, path, nm::uplink_kind(KIND_RGLINK), comprehensive != 0);
    if (ret != NM_OK) {
        NM_LOG(Error) << "Do get_available_rglink_info from " << path << " failed!";
    }
    return NM_EXIT(ret);
}
