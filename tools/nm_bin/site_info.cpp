// What the VPN has to know of this site, reported once more: it forgets that when it is started or stopped.
#include <networkinterface.h>

#include <memory>
#include <string>

#include "nm_bin/commands.h"
#include "nm_bin/explain.h"

namespace nm_bin {

namespace {

/// An address in force without its prefix length.
std::string bare(const std::string& address) {
    return address.substr(0, address.find('/'));
}

/// An uplink without an address is reported when it gets one.
int register_uplink(const std::string& ifname) {
    WanIfaceInfo* created = nullptr;
    int code = create_WAN_INFO(&created, ifname, kDeviceInfoPath, Json::Value());
    const std::unique_ptr<WanIfaceInfo> uplink(created);
    if (code != NM_OK) {
        return code;
    }
    const std::string ip4 = bare(uplink->get_runtime_ip4());
    const std::string ip6 = bare(uplink->get_runtime_ip6());
    if (!ip4.empty() && uplink->get_ip4_type() != "DISABLED") {
        code = uplink->setup_ipsec(1, ip4);
    }
    if (!ip6.empty() && ip6.compare(0, 5, "fe80:") != 0 && uplink->get_ip6_type() != "DISABLED") {
        const int code6 = uplink->setup_ipsec6(1, ip6);
        code = code < NM_OK ? code : code6;
    }
    return code;
}

/// Under the lock of its setups, so that no older address is reported after a newer one.
int register_locked(const std::string& ifname) {
    const int lock = lock_ex(ifname.c_str());
    if (lock < 0) {
        return lock;
    }
    const int code = register_uplink(ifname);
    const int released = unlock_ex(lock, ifname.c_str(), false);
    return code < NM_OK ? code : released;
}

}  // namespace

int site_info(const Arguments& words, const Options& options) {
    if (words != Arguments{"-l", "-r"}) {
        return usage_error("site_info takes -l -r");
    }
    INITIALIZE_LOG("MAIN");
    Json::Value device;
    int code = json_file_to_mem(kDeviceInfoPath, device);
    const Json::Value uplinks = code == NM_OK && device.isObject() ? device["WAN_IFACE_INFO"] : Json::Value();
    for (const std::string& ifname : uplinks.isObject() ? uplinks.getMemberNames() : Json::Value::Members()) {
        const int ret = register_locked(ifname);
        code = code < NM_OK ? code : ret;
    }
    // Run in the background of another command, it has nothing to say in its place.
    return code < NM_OK ? print_result(code, options) : kExitOk;
}

}  // namespace nm_bin
