// The keys of a document's section.
#include "utils/json_keys.h"

#include "log.h"
#include "result_codes.h"

int get_key_list(Json::Value& root, std::string key, std::vector<std::string>& keys) {
    keys.clear();
    if (root.empty()) {
        NM_LOG(Error) << "Empty json value, return.";
        return NM_ERR_NO_KEY;
    }
    // The JSON library throws on a lookup in what is not an object. A null section is an empty one.
    if (!root.isObject() || !root.isMember(key) || !(root[key].isObject() || root[key].isNull())) {
        NM_LOG(Error) << "Cannot get key, return.";
        return NM_ERR_NO_SUBKEY;
    }
    for (const std::string& name : root[key].getMemberNames()) {
        if (!name.empty()) {
            keys.push_back(name);
        }
    }
    return NM_OK;
}
