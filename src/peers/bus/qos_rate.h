// Hand-over of the configured rates to the SD-WAN service, which shapes the traffic.
#pragma once

#include <string>

#pragma GCC visibility push(default)

/// Asks the SD-WAN service to apply the rates that stand in the document `config_path` to `device_path`, an
/// interface name or the path of the device document; the service works out itself what to start, stop or
/// change, so the third argument (1 start, 2 stop, 3 restart) is not passed on. 0; the code of the call;
/// NM_ERR_PARSE for a reply that cannot be read; otherwise the service's own error.
int setup_qos_rate(std::string device_path, std::string config_path, int third);

#pragma GCC visibility pop
