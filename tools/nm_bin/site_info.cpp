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
int report(UplinkIfaceInfo& uplink) {
    const std::string ip4 = bare(uplink.get_runtime_ip4());
    return !ip4.empty() && uplink.get_ip4_type() != "DISABLED" ? uplink.setup_ipsec(1, ip4) : NM_OK;
}

int report(WanIfaceInfo& uplink) {
    const int code = report(static_cast<UplinkIfaceInfo&>(uplink));
    const std::string ip6 = bare(uplink.get_runtime_ip6());
    if (ip6.empty() || ip6.compare(0, 5, "fe80:") == 0 || uplink.get_ip6_type() == "DISABLED") {
        return code;
    }
    const int code6 = uplink.setup_ipsec6(1, ip6);
    return code < NM_OK ? code : code6;
}

template <class Info, int (*create)(Info**, std::string, std::string, Json::Value)>
int register_uplink(const std::string& ifname) {
    Info* created = nullptr;
    const int code = create(&created, ifname, kDeviceInfoPath, Json::Value());
    const std::unique_ptr<Info> uplink(created);
    return code == NM_OK ? report(*uplink) : code;
}

/// The uplinks that the VPN knows; it has no part in private circuits.
struct Section {
    const char* name;
    int (*register_uplink)(const std::string& ifname);
};
constexpr Section kSections[] = {
    {"WAN_IFACE_INFO", register_uplink<WanIfaceInfo, create_WAN_INFO>},
    {"RGLINK_IFACE_INFO", register_uplink<RGLinkIfaceInfo, create_RGLINK_INFO>},
};

/// Under the lock of its setups, so that no older address is reported after a newer one.
int register_locked(const Section& section, const std::string& ifname) {
    const int lock = lock_ex(ifname.c_str());
    if (lock < 0) {
        return lock;
    }
    const int code = section.register_uplink(ifname);
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
    for (const Section& section : kSections) {
        const Json::Value uplinks = device.isObject() ? device[section.name] : Json::Value();
        for (const std::string& ifname :
             uplinks.isObject() ? uplinks.getMemberNames() : Json::Value::Members()) {
            const int ret = register_locked(section, ifname);
            code = code < NM_OK ? code : ret;
        }
    }
    // Run in the background of another command, it has nothing to say in its place.
    return code < NM_OK ? print_result(code, options) : kExitOk;
}

}  // namespace nm_bin
