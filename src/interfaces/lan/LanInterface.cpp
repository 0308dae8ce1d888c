// The device side of LAN ports.
#include "interfaces/lan/LanInterface.h"

#include <cstdlib>
#include <memory>
#include <utility>

#include "config/nmconfig.h"
#include "interfaces/common/factory.h"
#include "interfaces/lan/LanIfaceInfo.h"
#include "interfaces/lan/VlanBrif.h"
#include "interfaces/lan/lan_device.h"
#include "kernel/bridge.h"
#include "kernel/link.h"
#include "kernel/link_state.h"
#include "kernel/vlan.h"
#include "log.h"
#include "result_codes.h"
#include "utils/containers.h"
#include "utils/json_text.h"
#include "utils/mac.h"

namespace {

/// The entry of a port in the document. NM_ERR_NO_SECTION; NM_ERR_BAD_FORMAT.
int find_entry(const Json::Value& cfg, const std::string& portname, Json::Value& entry) {
    entry = nm::json_member(nm::json_member(cfg, "LAN_PORT"), portname);
    if (entry.empty()) {
        return NM_ERR_NO_SECTION;
    }
    if (!entry.isObject()) {
        NM_LOG(Error) << "[LAN_PORT]-[" << portname << "] is not valid format";
        return NM_ERR_BAD_FORMAT;
    }
    return NM_OK;
}

/// The port as the stored document has it.
template <class T>
int build_stored(const std::string& portname, std::unique_ptr<T>& stored) {
    T* created = nullptr;
    const int ret = create_LAN(&created, portname, kDeviceInfoPath, Json::Value());
    stored.reset(created);
    return ret;
}

}  // namespace

PortLanInterface::PortLanInterface(std::string port, std::string path, Json::Value cfg)
    : BaseInterface(std::move(port), std::move(path)), cfg(std::move(cfg)) {
    const int ret = this->cfg.empty() ? get_config() : get_config_from_json();
    if (ret != NM_OK) {
        throw ret;
    }
}

int PortLanInterface::get_config() {
    return json_file_to_mem(path, cfg) < 0 ? NM_ERR_NOT_FOUND : get_config_from_json();
}

int PortLanInterface::get_config_from_json() {
    Json::Value entry;
    const int ret = find_entry(cfg, portname, entry);
    if (ret != NM_OK) {
        return ret;
    }
    read_port_entry(entry);
    vlan_id = atoi(nm::json_text(entry, "VLAN_ID", "0").c_str());
    seg_id = nm::json_text(entry, "SEG_ID");
    return NM_OK;
}

bool PortLanInterface::has_vlan() const {
    return vlan_id >= 1 && vlan_id <= 4095;
}

int PortLanInterface::add_if(uint32_t opt) {
    NM_LOG(Debug) << "Enter";
    if (has_vlan()) {
        create_vlan_device();
    }
    nm::bring_up_lan_device(interface);
    const int ret = setup_if(opt);
    nm::inspect_lan_device(true, interface);
    return NM_EXIT(ret);
}

/// The device has its own name for a moment only: whether it is there already is asked by the interface's
/// name. One that an interrupted call left behind is given its interface's name now.
void PortLanInterface::create_vlan_device() {
    nm::bring_up_trunk(hw_port);
    if (nm::device_exists(interface)) {
        return;
    }
    const std::string device = nm::vlan_device(hw_port, vlan_id);
    (void)nm::make_vlan_device(hw_port, vlan_id);  // logged; the device serves with its trunk's address, too
    if (!nm::device_exists(device)) {
        return;
    }
    const int ret = link_rename(device.c_str(), interface.c_str(), 1);
    if (ret != NM_OK) {
        NM_LOG(Error) << "Link rename error. ret=" << ret;
    }
}

int PortLanInterface::setup_if(uint32_t opt) {
    NM_LOG(Debug) << "Enter";
    if (!nm::device_exists(interface)) {
        NM_LOG(Error) << interface << " does not exist";
        return NM_EXIT(NM_ERR_NO_IFACE);
    }
    const bool was_up = is_iface_up(interface) == 1;
    if (dev_type.empty()) {
        return NM_EXIT(NM_ERR_BAD_TYPE);
    }
    if ((opt & OPT_LINK) == 0) {
        return NM_EXIT(NM_OK);
    }
    const int ret = set_mtu();
    if (ret == NM_OK && was_up) {
        NM_LOG(Debug) << "wait for interface up after setup MTU/Physical info";
        if (wait_for_iface_up(interface) != 0) {
            NM_LOG(Error) << "wait for interface up fail";
        }
    }
    return NM_EXIT(ret);
}

/// The hardware port is renamed to the interface where the port has no VLAN; then only that name is left. A
/// VLAN device can have no MTU above that of the port beneath it.
int PortLanInterface::set_mtu() {
    const bool has_hardware = nm::device_exists(hw_port);
    const int ret = has_hardware ? set_if_mtu(hw_port.data(), mtu) : NM_OK;
    return ret == NM_OK && (has_vlan() || !has_hardware) ? set_if_mtu(interface.data(), mtu) : ret;
}

int PortLanInterface::del_if(uint32_t) {
    NM_LOG(Debug) << "Enter";
    if (!nm::device_exists(interface)) {
        NM_LOG(Error) << "lan_port delif " << interface << ", but lan_port does not exist.";
    }
    if (del_info() != NM_OK) {
        NM_LOG(Error) << "del info failed";
    }
    if (has_vlan() && del_vlanif(interface.c_str()) != NM_OK) {
        NM_LOG(Error) << interface << " does not exist";
    }
    nm::inspect_lan_device(false, interface);
    return NM_EXIT(NM_OK);
}

/// Guest rules go by the interface's name and stay: the port comes back under it when its VLAN changes.
int PortLanInterface::del_info() {
    const std::unique_ptr<LanIfaceInfo> info = nm::lan_info_of(interface, path, cfg);
    if (info == nullptr) {
        return NM_OK;
    }
    const int ret = info->disable_ipv6();
    const int ip4_ret = info->disable_ipv4(0);
    return ret != NM_OK ? ret : ip4_ret;
}

int PortLanInterface::alt_if(uint32_t opt) {
    NM_LOG(Debug) << "Enter";
    if ((opt & OPT_LAN_VLANS) == 0) {
        return NM_EXIT(setup_if(opt));
    }
    std::unique_ptr<PortLanInterface> stored;
    const int ret = build_stored(portname, stored);
    if (ret != NM_OK) {
        NM_LOG(Error) << portname << " does not exist in " << kDeviceInfoPath;
        return NM_EXIT(ret);
    }
    (void)stored->del_if(0);  // never fails towards its caller
    const int added = add_if(opt);
    const int addressed = add_info();
    return NM_EXIT(added != NM_OK ? added : addressed);
}

/// The addresses went with the device, and what hangs on them was taken back with it. Guest rules stayed.
int PortLanInterface::add_info() {
    const std::unique_ptr<LanIfaceInfo> info = nm::lan_info_of(interface, path, cfg);
    return info != nullptr ? info->add_info(OPT_IP4 | OPT_IP6) : NM_OK;
}

/// What a trunk's list of VLANs differs in from its stored state.
struct TagLanInterface::Difference {
    std::unique_ptr<TagLanInterface> stored;
    std::vector<int> came;
    std::vector<int> left;
};

TagLanInterface::TagLanInterface(std::string port, std::string path, Json::Value cfg)
    : BaseInterface(std::move(port), std::move(path)), cfg(std::move(cfg)) {
    const int ret = this->cfg.empty() ? get_config() : get_config_from_json();
    if (ret != NM_OK) {
        throw ret;
    }
}

int TagLanInterface::get_config() {
    return json_file_to_mem(path, cfg) < 0 ? NM_ERR_NOT_FOUND : get_config_from_json();
}

int TagLanInterface::get_config_from_json() {
    Json::Value entry;
    const int ret = find_entry(cfg, portname, entry);
    if (ret != NM_OK) {
        return ret;
    }
    read_port_entry(entry);
    edma_bmp = nm::json_text(entry, "EDMA_BMP", "0");
    edma_vlan_tag = nm::json_text(entry, "EDMA_VLAN_TAG", "0");
    vlans = nm::vlan_ids(nm::json_member(entry, "VLANS"));
    return NM_OK;
}

int TagLanInterface::compare_with_stored(Difference& difference) {
    const int ret = build_stored(portname, difference.stored);
    if (ret != NM_OK) {
        NM_LOG(Error) << "Create current TagLanInterface instance failed, ret=" << ret;
        return ret;
    }
    std::vector<int> stored_vlans = difference.stored->vlans;
    std::vector<int> own_vlans = vlans;
    return vector_diff(stored_vlans, own_vlans, difference.came, difference.left);
}

int TagLanInterface::add_all(uint32_t opt, const std::vector<int>& vids) {
    int ret = NM_OK;
    for (const int vid : vids) {
        ret = add_single_if(opt, static_cast<uint16_t>(vid));
    }
    return ret;
}

int TagLanInterface::del_all(const std::vector<int>& vids) {
    int ret = NM_OK;
    for (const int vid : vids) {
        ret = del_single_if(static_cast<uint16_t>(vid));
    }
    return ret;
}

int TagLanInterface::add_if(uint32_t opt) {
    NM_LOG(Debug) << "Enter";
    if (opt == OPT_LAN_ALL || (opt & OPT_NO_DHCP_REFRESH) != 0) {
        (void)set_edma();  // nothing can fail there
        return NM_EXIT(add_all(opt, vlans));
    }
    Difference difference;
    const int ret = compare_with_stored(difference);
    return NM_EXIT(ret != NM_OK ? ret : add_all(opt, difference.came));
}

int TagLanInterface::del_if(uint32_t opt) {
    NM_LOG(Debug) << "Enter";
    if (opt == OPT_LAN_ALL) {
        (void)del_all(vlans);  // each failure is logged; a delete goes on
        return NM_EXIT(NM_OK);
    }
    Difference difference;
    const int ret = compare_with_stored(difference);
    if (ret == NM_OK) {
        (void)difference.stored->del_all(difference.left);  // as above
    }
    return NM_EXIT(ret);
}

int TagLanInterface::alt_if(uint32_t opt) {
    NM_LOG(Debug) << "Enter";
    Difference difference;
    int ret = compare_with_stored(difference);
    if (ret != NM_OK) {
        return NM_EXIT(ret);
    }
    if ((opt & OPT_EDMA) != 0) {
        (void)set_edma();  // nothing can fail there
    }
    if ((opt & OPT_LAN_VLANS) != 0) {
        ret = difference.stored->del_all(difference.left);
        ret = difference.came.empty() ? ret : add_all(opt, difference.came);
    }
    return NM_EXIT(ret);
}

int TagLanInterface::add_single_if(uint32_t opt, uint16_t vid) {
    NM_LOG(Debug) << "Enter";
    const std::string device = nm::vlan_device(interface, vid);
    int ret = NM_OK;
    if (vid != 0) {
        nm::bring_up_trunk(interface);
        ret = nm::make_vlan_device(interface, vid);
    }
    if (ret != NM_OK) {
        return NM_EXIT(ret);
    }
    nm::bring_up_lan_device(device);
    ret = setup_if(opt, device);
    const int joined = nm::device_exists(nm::vlan_bridge(vid)) ? join(vid, device) : NM_OK;
    return NM_EXIT(ret != NM_OK ? ret : joined);
}

int TagLanInterface::join(int vid, const std::string& device) {
    const std::string bridge = nm::vlan_bridge(vid);
    const bool is_first = get_bridge_slaves(bridge).empty();
    int bridge_mtu = 0;
    (void)nm::read_mtu("bridge", bridge, bridge_mtu);  // logged
    const int ret = br_addif(bridge.c_str(), device.c_str());
    if (ret != NM_OK) {
        NM_LOG(Error) << "Add: " << device << " into bridge: " << bridge << " failed, ret=" << ret;
    }
    nm::inspect_lan_device(false, bridge);
    nm::inspect_lan_device(true, bridge);
    if (is_first) {
        NM_LOG(Debug) << "Setup very first bridge MTU.";
        if (_setup_vlanbr(std::to_string(vid), ACT_ALT, OPT_VLANBR_MTU, path, Json::Value()) != NM_OK) {
            NM_LOG(Error) << "Setup very first bridge MTU failed.";
        }
        // The bridge had no MTU worth following before.
        (void)nm::read_mtu("bridge", bridge, bridge_mtu);  // logged
    }
    const int followed = follow_bridge_mtu(bridge_mtu, device);
    return ret != NM_OK ? ret : followed;
}

/// A device of a VLAN can have no MTU above its trunk's. The trunk carries other VLANs and is never lowered,
/// so that one whose MTU is not known stays as it is. A bridge that went meanwhile has no MTU to follow.
int TagLanInterface::follow_bridge_mtu(int bridge_mtu, const std::string& device) {
    if (bridge_mtu == 0) {
        return NM_ERR_IOCTL;
    }
    int trunk_mtu = 0;
    const int ret = nm::read_mtu("ethernet", interface, trunk_mtu);
    NM_LOG(Debug) << "Bridge MTU:  " << bridge_mtu << ", Ethernet MTU: " << trunk_mtu;
    if (ret == NM_OK && bridge_mtu > trunk_mtu) {
        (void)nm::write_mtu("ethernet", interface, bridge_mtu);  // logged; the member may still be set
    }
    return nm::write_mtu("vlan interface", device, bridge_mtu);
}

int TagLanInterface::del_single_if(uint16_t vid) {
    NM_LOG(Debug) << "Enter";
    const std::string device = nm::vlan_device(interface, vid);
    const std::string bridge = nm::vlan_bridge(vid);
    int ret = NM_OK;
    if (!nm::device_exists(device)) {
        NM_LOG(Error) << "lan_port delif " << device << ", but lan_port does not exist.";
    }
    if (nm::device_exists(bridge)) {
        ret = br_delif(bridge.c_str(), device.c_str());
        nm::inspect_lan_device(false, bridge);
        nm::inspect_lan_device(true, bridge);
    }
    if (vid != 0) {
        ret = del_vlanif(device.c_str());
    }
    if (ret == NM_OK) {
        NM_LOG(Info) << "delete " << device << " successfully.";
    }
    return NM_EXIT(ret);
}

int TagLanInterface::setup_if(uint32_t, std::string ifname) {
    NM_LOG(Debug) << "Enter";
    int ret = NM_OK;
    if (!nm::device_exists(ifname)) {
        NM_LOG(Error) << ifname << " does not exist";
        ret = NM_ERR_NO_IFACE;
    } else if (dev_type.empty()) {
        ret = NM_ERR_BAD_TYPE;
    }
    if (ret != NM_OK) {
        NM_LOG(Error) << "setup " << ifname << " failed! ret=" << ret;
        return NM_EXIT(ret);
    }
    NM_LOG(Debug) << "setup " << ifname << " successfully.";
    return NM_EXIT(NM_OK);
}

int create_LAN(PortLanInterface** lan, std::string port, std::string path, Json::Value cfg) {
    NM_LOG(Debug) << "Enter";
    return NM_EXIT(nm::build(lan, "lan", port, path, std::move(cfg)));
}

int create_LAN(TagLanInterface** lan, std::string port, std::string path, Json::Value cfg) {
    NM_LOG(Debug) << "Enter";
    return NM_EXIT(nm::build(lan, "lan", nm::port_without_vlan(port), path, std::move(cfg)));
}

std::vector<int> TagLanInterface::get_vlans() {
    return vlans;
}

int TagLanInterface::set_edma() {
    return 0;
}
