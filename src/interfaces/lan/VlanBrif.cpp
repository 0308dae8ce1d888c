// The bridge of a VLAN segment.
#include "interfaces/lan/VlanBrif.h"

#include <net/if.h>

#include <algorithm>
#include <cstdlib>
#include <filesystem>
#include <memory>
#include <utility>

#include "config/nmconfig.h"
#include "interfaces/common/factory.h"
#include "interfaces/common/target.h"
#include "interfaces/lan/LanIfaceInfo.h"
#include "interfaces/lan/lan_device.h"
#include "kernel/bridge.h"
#include "kernel/link.h"
#include "log.h"
#include "result_codes.h"
#include "utils/json_text.h"

namespace {

bool is_member_of_a_bridge(const std::string& ifname) {
    std::error_code absent;
    return std::filesystem::exists("/sys/class/net/" + ifname + "/master", absent);
}

}  // namespace

VlanBrif::VlanBrif(std::string seg, std::string path, Json::Value cfg)
    : BaseInterface(std::move(seg), std::move(path)), cfg(std::move(cfg)) {
    const int ret = this->cfg.empty() ? get_config() : get_config_from_json();
    if (ret != NM_OK) {
        throw ret;
    }
}

int VlanBrif::get_config() {
    return json_file_to_mem(path, cfg) < 0 ? NM_ERR_NOT_FOUND : get_config_from_json();
}

int VlanBrif::get_config_from_json() {
    const Json::Value& section = nm::json_member(cfg, "VLAN_SEG");
    if (section.empty()) {
        NM_LOG(Error) << "Could not get [VLAN_SEG] in device_info.";
        return NM_ERR_NO_KEY;
    }
    const Json::Value& entry = nm::json_member(section, portname);
    if (entry.empty()) {
        NM_LOG(Error) << "Could not get [" << portname << "] in [VLAN_SEG].";
        return NM_ERR_NO_SUBKEY;
    }
    interface = nm::json_text(entry, "INTERFACE");
    if (interface.empty()) {
        NM_LOG(Error) << "[INTERFACE] should not be empty!";
        return NM_ERR_EMPTY;
    }
    const std::string tree = nm::json_text(entry, "STP", "0");
    if (tree != "0" && tree != "1") {
        NM_LOG(Error) << "[STP] only accept 0/1!";
        return NM_ERR_BAD_VALUE;
    }
    stp = tree == "1" ? 1 : 0;
    mtu = atoi(nm::json_text(entry, "MTU", "1500").c_str());
    seg_id = nm::json_text(entry, "SEG_ID");
    vlans = nm::vlan_ids(nm::json_member(entry, "VLANS"));
    read_members(nm::json_member(cfg, "LAN_PORT"));
    return NM_OK;
}

void VlanBrif::read_members(const Json::Value& ports) {
    for (const Json::Value& port : ports) {
        const std::string trunk = nm::json_string_or(port, "INTERFACE", "");
        const std::vector<int> carried = nm::vlan_ids(nm::json_member(port, "VLANS"));
        for (const int vid : vlans) {
            if (!trunk.empty() && std::count(carried.begin(), carried.end(), vid) != 0) {
                members.push_back(nm::vlan_device(trunk, vid));
            }
        }
    }
}

int VlanBrif::add_if(uint32_t opt) {
    NM_LOG(Debug) << "Enter";
    if (nm::device_exists(interface)) {
        NM_LOG(Debug) << "br_addbr " << interface << ", but vlanbr already exists.";
    } else {
        create_bridge();
    }
    const bool has_taken_in = nm::device_exists(interface) && take_in_waiting_members();
    nm::bring_up_lan_device(interface);
    const int ret = setup_if(has_taken_in ? opt | OPT_VLANBR_MTU : opt);
    nm::inspect_lan_device(true, interface);
    return NM_EXIT(ret);
}

void VlanBrif::create_bridge() {
    NM_LOG(Debug) << "br does not exist, do vlanbr_addbr " << interface;
    if (br_addbr(interface.c_str()) != NM_OK) {
        NM_LOG(Error) << "br_addbr [" << interface << "] failed!";
        return;
    }
    NM_LOG(Debug) << "br_addbr [" << interface << "] successfully.";
}

/// A trunk that was set up before its bridge made its VLAN devices and had nothing to join them to; a bridge
/// that is there may be one of a call that was killed before it took them in. The trunk itself (VID 0) stays
/// out: it is there from the beginning, and only its own set-up may take it.
bool VlanBrif::take_in_waiting_members() {
    bool has_taken_in = false;
    for (const std::string& member : members) {
        if (nm::trunk_of(member).empty() || !nm::device_exists(member) || is_member_of_a_bridge(member)) {
            continue;
        }
        const int ret = br_addif(interface.c_str(), member.c_str());
        if (ret != NM_OK) {
            NM_LOG(Error) << "Add: " << member << " into bridge: " << interface << " failed, ret=" << ret;
            continue;
        }
        has_taken_in = true;
    }
    return has_taken_in;
}

int VlanBrif::alt_if(uint32_t opt) {
    NM_LOG(Debug) << "Enter";
    return NM_EXIT(setup_if(opt));
}

int VlanBrif::setup_if(uint32_t opt) {
    NM_LOG(Debug) << "Enter";
    const int mtu_ret = (opt & OPT_VLANBR_MTU) != 0 ? follow_mtu() : NM_OK;
    const int stp_ret = (opt & OPT_VLANBR_STP) != 0 ? set_stp() : NM_OK;
    return NM_EXIT(mtu_ret != NM_OK ? mtu_ret : stp_ret);
}

/// The members come first: a bridge can have no MTU above that of its smallest port for long, and a VLAN
/// device none above its trunk's.
int VlanBrif::follow_mtu() {
    const std::vector<std::string> ports = get_bridge_slaves(interface);
    if (ports.empty()) {
        NM_LOG(Debug) << "No bridge slaves, skip MTU setup.";
        return NM_OK;
    }
    for (const std::string& port : ports) {
        const std::string trunk = nm::trunk_of(port);
        int present = 0;
        if (!trunk.empty() && nm::read_mtu("interface", trunk, present) == NM_OK && mtu > present) {
            (void)nm::write_mtu("interface", trunk, mtu);  // logged; the member may still be set
        }
        (void)nm::write_mtu("interface", port, mtu);  // logged; the others are to follow all the same
    }
    const int ret = set_if_mtu(interface.data(), mtu);
    if (ret != NM_OK) {
        NM_LOG(Error) << "setup mtu failed";
    }
    return ret;
}

int VlanBrif::set_stp() {
    NM_LOG(Debug) << "br_stp: ifname " << interface << ", stp " << stp;
    const int ret = br_stp(interface, stp);
    if (ret != NM_OK) {
        NM_LOG(Error) << "setup stp failed! ret: " << ret;
    }
    return ret;
}

int VlanBrif::del_if() {
    NM_LOG(Debug) << "Enter";
    if (!nm::device_exists(interface)) {
        NM_LOG(Error) << "vlanbr delif " << interface << ", but vlanbr does not exist.";
    }
    if (del_info() != NM_OK) {
        NM_LOG(Error) << "del info failed";
    }
    if (del_slaves() != NM_OK) {
        NM_LOG(Error) << "Delete slave failed: " << interface;
    }
    int ret = unset_iface_flags(interface.c_str(), IFF_UP);
    if (ret == NM_OK) {
        ret = br_delbr(interface.c_str());
    }
    nm::inspect_lan_device(false, interface);
    return NM_EXIT(ret);
}

int VlanBrif::del_info() {
    const std::unique_ptr<LanIfaceInfo> info = nm::lan_info_of(interface, path, cfg);
    return info != nullptr ? info->del_info(0) : NM_OK;
}

int VlanBrif::del_slaves() {
    for (const std::string& member : members) {
        const int ret = br_delif(interface.c_str(), member.c_str());
        if (ret != NM_OK) {
            NM_LOG(Error) << "br_delif(" << interface << ", " << member << ") failed";
            return ret;
        }
    }
    return NM_OK;
}

int create_VLANBR(VlanBrif** vlanbr, std::string seg, std::string path, Json::Value cfg) {
    NM_LOG(Debug) << "Enter";
    return NM_EXIT(nm::build(vlanbr, "lan", seg, path, std::move(cfg)));
}

int _setup_vlanbr(std::string seg, uint32_t act, uint32_t opt, std::string path, Json::Value cfg) {
    static const nm::Family<VlanBrif> family{
        "LanInterface",
        create_VLANBR,
        [](VlanBrif& bridge, const std::string&) { return bridge.get_interface(); },
        &VlanBrif::add_if,
        &VlanBrif::del_if,
        &VlanBrif::alt_if,
    };
    return nm::run_target(family, {std::move(seg), act, opt, std::move(path), std::move(cfg)});
}
