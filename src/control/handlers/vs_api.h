// The methods of the service daemon: each is registered on the service bus under its own name and called with
// a request and the socket that its reply goes to. A handler reads the request's arguments, a JSON object,
// does the work and sends one reply:
//
//     {"error": 0, "data": ..., "meta": {"version": "1.1"}}
//
// `error` is the handler's result; `data` is the payload, or on most Setup_ handlers a text that says what
// was refused. Afterwards `io` is freed and `socket` closed, whatever came of it. Handlers may run at the
// same time in one process; the only locks are those of the work that they call.
//
// Codes of all that take arguments: NM_ERR_BUS_READ for a request without a text, NM_ERR_PARSE,
// NM_ERR_BAD_FORMAT for what is not an object. Arguments are texts; `path` is the device document unless it
// is given.
#pragma once

#include <json/value.h>

#include <string>
#include <vector>

/// A request and, later, its reply (vservice.h).
typedef struct vs_io vs_io;

#pragma GCC visibility push(default)

/// Sends the reply above with any `data`, then frees `io` and closes `socket`: neither may be used any more.
void vs_reply_free(vs_io* io, int socket, int error, const Json::Value& data, std::string version);

/// A row of the table of all methods, from which the daemon registers them and their documentation is made.
struct vs_api_method {
    const char* name;
    int (*handler)(vs_io* io, int socket);
    const char* arguments;  ///< names, separated by blanks; a method without any reads no text
    const char* reply;  ///< what `data` is, a report by the name of its schema; empty if the reply has none
    const char* codes;  ///< its codes besides those of all methods
    const char* log;    ///< the log that it is reported in: "MAIN", or "API" for what changes no network
};
std::vector<vs_api_method> vs_api_methods();

extern "C" {

/// The documents of the packet policy and of the static routes, from /etc/networkmanagement/: fetched,
/// applied, and kept as what is in force (/var/run/network/*.curr). If the apply fails the stored document
/// goes back to what was in force, and so do the rules; without such a copy the document stays. `data` names
/// the rule that was refused. Requests about one document are worked one after the other.
///
/// A firewall whose forwards fail keeps its rules in force and its old forwards; the reply has their error.
int Setup_firewall(vs_io* io, int socket);
int Setup_policy(vs_io* io, int socket);
int Setup_segment(vs_io* io, int socket);
int Setup_static_route(vs_io* io, int socket);
int SetupStaticRoute6(vs_io* io, int socket);

/// The rates of qos.json; a missing document is first made from the default one. No `data`.
int Setup_qos(vs_io* io, int socket);

/// The load balancing of the stored device document. No `data`.
int Setup_lan_to_wan_load_balance(vs_io* io, int socket);
int Setup_site_to_site_load_balance(vs_io* io, int socket);

/// Tear down (`op` 2), set up (1) or renew (3) the tunnels of all ports of a kind. No `data`.
int Edit_tunnels(vs_io* io, int socket);
int Edit_private_tunnels(vs_io* io, int socket);
int Edit_rglink_tunnels(vs_io* io, int socket);

/// The VPN server `type` ("local_vbelt", "velan_vbelt") from the document `path`; `force` 1 also where
/// nothing has changed. NM_ERR_EMPTY, NM_ERR_NOT_FOUND, NM_ERR_BAD_ACT for the arguments.
int Setup_vvpn(vs_io* io, int socket);

/// Hands `local_mgmt` and `dev_id` to the overlay's daemons. NM_ERR_MGMT_ARG without either of them or with
/// what is not JSON; NM_ERR_BUS_DAEMON_READ for a request without a text. No `data`.
int SetupVelanDeamons(vs_io* io, int socket);

/// Gives back the DHCP lease of `portname` or `ifname` and asks for a new one. NM_ERR_EMPTY; NM_ERR_NO_IFACE;
/// NM_ERR_BAD_TYPE for an interface without DHCP; NM_ERR_LOCK.
int RenewDHCPClientIP(vs_io* io, int socket);

/// Writes to the system's log that the link of `ifname` came (`carrier` "up" or "1") or went ("down", "0").
int SyslogCarrierStat(vs_io* io, int socket);

/// Writes message `msg_id` of category `cat_id` with the values `args` (a list) to the system's log, at
/// `level`, a severity of RFC 5424 by number or name ("err"); by default 5, "notice". No `data`.
int FB_log(vs_io* io, int socket);

/// Counters of all ports of the kind since their devices were made, by device.
int Get_wan_rxtx_stats(vs_io* io, int socket);
int Get_private_rxtx_stats(vs_io* io, int socket);

/// What the interfaces of the kind have in force, a list; with `comprehensive` 1 also their name servers.
int Get_available_wan_info(vs_io* io, int socket);
int Get_available_private_info(vs_io* io, int socket);
int Get_available_rglink_info(vs_io* io, int socket);
int Get_available_lan_info(vs_io* io, int socket);

/// {"lan": [...]}: the LAN interfaces.
int Get_lanif_list(vs_io* io, int socket);

/// The interface of `portname`, of the `type` "WAN", "LAN", "PRILINK" or "RGLINK", else of any. NM_ERR_EMPTY;
/// NM_ERR_NO_IFACE.
int Get_ifname_by_portname(vs_io* io, int socket);

/// The default document `type` ("device_info", "qos", ...). NM_ERR_BAD_ACT for another type; the code of
/// reading.
int Get_default_config(vs_io* io, int socket);

/// The delegated IPv6 prefixes of each uplink; the LAN ports with their links; and, version "1.0" and always
/// 0, the versions of the document `path` or, if that is a directory, of all in it.
int GetPrefixDelegationStatus(vs_io* io, int socket);
int GetLanPortInfo(vs_io* io, int socket);
int GetConfigsMetaInfo(vs_io* io, int socket);
}
#pragma GCC visibility pop
