// The DHCP server of an interface: its generated file and its unit.
#include <algorithm>
#include <cctype>
#include <set>

#include "log.h"
#include "result_codes.h"
#include "services/dhcp/DhcpService.h"
#include "services/dhcp/dhcp_files.h"
#include "services/dhcp/server_pool.h"
#include "services/dhcp/server_reservations.h"
#include "services/dhcp/server_subnet.h"
#include "services/files/generated_file.h"
#include "utils/containers.h"
#include "utils/files.h"
#include "utils/units.h"

namespace {

constexpr const char* kGlobals =
    "ddns-update-style interim;\n"
    "allow booting;\n"
    "allow bootp;\n"
    "class \"pxeclients\" {\n"
    "match if substring(option vendor-class-identifier,0,9)=\"PXEClient\";\n"
    "}\n";

/// A name that stays in its line. The daemon skips the line as a comment, so that a line end is all that
/// could make a statement of it.
std::string comment_text(std::string name) {
    const auto is_control = [](unsigned char c) { return std::iscntrl(c) != 0; };
    if (std::any_of(name.begin(), name.end(), is_control)) {
        NM_LOG(Error) << "Control characters in a device name become blanks: " << name;
        std::replace_if(name.begin(), name.end(), is_control, ' ');
    }
    return name;
}

std::string host_block(const Json::Value& entry) {
    const std::string ip = nm::reservation_field(entry, "IP4_ADDR");
    return "host " + ip + " {\n#dev_name \"" + comment_text(nm::reservation_field(entry, "DEVICE_NAME")) +
           "\";\nhardware ethernet " + nm::reservation_field(entry, "MAC") + ";\nfixed-address " + ip +
           ";\n}\n";
}

/// The daemon refuses a file that names a host twice, so the first reservation of an address counts.
std::string host_blocks(const Json::Value& reserved) {
    std::set<std::string> named;
    std::string text;
    for (const Json::Value& entry : reserved) {
        const std::string ip = nm::reservation_field(entry, "IP4_ADDR");
        if (!named.insert(ip).second) {
            NM_LOG(Error) << "Skip another reservation of " << ip;
            continue;
        }
        text += host_block(entry);
    }
    return text;
}

int append_number(std::string ip, const char* words, std::vector<uint32_t>& numbers) {
    uint32_t number = 0;
    const int ret = ipaddr_to_hostint(ip.data(), &number);
    if (ret != NM_OK) {
        NM_LOG(Error) << words << ip;
        return ret;
    }
    numbers.push_back(number);
    return NM_OK;
}

/// The addresses that the server must not hand out: the router's own and the reserved ones.
int taken_addresses(const std::string& router, const Json::Value& reserved, std::vector<uint32_t>& taken) {
    int ret = router.empty() ? NM_OK : append_number(router, "ipaddr_to_hostint fail. ip: ", taken);
    for (auto entry = reserved.begin(); ret == NM_OK && entry != reserved.end(); ++entry) {
        ret = append_number(nm::reservation_field(*entry, "IP4_ADDR"),
                            "ipaddr_to_hostint fail. ip4_addr: ", taken);
    }
    return ret;
}

}  // namespace

int DhcpService::get_split_dhcpserevr_range(std::vector<std::string>& ranges) {
    std::vector<uint32_t> taken;
    int ret = taken_addresses(option_router, reserved_ip, taken);
    if (ret != NM_OK) {
        return ret;
    }
    ranges.clear();
    if (taken.empty()) {
        NM_LOG(Debug) << "split ip is empty.";
        ranges.push_back(start_ip + " " + end_ip);
        return NM_OK;
    }
    std::vector<uint32_t> bounds;
    ret = append_number(start_ip, "ipaddr_to_hostint fail. ip: ", bounds);
    if (ret == NM_OK) {
        ret = append_number(end_ip, "ipaddr_to_hostint fail. ip: ", bounds);
    }
    if (ret == NM_OK) {
        ret = nm::split_pool(bounds[0], bounds[1], taken, ranges);
    }
    if (ret == NM_OK && ranges.empty() && reserved_ip.empty()) {
        NM_LOG(Error) << "dynamic IP pool is empty.";
        return NM_ERR_POOL_EMPTY;
    }
    return ret;
}

/// The pool, the options and the reservations; a pool that cannot be cut is handed out whole.
std::string DhcpService::subnet_body(std::vector<std::string> ranges) const {
    std::string text;
    for (const std::string& range : ranges) {
        text += "range " + range + ";\n";
    }
    if (!option_router.empty()) {
        text += "option routers " + option_router + ";\n";
    }
    const std::string servers = vector_into_string(dns_servers, "", ",");
    if (!servers.empty()) {
        text += "option domain-name-servers " + servers + ";\n";
    }
    return text + host_blocks(reserved_ip);
}

int DhcpService::server_conf_text(std::string& text) {
    std::string network;
    (void)nm::subnet_of(start_ip, prefix, network);  // Logged; the daemon tells what it makes of the line.
    text = "max-lease-time " + lease_time + ";\ndefault-lease-time " + lease_time + ";\n" + kGlobals +
           "subnet " + network + " netmask " + nm::mask_text(prefix) + "{\ninterface \"" + ifname + "\";\n";
    std::vector<std::string> ranges;
    const int ret = get_split_dhcpserevr_range(ranges);
    if (ret == NM_ERR_POOL_EMPTY) {
        text += "}\n";
        return ret;
    }
    if (ret != NM_OK) {
        ranges = {start_ip + " " + end_ip};
    }
    text += subnet_body(std::move(ranges)) + "}\n";
    return NM_OK;
}

int DhcpService::gen_dhcpserver_conf() {
    NM_LOG(Debug) << "Enter";
    const int checked = check_dhcpserver_jsonformat();
    if (checked != NM_OK) {
        return NM_EXIT(checked);
    }
    nm::GeneratedFile file(nm::dhcp_server_conf(ifname));
    if (!file) {
        return NM_EXIT(NM_ERR_OPEN);
    }
    std::string text;
    const int ret = server_conf_text(text);
    const int written = file.replace(text);
    return NM_EXIT(written != NM_OK ? written : ret);
}

int DhcpService::start_server() {
    NM_LOG(Info) << "start dhcpserver, ifname: " << ifname;
    int ret = gen_dhcpserver_conf();
    if (ret == NM_ERR_BAD_VALUE) {
        NM_LOG(Debug) << "E_OUTOFRANGE is returned. Reset error code.";
        return NM_EXIT(NM_OK);
    }
    if (ret != NM_OK) {
        return NM_EXIT(ret);
    }
    const std::string leases = nm::dhcp_lease_file(ifname);
    if (!is_file_exists(leases)) {
        (void)writeValue(leases, "", true);  // Logged; the daemon does not start without it.
    }
    NM_LOG(Info) << "Enable dhcpd, iface: " << ifname;
    ret = service_start(nm::kDhcpServerUnit, ifname.c_str(), nullptr);
    if (ret != NM_OK) {
        NM_LOG(Error) << "Start service '" << nm::kDhcpServerUnit << ifname << "' failed, ret=" << ret;
        return NM_EXIT(NM_ERR_SERVICE);
    }
    NM_LOG(Info) << "Enable dhcp server ok. Interface: " << ifname;
    return NM_EXIT(NM_OK);
}

int DhcpService::kill_service_proc() {
    const char* const unit = service_type == "RELAY" ? nm::kDhcpRelayUnit : nm::kDhcpServerUnit;
    if (service_status(unit, ifname.c_str(), nullptr) != NM_OK) {
        NM_LOG(Info) << "dhcpd is already dead. Interface: " << ifname;
        return NM_OK;
    }
    NM_LOG(Info) << "Disable dhcpd, iface: " << ifname;
    const int ret = service_stop(unit, ifname.c_str(), nullptr);
    if (ret != NM_OK) {
        NM_LOG(Error) << "Stop service '" << unit << ifname << "' failed, ret=" << ret;
        return NM_ERR_SERVICE;
    }
    return NM_OK;
}

int DhcpService::stop_server(bool remove_lease) {
    NM_LOG(Info) << "stop dhcpserver, ifname: " << ifname;
    const int ret = kill_service_proc();
    nm::remove_generated(nm::dhcp_server_conf(ifname));
    if (remove_lease) {
        const std::string leases = nm::dhcp_lease_file(ifname);
        nm::remove_generated(leases);
        nm::remove_generated(leases + "~");
    }
    return NM_EXIT(ret);
}

int DhcpService::restart_server() {
    const int ret = stop_server(false);
    return ret == NM_OK ? start_server() : ret;
}
