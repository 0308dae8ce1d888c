// The target layers of the kinds of uplinks: one for their devices and one for the addressing on them. A kind
// is its number.
#pragma once

#include <memory>
#include <string>
#include <utility>

#include "interfaces/common/target.h"
#include "interfaces/uplink/UplinkInterface.h"

namespace nm {

template <int kind>
int create_uplink(UplinkInterface** device, std::string port, std::string path, Json::Value cfg) {
    int ret = NM_OK;
    *device = uplink_kind(kind).make_device(port, path, std::move(cfg), ret).release();
    return ret;
}

template <int kind>
int create_uplink(UplinkIfaceInfo** info, std::string ifname, std::string path, Json::Value cfg) {
    int ret = NM_OK;
    *info = uplink_kind(kind).make_info(ifname, path, std::move(cfg), ret).release();
    return ret;
}

/// A device, under the lock of its interface.
template <int kind>
int run_uplink_device(Target target) {
    static const Family<UplinkInterface> family{
        uplink_kind(kind).device_class,
        create_uplink<kind>,
        [](UplinkInterface& device, const std::string&) { return device.get_interface(); },
        &UplinkInterface::add_if,
        &UplinkInterface::del_if,
        &UplinkInterface::alt_if,
    };
    return run_target(family, std::move(target));
}

/// Its addressing, under the same lock: that of the interface which the request names, never of the one that
/// the traffic runs on.
template <int kind>
int run_uplink_info(Target target) {
    static const Family<UplinkIfaceInfo> family{
        uplink_kind(kind).info_class,
        create_uplink<kind>,
        [](UplinkIfaceInfo&, const std::string& ifname) { return ifname; },
        &UplinkIfaceInfo::add_info,
        &UplinkIfaceInfo::del_info,
        &UplinkIfaceInfo::alt_info,
    };
    return run_target(family, std::move(target));
}

}  // namespace nm
