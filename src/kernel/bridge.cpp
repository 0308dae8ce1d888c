// Bridge devices, by libnl's link objects; the spanning tree by sysfs.
#include "kernel/bridge.h"

#include <net/if.h>
#include <netlink/route/link/bridge.h>

#include <cstring>

#include "kernel/device_path.h"
#include "kernel/netlink.h"
#include "result_codes.h"
#include "utils/directories.h"
#include "utils/files.h"

namespace {

constexpr nm::ConnectCodes kConnect{NM_ERR_BR_SOCKET, NM_ERR_BR_CONNECT};

bool is_missing(const char* name) {
    // An empty name would make the kernel choose one.
    return name == nullptr || *name == '\0';
}

/// libnl would cut such a name, and the request would reach another device.
bool is_too_long(const char* name) {
    return strlen(name) >= IFNAMSIZ;
}

/// The device of that name. NM_ERR_BR_NO_DEVICE; NM_ERR_BR_CACHE if the kernel does not tell.
int find_device(nl_sock* socket, const char* name, nm::RtnlLink& link) {
    switch (nm::find_link(socket, name, link)) {
        case nm::LinkSearch::Found:
            return NM_OK;
        case nm::LinkSearch::Absent:
            return NM_ERR_BR_NO_DEVICE;
        case nm::LinkSearch::Failed:
            break;
    }
    return NM_ERR_BR_CACHE;
}

/// What is done to a port, and the code of its failure.
struct PortChange {
    int (*request)(nl_sock* socket, rtnl_link* bridge, rtnl_link* port);
    int failure;
};

constexpr PortChange kEnslave{rtnl_link_enslave, NM_ERR_BR_ENSLAVE};
constexpr PortChange kRelease{
    [](nl_sock* socket, rtnl_link*, rtnl_link* port) { return rtnl_link_release(socket, port); },
    NM_ERR_BR_RELEASE};

int change_port(const PortChange& change, const char* bridge_name, const char* port_name) {
    if (is_missing(bridge_name) || is_missing(port_name)) {
        return NM_ERR_BR_ARG;
    }
    nm::NlSocket socket;
    int ret = nm::connect_route_socket(socket, kConnect);
    if (ret != NM_OK) {
        return ret;
    }
    nm::RtnlLink bridge;
    nm::RtnlLink port;
    ret = find_device(socket.get(), bridge_name, bridge);
    ret = ret == NM_OK ? find_device(socket.get(), port_name, port) : ret;
    if (ret != NM_OK) {
        return ret;
    }
    if (rtnl_link_is_bridge(bridge.get()) == 0) {
        return NM_ERR_BR_TYPE;
    }
    return change.request(socket.get(), bridge.get(), port.get()) < 0 ? change.failure : NM_OK;
}

}  // namespace

int br_addbr(const char* name) {
    if (is_missing(name)) {
        return NM_ERR_BR_ARG;
    }
    if (is_too_long(name)) {
        return NM_ERR_BR_ADD;
    }
    nm::NlSocket socket;
    const int ret = nm::connect_route_socket(socket, kConnect);
    if (ret != NM_OK) {
        return ret;
    }
    // Whether there is such a device makes no difference, but a kernel that can't tell is not asked to make
    // one.
    nm::RtnlLink present;
    if (find_device(socket.get(), name, present) == NM_ERR_BR_CACHE) {
        return NM_ERR_BR_CACHE;
    }
    const nm::RtnlLink link = nm::named_link(name);
    if (link == nullptr) {
        return NM_ERR_BR_LINK;
    }
    if (rtnl_link_set_type(link.get(), "bridge") < 0) {
        return NM_ERR_BR_TYPE;
    }
    return rtnl_link_add(socket.get(), link.get(), NLM_F_CREATE) < 0 ? NM_ERR_BR_ADD : NM_OK;
}

int br_delbr(const char* name) {
    if (is_missing(name)) {
        return NM_ERR_BR_ARG;
    }
    if (is_too_long(name)) {
        return NM_ERR_BR_DELETE;
    }
    nm::NlSocket socket;
    const int ret = nm::connect_route_socket(socket, kConnect);
    if (ret != NM_OK) {
        return ret;
    }
    const nm::RtnlLink link = nm::named_link(name);
    if (link == nullptr) {
        return NM_ERR_BR_LINK;
    }
    return rtnl_link_delete(socket.get(), link.get()) < 0 ? NM_ERR_BR_DELETE : NM_OK;
}

int br_addif(const char* bridge, const char* port) {
    return change_port(kEnslave, bridge, port);
}

int br_delif(const char* bridge, const char* port) {
    return change_port(kRelease, bridge, port);
}

int br_stp(const std::string& bridge, int on) {
    if (bridge.empty()) {
        return NM_ERR_BR_ARG;
    }
    if (on != 0 && on != 1) {
        return NM_ERR_BR_TYPE;
    }
    if (nm::leaves_directory(bridge)) {
        return NM_ERR_BR_SYSFS;
    }
    const std::string path = "/sys/devices/virtual/net/" + bridge + "/bridge/stp_state";
    return writeValue(path, std::to_string(on), false) == NM_OK ? NM_OK : NM_ERR_BR_SYSFS;
}

std::vector<std::string> get_bridge_slaves(std::string bridge) {
    if (nm::leaves_directory(bridge)) {
        return {};
    }
    return scandir_filter(("/sys/class/net/" + bridge + "/brif").c_str(), nullptr);
}
