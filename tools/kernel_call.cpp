// Calls one function from the shell, through the installed library: of the kernel directory, or of the name
// services that no entry reaches by itself; or takes and compares states of the network, in files.
//
//     kernel_call FUNCTION [ARG]...
//
// "-" is a null pointer; output parameters have no word. Prints the result, then the values of the output
// parameters, one a line. Exits with 2 for an unknown function, else with 0: the caller judges the result.
#include <config/nmconfig.h>
#include <inspect/network_state.h>
#include <kernel/ethtool_utils.h>
#include <kernel/uplink_routing.h>
#include <kernel/vlan.h>
#include <services/dns/lan_dnsmasq.h>
#include <services/dns/name_servers.h>

#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <iterator>

namespace {

char** words;  // behind the function's name

char* text(int i) {
    return strcmp(words[i], "-") == 0 ? nullptr : words[i];
}

/// As the parameter needs it.
struct Number {
    template <class T>
    operator T() const {
        return static_cast<T>(value);
    }
    long long value;
};

Number number(int i) {
    return {strtoll(words[i], nullptr, 0)};
}

int store_state(const char* path) {
    Json::Value state;
    read_network_state(state);
    return _json_mem_to_file(path, state);
}

int store_difference(const char* before_path, const char* after_path, const char* path) {
    Json::Value before;
    Json::Value after;
    const int ret = _json_file_to_mem(before_path, before) + _json_file_to_mem(after_path, after);
    Json::Value changes = compare_network_states(before, after);
    return ret == 0 ? _json_mem_to_file(path, changes) : ret;
}

char driver[32];
physical_status status;

const struct {
    const char* name;
    int (*call)();
} kFunctions[] = {
    {"add_vlan", [] { return add_vlan(text(0), number(1)); }},
    {"del_vlan", [] { return del_vlan(text(0)); }},
    {"add_vlanif", [] { return add_vlanif(text(0), number(1)); }},
    {"del_vlanif", [] { return del_vlanif(text(0)); }},
    {"edit_vlan_egress_prio", [] { return edit_vlan_egress_prio(text(0), number(1), number(2)); }},
    {"edit_vlanif_prio", [] { return edit_vlanif_prio(text(0), number(1), number(2)); }},
    {"is_vlan_interface", [] { return is_vlan_interface(text(0)); }},
    {"set_ip4_rule", [] { return set_ip4_rule(number(0), text(1), number(2), number(3)); }},
    {"set_ip6_rule", [] { return set_ip6_rule(number(0), text(1), number(2), number(3), text(4)); }},
    {"set_ip4_route", [] { return set_ip4_route(number(0), text(1), number(2), text(3), number(4)); }},
    {"set_ip6_route",
     [] { return set_ip6_route(number(0), text(1), number(2), text(3), number(4), number(5)); }},
    {"set_ip6_routerule_by_oifindex",
     [] {
         return set_ip6_routerule_by_oifindex(number(0), number(1), text(2), number(3), text(4), number(5),
                                              number(6));
     }},
    {"delete_routerule", [] { return delete_routerule(text(0), number(1), number(2)); }},
    {"get_physical_info", [] { return get_physical_info(text(0), &status); }},
    {"set_physical_info", [] { return set_physical_info(text(0), number(1), number(2), number(3)); }},
    {"get_iface_driver", [] { return get_iface_driver(text(0), driver); }},
    {"get_eth_max_speed", [] { return get_eth_max_speed(text(0)); }},
    {"insert_dns_server", [] { return insert_dns_server({text(0)}, text(1)); }},
    {"remove_dns_server", [] { return remove_dns_server(text(0), number(1)); }},
    {"network_state", [] { return store_state(text(0)); }},
    {"compare_network_states", [] { return store_difference(text(0), text(1), text(2)); }},
    {"setup_lan_dnsmasq", [] { return setup_lan_dnsmasq(number(0), text(1)); }},
};

}  // namespace

int main(int argc, char** argv) {
    words = argv + 2;
    for (const auto& function : kFunctions) {
        if (argc > 1 && strcmp(argv[1], function.name) == 0) {
            printf("%d\n", function.call());
            driver[0] != '\0' ? printf("%s\n", driver) : 0;
            status.phy_support[0] != 0 ? printf("%d %d %d\n", status.speed, status.duplex, status.autoneg)
                                       : 0;
            return 0;
        }
    }
    fprintf(stderr, "kernel_call: no such function: %s\n", argc > 1 ? argv[1] : "");
    return 2;
}
