// Addresses on devices.
#pragma once

#pragma GCC visibility push(default)

/// Appends to `names`, blank-separated, the device of every address of this scope ("global", "link", ...;
/// rtnl_str2scope()) and family ("inet", "inet6", ...; nl_str2af()); a device with several such addresses
/// is named once for each. The caller clears `names` first and makes it large enough for all names.
/// 1 if `names` holds any name, 0 if not; NM_ERR_NULL_ARG; NM_ERR_NOMEM; NM_ERR_SOCKET (no connection).
int get_interface_with_address(const char* scope, const char* family, char* names);

#pragma GCC visibility pop
