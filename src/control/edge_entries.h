// Entries of the small reloads: host names, the TCP MSS of the uplinks, port forwards, what the health
// manager knows of RGLinks, static routes, and what LANs have from the IPv6 of their uplinks. They set up the
// log, and no exception leaves them.
#pragma once

#pragma GCC visibility push(default)

/// add_hosts() for an address of an interface. 0 or its codes; NM_ERR_EMPTY also for null.
extern "C" int Add_hosts(char* ip, char* ifname);

/// del_hosts() for the IPv4 addresses of an interface. 0 or its codes; NM_ERR_EMPTY also for null.
extern "C" int Del_hosts(char* ifname);

/// set_tcp_mss() for the document at `path` of a JSON object, which may be left out: the stored device
/// document. 0 or its codes; NM_ERR_NULL_ARG; NM_ERR_PARSE; NM_ERR_BAD_FORMAT.
extern "C" int Reload_tcpmss(char* args);

/// reload_dnat() for the document at `path` of a JSON object, as above. 0 or its codes; NM_ERR_NULL_ARG;
/// NM_ERR_PARSE; NM_ERR_BAD_FORMAT.
extern "C" int Reload_dnat(char* args);

/// Tells the health manager the addresses in force of all RGLinks of the document at `path` of such an
/// object. 0 or the codes of update_rglink_info(); NM_ERR_NULL_ARG; NM_ERR_PARSE; NM_ERR_BAD_FORMAT.
extern "C" int Update_rglink_info(char* args);

/// The stored static routes, written anew. The JSON object may name the device document (`path`) and one
/// family (`family`, "4" or "6"); any other family stands for both. 0 or the codes of
/// policy/routes/static_route.h; NM_ERR_NULL_ARG; NM_ERR_PARSE; NM_ERR_BAD_FORMAT.
extern "C" int Reload_static_route(char* args);

/// reload_lan_ipv6() for the device document (`path`) and one port (`uplink`, "PORT1") of the JSON object,
/// all LANs if that is left out. Bring-up calls it once /var/run/network/.boot_fin is there. 0 or its codes;
/// NM_ERR_NULL_ARG; NM_ERR_PARSE; NM_ERR_BAD_FORMAT.
extern "C" int Reload_lan_ipv6(char* args);

#pragma GCC visibility pop
