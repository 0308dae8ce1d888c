// The device side of a WAN port: the kernel interface, its MTU, its multipath flag and its QoS.
#pragma once

#include <memory>

#include "interfaces/common/BaseInterface.h"
#include "interfaces/uplink/WanIfaceInfo.h"

#pragma GCC visibility push(default)

class WanInterface : public BaseWanInterface {
public:
    /// Throws as BaseWanInterface does. A port can exist without its addressing side.
    WanInterface(std::string port, std::string path, Json::Value cfg);

    /// setup_if(), then the no-multipath flag and QoS whatever came of it. The result is that of setup_if().
    int add_if(uint32_t opt) override;
    /// Removes the addressing and stops QoS. Always 0: the delete of a port never fails towards its caller.
    int del_if(uint32_t opt) override;
    /// setup_if(); with OPT_RATE also QoS and the monitored bandwidth. The result is that of setup_if().
    int alt_if(uint32_t opt) override;
    /// del_info() of the addressing side, 0 without one.
    int del_info(uint32_t opt) override;
    /// With OPT_LINK sets the MTU and waits for the link if it was up. 0; NM_ERR_NO_IFACE; NM_ERR_BAD_TYPE
    /// without a device type; the code of setting the MTU.
    int setup_if(uint32_t opt) override;

    /// Type of the addressing side, "DISABLED" without one.
    std::string get_ip4_type();
    /// Tells the WAN monitor the configured send rate. 0, or the code of the call.
    int reset_wan_monitor_bandwidth();

protected:
    std::unique_ptr<WanIfaceInfo> info;

private:
    int set_mtu();
    void remove_left_over_pppoe();
    void apply_qos(int operation, const char* word);
};

/// Builds the WAN port `port` into `*wan` (null on entry, owned by the caller) from `cfg`, or from the
/// document at `path` if `cfg` is empty. "PORT1.100" stands for PORT1. 0; NM_ERR_NOT_NULL; NM_ERR_NULL_ARG;
/// NM_ERR_NO_SECTION; NM_ERR_NOT_FOUND; NM_ERR_BAD_FORMAT.
int create_WAN(WanInterface** wan, std::string port, std::string path, Json::Value cfg);

#pragma GCC visibility pop
