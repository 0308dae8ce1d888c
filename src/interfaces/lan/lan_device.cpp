// Steps that the devices of the LAN side share.
#include "interfaces/lan/lan_device.h"

#include <net/if.h>
#include <unistd.h>

#include <algorithm>
#include <array>

#include "kernel/device_path.h"
#include "kernel/link.h"
#include "kernel/vlan.h"
#include "log.h"
#include "result_codes.h"
#include "utils/device_facts.h"
#include "utils/json_text.h"
#include "utils/mac.h"
#include "utils/strings.h"

namespace {

void set_flag(const std::string& ifname, unsigned int flag, const char* word) {
    if (set_iface_flags(ifname.c_str(), flag) != NM_OK) {
        NM_LOG(Error) << "set_iface_flags " << word << " failed: " << ifname;
    }
}

bool have_one_address(const std::string& ifname, const std::string& other) {
    std::array<unsigned char, 6> address{};
    std::array<unsigned char, 6> other_address{};
    return get_raw_mac_addr(ifname.c_str(), address.data()) == NM_OK &&
           get_raw_mac_addr(other.c_str(), other_address.data()) == NM_OK && address == other_address;
}

}  // namespace

namespace nm {

/// Asked by the name's ioctl, the kernel would look for a module of that name before it says no, by a
/// process.
bool device_exists(const std::string& ifname) {
    return !leaves_directory(ifname) && access(("/sys/class/net/" + ifname + "/ifindex").c_str(), F_OK) == 0;
}

void bring_up_lan_device(const std::string& ifname) {
    set_flag(ifname, IFF_UP, "IFF_UP");
    set_flag(ifname, IFF_NOMULTIPATH, "IFF_NOMULTIPATH");
}

void bring_up_trunk(const std::string& ifname) {
    set_flag(ifname, IFF_UP, "IFF_UP");
}

int make_vlan_device(const std::string& trunk, int vid) {
    const std::string device = vlan_device(trunk, vid);
    const auto id = static_cast<unsigned short>(vid);
    if (!device_exists(device)) {
        (void)add_vlanif(trunk.c_str(), id);  // logged; a device that did not come up was made all the same
    }
    if (!device_exists(device) || !have_one_address(trunk, device)) {
        return NM_OK;
    }
    const int ret = xor_mac_addr(device.c_str(), id);
    if (ret != NM_OK) {
        NM_LOG(Error) << "Set mac addr error. ret=" << ret;
    }
    return ret;
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
        const int id = string_to_int(json_scalar(entry));
        const bool repeated = std::count(ids.begin(), ids.end(), id) != 0;
        if (id >= 0 && id < kVlanIds && !repeated) {
            ids.push_back(id);
        }
    }
    return ids;
}

}  // namespace nm
