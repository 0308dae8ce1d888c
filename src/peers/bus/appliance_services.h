// What the library asks of the appliance's services besides documents: the licence, the management mode, the
// overlay's daemons. All calls go over the service bus and log their failures.
#pragma once

#include <json/value.h>

#include <string>

#pragma GCC visibility push(default)

/// The licence's state: `data` of `GetLicenseInfo` of the service `license`, an object. 0, with `info`
/// untouched on failure; NM_ERR_PARSE for an answer that is not an object; a code of vservice_call().
int get_license_info(Json::Value& info);

/// Whether the licence is known to be expired: `expired` of the state is true or a number other than 0. A
/// licence service that cannot be asked does not count as expired, as the network must not stop with it.
bool is_license_expired();

/// Whether the device is managed locally: `get_local_mgmt` of `ncaas` answers true, a number other than 0, or
/// one of these as text. False if it cannot be asked.
bool is_local_mgmt();

/// Hands id and management mode to `das` (`apply_devid_mgmt`), which sets up the overlay's daemons with them;
/// both are texts as in the caller's request. 0 or a code of vservice_call().
int setup_velan_deamons(std::string local_mgmt, std::string dev_id);

/// Sets up the VPN server of `type` ("local_vbelt" or "velan_vbelt") from the document at `path`, by the
/// method of the same name of the overlay service `VelanWsd.service`, which owns the tunnels; `force` other
/// than 0 sets it up anew where nothing has changed. 0 or a code of vservice_call().
int Setup_vbelt_server(std::string type, std::string path, int force);

/// Tells `nm-hmgr` (`UpdateLansInfo`, an empty object) to read the LANs' state anew and waits up to
/// `timeout_seconds`. 0 or a code of vservice_call(); callers that bring the device up go on either way.
int update_network_info(int timeout_seconds);

#pragma GCC visibility pop
