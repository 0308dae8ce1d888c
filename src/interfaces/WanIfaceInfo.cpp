// The addressing side of a WAN port, as far as the device side has to know it.
#include "interfaces/WanIfaceInfo.h"

#include "config/actions.h"
#include "kernel/link_state.h"
#include "log.h"
#include "result_codes.h"

int create_WAN_INFO(WanIfaceInfo** info, std::string ifname, std::string, Json::Value) {
    if (*info != nullptr) {
        NM_LOG(Error) << "info is not NULL";
        return NM_ERR_NOT_NULL;
    }
    NM_LOG(Debug) << ifname << " has no addressing side";
    return NM_ERR_BAD_TYPE;
}

int check_iface_link_up(WanIfaceInfo* info, unsigned int act) {
    if ((act & OPT_LINK_TOLD) == 0) {
        if (info == nullptr) {
            NM_LOG(Error) << "info is NULL";
            return 0;
        }
        return is_interface_link_up(info->get_ifname(), info->get_dev_type());
    }
    if ((act & OPT_LINK_TOLD_UP) == 0) {
        NM_LOG(Debug) << "Interface is down";
        return 0;
    }
    return 1;
}
