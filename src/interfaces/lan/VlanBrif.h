// A VLAN segment: the bridge that the LAN's addresses lie on, its MTU, which its members follow, and its
// spanning tree. Trunks join their VLAN devices to it (interfaces/lan/LanInterface.h).
#pragma once

#include <json/value.h>

#include <cstdint>
#include <string>
#include <vector>

#include "interfaces/common/BaseInterface.h"

#pragma GCC visibility push(default)

/// Bits of the change mask as a segment reads them.
constexpr uint32_t OPT_VLANBR_MTU = 0x01;
constexpr uint32_t OPT_VLANBR_STP = 0x02;

/// One segment, an entry of `VLAN_SEG` keyed by the decimal VLAN id.
class VlanBrif : public BaseInterface {
public:
    /// Reads the entry of `seg` from `cfg`, or from the document at `path` if `cfg` is empty. Throws
    /// NM_ERR_NULL_ARG, NM_ERR_NOT_FOUND, NM_ERR_NO_KEY without the section, NM_ERR_NO_SUBKEY without the
    /// segment, NM_ERR_EMPTY without the bridge's name, NM_ERR_BAD_VALUE for an `STP` other than 0 and 1.
    VlanBrif(std::string seg, std::string path, Json::Value cfg);

    /// Makes the bridge unless it is there, takes in VLAN devices of its members that have no bridge yet, and
    /// sets it up. The result is that of setup_if().
    int add_if(uint32_t opt) override;
    /// Removes the addressing, releases the members and deletes the bridge. The result is that of taking it
    /// down and deleting it, so also NM_ERR_IOCTL for a bridge that is not there.
    virtual int del_if();
    /// The mask says nothing about a delete.
    int del_if(uint32_t) override { return del_if(); }
    /// setup_if().
    int alt_if(uint32_t opt) override;

    /// OPT_VLANBR_MTU sets the MTU of all members and then of the bridge; a trunk beneath a member is raised
    /// to it and never lowered. Without members nothing is set: the first one that joins brings the MTU
    /// about. OPT_VLANBR_STP sets the spanning tree. Both are tried; the first failure is the result.
    int setup_if(uint32_t opt);
    /// Removes the addressing that lies on the bridge; 0 without one.
    int del_info();
    /// Releases the members that the document lists, up to the first failure, which is the result.
    int del_slaves();

protected:
    int get_config();
    int get_config_from_json();

    Json::Value cfg;
    std::string seg_id;
    int stp = 0;
    std::vector<int> vlans;
    /// Devices of the `LAN_PORT` entries that carry one of the VLANs.
    std::vector<std::string> members;

private:
    void read_members(const Json::Value& ports);
    void create_bridge();
    bool take_in_waiting_members();
    int follow_mtu();
    int set_stp();
};

/// Builds a segment into `*vlanbr` (null on entry, owned by the caller). 0; NM_ERR_NOT_NULL; what the
/// constructor throws; NM_ERR_BAD_FORMAT.
int create_VLANBR(VlanBrif** vlanbr, std::string seg, std::string path, Json::Value cfg);

/// The target layer: one segment, under the lock of its bridge. A delete reads the stored document in place
/// of `path` and `cfg`. Trunks call it for the first member of a bridge while they hold their own lock, which
/// is the trunk's name and so another one.
int _setup_vlanbr(std::string seg, uint32_t act, uint32_t opt, std::string path, Json::Value cfg);

#pragma GCC visibility pop
