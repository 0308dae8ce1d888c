// Documents of the packet policy, applied in the place of what was applied before.
#include <networkinterface.h>

#include <iostream>

#include "nm_bin/entries.h"

namespace nm_bin {

namespace {

/// What puts one stored document in the place of another, and says what it refused.
using Apply = int (*)(Json::Value& old_config, Json::Value& new_config, std::string& error);

template <Apply apply>
int apply_document(Arguments& words) {
    INITIALIZE_LOG("MAIN");
    Json::Value new_config;
    Json::Value old_config;
    int code = json_file_to_mem(words[0], new_config);
    if (code < 0) {
        return code;
    }
    code = json_file_to_mem(words[1], old_config);
    if (code < 0 && code != NM_ERR_NOT_FOUND) {
        return code;
    }
    if (!new_config.isObject() || !(old_config.isObject() || old_config.isNull())) {
        return NM_ERR_BAD_FORMAT;  // A list has no rules, and would take away all that are in force.
    }
    std::string error;
    code = apply(old_config, new_config, error);
    if (!error.empty()) {
        std::cerr << "nm_bin: " << error << "\n";
    }
    if (code < 0) {
        return code;
    }
    copy_access(words[0], words[1]);
    return json_mem_to_file(words[1], new_config, false);
}

int apply_firewall(Json::Value& old_config, Json::Value& new_config, std::string& error) {
    return setup_firewall(old_config, new_config, "mangle", "FIREWALL", error);
}

/// Classes first: without them there is no steering, and they do not outlive one that is refused.
int apply_policy(Json::Value& old_config, Json::Value& new_config, std::string& error) {
    int code = setup_firewall_policy(old_config, new_config, error);
    if (code < 0) {
        return code;
    }
    code = setup_firewall(old_config, new_config, "mangle", "STEER", error);
    if (code < 0 && !old_config.isNull()) {
        std::string ignored;
        (void)setup_firewall_policy(new_config, old_config, ignored);  // logged
    }
    return code;
}

int apply_dnat(Json::Value& old_config, Json::Value& new_config, std::string& error) {
    return setup_dnat(old_config["PORT_FORWARDING"], new_config["PORT_FORWARDING"], error, kDeviceInfoPath);
}

/// The tables are written anew, whatever stood in the old document.
template <int (*setup)(Json::Value& config, std::string path)>
int apply_routes(Json::Value& /*old_config*/, Json::Value& new_config, std::string& /*error*/) {
    return setup(new_config, kDeviceInfoPath);
}

}  // namespace

int apply_firewall_document(Arguments& words) {
    return apply_document<apply_firewall>(words);
}

int apply_policy_document(Arguments& words) {
    return apply_document<apply_policy>(words);
}

int apply_segment_document(Arguments& words) {
    return apply_document<setup_firewall_segment>(words);
}

int apply_dnat_document(Arguments& words) {
    return apply_document<apply_dnat>(words);
}

int apply_static_route_document(Arguments& words) {
    return apply_document<apply_routes<setup_static_route>>(words);
}

int apply_static_route6_document(Arguments& words) {
    return apply_document<apply_routes<setup_static_route6>>(words);
}

}  // namespace nm_bin
