// The entries of the small reloads.
#include "control/edge_entries.h"

#include <sys/socket.h>

#include <string>

#include "config/nmconfig.h"
#include "control/lan_ipv6.h"
#include "control/setup_frame.h"
#include "interfaces/uplink/RGLinkIfaceInfo.h"
#include "log.h"
#include "policy/dnat/dnat.h"
#include "policy/edge/tcp_mss.h"
#include "policy/routes/static_route.h"
#include "result_codes.h"
#include "services/dns/hosts.h"
#include "utils/json_text.h"

namespace {

std::string text_or_empty(const char* text) {
    return text != nullptr ? text : "";
}

/// The arguments of a reload: an object whose member `path` is a text if it is there.
int read_arguments(const char* args, Json::Value& root) {
    if (args == nullptr) {
        NM_LOG(Error) << "args is Null pointer.";
        return NM_ERR_NULL_ARG;
    }
    if (!nm::parse_json(args, root)) {
        NM_LOG(Error) << "Json parse failed. args:" << args;
        return NM_ERR_PARSE;
    }
    if (!root.isObject() || (root.isMember("path") && !root["path"].isString())) {
        NM_LOG(Error) << "root is not valid format, root:" << nm::show_json(root);
        return NM_ERR_BAD_FORMAT;
    }
    return NM_OK;
}

/// A reload that needs the device document alone.
int reload(const char* args, int (*work)(std::string path)) {
    Json::Value root;
    const int ret = read_arguments(args, root);
    return ret != NM_OK ? ret : work(nm::json_string_or(root, "path", kDeviceInfoPath));
}

int reload_routes(const char* args) {
    Json::Value root;
    const int ret = read_arguments(args, root);
    if (ret != NM_OK) {
        return ret;
    }
    const std::string path = nm::json_string_or(root, "path", kDeviceInfoPath);
    const std::string family = nm::json_string_or(root, "family", "");
    if (family == "4") {
        return reload_static_route(path);
    }
    return family == "6" ? reload_static_route6(path) : __reload_static_route(path);
}

int reload_lans(const char* args) {
    Json::Value root;
    const int ret = read_arguments(args, root);
    return ret != NM_OK ? ret
                        : reload_lan_ipv6(nm::json_string_or(root, "path", kDeviceInfoPath),
                                          nm::json_string_or(root, "uplink", ""));
}

}  // namespace

int Add_hosts(char* ip, char* ifname) {
    return nm::run_entry(__PRETTY_FUNCTION__,
                         [=] { return add_hosts(text_or_empty(ip), text_or_empty(ifname)); });
}

int Del_hosts(char* ifname) {
    return nm::run_entry(__PRETTY_FUNCTION__, [=] { return del_hosts(text_or_empty(ifname), AF_INET); });
}

int Reload_tcpmss(char* args) {
    return nm::run_entry(__PRETTY_FUNCTION__, [=] { return reload(args, set_tcp_mss); });
}

int Reload_dnat(char* args) {
    return nm::run_entry(__PRETTY_FUNCTION__, [=] { return reload(args, reload_dnat); });
}

int Update_rglink_info(char* args) {
    return nm::run_entry(__PRETTY_FUNCTION__, [=] { return reload(args, update_rglink_info); });
}

int Reload_static_route(char* args) {
    return nm::run_entry(__PRETTY_FUNCTION__, [=] { return reload_routes(args); });
}

int Reload_lan_ipv6(char* args) {
    return nm::run_entry(__PRETTY_FUNCTION__, [=] { return reload_lans(args); });
}
