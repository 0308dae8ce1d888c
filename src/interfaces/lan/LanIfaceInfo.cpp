// The addressing side of LAN interfaces: their life cycle and IPv4 (IPv6: lan_ipv6.cpp).
#include "interfaces/lan/LanIfaceInfo.h"

#include <arpa/inet.h>
#include <net/if.h>
#include <sys/socket.h>

#include <cstdlib>
#include <optional>
#include <utility>

#include "config/actions.h"
#include "config/nmconfig.h"
#include "interfaces/common/factory.h"
#include "kernel/address.h"
#include "kernel/ipset.h"
#include "kernel/link.h"
#include "log.h"
#include "result_codes.h"
#include "services/dhcp/DhcpService.h"
#include "services/dns/hosts.h"
#include "services/dns/lan_dnsmasq.h"
#include "services/leases/dhcp_client.h"
#include "services/radv/radvd.h"
#include "utils/ip_text.h"
#include "utils/json_text.h"
#include "utils/process.h"
#include "utils/run_scope.h"
#include "utils/shell_text.h"
#include "utils/units.h"

namespace {

constexpr const char* kMgmtDevice = "swdev8";
constexpr const char* kMgmtAlias = "swdev8:0";
constexpr const char* kMgmtAddress = "198.18.254.1";
constexpr const char* kMgmtPrefix = "/30";
constexpr const char* kMgmtHostname = "local.appliance";

/// What kill_ipv4_dhcp() is given: the client comes back, or it does not.
constexpr int kClientReturns = 2;
constexpr int kClientEnds = 0;

bool is_prefix(int prefix) {
    return prefix >= 1 && prefix <= 32;
}

/// "network/prefix" of an address; empty for a bad one.
std::string network_of(const std::string& address, int prefix) {
    in_addr network{};
    if (!is_prefix(prefix) || inet_pton(AF_INET, address.c_str(), &network) != 1) {
        return {};
    }
    network.s_addr &= static_cast<in_addr_t>(prefix_to_network(static_cast<unsigned char>(prefix)));
    char text[INET_ADDRSTRLEN];
    return std::string(inet_ntop(AF_INET, &network, text, sizeof(text))) + "/" + std::to_string(prefix);
}

/// The service of the stored configuration; null if the interface has none.
std::unique_ptr<DhcpService> dhcp_service_of(const std::string& ifname) {
    DhcpService* service = nullptr;
    (void)create_DHCP_SERVICE(&service, ifname, kDhcpServicePath);  // logged there; null says it here
    return std::unique_ptr<DhcpService>(service);
}

constexpr const char* kNameGuestRules = " -S GUESTFORWARD 2>/dev/null && echo whole";
constexpr std::string_view kWhole = "\nwhole\n";

/// Whether a run finds the chain of the guests as the command would leave it: with this rule, or without any
/// of the device.
bool is_guest_rule_done(const std::string& tool, bool appends, const std::string& rule,
                        const std::string& ifname) {
    const std::string chain = nm::RunScope::look(tool + kNameGuestRules).value_or("");
    const bool is_whole = chain.size() > kWhole.size() &&
                          chain.compare(chain.size() - kWhole.size(), kWhole.size(), kWhole) == 0;
    const bool is_in_force = chain.find("\n-A " + rule + "\n") != std::string::npos;
    const bool is_free = chain.find(" " + ifname + " ") == std::string::npos;
    return is_whole && (appends ? is_in_force : is_free);
}

int append_guest_rule(const std::string& command) {
    const int ret = system_cmd(command.c_str());
    if (ret != NM_OK) {
        NM_LOG(Error) << command << " failed, Ret: " << ret;
    }
    return ret;
}

constexpr int kNoSuchRule = 1;

/// Deletes a rule until there is none, as one that was appended twice is there twice. A LAN that is not a
/// guest has none, which is the common case and not worth an error. 0 if there was one.
int delete_guest_rule(const std::string& command) {
    constexpr int kMostCopies = 1000;
    int copies = 0;
    int ret = system_cmd(command.c_str());
    while (ret == NM_OK && ++copies < kMostCopies) {
        ret = system_cmd(command.c_str());
    }
    if (ret == kNoSuchRule) {
        return copies > 0 ? NM_OK : ret;
    }
    NM_LOG(Error) << command << " failed, Ret: " << ret;
    return ret;
}

}  // namespace

LanIfaceInfo::LanIfaceInfo(std::string ifname, std::string path, Json::Value cfg)
    : BaseIfaceInfo(std::move(ifname), std::move(path)) {
    this->cfg = std::move(cfg);
    const int ret = this->cfg.empty() ? LanIfaceInfo::get_config() : LanIfaceInfo::get_config_from_json();
    if (ret != NM_OK) {
        throw ret;
    }
}

int LanIfaceInfo::get_config() {
    return json_file_to_mem(path, cfg) < 0 ? NM_ERR_NOT_FOUND : LanIfaceInfo::get_config_from_json();
}

int LanIfaceInfo::get_config_from_json() {
    const Json::Value& entry = nm::json_member(nm::json_member(cfg, "LAN_IFACE_INFO"), ifname);
    if (entry.empty()) {
        return NM_ERR_NO_SECTION;
    }
    if (!entry.isObject()) {
        NM_LOG(Error) << "[LAN_IFACE_INFO]-[" << ifname << "] is not valid format";
        return NM_ERR_BAD_FORMAT;
    }
    ip4_type = nm::json_text(entry, "IP4_TYPE");
    ip4_addr = nm::json_text(entry, "IP4_ADDR");
    ip4_prefix = atoi(nm::json_text(entry, "IP4_PREFIX", "24").c_str());
    access_to_local = nm::json_text(entry, "ACCESS_TO_LOCAL", "TRUE") == "TRUE";
    ifindex = get_iface_index(ifname.c_str());
    network = network_of(ip4_addr, ip4_prefix);
    read_ipv6(entry);
    return NM_OK;
}

int LanIfaceInfo::add_info(uint32_t opt) {
    NM_LOG(Debug) << "Enter";
    const int ret = setup_info(opt);
    if (ret != NM_OK) {
        NM_LOG(Error) << "Setup info failed, interface: " << ifname;
    }
    return NM_EXIT(ret);
}

int LanIfaceInfo::setup_info(uint32_t opt) {
    NM_LOG(Debug) << "Enter";
    if ((opt & OPT_LINK) != 0) {
        // Told by the commands; the address has to come whatever the rules say.
        (void)(access_to_local ? enable_access_to_local() : disable_access_to_local());
    }
    if ((opt & OPT_IP4) != 0) {
        const int ret = setup_ipv4(opt);
        if (ret != NM_OK) {
            return NM_EXIT(ret);
        }
        if ((opt & OPT_NO_DHCP_REFRESH) == 0 && ip4_type == "STATIC") {
            refresh_dhcp_service();
        }
    }
    if ((opt & OPT_IP6) != 0) {
        return NM_EXIT(setup_ipv6(opt));
    }
    return NM_EXIT((opt & OPT_IP6_SERVICE) != 0 ? setup_ipv6_service(1) : NM_OK);
}

/// The server hands the interface's address out as router.
void LanIfaceInfo::refresh_dhcp_service() {
    const std::unique_ptr<DhcpService> service = dhcp_service_of(ifname);
    if (service == nullptr) {
        NM_LOG(Debug) << "no dhcp service interface.";
        return;
    }
    if (service->get_service_type() == "SERVER") {
        service->update_option_router(ip4_addr);
        (void)service->restart_service();  // logged there; the address is set all the same
    }
}

int LanIfaceInfo::del_info(uint32_t) {
    NM_LOG(Debug) << "Enter";
    if (disable_ipv6() != NM_OK) {
        NM_LOG(Error) << "Disable ipv6 failed, interface: " << ifname;
    }
    if (disable_ipv4(kClientEnds) != NM_OK) {
        NM_LOG(Error) << "Disable ipv4 failed, interface: " << ifname;
    }
    if (!access_to_local) {
        (void)enable_access_to_local();  // logged by the commands
    }
    return NM_EXIT(NM_OK);
}

int LanIfaceInfo::alt_info(uint32_t opt) {
    NM_LOG(Debug) << "Enter";
    LanIfaceInfo* created = nullptr;
    const int ret = create_LAN_INFO(&created, ifname, kDeviceInfoPath, Json::Value());
    const std::unique_ptr<LanIfaceInfo> stored(created);
    if (ret != NM_OK) {
        NM_LOG(Error) << ifname << " does not exist in " << kDeviceInfoPath;
        return NM_EXIT(ret);
    }
    // Told where they fail: what is left of the old state must not keep the new one from coming.
    nm::RadvdHold advertisements;
    if ((opt & OPT_IP6) != 0) {
        (void)stored->disable_ipv6();
    }
    if ((opt & OPT_IP4) != 0) {
        (void)stored->disable_ipv4(ip4_type == "DHCP" ? kClientReturns : kClientEnds);
    }
    if ((opt & (OPT_IP4 | OPT_IP6)) == 0 && (opt & OPT_IP6_SERVICE) != 0) {
        (void)stored->setup_ipv6_service(0);
    }
    const int setup_ret = setup_info(opt);
    const int advertised = advertisements.release();
    return NM_EXIT(setup_ret != NM_OK ? setup_ret : advertised);
}

int LanIfaceInfo::setup_ipv4(uint32_t) {
    NM_LOG(Debug) << "Enter";
    int ret = NM_OK;
    if (ip4_type == "DHCP") {
        ret = setup_ipv4_dhcp(1);
        if (ret != NM_OK) {
            NM_LOG(Error) << "Enable ipv4 DHCP fail. Interface : " << ifname;
        }
    } else if (ip4_type == "STATIC") {
        ret = add_static_address();
    } else if (ip4_type != "DISABLED") {
        NM_LOG(Error) << "No such ip4_type: " << ip4_type;
        ret = NM_ERR_BAD_TYPE;
    }
    (void)setup_mgmt_ip(1);  // logged there; it is to work whatever the configured address does
    return NM_EXIT(ret);
}

int LanIfaceInfo::add_static_address() {
    const int ret = setup_ipv4_static();
    if (ret != NM_OK) {
        NM_LOG(Error) << "Set ipv4 STATIC fail. Interface : " << ifname;
        return ret;
    }
    (void)add_hosts(ip4_addr, ifname);  // logged there
    return NM_OK;
}

int LanIfaceInfo::setup_ipv4_static() {
    NM_LOG(Debug) << "Enter";
    if (!nm::is_plain(ip4_addr) || !is_valid_ip(ip4_addr.c_str()) ||
        inet_addr(ip4_addr.c_str()) == INADDR_NONE) {
        NM_LOG(Error) << "Bad IP address: " << ip4_addr;
        return NM_EXIT(NM_ERR_BAD_IP);
    }
    if (!is_prefix(ip4_prefix)) {
        NM_LOG(Error) << "Bad prefix.";
        return NM_EXIT(NM_ERR_BAD_IP);
    }
    if (ifindex == 0) {
        NM_LOG(Error) << "Get ifindex failed. Interface: " << ifname;
        return NM_EXIT(NM_ERR_NO_IFACE);
    }
    const std::string text = ip4_prefix < 32 ? ip4_addr + "/" + std::to_string(ip4_prefix) : ip4_addr;
    int ret = set_ipv4_addr(static_cast<unsigned int>(ifindex), text);
    if (ret != NM_OK) {
        NM_LOG(Error) << "set ipv4 address failed. Interface: " << ifname << ", Address: " << text;
        return NM_EXIT(ret);
    }
    ret = set_iface_flags(ifname.c_str(), IFF_UP);
    if (ret != NM_OK) {
        NM_LOG(Error) << "Set interface up failed. Interface: " << ifname;
        return NM_EXIT(ret);
    }
    announce();
    return NM_EXIT(NM_OK);
}

void LanIfaceInfo::announce() {
    const std::string member = network + "," + ifname;
    tell_failure(edit_ipset("add", "localip", ip4_addr), "Add localip: " + ip4_addr);
    tell_failure(edit_ipset("add", "LANIFSET", member), "Add LANIFSET: " + network);
    tell_failure(edit_ipset("add", "lan", network), "Add lan: " + network);
    tell_failure(setup_lan_dnsmasq(1, ip4_addr), "Setup dnsmasq listening addr: " + ip4_addr);
}

void LanIfaceInfo::withdraw() {
    const std::string member = network + "," + ifname;
    tell_failure(edit_ipset("del", "localip", ip4_addr), "Del localip: " + ip4_addr);
    tell_failure(edit_ipset("del", "LANIFSET", member), "Del LANIFSET: " + member);
    tell_failure(edit_ipset("del", "lan", network), "Del lan: " + network);
    tell_failure(setup_lan_dnsmasq(0, ip4_addr), "Remove dnsmasq listening addr: " + ip4_addr);
}

int LanIfaceInfo::setup_ipv4_dhcp(int on) {
    NM_LOG(Debug) << "Enter";
    if (on != 1) {
        const int ret = kill_ipv4_dhcp(ifname, on);
        if (ret != NM_OK) {
            NM_LOG(Error) << "kill ipv4 dhcp funtion fail. Interface : " << ifname;
        }
        return NM_EXIT(ret);
    }
    if (start_ipv4_dhcp(ifname, path) != NM_OK) {
        NM_LOG(Error) << "Enable dhclient fail. Interface: " << ifname;
        return NM_EXIT(NM_ERR_SERVICE);
    }
    return NM_EXIT(NM_OK);
}

int LanIfaceInfo::disable_ipv4(int opt) {
    NM_LOG(Info) << "ifname [" << ifname << "]; ip4_type [" << ip4_type << "]";
    stop_dhcp_service();
    (void)setup_mgmt_ip(0);  // logged there; the rest is removed all the same
    if (del_hosts(ifname, AF_INET) != NM_OK) {
        NM_LOG(Error) << "Delete hosts failed, interface: " << ifname;
    }
    if (ifindex == 0) {
        NM_LOG(Error) << ifname << " doesn't exist.";
    }
    if (ip4_type == "DHCP") {
        (void)setup_ipv4_dhcp(opt);  // logged there
    }
    const int ret = ifindex == 0 ? NM_OK : flush_ipv4_addr(static_cast<unsigned int>(ifindex));
    if (!network.empty()) {
        withdraw();
    }
    return NM_EXIT(ret);
}

void LanIfaceInfo::stop_dhcp_service() {
    const std::unique_ptr<DhcpService> service = dhcp_service_of(ifname);
    if (service == nullptr) {
        NM_LOG(Error) << "create dhcp service failed. Interface: " << ifname;
        return;
    }
    if (service->stop_service() != NM_OK) {
        NM_LOG(Error) << "stop dhcp service fail. Interface: " << ifname;
    }
}

int LanIfaceInfo::setup_mgmt_ip(int on) {
    if (ifname != kMgmtDevice) {
        return NM_OK;
    }
    NM_LOG(Debug) << "Enter";
    return NM_EXIT(on == 1 ? start_mgmt_ip() : stop_mgmt_ip());
}

/// By the alias's name the kernel finds the device beneath; that it refuses to bring an alias up is no news,
/// and the device is up by its own configuration.
int LanIfaceInfo::start_mgmt_ip() {
    const int ret = set_iface_alias(kMgmtDevice, kMgmtAlias);
    if (ret != NM_OK) {
        return ret;
    }
    const int index = get_iface_index(kMgmtAlias);
    if (index == 0) {
        NM_LOG(Error) << "Get ifindex failed. Interface: " << kMgmtAlias;
        return NM_ERR_NO_IFACE;
    }
    const std::string address = std::string(kMgmtAddress) + kMgmtPrefix;
    tell_failure(set_ipv4_addr(static_cast<unsigned int>(index), address), "Set " + address);
    (void)set_iface_flags(kMgmtAlias, IFF_UP);  // see above
    tell_failure(add_hosts(kMgmtAddress, kMgmtAlias), std::string("Add hosts: ") + kMgmtAlias);
    tell_failure(add_ip_hostname(kMgmtAddress, kMgmtHostname), std::string("Add host: ") + kMgmtHostname);
    return setup_lan_dnsmasq(1, kMgmtAddress);
}

int LanIfaceInfo::stop_mgmt_ip() {
    (void)setup_lan_dnsmasq(0, kMgmtAddress);  // logged there; the names go all the same
    tell_failure(del_ip_hostname(kMgmtAddress, kMgmtHostname), std::string("Del host: ") + kMgmtHostname);
    tell_failure(del_hosts(kMgmtAlias, AF_INET), std::string("Del hosts: ") + kMgmtAlias);
    return set_iface_alias(kMgmtDevice, nullptr);
}

int LanIfaceInfo::disable_access_to_local() {
    NM_LOG(Debug) << "Enter";
    return NM_EXIT(edit_guest_rules("A", append_guest_rule));
}

int LanIfaceInfo::enable_access_to_local() {
    NM_LOG(Debug) << "Enter";
    return NM_EXIT(edit_guest_rules("D", delete_guest_rule));
}

/// One name of a set serves both families: what stands behind it is the firewall's affair.
int LanIfaceInfo::edit_guest_rules(const char* action, int (*run)(const std::string& command)) {
    constexpr const char* kTools[] = {"/sbin/iptables", "/sbin/ip6tables"};
    constexpr std::pair<const char*, const char*> kDirections[] = {{"-i", "dst"}, {"-o", "src"}};
    const std::optional<std::string> word = nm::shell_word(ifname);
    if (!word) {
        NM_LOG(Error) << "Bad interface name: " << ifname;
        return NM_ERR_BAD_FORMAT;
    }
    int ret = NM_OK;
    for (const std::string tool : kTools) {
        nm::RunScope::forget(tool + kNameGuestRules);  // a run is long, and others may have changed the chain
        for (const auto& [device, side] : kDirections) {
            const std::string rule = std::string("GUESTFORWARD ") + device + " " + *word +
                                     " -m set --match-set lan " + side + " -j DROP";
            if (is_guest_rule_done(tool, *action == 'A', rule, ifname)) {
                NM_LOG(Debug) << tool << " -" << action << " " << rule << " would change nothing";
                ret = *action == 'A' ? NM_OK : kNoSuchRule;
                continue;
            }
            ret = run(tool + " -" + action + " " + rule);
            nm::RunScope::forget(tool + kNameGuestRules);
        }
    }
    return ret;
}

int create_LAN_INFO(LanIfaceInfo** info, std::string ifname, std::string path, Json::Value cfg) {
    NM_LOG(Debug) << "Enter";
    return NM_EXIT(nm::build(info, "info", ifname, path, std::move(cfg)));
}

void LanIfaceInfo::tell_failure(int ret, const std::string& text) {
    if (ret != NM_OK) {
        NM_LOG(Error) << text << " failed.";
    }
}

std::unique_ptr<LanIfaceInfo> nm::lan_info_of(const std::string& ifname, const std::string& path,
                                              const Json::Value& cfg) {
    LanIfaceInfo* info = nullptr;
    const bool configured = !json_member(json_member(cfg, "LAN_IFACE_INFO"), ifname).empty();
    if (configured && create_LAN_INFO(&info, ifname, path, cfg) != NM_OK) {
        return nullptr;
    }
    return std::unique_ptr<LanIfaceInfo>(info);
}
