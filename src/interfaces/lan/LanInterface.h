// The device side of a LAN port, in the two forms that appliances have: a port that is a device of its own
// (virtual machines), and a trunk that carries VLANs into the bridges of their segments (hardware models).
#pragma once

#include <json/value.h>

#include <cstdint>
#include <string>
#include <vector>

#include "config/actions.h"
#include "interfaces/common/BaseInterface.h"

#pragma GCC visibility push(default)

/// The change mask of a LAN port: the bit that means the IPv6 side elsewhere says here that its VLAN or its
/// list of VLANs changed, and all bits together that the whole port comes or goes.
constexpr uint32_t OPT_LAN_VLANS = OPT_IP6;
constexpr uint32_t OPT_LAN_ALL = 63;

/// A port that is a device of its own, with a `VLAN_ID` a VLAN device that has the port's interface name.
class PortLanInterface : public BaseInterface {
public:
    /// Reads the entry of `port` in `LAN_PORT` from `cfg`, or from the document at `path` if `cfg` is empty.
    /// Throws NM_ERR_NULL_ARG, NM_ERR_NO_SECTION, NM_ERR_NOT_FOUND, NM_ERR_BAD_FORMAT.
    PortLanInterface(std::string port, std::string path, Json::Value cfg);

    /// Makes the VLAN device if the port has one, brings the interface up and sets it up. The result is that
    /// of setup_if().
    int add_if(uint32_t opt) override;
    /// Removes the addressing and the VLAN device. Failures are logged: always 0.
    int del_if(uint32_t opt) override;
    /// With OPT_LAN_VLANS takes down the port as it is stored, adds this one and sets up its addressing anew,
    /// otherwise setup_if(). The code of building the stored port, which leaves all as it is, of setup_if(),
    /// or the first failure of add_if() and the addressing.
    int alt_if(uint32_t opt) override;

    /// With OPT_LINK sets the MTU of the hardware port, then of the VLAN device upon it, or of the interface
    /// alone where there is no such port, and waits for the link if it was up. 0; NM_ERR_NO_IFACE;
    /// NM_ERR_BAD_TYPE without a device type; the code of setting the MTU.
    int setup_if(uint32_t opt);
    /// Disables the addressing that lies on the interface; the first failure, 0 without addressing.
    int del_info();

protected:
    int get_config();
    int get_config_from_json();

    Json::Value cfg;
    int vlan_id = 0;
    std::string seg_id;

private:
    bool has_vlan() const;
    void create_vlan_device();
    int set_mtu();
    int add_info();
};

/// A trunk: VLANs as devices of its own, each of which joins the bridge of its VLAN.
class TagLanInterface : public BaseInterface {
public:
    /// As PortLanInterface.
    TagLanInterface(std::string port, std::string path, Json::Value cfg);

    /// Adds the VLANs that the stored configuration lacks, or all with OPT_LAN_ALL or OPT_NO_DHCP_REFRESH.
    /// The code of building the stored port, or the result of the last VLAN.
    int add_if(uint32_t opt) override;
    /// Removes the VLANs that only the stored configuration has, or all of this one with OPT_LAN_ALL. The
    /// code of building the stored port, otherwise 0.
    int del_if(uint32_t opt) override;
    /// With OPT_LAN_VLANS removes the VLANs that left and then adds those that came; others are not touched.
    /// The code of building the stored port, or the result of the last VLAN.
    int alt_if(uint32_t opt) override;

    /// The VLAN ids in the order of the configuration; 0 is the trunk itself.
    std::vector<int> get_vlans();

    /// Makes the device of one VLAN, brings it up, and joins it to the bridge of the VLAN if there is one.
    /// Its MTU follows the bridge's; the trunk is raised to it where it is smaller. The first member makes
    /// the bridge set its own MTU. The first failure of checking, joining and setting the MTU; the code of
    /// giving the device an address of its own ends the call.
    int add_single_if(uint32_t opt, uint16_t vid);
    /// Takes the device out of the bridge and deletes it; VID 0 is only taken out. The last failure.
    int del_single_if(uint16_t vid);
    /// Checks one device. 0; NM_ERR_NO_IFACE; NM_ERR_BAD_TYPE without a device type.
    int setup_if(uint32_t opt, std::string ifname);
    /// Nothing is written to the switch on this platform; the calls stand where others would do it.
    int set_edma();

protected:
    int get_config();
    int get_config_from_json();

    Json::Value cfg;
    std::string edma_bmp;
    std::string edma_vlan_tag;
    std::vector<int> vlans;

private:
    struct Difference;
    int compare_with_stored(Difference& difference);
    int join(int vid, const std::string& device);
    int follow_bridge_mtu(int bridge_mtu, const std::string& device);
    int add_all(uint32_t opt, const std::vector<int>& vids);
    int del_all(const std::vector<int>& vids);
};

/// Build a LAN port into `*lan` (null on entry, owned by the caller). For a trunk "PORT1.100" stands for
/// PORT1. 0; NM_ERR_NOT_NULL; what the constructors throw.
int create_LAN(PortLanInterface** lan, std::string port, std::string path, Json::Value cfg);
int create_LAN(TagLanInterface** lan, std::string port, std::string path, Json::Value cfg);

#pragma GCC visibility pop
