// The PPPoE library of an appliance that runs no PPPoE sessions: it keeps no configuration, so every
// question about an interface is answered "no session", and nothing can be started.
#include "vpppoe.h"

#include <cstring>

namespace {

bool is_ifname(const char* ifname) {
    return ifname != nullptr && *ifname != '\0' && strnlen(ifname, VPPPOE_NAME_SIZE) < VPPPOE_NAME_SIZE;
}

int no_session(const char* ifname) {
    return is_ifname(ifname) ? VPPPOE_ERR_NO_SESSION : VPPPOE_ERR_ARG;
}

int cannot_store(const char* ifname, const char* username, const char* password) {
    const bool usable = is_ifname(ifname) && username != nullptr && *username != '\0' && password != nullptr;
    return usable ? VPPPOE_ERR_UNAVAILABLE : VPPPOE_ERR_ARG;
}

template <class Record>
int no_record(const char* ifname, Record* record) {
    if (record == nullptr) {
        return VPPPOE_ERR_ARG;
    }
    *record = {};
    return no_session(ifname);
}

}  // namespace

int nm_add_pppoe_and_run(const char* ifname, const char* username, const char* password, int /*ipv6*/) {
    return cannot_store(ifname, username, password);
}

int add_interface_pppoe_cfg(const char* ifname, const char* username, const char* password, int /*ipv6*/) {
    return cannot_store(ifname, username, password);
}

int del_interface_pppoe_cfg(const char* ifname) {
    return no_session(ifname);
}

int is_interface_pppoe_cfg_exist(const char* ifname) {
    return no_session(ifname);
}

int is_interface_pppoe_running(const char* ifname) {
    return no_session(ifname);
}

int start_interface_pppoe(const char* ifname) {
    return no_session(ifname);
}

int stop_interface_pppoe(const char* ifname) {
    return no_session(ifname);
}

int start_all_pppoe(void) {
    return VPPPOE_SUCCESS;
}

int list_all_pppoe(pppoe_list** list) {
    if (list == nullptr) {
        return VPPPOE_ERR_ARG;
    }
    *list = nullptr;
    return VPPPOE_SUCCESS;
}

void destory_pppoe_list(pppoe_list* list) {
    while (list != nullptr) {
        pppoe_list* const next = list->next;
        delete list;
        list = next;
    }
}

int get_pppoe_runtime_cfg(const char* ifname, pppoe_runtime_cfg* cfg) {
    return no_record(ifname, cfg);
}

int get_pppoe_status(const char* ifname, pppoe_status* status) {
    return no_record(ifname, status);
}
