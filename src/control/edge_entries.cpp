// The entries of the small reloads.
#include "control/edge_entries.h"

#include <sys/socket.h>

#include <string>

#include "config/nmconfig.h"
#include "control/setup_frame.h"
#include "log.h"
#include "policy/edge/tcp_mss.h"
#include "result_codes.h"
#include "services/dns/hosts.h"
#include "utils/json_text.h"

namespace {

std::string text_or_empty(const char* text) {
    return text != nullptr ? text : "";
}

int reload_tcpmss(char* args) {
    if (args == nullptr) {
        NM_LOG(Error) << "args is Null pointer.";
        return NM_ERR_NULL_ARG;
    }
    Json::Value root;
    if (!nm::parse_json(args, root)) {
        NM_LOG(Error) << "Json parse failed. args:" << args;
        return NM_ERR_PARSE;
    }
    if (!root.isObject() || (root.isMember("path") && !root["path"].isString())) {
        NM_LOG(Error) << "root is not valid format, root:" << nm::show_json(root);
        return NM_ERR_BAD_FORMAT;
    }
    return set_tcp_mss(nm::json_string_or(root, "path", kDeviceInfoPath));
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
    return nm::run_entry(__PRETTY_FUNCTION__, [=] { return reload_tcpmss(args); });
}
