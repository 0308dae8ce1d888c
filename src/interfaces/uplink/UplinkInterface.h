// The device of an uplink: its life cycle, its MTU, its multipath flag, its QoS, and the bandwidth that its
// monitor is given. What a kind of uplinks does differently is a row of UplinkKind or an operation that it
// overrides.
//
// Operations take no lock: whoever builds the object holds the lock of the interface.
#pragma once

#include <memory>

#include "interfaces/common/BaseInterface.h"
#include "interfaces/uplink/UplinkIfaceInfo.h"

#pragma GCC visibility push(default)

class UplinkInterface : public BaseWanInterface {
public:
    /// Throws as BaseWanInterface does. A port can exist without its addressing side. `kind` outlives the
    /// object.
    UplinkInterface(const UplinkKind& kind, const std::string& port, std::string path, Json::Value cfg);

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
    /// Tells the link monitor the configured send rate. 0, or the code of the call.
    int reset_wan_monitor_bandwidth();

protected:
    /// A kind with PPPoE sessions does first what its sessions need.
    virtual int set_mtu();
    /// Ends the session that is configured on the device, by `take_down` of the stored state, which knows
    /// what belongs to it. That state may be of another type already, if the caller has stored the new one:
    /// what is live on the port is then not to be touched, and the session alone is ended. False if there is
    /// none.
    bool end_session(int (*take_down)(UplinkIfaceInfo& stored));

    const UplinkKind& kind;
    std::unique_ptr<UplinkIfaceInfo> info;

private:
    void apply_qos(int operation, const char* word);
};

#pragma GCC visibility pop
