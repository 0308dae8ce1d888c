// The calls of the PPPoE library: arguments are checked here, and no exception gets out.
#include "vpppoe.h"

#include <optional>
#include <string>

#include "configuration.h"
#include "session.h"

namespace {

/// The only exception in these calls is that of no memory.
template <class Work>
int without_exceptions(Work work) {
    try {
        return work();
    } catch (...) {
        return VPPPOE_ERR_UNAVAILABLE;
    }
}

template <class Work>
int with_ifname(const char* ifname, Work work) {
    return vpppoe::is_ifname(ifname) ? without_exceptions(work) : VPPPOE_ERR_ARG;
}

template <class Work>
int with_configuration(const char* ifname, Work work) {
    return with_ifname(ifname,
                       [&] { return vpppoe::is_stored(ifname) ? work() : int{VPPPOE_ERR_NO_SESSION}; });
}

int store(const char* ifname, const char* username, const char* password, int ipv6, bool& changed) {
    if (username == nullptr || password == nullptr) {
        return VPPPOE_ERR_ARG;
    }
    return with_ifname(ifname, [&] { return vpppoe::store(ifname, username, password, ipv6 != 0, changed); });
}

}  // namespace

int nm_add_pppoe_and_run(const char* ifname, const char* username, const char* password, int ipv6) {
    bool changed = false;
    const int result = store(ifname, username, password, ipv6, changed);
    if (result != VPPPOE_SUCCESS) {
        return result;
    }
    return without_exceptions([&] { return vpppoe::start(ifname, changed); });
}

int add_interface_pppoe_cfg(const char* ifname, const char* username, const char* password, int ipv6) {
    bool changed = false;
    return store(ifname, username, password, ipv6, changed);
}

int del_interface_pppoe_cfg(const char* ifname) {
    return with_ifname(ifname, [&] { return vpppoe::remove(ifname); });
}

int is_interface_pppoe_cfg_exist(const char* ifname) {
    return with_configuration(ifname, [] { return int{VPPPOE_SUCCESS}; });
}

int is_interface_pppoe_running(const char* ifname) {
    pppoe_runtime_cfg cfg;
    return get_pppoe_runtime_cfg(ifname, &cfg);
}

int start_interface_pppoe(const char* ifname) {
    return with_configuration(ifname, [&] { return vpppoe::start(ifname, false); });
}

int stop_interface_pppoe(const char* ifname) {
    return with_configuration(ifname, [&] { return vpppoe::control("stop", ifname); });
}

int start_all_pppoe(void) {
    return without_exceptions([] {
        int first_failure = VPPPOE_SUCCESS;
        for (const std::string& ifname : vpppoe::stored_interfaces()) {
            const int result = vpppoe::start(ifname, false);
            first_failure = first_failure == VPPPOE_SUCCESS ? result : first_failure;
        }
        return first_failure;
    });
}

int list_all_pppoe(pppoe_list** list) {
    if (list == nullptr) {
        return VPPPOE_ERR_ARG;
    }
    *list = nullptr;
    const int result = without_exceptions([&] {
        pppoe_list** end = list;
        for (const std::string& ifname : vpppoe::stored_interfaces()) {
            *end = new pppoe_list{};
            ifname.copy((*end)->ifname, VPPPOE_NAME_SIZE - 1);
            (*end)->running = is_interface_pppoe_running(ifname.c_str()) == VPPPOE_SUCCESS;
            end = &(*end)->next;
        }
        return int{VPPPOE_SUCCESS};
    });
    if (result != VPPPOE_SUCCESS) {
        destory_pppoe_list(*list);
        *list = nullptr;
    }
    return result;
}

void destory_pppoe_list(pppoe_list* list) {
    while (list != nullptr) {
        pppoe_list* const next = list->next;
        delete list;
        list = next;
    }
}

int get_pppoe_runtime_cfg(const char* ifname, pppoe_runtime_cfg* cfg) {
    if (cfg == nullptr) {
        return VPPPOE_ERR_ARG;
    }
    *cfg = {};
    return with_ifname(ifname, [&] {
        const std::optional<pppoe_runtime_cfg> running = vpppoe::runtime_cfg(ifname);
        *cfg = running.value_or(pppoe_runtime_cfg{});
        return running ? int{VPPPOE_SUCCESS} : int{VPPPOE_ERR_NO_SESSION};
    });
}

int get_pppoe_status(const char* ifname, pppoe_status* status) {
    if (status == nullptr) {
        return VPPPOE_ERR_ARG;
    }
    *status = {};
    const int result = get_pppoe_runtime_cfg(ifname, &status->cfg);
    status->running = result == VPPPOE_SUCCESS ? 1 : 0;
    return result;
}
