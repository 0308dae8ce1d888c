// Steps that the devices of the LAN side share.
#include "interfaces/lan/lan_device.h"

#include <net/if.h>
#include <unistd.h>

#include <algorithm>

#include "kernel/device_path.h"
#include "kernel/link.h"
#include "log.h"
#include "result_codes.h"
#include "utils/device_facts.h"
#include "utils/strings.h"

namespace nm {

/// Asked by the name's ioctl, the kernel would look for a module of that name before it says no, by a
/// process.
bool device_exists(const std::string& ifname) {
    return !leaves_directory(ifname) && access(("/sys/class/net/" + ifname + "/ifindex").c_str(), F_OK) == 0;
}

void bring_up_lan_device(const std::string& ifname) {
    if (set_iface_flags(ifname.c_str(), IFF_UP) != NM_OK) {
        NM_LOG(Error) << "set_iface_flags IFF_UP failed: " << ifname;
    }
    if (set_iface_flags(ifname.c_str(), IFF_NOMULTIPATH) != NM_OK) {
        NM_LOG(Error) << "set_iface_flags IFF_NOMULTIPATH failed: " << ifname;
    }
}

int read_mtu(const std::string& word, const std::string& ifname, int& mtu) {
    const int ret = get_if_mtu(ifname.c_str(), &mtu);
    if (ret != NM_OK) {
        NM_LOG(Error) << "Get " << word << ": " << ifname << " MTU FAILED.";
    }
    return ret;
}

int write_mtu(const std::string& word, const std::string& ifname, int mtu) {
    std::string name = ifname;
    const int ret = set_if_mtu(name.data(), mtu);
    if (ret != NM_OK) {
        NM_LOG(Error) << "Set " << word << ": " << ifname << " MTU FAILED.";
    }
    return ret;
}

void inspect_lan_device(bool on, std::string ifname) {
    constexpr int kLanRole = 2;
    (void)setup_dpi(on ? 1 : 0, kLanRole, ifname);  // the LAN works without it
}

std::string vlan_device(const std::string& trunk, int vid) {
    return vid == 0 ? trunk : trunk + "." + std::to_string(vid);
}

std::string vlan_bridge(int vid) {
    return "br_v" + std::to_string(vid);
}

std::string trunk_of(const std::string& ifname) {
    const size_t point = ifname.find('.');
    return point == std::string::npos ? "" : ifname.substr(0, point);
}

std::vector<int> vlan_ids(const Json::Value& list) {
    constexpr int kVlanIds = 4096;
    std::vector<int> ids;
    if (!list.isArray()) {
        return ids;
    }
    for (const Json::Value& entry : list) {
        const int id = entry.isConvertibleTo(Json::stringValue) ? string_to_int(entry.asString()) : -1;
        const bool repeated = std::count(ids.begin(), ids.end(), id) != 0;
        if (id >= 0 && id < kVlanIds && !repeated) {
            ids.push_back(id);
        }
    }
    return ids;
}

}  // namespace nm
