// Rules that name services of the registry (config/service_ports.h) instead of ports. A rule with ports of
// its own keeps them; one without is written as if it had those of the service it names.
#pragma once

#include <json/value.h>

#include <optional>
#include <string>
#include <vector>

#include "config/service_ports.h"

namespace nm {

/// The registry as the rules of one apply see it: read when the first rule names a service.
class NamedServices {
public:
    /// The service; nothing, which is logged, if the registry has none of this name or cannot be read.
    std::optional<service_port> find(const std::string& name);

private:
    std::optional<std::vector<service_port>> services_;
};

/// Whether a rule or a forward names a service.
bool names_service(const Json::Value& rule);

/// The rule with the ports of its `SRC_SERVICE` and `DST_SERVICE` as `SRC_PORT` and `DST_PORT`, and with
/// their protocol if it is for all; the rule as it is if it names none. Nothing, which is logged, for a
/// service that is not known, for protocols that exclude each other, and for more ports than one match takes.
std::optional<Json::Value> with_service_ports(const Json::Value& rule, NamedServices& services);

/// The forward with the ports of its `WAN_SERVICE` as `TCP_WAN_PORT` and `UDP_WAN_PORT`, by the same terms.
std::optional<Json::Value> with_forward_ports(const Json::Value& forward, NamedServices& services);

}  // namespace nm
