// What is reported to the overlay's services about an uplink: tunnel, link monitor, IPsec site, link daemon.
#include "config/port_names.h"
#include "interfaces/uplink/UplinkInterface.h"
#include "interfaces/uplink/tunnel_address.h"
#include "log.h"
#include "peers/bus/bus_exchange.h"
#include "peers/bus/service_bus.h"
#include "result_codes.h"
#include "utils/device_facts.h"
#include "utils/ip_text.h"
#include "utils/json_text.h"
#include "utils/shell_text.h"
#include "utils/units.h"

namespace {

constexpr int kWanRole = 1;

/// What a reply without `error` means to the callers of tunnels and monitors.
constexpr int kMissingError = NM_ERR_BAD_ACT;

bool is_address(const std::string& text) {
    return !text.empty() && check_ip_correctness(text) == NM_OK;
}

/// Tunnels are numbered as their ports are, under either way of naming devices.
std::string tunnel_suffix(const std::string& ifname) {
    for (const std::string stem : {"swdev", "eth"}) {
        if (ifname.find(stem) != std::string::npos) {
            return ifname.substr(stem.size());
        }
    }
    return "";
}

/// The value in force for a port of this type: the configured one on a static port, else what the event
/// brought. False for a port that has neither.
bool choose_by_type(const std::string& ip4_type, const std::string& configured, std::string& value) {
    if (ip4_type == "STATIC") {
        value = configured;
    }
    return ip4_type == "STATIC" || ip4_type == "DHCP" || ip4_type == "PPPOE";
}

}  // namespace

int UplinkIfaceInfo::setup_tun(int mode) {
    NM_LOG(Debug) << "Enter";
    bool has_tunnel = false;
    const int ret = request_tunnel(mode, kind.tunnel_method, "'s Tunnnel.", has_tunnel);
    if (ret == NM_OK && has_tunnel) {
        inspect_tunnel(mode, "tun");
        (void)setup_link_daemon(mode);  // logged there; the tunnel stands
    }
    return NM_EXIT(ret);
}

int UplinkIfaceInfo::request_tunnel(int mode, const char* method, const char* label, bool& has_tunnel) {
    if (get_device_id() == 0) {
        NM_LOG(Error) << "Device ID hasn't be configured.";
        return NM_OK;
    }
    if (!kind.has_tunnel(ip4_type)) {
        NM_LOG(Error) << "Wrong type for setting up tunnel, type: " << ip4_type;
        return NM_ERR_BAD_TYPE;
    }
    has_tunnel = true;
    NM_LOG(Debug) << (mode == 1 ? "Setup " : "Destroy ") << run_ifname << label;
    Json::Value request;
    request["op"] = std::to_string(mode == 0 ? 1 : 0);  // the service counts the other way round
    request["dev"] = run_ifname;
    request["conf"] = path;
    return nm::ask_service("VelanWsd.service", method, request, kMissingError);
}

void UplinkIfaceInfo::inspect_traffic(int mode, std::string device) {
    (void)setup_dpi(mode, kWanRole, device);  // a device works without inspection as well
}

void UplinkIfaceInfo::inspect_tunnel(int mode, const std::string& prefix) {
    inspect_traffic(mode, prefix + tunnel_suffix(ifname));
}

int UplinkIfaceInfo::setup_wan_monitor(int mode, std::string name, std::string gateway) {
    NM_LOG(Debug) << (mode == 1 ? "Setup " : "Destroy ") << name << "'s monitor.";
    Json::Value request;
    request["ifname"] = name;
    if (kind.monitor_type == nullptr) {
        request["id"] = id_;
    } else {
        request["type"] = kind.monitor_type;
    }
    int ret = mode == 1 ? choose_gateway(gateway) : NM_OK;
    if (ret == NM_OK && (mode == 1 || kind.monitor_type != nullptr)) {
        ret = describe_link(mode == 1 ? gateway : ip4_gw, request);
    }
    if (mode == 1 && ret != NM_OK) {
        return ret;
    }
    // A monitor goes with what is known of its link, right or wrong: it must not outlive it.
    const char* const method = mode == 1 ? "Add_monitor_iface" : "Del_monitor_iface";
    return nm::ask_service("VelanWmd", method, request, kMissingError);
}

int UplinkIfaceInfo::choose_gateway(std::string& gateway) {
    if (!choose_by_type(ip4_type, ip4_gw, gateway)) {
        NM_LOG(Error) << "Wrong type for setting up monitor, type: " << ip4_type;
        return NM_ERR_BAD_TYPE;
    }
    NM_LOG(Debug) << "IP4_TPYE: " << ip4_type << "'s gateway [" << gateway << "].";
    if (!is_address(gateway)) {
        NM_LOG(Error) << "Bad gateway address [" << gateway << "] for Monitor.";
        return NM_ERR_BAD_IP;
    }
    return NM_OK;
}

int UplinkIfaceInfo::describe_link(const std::string& gateway, Json::Value& request) {
    request["gateway"] = gateway;
    const std::unique_ptr<UplinkInterface> device = get_interface();
    if (device == nullptr || device->get_tx_rate() == 0) {
        NM_LOG(Error) << "Get bandwidth failed.";
        return NM_ERR_NO_IFACE;
    }
    request["bandwidth"] = static_cast<Json::UInt64>(device->get_tx_rate());
    return NM_OK;
}

int UplinkIfaceInfo::setup_ipsec(int mode, std::string address) {
    NM_LOG(Debug) << (mode == 1 ? "Add " : "Del ") << ifname << "'s ipsec configuration.";
    if (mode == 1 && !choose_by_type(ip4_type, ip4_addr, address)) {
        NM_LOG(Error) << "Wrong type for setting up tunnel, type: " << ip4_type;
        return NM_ERR_BAD_TYPE;
    }
    if (mode == 1) {
        NM_LOG(Debug) << "IP4_TPYE: " << ip4_type << "'s address [" << address << "].";
    }
    return edit_local_site(mode, "ipsec.edit_local_site", "ip", address);
}

int UplinkIfaceInfo::edit_local_site(int mode, const char* method, const char* key,
                                     const std::string& address) {
    Json::Value request;
    request["ifname"] = ifname;
    request["op"] = mode == 1 ? "add" : "del";
    if (mode == 1 && !is_address(address)) {
        NM_LOG(Error) << "Bad local address [" << address << "] for IPSEC.";
        return NM_ERR_BAD_IP;
    }
    if (mode == 1) {
        const std::unique_ptr<UplinkInterface> device = get_interface();
        if (device == nullptr) {
            NM_LOG(Error) << "Create " << kind.device_class << " instance failed.";
            return NM_ERR_NO_IFACE;
        }
        std::string tunnel;
        gen_tun_addr4(get_device_id(), nm::port_index(device->get_portname()), tunnel);
        NM_LOG(Debug) << ifname << "'s tunnel address [" << tunnel << "].";
        NM_LOG(Debug) << "Set IP: " << address << " as IPSEC local address.";
        request[key] = address;
        request["tun"] = tunnel;
    }
    std::string output;
    const int ret = nm::call_service("rmgmtd", method, nm::write_compact_json(request), output);
    if (ret == NM_OK) {
        NM_LOG(Debug) << "vsh rmgmtd." << method << ": " << output;
    }
    return ret;
}

int UplinkIfaceInfo::setup_link_daemon(int mode) {
    const std::string daemon = kind.link_daemon;
    const std::string unit = "nm-" + daemon + "@";
    const std::string what = daemon + (kind.daemon_log_is_brief ? "" : ". Interface: " + ifname);
    if (mode != 1) {
        NM_LOG(Debug) << "Disable " << what;
        const int ret = service_stop(unit.c_str(), ifname.c_str(), nullptr);
        if (ret != NM_OK) {
            NM_LOG(Debug) << "kill " << daemon << " fail. Interface : " << ifname;
        }
        return ret;
    }
    NM_LOG(Debug) << "Enable " << what;
    const std::optional<std::string> word = nm::shell_word(path);  // units quote as shells do
    const int ret =
        word ? service_start(unit.c_str(), ifname.c_str(), ("PATH=" + *word).c_str()) : NM_ERR_BAD_FORMAT;
    if (ret != NM_OK) {
        NM_LOG(Debug) << "Enable " << daemon << " fail. Interface: " << ifname;
    }
    return ret;
}
