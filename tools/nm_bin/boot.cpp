// What a boot does beside the bring-up itself: migrations and the stored packet policy before the first port
// is up, and what has to wait until all ports are up.
#include <networkinterface.h>
#include <sys/socket.h>

#include <cstdlib>
#include <functional>
#include <string>
#include <vector>

#include "nm_bin/boot_steps.h"
#include "nm_bin/commands.h"
#include "nm_bin/explain.h"

namespace nm_bin {

namespace {

constexpr const char* kBooted = "/var/run/network/.boot_fin";

/// A stored document, the copy of what is in force, and what puts the one in the place of the other.
struct Document {
    std::string path;
    std::string current;
    int (*apply)(Arguments& words);
};

/// Bits of the firewall's document that are modules and rules of their own.
struct Switch {
    const char* key;
    int (*set_up)(uint32_t bits);
};
constexpr Switch kSwitches[] = {{"ALG", setup_alg}, {"ATTACK_DEFENSE", setup_attack_defense}};

int apply_switches(Arguments& words) {
    Json::Value document;
    const int code = json_file_to_mem(words[0], document);
    if (code < 0 || !document.isObject()) {
        return code < 0 ? code : NM_ERR_BAD_FORMAT;
    }
    for (const Switch& row : kSwitches) {
        if (document[row.key].isString()) {
            // Logged; the rules are worth having without it.
            (void)row.set_up(static_cast<uint32_t>(strtoul(document[row.key].asCString(), nullptr, 0)));
        }
    }
    return NM_OK;
}

int apply_forwards(Arguments&) {
    return reload_dnat(kDeviceInfoPath);
}

/// The service that shapes the traffic reads the document itself. It knows only a device that has an id.
int apply_rates(Arguments& words) {
    constexpr int kChange = 3;
    Json::Value rates;
    int code = json_file_to_mem(words[0], rates);
    if (code < 0 || get_device_id() == 0) {
        return code;
    }
    code = setup_qos_rate(kDeviceInfoPath, words[0], kChange);
    if (code != NM_OK) {
        return code;
    }
    copy_access(words[0], words[1]);
    return json_mem_to_file(words[1], rates, false);
}

const std::vector<Document>& filters() {
    static const std::vector<Document> all{
        {"/etc/networkmanagement/segment.json", "/var/run/network/segment.curr", apply_segment_document},
        {"/etc/networkmanagement/firewall.json", "", apply_switches},
        {"/etc/networkmanagement/firewall.json", "/var/run/network/firewall.curr", apply_firewall_document},
        {"/etc/networkmanagement/policy.json", "/var/run/network/policy.curr", apply_policy_document},
    };
    return all;
}

const std::vector<Document>& routes_and_rates() {
    static const std::vector<Document> all{
        {"/etc/networkmanagement/static_route.json", "/var/run/network/static_route.curr",
         apply_static_route_document},
        {"/etc/networkmanagement/static_route6.json", "/var/run/network/static_route6.json",
         apply_static_route6_document},
        {"/etc/networkmanagement/firewall.json", "", apply_forwards},
        {"/etc/networkmanagement/qos.json", "/var/run/network/qos.json", apply_rates},
    };
    return all;
}

/// Works one of several steps; the first failure among them is kept.
void step(int& first, const std::string& name, const std::function<int()>& work) {
    const int code = work_step(name, work);
    first = first == NM_OK && code < NM_OK ? code : first;
}

/// A device that has no such document has nothing to apply.
int apply_stored(const std::vector<Document>& documents) {
    int first = NM_OK;
    for (const Document& document : documents) {
        Arguments words{document.path, document.current};
        if (is_file_exists(document.path)) {
            step(first, document.path, [&] { return document.apply(words); });
        }
    }
    return first;
}

/// Host names of an earlier boot, which each bring-up would add once more.
void forget_host_names() {
    Json::Value device;
    if (json_file_to_mem(kDeviceInfoPath, device) != NM_OK || !device.isObject()) {
        return;
    }
    for (const char* section :
         {"WAN_IFACE_INFO", "PRIVATE_IFACE_INFO", "RGLINK_IFACE_INFO", "LAN_IFACE_INFO"}) {
        const Json::Value& interfaces = device[section];
        for (auto entry = interfaces.begin(); entry != interfaces.end(); ++entry) {
            for (const std::string& ifname : {entry.name(), "ppp-" + entry.name()}) {
                (void)del_hosts(ifname, AF_INET);  // logged; a name too many harms nobody
                (void)del_hosts(ifname, AF_INET6);
            }
        }
    }
}

int begin() {
    if (!is_file_exists(kBooted)) {
        forget_host_names();  // else they are of this boot
    }
    return apply_stored(filters());
}

/// The device counts as booted whatever failed before: those who wait for the mark would wait for ever.
int finish() {
    int first = apply_stored(routes_and_rates());
    Json::Value device;
    const bool is_configured = json_file_to_mem(kDeviceInfoPath, device) == NM_OK && device.isObject();
    if (is_configured && !device["SERVICES"].empty()) {
        step(first, "name servers", bootup_dns);
    }
    step(first, kBooted, [] { return writeValue(kBooted, "", false); });
    restart_dnsmasq();
    if (is_configured) {
        step(first, "IPv6 of the LANs", [] { return reload_lan_ipv6(kDeviceInfoPath, ""); });
    }
    (void)setup_site_to_site_load_balance(kDeviceInfoPath);  // logged, as after any change of uplinks
    (void)setup_lan_to_wan_load_balance(kDeviceInfoPath);
    return first;
}

}  // namespace

boot_steps steps_of_boot() {
    return {begin, finish};
}

int boot(const Arguments& words, const Options& options) {
    if (words[0] != "begin" && words[0] != "finish") {
        return usage_error("boot takes begin|finish");
    }
    INITIALIZE_LOG("MAIN");
    const bool is_begin = words[0] == "begin";
    const int migrated = is_begin ? migrate({}, options) : kExitOk;
    // Whatever stands in the way: what can be done at boot is done.
    const int status = follow_call(is_begin ? begin : finish, [&options](const Outcome& outcome) {
        (void)print_result(outcome.code, options);
    });
    return status != kExitOk ? status : migrated;
}

}  // namespace nm_bin
