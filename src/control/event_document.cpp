// The search for the document that an event belongs to.
#include "control/event_document.h"

#include "config/nmconfig.h"
#include "config/schema.h"
#include "result_codes.h"
#include "utils/files.h"
#include "utils/json_text.h"

namespace {

std::string configured_type(const Json::Value& root, const std::string& ifname, const char* key) {
    for (const auto& [name, number] : ifacetype_map) {
        const Json::Value& info = nm::json_member(nm::json_member(root, name + "_IFACE_INFO"), ifname);
        if (info.isObject()) {
            return nm::json_string_or(info, key, "DISABLED");
        }
    }
    return "";
}

}  // namespace

int nm::find_event_document(const std::string& ifname, const char* type_key, const std::string& type,
                            const std::string& other, EventDocument& document) {
    document.path = kDeviceInfoPath;
    const int ret = json_file_to_mem(document.path, document.root);
    if (ret == NM_OK && configured_type(document.root, ifname, type_key) == type) {
        return NM_OK;
    }
    document.path = other;
    if (is_file_exists(document.path) && json_file_to_mem(document.path, document.root) == NM_OK &&
        configured_type(document.root, ifname, type_key) == type) {
        return NM_OK;
    }
    return ret != NM_OK ? ret : NM_ERR_BAD_TYPE;
}
