// 802.1Q devices, by the kernel's VLAN ioctl.
#include "kernel/vlan.h"

#include <linux/if_vlan.h>
#include <linux/sockios.h>
#include <net/if.h>
#include <netlink/route/link/vlan.h>
#include <sys/ioctl.h>
#include <sys/socket.h>

#include <cerrno>
#include <cstdio>
#include <cstring>

#include "kernel/link.h"
#include "kernel/netlink.h"
#include "log.h"
#include "result_codes.h"
#include "utils/call_notes.h"
#include "utils/files.h"
#include "utils/handles.h"
#include "utils/json_text.h"

namespace {

constexpr int kLongestName = 16;
constexpr unsigned short kVlanIds = 4096;
constexpr unsigned short kPriorities = 8;

void warn_without_vlan_support() {
    if (!is_file_exists("/proc/net/vlan/config")) {
        fputs(
            "WARNING:  Could not open /proc/net/vlan/config. Maybe you need to load the 8021q module, or "
            "maybe you are not using PROCFS??\n",
            stderr);
    }
}

/// Sends one request about the device. `attempt` says for standard error what was tried.
int ask_kernel(const char* ifname, vlan_ioctl_args request, const std::string& attempt) {
    warn_without_vlan_support();
    if (strlen(ifname) > kLongestName) {
        fprintf(stderr, "ERROR:  dev must be %d characters or less.\n", kLongestName);
        return NM_ERR_VLAN_NAME;
    }
    const nm::FileDescriptor socket(::socket(AF_INET, SOCK_STREAM | SOCK_CLOEXEC, 0));
    if (!socket) {
        fputs("FATAL:  Couldn't open a socket..go figure!\n", stderr);
        return NM_ERR_VLAN_SOCKET;
    }
    (void)snprintf(request.device1, sizeof(request.device1), "%s", ifname);  // its length is checked above
    const nm::Step step("ioctl", "SIOCSIFVLAN", ifname);
    if (ioctl(socket.get(), SIOCSIFVLAN, &request) < 0) {
        fprintf(stderr, "ERROR: trying to %s  error: %s\n", attempt.c_str(), strerror(errno));
        return NM_ERR_VLAN_IOCTL;
    }
    return NM_OK;
}

const char* shown(const char* ifname) {
    return ifname != nullptr ? ifname : "";
}

}  // namespace

int add_vlan(const char* ifname, unsigned short vid) {
    if (ifname == nullptr || vid == 0 || vid >= kVlanIds) {
        return NM_ERR_VLAN_ARG;
    }
    vlan_ioctl_args request{};
    request.cmd = ADD_VLAN_CMD;
    request.u.VID = vid;
    const int ret =
        ask_kernel(ifname, request, "add VLAN #" + std::to_string(vid) + " to IF -:" + ifname + ":-");
    if (ret == NM_OK && vid == 1) {
        fputs(
            "WARNING:  VLAN 1 does not work with many switches,\n"
            "consider another number if you have problems.\n",
            stderr);
    }
    return ret;
}

int del_vlan(const char* vlan_ifname) {
    if (vlan_ifname == nullptr) {
        return NM_ERR_VLAN_ARG;
    }
    vlan_ioctl_args request{};
    request.cmd = DEL_VLAN_CMD;
    return ask_kernel(vlan_ifname, request, std::string("del VLAN device ") + vlan_ifname);
}

int edit_vlan_egress_prio(const char* vlan_ifname, unsigned short qos, unsigned int skb_prio) {
    if (vlan_ifname == nullptr || qos >= kPriorities) {
        return NM_ERR_VLAN_ARG;
    }
    vlan_ioctl_args request{};
    request.cmd = SET_VLAN_EGRESS_PRIORITY_CMD;
    request.u.skb_priority = skb_prio;
    request.vlan_qos = static_cast<short>(qos);
    return ask_kernel(vlan_ifname, request,
                      "add mapping SKB PRIO#" + std::to_string(skb_prio) + " to VLAN QOS#" +
                          std::to_string(qos) + " on IF -:" + vlan_ifname + ":-");
}

int add_vlanif(const char* ifname, unsigned short vid) {
    NM_LOG(Debug) << "Enter";
    int ret = add_vlan(ifname, vid);
    if (ret < 0) {
        NM_LOG(Error) << shown(ifname) << " add vlan id " << vid << " failed.";
        return NM_EXIT(ret);
    }
    const std::string device = std::string(ifname) + "." + std::to_string(vid);
    ret = set_iface_flags(device.c_str(), IFF_UP);
    if (ret < 0) {
        NM_LOG(Error) << device << " set_iface_flags error. ret = " << ret;
    }
    return NM_EXIT(ret);
}

int del_vlanif(const char* vlan_ifname) {
    NM_LOG(Debug) << "Enter";
    const int ret = del_vlan(vlan_ifname);
    if (ret < 0) {
        NM_LOG(Error) << "remove vlan " << shown(vlan_ifname) << " fail";
    }
    return NM_EXIT(ret);
}

int edit_vlanif_prio(const char* vlan_ifname, unsigned short qos, unsigned int skb_prio) {
    NM_LOG(Debug) << "Enter";
    const int ret = edit_vlan_egress_prio(vlan_ifname, qos, skb_prio);
    if (ret < 0) {
        NM_LOG(Error) << shown(vlan_ifname) << " edit vlan qos, skb[" << skb_prio << "] to qos[" << qos
                      << "] failed.";
    }
    return NM_EXIT(ret);
}

int is_vlan_interface(const char* ifname) {
    if (ifname == nullptr) {
        return NM_ERR_NL_ARG;
    }
    nm::NlSocket socket;
    const int ret = nm::connect_route_socket(socket, {NM_ERR_NL_SOCKET, NM_ERR_NL_CONNECT});
    if (ret != NM_OK) {
        return ret;
    }
    nm::RtnlLink link;
    const nm::LinkSearch search = nm::find_link(socket.get(), ifname, link);
    if (search == nm::LinkSearch::Failed) {
        return NM_ERR_NOMEM;
    }
    return search == nm::LinkSearch::Found && rtnl_link_is_vlan(link.get()) != 0 ? 1 : 0;
}

std::string get_vlan_ifname(const Json::Value& config, std::string seg) {
    const Json::Value& segment = nm::json_member(nm::json_member(config, "VLAN_SEG"), seg);
    return nm::json_string_or(segment, "INTERFACE", "");
}
