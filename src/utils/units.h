// Control of system units.
#pragma once

#pragma GCC visibility push(default)

// Each function acts on the unit "<service><instance>.service"; a service that ends in "@" is a template
// and the instance an interface name. A null instance counts as empty. An `env` that is not null is first
// written to "/var/run/network/.<service><instance>.env", which the unit reads.
//
// The result is systemctl's exit code (0 is success). NM_ERR_NULL_ARG for a null service;
// NM_ERR_BAD_FORMAT for a name that can't be one unit's (a newline, a "/", a pattern, an option): nothing
// is run or written then; the code of the environment file's lock if that can't be had.

/// Starts; up to five attempts with a second's rest after each failed one. The last attempt's code.
int service_start(const char* service, const char* instance, const char* env);
int service_stop(const char* service, const char* instance, const char* env);
int service_restart(const char* service, const char* instance, const char* env);
int service_enable(const char* service, const char* instance, const char* env);
int service_disable(const char* service, const char* instance, const char* env);

/// 0 means active.
int service_status(const char* service, const char* instance, const char* env);

#pragma GCC visibility pop
