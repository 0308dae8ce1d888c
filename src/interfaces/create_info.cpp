// The factories of the addressing side by number.
#include "interfaces/create_info.h"

#include <algorithm>
#include <iterator>
#include <utility>

#include "config/actions.h"
#include "interfaces/lan/LanIfaceInfo.h"
#include "interfaces/uplink/UplinkIfaceInfo.h"
#include "log.h"
#include "result_codes.h"

namespace {

using Factory = int (*)(BaseIfaceInfo** info, const std::string& ifname, const std::string& path,
                        const Json::Value& cfg);

template <int kind>
int create_uplink(BaseIfaceInfo** info, const std::string& ifname, const std::string& path,
                  const Json::Value& cfg) {
    int ret = NM_OK;
    *info = nm::uplink_kind(kind).make_info(ifname, path, cfg, ret).release();
    return ret;
}

int create_lan(BaseIfaceInfo** info, const std::string& ifname, const std::string& path,
               const Json::Value& cfg) {
    LanIfaceInfo* created = nullptr;
    const int ret = create_LAN_INFO(&created, ifname, path, cfg);
    *info = created;
    return ret;
}

constexpr std::pair<int, Factory> kFactories[] = {{1, create_uplink<KIND_WAN>},
                                                  {2, create_lan},
                                                  {4, create_uplink<KIND_PRIVATE>},
                                                  {5, create_uplink<KIND_RGLINK>}};

}  // namespace

int create_INFO(BaseIfaceInfo** info, int type, std::string ifname, std::string path, Json::Value cfg) {
    NM_LOG(Debug) << "Enter";
    if (info == nullptr) {
        NM_LOG(Error) << "info is Null pointer.";
        return NM_EXIT(NM_ERR_NULL_ARG);
    }
    if (*info != nullptr) {
        NM_LOG(Error) << "info is not NULL";
        return NM_EXIT(NM_ERR_NOT_NULL);
    }
    const auto* const row = std::find_if(std::begin(kFactories), std::end(kFactories),
                                         [type](const auto& candidate) { return candidate.first == type; });
    if (row == std::end(kFactories)) {
        NM_LOG(Error) << "Interface type is not support! type=" << type;
        return NM_EXIT(NM_ERR_BAD_TYPE);
    }
    return NM_EXIT(row->second(info, ifname, path, cfg));
}
