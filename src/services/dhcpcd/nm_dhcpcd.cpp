// The IPv6 DHCP client of an uplink: its block, the assembled configuration, its unit.
#include "services/dhcpcd/nm_dhcpcd.h"

#include <errno.h>
#include <stdio.h>
#include <string.h>
#include <sys/socket.h>

#include <vector>

#include "kernel/address_ipv6.h"
#include "log.h"
#include "result_codes.h"
#include "services/dhcpcd/dhcp6_variables.h"
#include "utils/containers.h"
#include "utils/directories.h"
#include "utils/files.h"
#include "utils/mac.h"
#include "utils/process.h"
#include "utils/shell_text.h"
#include "utils/unit_names.h"
#include "utils/units.h"

namespace {

constexpr const char* kDirectory = "/etc/networkmanagement/";
constexpr const char* kBlockEnding = ".dhcpcd.conf";

/// What is left is a name that means nothing but itself to a shell, a path, an option and dhcpcd, which
/// compares names with patterns.
bool is_name(const std::string& ifname) {
    return nm::is_plain(ifname) && ifname[0] != '-' && ifname.find('/') == std::string::npos;
}

int check_name(const std::string& ifname) {
    if (!is_name(ifname)) {
        NM_LOG(Error) << "Bad interface name: " << ifname;
        return NM_ERR_BAD_FORMAT;
    }
    return NM_OK;
}

std::string block_path(const std::string& ifname) {
    return kDirectory + ifname + kBlockEnding;
}

template <std::size_t size>
std::string text_of(const char (&field)[size]) {
    return {field, strnlen(field, size)};
}

int identify(const std::string& hw_ifname, std::string& iaid) {
    unsigned char mac[6] = {};
    const int ret = get_raw_mac_addr(hw_ifname.c_str(), mac);
    if (ret != NM_OK) {
        return ret;
    }
    char digits[9] = {};
    (void)snprintf(digits, sizeof(digits), "%.2x%.2x%.2x%.2x", mac[2], mac[3], mac[4], mac[5]);
    iaid = digits;
    return NM_OK;
}

std::string block_text(const dhcpcd_iface& iface, const std::string& iaid) {
    const std::pair<bool, std::string> lines[] = {
        {true, "interface " + text_of(iface.ifname)},
        {true, "  iaid " + iaid},
        {iface.metric != 0, "  metric " + std::to_string(iface.metric)},
        {iface.inform6, "  inform6"},
        {true, iface.noipv6rs ? "  noipv6rs" : "  ipv6rs"},
        {iface.nodhcp6, "  nodhcp6"},
        {iface.nogateway, "  nogateway"},
        {iface.noipv4, "  noipv4"},
        {iface.noipv6, "  noipv6"},
        {iface.noarp, "  noarp"},
        {iface.nolink, "  nolink"},
        {iface.ia_pd, "  ia_pd " + iaid},
        {iface.ia_na && !iface.noipv6rs, "  ia_na " + iaid},
        {true, iface.ia_na ? "  ipv6ra_noautoconf" : "  ipv6ra_autoconf"},
        {true, ""},
    };
    std::string text;
    for (const auto& [present, line] : lines) {
        text += present ? line + "\n" : "";
    }
    return text;
}

/// The interfaces with a block, separated by blanks. A file of another name is not ours; its name must not
/// get into a command.
std::string interfaces() {
    std::vector<std::string> names;
    std::vector<std::string> allowed;
    split_into_vector(get_cfgs_name_in_dir(kDirectory, kBlockEnding), ' ', names);
    for (const std::string& name : names) {
        if (check_name(name) == NM_OK) {
            allowed.push_back(name);
        }
    }
    return vector_into_string(allowed, "", " ");
}

/// Every client reads the one file, so each is allowed its interface by all.
int dhcpcd_conf_generate() {
    NM_LOG(Debug) << "Enter";
    const std::string list = interfaces();
    const std::string command = list.empty() ? "/usr/bin/cat " NM_PRIVATE_DIR
                                               "/init.dhcpcd.conf > /etc/dhcpcd.conf"
                                             : R"(/usr/bin/echo \"allowinterfaces )" + list +
                                                   R"(\" > /etc/dhcpcd.conf; /usr/bin/cat )" NM_PRIVATE_DIR
                                                   "/init.dhcpcd.conf "
                                                   "/etc/networkmanagement/*.dhcpcd.conf >> /etc/dhcpcd.conf";
    return NM_EXIT(system_cmd(("/usr/bin/flock /etc/dhcpcd.conf -c \"" + command + "\"").c_str()));
}

/// Empty for a family without leases.
std::string lease_path(const std::string& ifname, unsigned char family) {
    if ((family != AF_INET && family != AF_INET6) || check_name(ifname) != NM_OK) {
        return "";
    }
    return "/var/db/dhcpcd/" + ifname + (family == AF_INET ? ".lease" : ".lease6");
}

bool delete_file(const std::string& path) {
    const bool deleted = remove(path.c_str()) == 0;
    if (!deleted && errno != ENOENT) {
        NM_LOG(Error) << path << " remove fail.";
    }
    return deleted;
}

int start(const std::string& ifname, const char* env) {
    const int ret = dhcpcd_conf_generate();
    return ret == NM_OK ? dhcpcd_iface_service_start(ifname, env) : ret;
}

int stop(std::string ifname, const char* env) {
    int ret = dhcpcd_conf_generate();
    if (ret == NM_OK) {
        ret = dhcpcd_iface_service_stop(ifname, env);
    }
    (void)set_ipv6_addrgenmode(ifname, "eui64");  // logged there; the client's result is the caller's
    return ret;
}

}  // namespace

int dhcpcd_iface_service_start(std::string ifname, const char* env) {
    return service_restart(nm::kDhcp6ClientUnit, ifname.c_str(), env);
}

int dhcpcd_iface_service_stop(std::string ifname, const char* env) {
    return service_stop(nm::kDhcp6ClientUnit, ifname.c_str(), env);
}

int dhcpcd_iface_set(const dhcpcd_iface* iface) {
    NM_LOG(Debug) << "Enter";
    if (iface == nullptr) {
        NM_LOG(Error) << "iface is Null pointer.";
        return NM_EXIT(NM_ERR_NULL_ARG);
    }
    const std::string ifname = text_of(iface->ifname);
    std::string iaid;
    int ret = check_name(ifname);
    if (ret == NM_OK) {
        ret = identify(text_of(iface->hw_ifname), iaid);
    }
    return NM_EXIT(ret == NM_OK ? writeValue(block_path(ifname), block_text(*iface, iaid), true) : ret);
}

int dhcpcd_iface_unset(std::string ifname) {
    NM_LOG(Debug) << "Enter";
    if (ifname.empty()) {
        NM_LOG(Error) << "No interface name.";
        return NM_EXIT(NM_ERR_NO_IFACE);
    }
    const int ret = check_name(ifname);
    if (ret != NM_OK) {
        return NM_EXIT(ret);
    }
    const std::string path = block_path(ifname);
    NM_LOG(Debug) << "Unset file: " << path;
    return NM_EXIT(delete_file(path) ? dhcpcd_conf_generate() : NM_OK);
}

int dhcpcd_iface_leased(std::string ifname, unsigned char family) {
    NM_LOG(Debug) << "Enter";
    const std::string path = lease_path(ifname, family);
    return NM_EXIT(!path.empty() && is_file_exists(path) ? 1 : 0);
}

int dhcpcd_iface_unleased(std::string ifname, unsigned char family) {
    NM_LOG(Debug) << "Enter";
    const std::string path = lease_path(ifname, family);
    const bool leased = !path.empty() && is_file_exists(path);
    return NM_EXIT(!leased || delete_file(path) ? NM_OK : -1);
}

int dhcpcd_iface_rebind(std::string ifname) {
    NM_LOG(Debug) << "Enter";
    return NM_EXIT(start(ifname, "DHCPCD_SVC_START=-n"));
}

int dhcpcd_iface_renew(std::string ifname) {
    NM_LOG(Debug) << "Enter";
    return NM_EXIT(start(ifname, "DHCPCD_SVC_START=-N"));
}

int dhcpcd_iface_release(std::string ifname) {
    NM_LOG(Debug) << "Enter";
    return NM_EXIT(stop(ifname, "DHCPCD_SVC_STOP=-k"));
}

int dhcpcd_iface_exit(std::string ifname) {
    NM_LOG(Debug) << "Enter";
    return NM_EXIT(stop(ifname, "DHCPCD_SVC_STOP=-x"));
}

int dhcpcd_iface_dhcp6_status(std::string ifname, Json::Value& status) {
    NM_LOG(Debug) << "Enter";
    status = Json::objectValue;
    status["ifname"] = ifname;
    status["ia_na"] = Json::objectValue;
    status["ia_pd"] = Json::objectValue;
    status["dhcp6_name_servers"] = Json::arrayValue;
    status["dhcp6_server_id"] = "";
    // A client that finds a pipe as its input reads a lease from there instead.
    if (check_name(ifname) == NM_OK) {
        nm::read_dhcp6_variables(exec(("/usr/sbin/dhcpcd -q -U -6 " + ifname + " </dev/null").c_str()),
                                 status);
    }
    return NM_EXIT(NM_OK);
}
