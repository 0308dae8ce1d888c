// The rows of the kinds of uplinks.
#include "interfaces/uplink/UplinkKind.h"

#include <map>

#include "config/actions.h"
#include "interfaces/uplink/WanIfaceInfo.h"
#include "interfaces/uplink/WanInterface.h"

namespace {

template <class Side, class T, int (*create)(T**, std::string, std::string, Json::Value)>
std::unique_ptr<Side> make(const std::string& name, const std::string& path, const Json::Value& cfg,
                           int& ret) {
    T* side = nullptr;
    ret = create(&side, name, path, cfg);
    return std::unique_ptr<Side>(side);
}

}  // namespace

namespace nm {

const UplinkKind& uplink_kind(int type) {
    static const std::map<int, UplinkKind> kinds{
        {KIND_WAN,
         {KIND_WAN,
          "WAN_IFACE_INFO",
          "WanInterface",
          "WanIfaceInfo",
          "Add info failed, interface: ",
          1,
          "Setup_TUN",
          "mlmd",
          true,
          {"DHCP", "STATIC", "PPPOE", "DISABLED"},
          {"PPPOE", "DHCP", "STATIC"},
          make<UplinkInterface, WanInterface, create_WAN>,
          make<UplinkIfaceInfo, WanIfaceInfo, create_WAN_INFO>}},
    };
    return kinds.at(type);
}

}  // namespace nm
