// Calls one function of the PPPoE library from the shell:
//
//     pppoe_call FUNCTION [IFNAME [USER [IPV6]]] <PASSWORD
//
// The password is the first line of standard input, as a command line is everybody's to read. Prints the
// result, then what the call has given, one value a line. Exits with 2 for an unknown function, else with 0:
// the caller judges the result.
#include <vpppoe.h>

#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <iostream>
#include <string>

namespace {

const char* words[3];  // behind the function's name
pppoe_status status;
pppoe_list* sessions;

using Store = int (*)(const char*, const char*, const char*, int);

int store(Store function) {
    std::string password;
    std::getline(std::cin, password);
    return function(words[0], words[1], password.c_str(), words[2] != nullptr ? atoi(words[2]) : 0);
}

const struct {
    const char* name;
    int (*call)();
} kFunctions[] = {
    {"nm_add_pppoe_and_run", [] { return store(nm_add_pppoe_and_run); }},
    {"add_interface_pppoe_cfg", [] { return store(add_interface_pppoe_cfg); }},
    {"del_interface_pppoe_cfg", [] { return del_interface_pppoe_cfg(words[0]); }},
    {"is_interface_pppoe_cfg_exist", [] { return is_interface_pppoe_cfg_exist(words[0]); }},
    {"is_interface_pppoe_running", [] { return is_interface_pppoe_running(words[0]); }},
    {"start_interface_pppoe", [] { return start_interface_pppoe(words[0]); }},
    {"stop_interface_pppoe", [] { return stop_interface_pppoe(words[0]); }},
    {"start_all_pppoe", [] { return start_all_pppoe(); }},
    {"list_all_pppoe", [] { return list_all_pppoe(&sessions); }},
    {"get_pppoe_runtime_cfg", [] { return get_pppoe_runtime_cfg(words[0], &status.cfg); }},
    {"get_pppoe_status", [] { return get_pppoe_status(words[0], &status); }},
};

void print_answer() {
    const pppoe_runtime_cfg& cfg = status.cfg;
    if (cfg.ifindex != 0) {
        printf("%s\n%s\n%s\n%s\n%s\n", cfg.ifname, cfg.ip4_addr, cfg.ip4_gw, cfg.ip4_dns1, cfg.ip4_dns2);
    }
    for (const pppoe_list* session = sessions; session != nullptr; session = session->next) {
        printf("%s %s\n", session->ifname, session->running != 0 ? "up" : "down");
    }
}

}  // namespace

int main(int argc, char** argv) {
    for (int i = 2; i < argc && i < 5; ++i) {
        words[i - 2] = argv[i];
    }
    for (const auto& function : kFunctions) {
        if (argc > 1 && strcmp(argv[1], function.name) == 0) {
            printf("%d\n", function.call());
            print_answer();
            destory_pppoe_list(sessions);
            return 0;
        }
    }
    fprintf(stderr, "pppoe_call: no such function: %s\n", argc > 1 ? argv[1] : "");
    return 2;
}
