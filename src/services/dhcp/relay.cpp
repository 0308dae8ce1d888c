// The DHCP relay of an interface: the environment of its unit, and the unit.
#include <algorithm>

#include "log.h"
#include "result_codes.h"
#include "services/dhcp/DhcpService.h"
#include "services/dhcp/dhcp_files.h"
#include "services/files/generated_file.h"
#include "utils/ip_text.h"
#include "utils/json_text.h"
#include "utils/process.h"
#include "utils/shell_text.h"
#include "utils/units.h"

namespace {

/// The interface behind which the kernel sees the address; empty if there is no route.
std::string upstream_of(const std::string& address) {
    const std::string command = "echo $(ip ro get " + address +
                                ") | /bin/awk -F '[Dd]ev ' '{print $2}' RS='src' | /bin/cut -d\" \" -f 1";
    const std::string output = exec(command.c_str());
    return output.substr(0, output.find('\n'));
}

/// What the relay is given: its servers, and the interfaces that they are reached by.
struct Relay {
    std::string servers;
    std::string uif_cmd;
    std::vector<std::string> upstreams;
};

void add_upstream(const std::string& interface, Relay& relay) {
    if (!nm::is_plain(interface)) {
        NM_LOG(Error) << "Bad upstream interface name: " << interface;
        return;
    }
    if (std::find(relay.upstreams.begin(), relay.upstreams.end(), interface) != relay.upstreams.end()) {
        NM_LOG(Debug) << interface << " has been set as upstream network Interface.";
        return;
    }
    relay.upstreams.push_back(interface);
    relay.uif_cmd += "-iu " + interface + " ";
}

/// A server's address reaches a command and the unit's environment, so it has to be one.
int add_server(const std::string& address, Relay& relay) {
    if (!nm::is_plain(address) || !is_valid_ip(address.c_str())) {
        NM_LOG(Error) << "Bad IP address: " << address;
        return NM_ERR_BAD_IP;
    }
    relay.servers += address + " ";
    const std::string interface = upstream_of(address);
    if (!interface.empty()) {
        add_upstream(interface, relay);
    }
    return NM_OK;
}

int check_relay(const Relay& relay) {
    if (relay.servers.empty()) {
        NM_LOG(Error) << "Empty dhcrelay servers.";
        return NM_ERR_EMPTY;
    }
    if (relay.uif_cmd.empty()) {
        NM_LOG(Error) << "Could not find the upstream network Interface!";
        return NM_ERR_BAD_FORMAT;
    }
    return NM_OK;
}

}  // namespace

int DhcpService::relay_env_text(std::string& text) const {
    if (relay_servers.empty()) {
        NM_LOG(Error) << "RELAY_SERVERS is empty.";
        return NM_ERR_BAD_FORMAT;
    }
    Relay relay;
    for (const Json::Value& server : relay_servers) {
        const int ret = add_server(nm::json_scalar(server), relay);
        if (ret != NM_OK) {
            return ret;
        }
    }
    const int ret = check_relay(relay);
    if (ret != NM_OK) {
        return ret;
    }
    relay.servers.pop_back();
    relay.uif_cmd.pop_back();
    text = "SERVERS=\"" + relay.servers + "\"\nUIF_CMD=\"" + relay.uif_cmd + "\"";
    return NM_OK;
}

int DhcpService::gen_dhcrelay_env_conf() {
    NM_LOG(Debug) << "Enter";
    nm::GeneratedFile file(nm::dhcp_relay_env(ifname));
    if (!file) {
        return NM_EXIT(NM_ERR_OPEN);
    }
    std::string text;
    const int ret = relay_env_text(text);
    return NM_EXIT(ret == NM_OK ? file.replace(text) : ret);
}

int DhcpService::start_relay() {
    int ret = gen_dhcrelay_env_conf();
    if (ret != NM_OK) {
        NM_LOG(Error) << "gen_dhcrelay_env_conf failed.";
        return NM_EXIT(ret);
    }
    NM_LOG(Info) << "Enable dhcrelay, iface: " << ifname;
    ret = service_start(nm::kDhcpRelayUnit, ifname.c_str(), nullptr);
    if (ret != NM_OK) {
        NM_LOG(Error) << "Start '" << nm::kDhcpRelayUnit << ifname << "' failed, ret=" << ret;
        return NM_EXIT(NM_ERR_SERVICE);
    }
    NM_LOG(Info) << "Enable dhcrelay ok. Interface: " << ifname;
    return NM_EXIT(NM_OK);
}

int DhcpService::stop_relay() {
    NM_LOG(Info) << "stop dhcrelay, ifname: " << ifname;
    const int ret = kill_service_proc();
    nm::remove_generated(nm::dhcp_relay_env(ifname));
    return NM_EXIT(ret);
}

int DhcpService::restart_relay() {
    const int ret = stop_relay();
    return ret == NM_OK ? start_relay() : ret;
}
