// The references of stored rules to services.
#include "config/service_references.h"

#include "config/nmconfig.h"
#include "config/service_ports.h"
#include "utils/files.h"
#include "utils/json_text.h"

namespace nm {

namespace {

using References = std::vector<ServiceReference>;

void add_references(const char* document, const std::string& place, const Json::Value& rules,
                    std::initializer_list<const char*> keys, References& references) {
    for (Json::ArrayIndex i = 0; rules.isArray() && i < rules.size(); ++i) {
        for (const char* key : keys) {
            const std::string name = json_string_or(rules[i], key, "");
            if (!name.empty()) {
                references.push_back({document, place + "/" + std::to_string(i) + "/" + key, name});
            }
        }
    }
}

void add_document(const char* name, References& references) {
    const std::string path = std::string("/etc/networkmanagement/") + name + ".json";
    Json::Value document;
    if (!is_file_exists(path) || json_file_to_mem(path, document) < 0) {
        return;
    }
    const Json::Value& rules = json_member(document, "RULES");
    for (const std::string& key : rules.isObject() ? rules.getMemberNames() : Json::Value::Members()) {
        add_references(name, "/RULES/" + json_pointer_token(key), rules[key],
                       {kSourceService, kDestinationService}, references);
    }
    add_references(name, "/PORT_FORWARDING", json_member(document, "PORT_FORWARDING"), {kForwardService},
                   references);
}

}  // namespace

std::vector<ServiceReference> stored_service_references() {
    References references;
    for (const char* document : {"firewall", "policy"}) {
        add_document(document, references);
    }
    return references;
}

}  // namespace nm
