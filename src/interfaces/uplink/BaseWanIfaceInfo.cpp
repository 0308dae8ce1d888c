// Construction of the addressing side of a routed port, the choice of its setup steps, and what is in force.
#include "interfaces/uplink/BaseWanIfaceInfo.h"

#include <vpppoe.h>

#include <cstdlib>
#include <utility>

#include "config/nmconfig.h"
#include "config/port_names.h"
#include "interfaces/uplink/UplinkKind.h"
#include "kernel/link.h"
#include "log.h"
#include "result_codes.h"
#include "utils/json_text.h"

namespace {

int read_number(const Json::Value& entry, const char* key, const char* fallback) {
    return atoi(nm::json_text(entry, key, fallback).c_str());
}

std::vector<std::string> read_texts(const Json::Value& entry, const char* key) {
    std::vector<std::string> texts;
    const Json::Value& members = nm::json_member(entry, key);
    if (!members.isArray()) {
        return texts;
    }
    for (const Json::Value& member : members) {
        if (member.isString()) {
            texts.push_back(member.asString());
        }
    }
    return texts;
}

}  // namespace

BaseWanIfaceInfo::BaseWanIfaceInfo(int type, std::string ifname, std::string path, Json::Value cfg)
    : BaseIfaceInfo(std::move(ifname), std::move(path)), type(type), run_ifname(this->ifname) {
    this->cfg = std::move(cfg);
    const int ret = this->cfg.empty() ? get_config() : get_config_from_json();
    if (ret != NM_OK) {
        throw ret;
    }
}

int BaseWanIfaceInfo::get_config() {
    if (json_file_to_mem(path, cfg) < 0) {
        return NM_ERR_NOT_FOUND;
    }
    return get_config_from_json();
}

int BaseWanIfaceInfo::get_config_from_json() {
    const UplinkKind* const kind = nm::find_uplink_kind(type);
    if (kind == nullptr) {
        return NM_ERR_BAD_TYPE;
    }
    const Json::Value& entry = nm::json_member(nm::json_member(cfg, kind->infos), ifname);
    const Json::Value& ports = nm::json_member(cfg, kind->ports);
    if (entry.empty() || ports.empty()) {
        return NM_ERR_NO_SECTION;
    }
    if (!entry.isObject()) {
        NM_LOG(Error) << "[" << kind->infos << "]-[" << ifname << "] is not valid format";
        return NM_ERR_BAD_FORMAT;
    }
    portname = nm::find_port_of_ifname(ports, ifname);
    if (portname.empty()) {
        NM_LOG(Error) << "Could not find " << ifname << " in [" << kind->ports << "]!";
        return NM_ERR_NO_IFACE;
    }
    dev_type = nm::json_text(nm::json_member(ports, portname), "DEV_TYPE");
    read_entry(entry);
    read_runtime_state();
    return NM_OK;
}

void BaseWanIfaceInfo::read_entry(const Json::Value& entry) {
    id_ = read_number(entry, "ID", "0");
    if (id_ == 0) {
        NM_LOG(Debug) << "id is 0; migrate to port index.";
        id_ = nm::port_index(portname);
    }
    iface_type = nm::json_text(entry, "IFACE_TYPE", "ethernet");
    ip4_type = nm::json_text(entry, "IP4_TYPE");
    ip4_addr = nm::json_text(entry, "IP4_ADDR");
    ip4_prefix = read_number(entry, "IP4_PREFIX", "24");
    ip4_gw = nm::json_text(entry, "IP4_GW");
    ip4_dns = read_texts(entry, "IP4_DNS");
    ip6_type = nm::json_text(entry, "IP6_TYPE");
    ip6_addr = nm::json_text(entry, "IP6_ADDR");
    ip6_prefix = read_number(entry, "IP6_PREFIX", "0");
    ip6_gw = nm::json_text(entry, "IP6_GW");
    ip6_dns = read_texts(entry, "IP6_DNS");
    username = nm::json_text(entry, "USERNAME");
    password = nm::json_text(entry, "PASSWORD");
    dhcp6_pd = nm::json_text(entry, "IP6_DHCP_PD", "DISABLED") == "ENABLED";
}

/// The object is of use without an interface and without addresses, so nothing here is a failure.
void BaseWanIfaceInfo::read_runtime_state() {
    const bool is_pppoe = ip4_type == "PPPOE";
    run_ifname = is_pppoe ? nm::ppp_ifname(ifname) : ifname;
    ifindex = get_iface_index(run_ifname.c_str());
    if (ifindex != 0) {
        if (get_ip_addr() != NM_OK) {
            NM_LOG(Error) << run_ifname << " get addr failed.";
        }
        return;
    }
    pppoe_runtime_cfg session{};
    if (is_pppoe && get_pppoe_runtime_cfg(ifname.c_str(), &session) == VPPPOE_SUCCESS &&
        session.ifindex >= 1) {
        ifindex = session.ifindex;
        NM_LOG(Debug) << "ppp runtime ifindex: " << ifindex;
        return;
    }
    if (is_pppoe) {
        NM_LOG(Debug) << run_ifname << " get ifindex failed.";  // a session that is down is not a fault
        return;
    }
    NM_LOG(Error) << run_ifname << " get ifindex failed.";
}

int BaseWanIfaceInfo::setup_info(uint32_t opt) {
    NM_LOG(Debug) << "Enter";
    const UplinkKind* const kind = nm::find_uplink_kind(type);
    if (dev_type.empty() || kind == nullptr) {
        return NM_EXIT(NM_ERR_BAD_TYPE);
    }
    NM_LOG(Debug) << "opt=" << std::hex << opt;
    int ret = (opt & kind->ip4_mask) != 0 ? setup_ipv4(opt) : NM_OK;
    if (ret != NM_OK) {
        return NM_EXIT(ret);
    }
    ret = (opt & kind->ip6_mask) != 0 ? setup_ipv6(opt) : NM_OK;
    if (ret != NM_OK) {
        return NM_EXIT(ret);
    }
    if ((opt & kind->ip4_mask) != 0 || (opt & kind->pppoe_mask) == 0) {
        return NM_EXIT(NM_OK);
    }
    if (ip4_type != "PPPOE") {
        NM_LOG(Debug) << "Skip setup_pppoe, ip4_type is not PPPOE.";
        return NM_EXIT(NM_OK);
    }
    return NM_EXIT(setup_pppoe(opt));
}

int BaseWanIfaceInfo::get_dhcp_info(DHCP_INFO& info) {
    info = {};
    if (ip4_type != "DHCP") {
        return NM_ERR_BAD_TYPE;
    }
    const int ret = get_interface_dhcp_info(ifname.data(), info);
    if (ret != NM_OK) {
        NM_LOG(Error) << ifname << " get DHCP info fail.";
    }
    return ret;
}

int BaseWanIfaceInfo::get_dhcp6_info(DHCP6_INFO& info) {
    info = {};
    const bool is_slaac = ip6_type == "SLAAC";
    if (!is_slaac && ip6_type != "DHCPV6") {
        return NM_ERR_BAD_TYPE;
    }
    const int ret = is_slaac ? get_interface_slaac_info(ifname.data(), info)
                             : get_interface_dhcp6_info(ifname.data(), info);
    if (ret != NM_OK) {
        NM_LOG(Error) << ifname << " get " << ip6_type << " info fail.";
    }
    return ret;
}

std::string BaseWanIfaceInfo::get_curr_gw() {
    if (ip4_type == "STATIC") {
        return ip4_gw;
    }
    if (ip4_type == "DHCP") {
        DHCP_INFO lease{};
        if (get_dhcp_info(lease) != NM_OK) {
            NM_LOG(Error) << ifname << " get dhcp info failed.";
        }
        return lease.gateway;
    }
    if (ip4_type == "PPPOE") {
        pppoe_status session{};
        if (get_pppoe_status(ifname.c_str(), &session) != VPPPOE_SUCCESS) {
            NM_LOG(Error) << ifname << " get pppoe status failed.";
        }
        return session.cfg.ip4_gw;
    }
    return "";
}

int BaseWanIfaceInfo::id() {
    return id_;
}

std::string BaseWanIfaceInfo::get_portname() {
    return portname;
}

std::string BaseWanIfaceInfo::get_run_ifname() {
    return run_ifname;
}

std::string BaseWanIfaceInfo::get_ip4_gw() {
    return ip4_gw;
}

std::string BaseWanIfaceInfo::get_ip6_gw() {
    return ip6_gw;
}

std::vector<std::string> BaseWanIfaceInfo::get_ip4_dns() {
    return ip4_dns;
}

std::vector<std::string> BaseWanIfaceInfo::get_ip6_dns() {
    return ip6_dns;
}

std::string BaseWanIfaceInfo::get_iface_type() {
    return iface_type;
}

std::string BaseWanIfaceInfo::get_dev_type() {
    return dev_type;
}
