// Commands to the peer daemons by name or by id.
#include "config/peer_updates.h"

#include "config/nmconfig.h"
#include "config/port_lookup.h"
#include "config/port_names.h"
#include "log.h"
#include "result_codes.h"
#include "utils/json_text.h"

namespace {

using Update = int (*)(std::string interface, uint8_t id, std::string path);

int update_ipinfo_of(std::string interface, uint8_t id, std::string path) {
    return update_ipinfo(id, interface, path);
}

int update_by_ifname(Update update, const std::string& interface, const std::string& path) {
    uint8_t id = 0;
    const int ret = get_id_by_wan_ifname(interface, id, path);
    if (ret != NM_OK) {
        NM_LOG(Error) << "get_id_by_wan_ifname failed! interface: " << interface;
        return ret;
    }
    return update(interface, id, path);
}

int update_by_id(Update update, uint8_t id, const std::string& path) {
    std::string interface;
    const int ret = get_ifname_by_wan_id(id, interface, path);
    if (ret != NM_OK) {
        NM_LOG(Error) << "get_ifname_by_wan_id failed! id: " << static_cast<int>(id);
        return ret;
    }
    return update(interface, id, path);
}

}  // namespace

int get_ifname_by_wan_id(uint8_t id, std::string& ifname, std::string path) {
    Json::Value root;
    if (json_file_to_mem(path, root) < 0) {
        return NM_ERR_NO_IFACE;
    }
    const Json::Value& infos = nm::json_member(root, "WAN_IFACE_INFO");
    for (auto info = infos.begin(); info != infos.end(); ++info) {
        if (static_cast<uint8_t>(nm::wan_id_of(root, *info, info.name())) == id) {
            ifname = info.name();
            return NM_OK;
        }
    }
    return NM_ERR_NO_IFACE;
}

int update_ncsi_by_ifname(std::string interface, std::string path) {
    return update_by_ifname(update_ncsi, interface, path);
}

int update_ncsi_by_id(uint8_t id, std::string path) {
    return update_by_id(update_ncsi, id, path);
}

int update_ipinfo(std::string interface, std::string path) {
    return update_by_ifname(update_ipinfo_of, interface, path);
}

int update_ipinfo_by_id(uint8_t id, std::string path) {
    return update_by_id(update_ipinfo_of, id, path);
}
