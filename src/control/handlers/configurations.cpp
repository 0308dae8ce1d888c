// The handlers of stored documents: fetch, apply, and keep what is in force or put it back.
#include <cstdlib>
#include <mutex>
#include <string>

#include "config/migration.h"
#include "config/nmconfig.h"
#include "control/handlers/works.h"
#include "log.h"
#include "peers/bus/qos_rate.h"
#include "peers/bus/service_bus.h"
#include "policy/common/packet_names.h"
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

constexpr bool kFileAlone = true;  // third argument of json_mem_to_file()

/// A stored document, the copy of what is in force, and what is done with it. What may be null says so.
struct Configuration {
    const char* path;
    const char* current;
    /// Stored where there is none yet; may be null.
    const char* fallback;
    int (*migrate)(Json::Value& config);
    int (*apply)(Json::Value& old_config, Json::Value& new_config, std::string& error);
    /// What follows an apply that worked; its failure is answered, but the document stays. May be null.
    int (*complete)(Json::Value& old_config, Json::Value& new_config, std::string& error);
    /// Takes back what an apply that failed has changed; the stored document is the old one by then.
    /// `old_config` is null if nothing was in force. May be null.
    void (*undo)(Json::Value& old_config, Json::Value& new_config);
    /// One request at a time: each replaces what the copy says is in force.
    mutable std::mutex turn{};
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

/// The copy of what is in force, null if there is none.
Json::Value read_in_force(const char* path) {
    Json::Value in_force;
    return json_file_to_mem(path, in_force) == NM_OK && in_force.isObject() ? in_force : Json::Value();
}

/// Stores again what is in force. After a boot there may be nothing yet; the document stays then.
void put_back(const Configuration& configuration, Json::Value in_force) {
    if (in_force.isNull()) {
        NM_LOG(Error) << "Nothing was in force before, keep " << configuration.path;
    } else {
        // Logged; the failure that led here is answered.
        (void)write_document(configuration.path, in_force, kFileAlone);
    }
}

int apply(const Configuration& configuration, Json::Value& document, std::string& error) {
    const Json::Value in_force = read_in_force(configuration.current);
    Json::Value old_config = in_force;
    int ret = configuration.migrate(document);
    if (ret == NM_OK) {
        ret = configuration.apply(old_config, document, error);
    }
    if (ret != NM_OK) {
        put_back(configuration, in_force);
        if (configuration.undo != nullptr) {
            old_config = in_force;
            configuration.undo(old_config, document);
        }
        return ret;
    }
    ret = configuration.complete != nullptr ? configuration.complete(old_config, document, error) : NM_OK;
    copy_access(configuration.path, configuration.current);
    const int kept = write_document(configuration.current, document, !kFileAlone);
    return ret != NM_OK ? ret : kept;
}

/// The service may have a document where the device has none, so a failure here is not the end.
void provide(const Configuration& configuration) {
    Json::Value document;
    if (configuration.fallback != nullptr && !is_file_exists(configuration.path) &&
        read_document(configuration.fallback, document) == NM_OK) {
        (void)write_document(configuration.path, document, !kFileAlone);  // logged; reading it tells
    }
}

nm::Answer set_up(const Configuration& configuration) {
    const std::lock_guard turn(configuration.turn);
    provide(configuration);
    sync_file(configuration.path);
    Json::Value document;
    std::string error;
    int ret = read_document(configuration.path, document);
    if (ret >= 0) {
        ret = apply(configuration, document, error);
    } else if (ret == NM_ERR_PARSE) {
        put_back(configuration, read_in_force(configuration.current));
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
    return setup_firewall(old_config, new_config, "mangle", nm::kVerdictChain, error);
}

void undo_switches(Json::Value& old_config, Json::Value&) {
    set_up_switches(old_config);
}

/// Forwards that are refused leave the old ones, in the stored document as well.
int apply_forwards(Json::Value& old_config, Json::Value& new_config, std::string& error) {
    constexpr const char* kForwards = "PORT_FORWARDING";
    if (!new_config.isMember(kForwards)) {
        return NM_OK;
    }
    Json::Value old_rules = nm::json_member(old_config, kForwards);
    const int ret = setup_dnat(old_rules, new_config[kForwards], error, kDeviceInfoPath);
    if (ret != NM_OK) {
        new_config[kForwards] = old_rules;
        if (old_rules.isNull()) {
            new_config.removeMember(kForwards);
        }
        (void)write_document("/etc/networkmanagement/firewall.json", new_config, kFileAlone);  // logged
    }
    return ret;
}

int apply_policy(Json::Value& old_config, Json::Value& new_config, std::string& error) {
    const int ret = setup_firewall_policy(old_config, new_config, error);
    return ret != NM_OK ? ret : setup_firewall(old_config, new_config, "mangle", nm::kSteeringChain, error);
}

/// Each chain is replaced in one step, but classes that were accepted must not outlive their steering.
void undo_classes(Json::Value& old_config, Json::Value& new_config) {
    std::string error;
    if (!old_config.isNull()) {
        (void)setup_firewall_policy(new_config, old_config, error);  // logged
    }
}

template <int (*apply)(Json::Value& config, std::string path)>
int apply_routes(Json::Value&, Json::Value& new_config, std::string& error) {
    const int ret = apply(new_config, kDeviceInfoPath);
    if (ret != NM_OK) {
        error = "setup_static_route fail. ret = " + std::to_string(ret);
        NM_LOG(Error) << error;
    }
    return ret;
}

/// The first route that is refused leaves the tables half filled.
template <int (*apply)(Json::Value& config, std::string path)>
void undo_routes(Json::Value& old_config, Json::Value&) {
    if (!old_config.isNull()) {
        (void)apply(old_config, kDeviceInfoPath);  // logged
    }
}

/// Routes are kept as they were migrated, in the stored document too.
template <const char* path>
int keep_routes(Json::Value&, Json::Value& new_config, std::string&) {
    return write_document(path, new_config, !kFileAlone);
}

/// Routes are migrated where they are set up.
int migrate_with_routes(Json::Value&) {
    return NM_OK;
}

constexpr char kRoutes[] = "/etc/networkmanagement/static_route.json";
constexpr char kRoutes6[] = "/etc/networkmanagement/static_route6.json";
constexpr char kQos[] = "/etc/networkmanagement/qos.json";

/// The service reads the document itself.
int apply_rates(Json::Value&, Json::Value&, std::string&) {
    constexpr int kChange = 3;
    const int ret = setup_qos_rate(kDeviceInfoPath, kQos, kChange);
    if (ret != NM_OK) {
        NM_LOG(Error) << "Setup_qos fail. ret = " << ret;
    }
    return ret;
}

void undo_rates(Json::Value& old_config, Json::Value& new_config) {
    std::string error;
    (void)apply_rates(old_config, new_config, error);  // the first failure is answered
}

}  // namespace

namespace nm::work {

Answer set_up_firewall(const Json::Value&) {
    static const Configuration firewall{"/etc/networkmanagement/firewall.json",
                                        "/var/run/network/firewall.curr",
                                        nullptr,
                                        migrate_firewall,
                                        apply_firewall,
                                        apply_forwards,
                                        undo_switches};
    return set_up(firewall);
}

Answer set_up_policy(const Json::Value&) {
    static const Configuration policy{"/etc/networkmanagement/policy.json",
                                      "/var/run/network/policy.curr",
                                      nullptr,
                                      migrate_policy,
                                      apply_policy,
                                      nullptr,
                                      undo_classes};
    return set_up(policy);
}

Answer set_up_segment(const Json::Value&) {
    static const Configuration segment{"/etc/networkmanagement/segment.json",
                                       "/var/run/network/segment.curr",
                                       nullptr,
                                       migrate_firewall_seg,
                                       setup_firewall_segment,
                                       nullptr,
                                       nullptr};
    return set_up(segment);
}

Answer set_up_ip4_routes(const Json::Value&) {
    static const Configuration routes{kRoutes,
                                      "/var/run/network/static_route.curr",
                                      nullptr,
                                      migrate_with_routes,
                                      apply_routes<setup_static_route>,
                                      keep_routes<kRoutes>,
                                      undo_routes<setup_static_route>};
    return set_up(routes);
}

Answer set_up_ip6_routes(const Json::Value&) {
    static const Configuration routes{kRoutes6,
                                      "/var/run/network/static_route6.json",
                                      nullptr,
                                      migrate_with_routes,
                                      apply_routes<setup_static_route6>,
                                      keep_routes<kRoutes6>,
                                      undo_routes<setup_static_route6>};
    return set_up(routes);
}

Answer set_up_qos(const Json::Value&) {
    static const Configuration rates{kQos,
                                     "/var/run/network/qos.json",
                                     NM_PRIVATE_DIR "/etc/default_config/qos.json",
                                     migrate_qos,
                                     apply_rates,
                                     nullptr,
                                     undo_rates};
    return set_up(rates);
}

}  // namespace nm::work
