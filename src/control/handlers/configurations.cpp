// The handlers of stored documents: fetch, apply, and keep what is in force or put it back.
#include <cstdlib>
#include <string>

#include "config/migration.h"
#include "config/nmconfig.h"
#include "control/handlers/vs_reply.h"
#include "log.h"
#include "peers/bus/qos_rate.h"
#include "peers/bus/service_bus.h"
#include "policy/dnat/dnat.h"
#include "policy/edge/alg.h"
#include "policy/edge/attack_defense.h"
#include "policy/firewall/firewall.h"
#include "policy/firewall/policy.h"
#include "policy/firewall/segment.h"
#include "policy/routes/static_route.h"
#include "result_codes.h"
#include "utils/files.h"
#include "utils/json_text.h"

namespace {

constexpr const char* kMain = "MAIN";
constexpr bool kFileAlone = true;  // third argument of json_mem_to_file()

/// A stored document, the copy of what is in force, and what is done with it.
struct Configuration {
    const char* path;
    const char* current;
    int (*migrate)(Json::Value& config);
    int (*apply)(Json::Value& old_config, Json::Value& new_config, std::string& error);
    /// What follows an apply that worked; its failure is answered, but the document stays. May be null.
    int (*complete)(Json::Value& old_config, Json::Value& new_config, std::string& error);
};

int read_document(const char* path, Json::Value& document) {
    const int ret = json_file_to_mem(path, document);
    if (ret < 0) {
        NM_LOG(Error) << "json_file_to_mem fail. path = " << path;
    }
    return ret;
}

int write_document(const char* path, Json::Value& document, bool force_file) {
    const int ret = json_mem_to_file(path, document, force_file);
    if (ret < 0) {
        NM_LOG(Error) << "json_mem_to_file fail. path = " << path;
    }
    return ret;
}

/// Stores again what is in force. After a boot there may be nothing yet; the document stays then.
void put_back(const char* path, const Json::Value& in_force) {
    if (in_force.isNull()) {
        NM_LOG(Error) << "Nothing was in force before, keep " << path;
        return;
    }
    Json::Value document = in_force;
    (void)write_document(path, document, kFileAlone);  // logged; the failure that led here is answered
}

/// The copy of what is in force, null if there is none.
Json::Value read_in_force(const char* path) {
    Json::Value in_force;
    if (!is_file_exists(path) || read_document(path, in_force) < 0) {
        return Json::Value();
    }
    return in_force;
}

int apply(const Configuration& configuration, const Json::Value& in_force, Json::Value& document,
          std::string& error) {
    Json::Value old_config = in_force;
    int ret = configuration.migrate(document);
    if (ret == NM_OK) {
        ret = configuration.apply(old_config, document, error);
    }
    if (ret != NM_OK) {
        put_back(configuration.path, in_force);
        return ret;
    }
    ret = configuration.complete != nullptr ? configuration.complete(old_config, document, error) : NM_OK;
    const int kept = write_document(configuration.current, document, !kFileAlone);
    return ret != NM_OK ? ret : kept;
}

nm::Answer set_up(const Configuration& configuration) {
    sync_file(configuration.path);
    Json::Value document;
    std::string error;
    int ret = read_document(configuration.path, document);
    if (ret >= 0) {
        ret = apply(configuration, read_in_force(configuration.current), document, error);
    }
    return {ret, error};
}

void set_up_switches(const Json::Value& document) {
    const Json::Value& helpers = nm::json_member(document, "ALG");
    if (helpers.isString()) {
        (void)setup_alg(static_cast<uint32_t>(strtoul(helpers.asCString(), nullptr, 0)));  // never fails
    }
    const Json::Value& defence = nm::json_member(document, "ATTACK_DEFENSE");
    if (defence.isString()) {
        // The rules are worth having without it.
        (void)setup_attack_defense(static_cast<uint32_t>(strtoul(defence.asCString(), nullptr, 0)));
    }
}

int apply_firewall(Json::Value& old_config, Json::Value& new_config, std::string& error) {
    set_up_switches(new_config);
    return setup_firewall(old_config, new_config, "mangle", "FIREWALL", error);
}

/// Forwards that are refused leave the old ones, in the stored document as well.
int apply_forwards(Json::Value& old_config, Json::Value& new_config, std::string& error) {
    if (!new_config.isMember("PORT_FORWARDING")) {
        return NM_OK;
    }
    Json::Value old_rules = nm::json_member(old_config, "PORT_FORWARDING");
    const int ret = setup_dnat(old_rules, new_config["PORT_FORWARDING"], error, kDeviceInfoPath);
    if (ret != NM_OK) {
        new_config["PORT_FORWARDING"] = old_rules;
        (void)write_document("/etc/networkmanagement/firewall.json", new_config, kFileAlone);  // logged
    }
    return ret;
}

int apply_policy(Json::Value& old_config, Json::Value& new_config, std::string& error) {
    const int ret = setup_firewall_policy(old_config, new_config, error);
    return ret != NM_OK ? ret : setup_firewall(old_config, new_config, "mangle", "STEER", error);
}

nm::Answer set_up_firewall(const Json::Value&) {
    return set_up({"/etc/networkmanagement/firewall.json", "/var/run/network/firewall.curr", migrate_firewall,
                   apply_firewall, apply_forwards});
}

nm::Answer set_up_policy(const Json::Value&) {
    return set_up({"/etc/networkmanagement/policy.json", "/var/run/network/policy.curr", migrate_policy,
                   apply_policy, nullptr});
}

nm::Answer set_up_segment(const Json::Value&) {
    return set_up({"/etc/networkmanagement/segment.json", "/var/run/network/segment.curr",
                   migrate_firewall_seg, setup_firewall_segment, nullptr});
}

/// Routes are kept as they were migrated, in the stored document too.
nm::Answer set_up_routes(const char* path, const char* current,
                         int (*apply_routes)(Json::Value& config, std::string path)) {
    sync_file(path);
    Json::Value document;
    int ret = read_document(path, document);
    if (ret < 0) {
        return {ret, ""};
    }
    ret = apply_routes(document, kDeviceInfoPath);
    if (ret != NM_OK) {
        NM_LOG(Error) << "setup_static_route fail. ret = " << ret;
        put_back(path, read_in_force(current));
        return {ret, ""};
    }
    ret = write_document(path, document, !kFileAlone);
    const int kept = write_document(current, document, !kFileAlone);
    return {ret < 0 ? ret : kept, ""};
}

nm::Answer set_up_ip4_routes(const Json::Value&) {
    return set_up_routes("/etc/networkmanagement/static_route.json", "/var/run/network/static_route.curr",
                         setup_static_route);
}

nm::Answer set_up_ip6_routes(const Json::Value&) {
    return set_up_routes("/etc/networkmanagement/static_route6.json", "/var/run/network/static_route6.json",
                         setup_static_route6);
}

constexpr const char* kQosPath = "/etc/networkmanagement/qos.json";
constexpr const char* kQosCurrent = "/var/run/network/qos.json";
constexpr int kQosChange = 3;

int provide_qos() {
    if (is_file_exists(kQosPath)) {
        return NM_OK;
    }
    Json::Value document;
    const int ret = read_document("/usr/lib/networkmanagement/etc/default_config/qos.json", document);
    return ret < 0 ? ret : write_document(kQosPath, document, !kFileAlone);
}

/// The service reads the document itself: rates that are refused are followed by the old ones.
nm::Answer set_up_qos(const Json::Value&) {
    Json::Value document;
    int ret = provide_qos();
    if (ret >= 0) {
        sync_file(kQosPath);
        ret = read_document(kQosPath, document);
    }
    if (ret >= 0) {
        ret = migrate_qos(document);
    }
    if (ret < 0) {
        return nm::code_answer(ret);
    }
    const Json::Value in_force = read_in_force(kQosCurrent);
    ret = setup_qos_rate(kDeviceInfoPath, kQosPath, kQosChange);
    if (ret != NM_OK) {
        NM_LOG(Error) << "Setup_qos fail. ret = " << ret;
        put_back(kQosPath, in_force);
        (void)setup_qos_rate(kDeviceInfoPath, kQosPath, kQosChange);  // the first failure is answered
        return nm::code_answer(ret);
    }
    return nm::code_answer(write_document(kQosCurrent, document, !kFileAlone));
}

}  // namespace

int Setup_firewall(vs_io* io, int socket) {
    return nm::serve(io, socket, __PRETTY_FUNCTION__, {kMain, false, set_up_firewall});
}

int Setup_policy(vs_io* io, int socket) {
    return nm::serve(io, socket, __PRETTY_FUNCTION__, {kMain, false, set_up_policy});
}

int Setup_segment(vs_io* io, int socket) {
    return nm::serve(io, socket, __PRETTY_FUNCTION__, {kMain, false, set_up_segment});
}

int Setup_static_route(vs_io* io, int socket) {
    return nm::serve(io, socket, __PRETTY_FUNCTION__, {kMain, false, set_up_ip4_routes});
}

int SetupStaticRoute6(vs_io* io, int socket) {
    return nm::serve(io, socket, __PRETTY_FUNCTION__, {kMain, false, set_up_ip6_routes});
}

int Setup_qos(vs_io* io, int socket) {
    return nm::serve(io, socket, __PRETTY_FUNCTION__, {kMain, false, set_up_qos});
}
