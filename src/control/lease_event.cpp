// Events of leases, from the environment of a client's hook to the device and the uplink's surroundings.
#include "control/lease_event.h"

#include <arpa/inet.h>
#include <signal.h>
#include <sys/socket.h>
#include <vpppoe.h>

#include <cerrno>
#include <chrono>
#include <cstdlib>
#include <initializer_list>
#include <map>
#include <memory>
#include <sstream>
#include <string>
#include <thread>
#include <vector>

#include "config/actions.h"
#include "config/port_lookup.h"
#include "control/event_document.h"
#include "control/setup_frame.h"
#include "interfaces/uplink/BaseWanIfaceInfo.h"
#include "interfaces/uplink/UplinkIfaceInfo.h"
#include "interfaces/uplink/session_remains.h"
#include "kernel/address.h"
#include "kernel/link.h"
#include "log.h"
#include "result_codes.h"
#include "services/dns/name_servers.h"
#include "utils/handles.h"
#include "utils/ip_text.h"

namespace {

constexpr int kTries = 20;
constexpr std::chrono::milliseconds kRest{500};

constexpr const char* kAdd = "add";
constexpr const char* kDel = "del";

struct Event {
    std::string ifname;
    std::string act;
    std::string type;  // `IP4_TYPE` of ports with such a reporter
};

/// The port that an event is about. Only routed ports have an uplink's surroundings.
struct Port {
    std::string ifname;
    int ifindex = 0;
    std::unique_ptr<UplinkIfaceInfo> uplink;
};

// ---- What the reporter says.

std::string told(const std::string& name) {
    const char* const value = getenv(name.c_str());
    return value != nullptr ? value : "";
}

/// The words of a variable into as many fields; a word that is not an address leaves its field empty.
void take_addresses(const std::string& name, std::initializer_list<char*> fields) {
    std::istringstream words(told(name));
    for (char* const field : fields) {
        std::string word;
        if (words >> word && is_valid_ip(word.c_str())) {
            word.copy(field, INET_ADDRSTRLEN - 1);
        }
    }
}

DHCP_INFO told_lease(const std::string& age) {
    DHCP_INFO lease{};
    take_addresses(age + "ip_address", {lease.ip});
    take_addresses(age + "subnet_mask", {lease.netmask});
    take_addresses(age + "routers", {lease.gateway});
    take_addresses(age + "domain_name_servers", {lease.dns1, lease.dns2});
    take_addresses(age + "dhcp_server_identifier", {lease.dhcp_server});
    return lease;
}

DHCP_INFO told_session() {
    DHCP_INFO lease{};
    take_addresses("IPLOCAL", {lease.ip});
    take_addresses("IPREMOTE", {lease.gateway});
    return lease;
}

/// A reporter that was ended while its event waited for the lock: whoever ended it has cleaned up.
bool is_reporter_gone() {
    const int pid = atoi(told("pid").c_str());
    return pid > 1 && kill(pid, 0) != 0 && errno == ESRCH;
}

int check_lease(const std::string& ifname, const DHCP_INFO& lease) {
    if (lease.ip[0] == '\0' || mask_to_prefix(lease.netmask) <= 0) {
        NM_LOG(Error) << ifname << " got no address; IP[" << lease.ip << "], MASK[" << lease.netmask << "]";
        return NM_ERR_EMPTY;
    }
    if (!nm::is_device_address({inet_addr(lease.ip)})) {
        NM_LOG(Error) << "Bad IP address: " << lease.ip << ", Interface: " << ifname;
        return NM_ERR_BAD_IP;
    }
    return NM_OK;
}

// ---- What comes of it.

std::vector<std::string> name_servers(Port& port, const DHCP_INFO& lease) {
    std::vector<std::string> servers = port.uplink->get_ip4_dns();
    for (const char* const server : {lease.dns1, lease.dns2}) {
        if (port.uplink->get_ip4_dns().empty() && *server != '\0') {
            servers.emplace_back(server);
        }
    }
    return servers;
}

/// Name servers are no part of the address: what goes wrong with them is in the log and changes no result.
void replace_name_servers(Port& port, const std::vector<std::string>& servers) {
    (void)remove_dns_server(port.uplink->get_run_ifname(), AF_INET);
    if (!servers.empty()) {
        (void)insert_dns_server(servers, port.uplink->get_run_ifname());
    }
}

int spread(Port& port, DHCP_INFO lease, std::string act) {
    if (port.uplink == nullptr) {
        return NM_OK;
    }
    const int ret = port.uplink->dhcp_source_route_cb(lease, act);
    replace_name_servers(port, act == kAdd ? name_servers(port, lease) : std::vector<std::string>());
    return ret;
}

/// The lease's address as get_ipv4_addr() tells one.
std::string address_text(const DHCP_INFO& lease) {
    const int prefix = mask_to_prefix(lease.netmask);
    return prefix == 32 ? lease.ip : lease.ip + ("/" + std::to_string(prefix));
}

std::string address_on_device(const Port& port) {
    std::string address;
    (void)get_ipv4_addr(port.ifindex, address);  // one that cannot be read is none to take away
    return address;
}

bool is_same(const DHCP_INFO& one, const DHCP_INFO& other) {
    return std::string(one.ip) == other.ip && std::string(one.netmask) == other.netmask &&
           std::string(one.gateway) == other.gateway && std::string(one.dns1) == other.dns1 &&
           std::string(one.dns2) == other.dns2;
}

int take_off_device(Port& port, const DHCP_INFO& lease) {
    const int ret = spread(port, lease, kDel);
    const int flushed = flush_ipv4_addr(port.ifindex);
    return ret != NM_OK ? ret : flushed;
}

int put_on_device(Port& port, const DHCP_INFO& lease) {
    const int ret = set_ipv4_addr(port.ifindex, address_text(lease));
    if (ret != NM_OK) {
        NM_LOG(Error) << "set ipv4 address failed. Interface: " << port.ifname;
        return ret;
    }
    return spread(port, lease, kAdd);
}

int add_dhcp_lease(Port& port) {
    const DHCP_INFO lease = told_lease("new_");
    const int ret = check_lease(port.ifname, lease);
    if (ret != NM_OK) {
        return ret;
    }
    DHCP_INFO old = told_lease("old_");
    const std::string reason = told("reason");
    const std::string before = address_on_device(port);
    if ((reason == "RENEW" || reason == "REBIND") && is_same(old, lease) && before == address_text(lease)) {
        NM_LOG(Debug) << port.ifname << " renewed its lease of " << before;
        return NM_OK;
    }
    // A client that was started anew gets the lease again that is on the device: traffic goes on.
    const bool is_kept = (old.ip[0] == '\0' || is_same(old, lease)) &&
                         nm::has_only_address(port.ifindex, AF_INET, address_text(lease));
    if (!before.empty() && !is_kept) {
        // A client that was killed does not remember what it has left on the device.
        if (old.ip[0] == '\0') {
            before.substr(0, before.find('/')).copy(old.ip, sizeof(old.ip) - 1);
        }
        (void)take_off_device(port, old);  // logged; the new lease counts
    }
    return put_on_device(port, lease);
}

int del_dhcp_lease(Port& port) {
    const DHCP_INFO lease = told_lease("old_");
    if (lease.ip[0] == '\0') {
        NM_LOG(Debug) << port.ifname << " has no lease to lose";
        return NM_OK;
    }
    return take_off_device(port, lease);
}

bool is_session_running(const std::string& ifname) {
    pppoe_runtime_cfg session{};
    return get_pppoe_runtime_cfg(ifname.c_str(), &session) == VPPPOE_SUCCESS;
}

constexpr int kSessionUp = 1;
constexpr int kSessionDown = 0;

/// The uplink of kinds other than WAN has no IPv6.
int session_ipv6(Port& port, int mode) {
    return port.uplink != nullptr ? port.uplink->setup_session_ipv6(mode) : NM_OK;
}

int add_session(Port& port) {
    DHCP_INFO lease{};
    int ret = cast_ppp_cfg_into_dhcp_info(port.ifname, lease);
    if (ret != NM_OK) {
        return ret;
    }
    ret = spread(port, lease, kAdd);
    const int with_ipv6 = session_ipv6(port, kSessionUp);
    return ret != NM_OK ? ret : with_ipv6;
}

/// Without a configuration a setup has stopped the session and told everybody; with a new session everybody
/// knows of that one.
int del_session(Port& port) {
    if (is_interface_pppoe_cfg_exist(port.ifname.c_str()) != VPPPOE_SUCCESS ||
        is_session_running(port.ifname)) {
        NM_LOG(Debug) << port.ifname << " was stopped on purpose, or has a new session already";
        return NM_OK;
    }
    const int ret = session_ipv6(port, kSessionDown);
    const int without = spread(port, told_session(), kDel);
    return ret != NM_OK ? ret : without;
}

/// What is a session's own goes whatever the port has become while its report waited.
void forget_session(const Event& event) {
    nm::clear_session_remains(event.ifname, told_session().ip, atoi(told("IFINDEX").c_str()));
}

using Work = int (*)(Port& port);

Work work_of(const Event& event) {
    static const std::map<std::pair<std::string, std::string>, Work> table{
        {{"DHCP", kAdd}, add_dhcp_lease},
        {{"DHCP", kDel}, del_dhcp_lease},
        {{"PPPOE", kAdd}, add_session},
        {{"PPPOE", kDel}, del_session},
    };
    const auto row = table.find({event.type, event.act});
    return row == table.end() ? nullptr : row->second;
}

// ---- The path of an event.

int build_port(const std::string& ifname, nm::EventDocument& document, Port& port) {
    port.ifname = ifname;
    const UplinkKind* const kind = nm::find_uplink_kind(get_ifacetype_by_ifname(ifname, document.root));
    int ret = NM_OK;
    if (kind != nullptr) {
        port.uplink = kind->make_info(ifname, document.path, document.root, ret);
    }
    if (ret != NM_OK) {
        NM_LOG(Error) << "Create the addressing side of " << ifname << " failed, ret=" << ret;
        return ret;
    }
    port.ifindex = port.uplink != nullptr ? port.uplink->get_ifindex() : get_iface_index(ifname.c_str());
    return NM_OK;
}

int work_port(const Event& event, nm::EventDocument& document) {
    Port port;
    const int ret = build_port(event.ifname, document, port);
    if (ret != NM_OK) {
        return ret;
    }
    if (event.type == "DHCP" && port.ifindex == 0) {
        NM_LOG(Error) << "No such iface: " << event.ifname;
        return NM_ERR_NO_IFACE;
    }
    return work_of(event)(port);
}

bool is_session_end(const Event& event) {
    return event.type == "PPPOE" && event.act == kDel;
}

/// Whether what was reported is true no more.
bool is_overtaken(const Event& event) {
    const bool is_session = event.type == "PPPOE" && event.act == kAdd;
    return is_reporter_gone() || (is_session && !is_session_running(event.ifname));
}

/// One attempt under the lock; nothing if another one may fare better, in which case `ret` is its result so
/// far. The end of a session waits for no document: a port of another type has to forget it as well.
bool try_event(const Event& event, int& ret) {
    const nm::LockGuard lock(event.ifname);
    if (!lock.held()) {
        ret = NM_ERR_LOCK;
        return false;
    }
    if (is_overtaken(event)) {
        NM_LOG(Debug) << event.ifname << ": the client or session of this event was ended";
        ret = NM_OK;
        return true;
    }
    nm::EventDocument document;
    ret = nm::find_event_document(event.ifname, "IP4_TYPE", event.type, told("CONF"), document);
    const bool is_known = ret == NM_OK;
    if (is_known) {
        ret = work_port(event, document);
    }
    if (is_session_end(event)) {
        forget_session(event);
        ret = is_known ? ret : NM_OK;
    }
    return is_known || is_session_end(event);
}

int work_event(const Event& event) {
    int ret = NM_OK;
    for (int attempt = 0; attempt < kTries; ++attempt) {
        if (try_event(event, ret)) {
            return ret;
        }
        std::this_thread::sleep_for(kRest);
    }
    if (ret == NM_ERR_BAD_TYPE && event.act == kDel) {
        NM_LOG(Debug) << event.ifname << " is not of type " << event.type << " any more";
        return NM_OK;
    }
    NM_LOG(Error) << event.ifname << " cannot take its " << event.type << " lease, ret=" << ret;
    return ret;
}

int lease_event(const char* ifname, const char* act) {
    if (ifname == nullptr || *ifname == '\0' || act == nullptr) {
        NM_LOG(Error) << "ifname is Null pointer.";
        return NM_ERR_NULL_ARG;
    }
    const Event event{ifname, act, getenv("reason") != nullptr ? "DHCP" : "PPPOE"};
    if (work_of(event) == nullptr) {
        NM_LOG(Error) << "Unknown act: " << act;
        return NM_ERR_BAD_ACT;
    }
    return work_event(event);
}

}  // namespace

int Lease_event(char* ifname, char* act) {
    return nm::run_entry(__PRETTY_FUNCTION__, [=] { return lease_event(ifname, act); });
}
