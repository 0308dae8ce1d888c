// Stored documents brought to the current format.
#include "config/migration.h"

#include "log.h"
#include "result_codes.h"

namespace {

int check_object(const Json::Value& config, const char* name) {
    if (config.isObject()) {
        return NM_OK;
    }
    NM_LOG(Error) << name << ": root is not valid format";
    return NM_ERR_BAD_FORMAT;
}

}  // namespace

int migrate_firewall(Json::Value& config) {
    return check_object(config, "firewall");
}

int migrate_policy(Json::Value& config) {
    return check_object(config, "policy");
}

int migrate_firewall_seg(Json::Value& config) {
    return check_object(config, "segment");
}

int migrate_qos(Json::Value& config) {
    return check_object(config, "qos");
}
