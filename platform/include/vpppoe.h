/* PPPoE sessions of the appliance: one stored configuration and at most one running session for each
 * network interface, known by the interface's name ("swdev1", never the session's own "ppp-swdev1").
 *
 * Every call that returns an int returns VPPPOE_SUCCESS or a negative code of this header. Calls that change
 * something are not to be made at once for one interface.
 *
 * A line STOP_FLAG="1" in /etc/vpppoe/env/<ifname>.env keeps a session that ends from being dialled again;
 * starting it takes the flag back.
 */
#ifndef VPPPOE_H
#define VPPPOE_H

#ifdef __cplusplus
extern "C" {
#endif
#pragma GCC visibility push(default)

enum {
    VPPPOE_SUCCESS = 0,
    VPPPOE_ERR_ARG = -1,         /* a null or empty argument, a bad name or bad credentials, see below */
    VPPPOE_ERR_NO_SESSION = -2,  /* no configuration or no session of that interface */
    VPPPOE_ERR_UNAVAILABLE = -3, /* sessions cannot be run on this machine */
    VPPPOE_ERR_STORE = -4        /* the configuration cannot be written or removed */
};

/* A name is bad that has other characters than letters, digits and _ . -, that begins with a dot, or that
 * leaves no room for "ppp-" in 15 characters. Credentials are bad with a control character or with more than
 * 255 bytes; a password may be empty. */

enum {
    VPPPOE_NAME_SIZE = 16, /* an interface name and its NUL */
    VPPPOE_IP4_SIZE = 16   /* a dotted IPv4 address and its NUL */
};

/* What a running session was given by its peer. Texts are NUL-terminated; a value that the peer did not
 * give is empty. */
typedef struct pppoe_runtime_cfg {
    int ifindex;                    /* kernel index of the session's interface, 1 or more */
    char ifname[VPPPOE_NAME_SIZE];  /* name of the session's interface */
    char ip4_addr[VPPPOE_IP4_SIZE]; /* address of this end */
    char ip4_gw[VPPPOE_IP4_SIZE];   /* address of the far end, which is the gateway */
    char ip4_dns1[VPPPOE_IP4_SIZE]; /* first name server */
    char ip4_dns2[VPPPOE_IP4_SIZE]; /* second name server */
} pppoe_runtime_cfg;

/* A session's state, with its addresses as they are now. */
typedef struct pppoe_status {
    int running;           /* 1 while a session is up, else 0 */
    pppoe_runtime_cfg cfg; /* zeroed unless running */
} pppoe_status;

/* One stored configuration; a list is chained through `next` and ends with null. */
typedef struct pppoe_list {
    char ifname[VPPPOE_NAME_SIZE];
    int running; /* 1 while its session is up, else 0 */
    struct pppoe_list* next;
} pppoe_list;

/* Stores the configuration of `ifname` and starts its session. `ipv6` other than 0 negotiates IPv6 too.
 *
 * Success means that dialling has begun: get_pppoe_status says whether and when the peer lets us in.
 * A session that runs with the very same configuration is left alone; another one is ended first, which
 * takes as long as stopping it. */
int nm_add_pppoe_and_run(const char* ifname, const char* username, const char* password, int ipv6);

/* Stores or replaces the configuration without starting anything. */
int add_interface_pppoe_cfg(const char* ifname, const char* username, const char* password, int ipv6);

/* Removes the configuration; a running session is to be stopped first. */
int del_interface_pppoe_cfg(const char* ifname);

/* VPPPOE_SUCCESS (0) when a configuration of `ifname` exists. */
int is_interface_pppoe_cfg_exist(const char* ifname);

/* VPPPOE_SUCCESS (0) when a session of `ifname` is running. */
int is_interface_pppoe_running(const char* ifname);

/* Starts, or stops, the session of a stored configuration. Starting does not wait for the peer. Stopping
 * waits until the session is closed: at most ten seconds, when the peer answers no more. */
int start_interface_pppoe(const char* ifname);
int stop_interface_pppoe(const char* ifname);

/* Starts the session of every stored configuration; with none there is nothing to do, which is success.
 * All are tried; the first failure is the result. */
int start_all_pppoe(void);

/* Sets `*list` to the stored configurations, null when there are none. The caller hands the list to
 * destory_pppoe_list, which takes null too. */
int list_all_pppoe(pppoe_list** list);
void destory_pppoe_list(pppoe_list* list);

/* Fills the record for the running session of `ifname`. On failure it is zeroed. */
int get_pppoe_runtime_cfg(const char* ifname, pppoe_runtime_cfg* cfg);
int get_pppoe_status(const char* ifname, pppoe_status* status);

#pragma GCC visibility pop
#ifdef __cplusplus
}
#endif

#endif
