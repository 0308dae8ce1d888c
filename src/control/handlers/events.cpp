// The handlers that write records to the appliance's system log.
#include <algorithm>
#include <array>
#include <string>

#include "config/nmconfig.h"
#include "config/port_lookup.h"
#include "control/handlers/works.h"
#include "log.h"
#include "peers/logs/event_log.h"
#include "result_codes.h"
#include "utils/json_text.h"

namespace {

/// A record either went out or did not; how the command ended is in the log.
int send(const vslog_event& event) {
    const int ret = vslog_send(event);
    return ret > 0 ? NM_ERR_SERVICE : ret;
}

/// The severity of the text, a number or a name; -1 for anything else.
int severity_of(const std::string& level) {
    constexpr std::array names{"emerg", "alert", "crit", "err", "warning", "notice", "info", "debug"};
    const auto* const name = std::find(names.begin(), names.end(), level);
    if (name != names.end()) {
        return static_cast<int>(name - names.begin());
    }
    return level.size() == 1 && level[0] >= '0' && level[0] <= '7' ? level[0] - '0' : -1;
}

/// The values of an event, each a text, a number or a boolean.
bool read_values(const Json::Value& list, std::vector<std::string>& values) {
    for (const Json::Value& value : list) {
        if (!value.isConvertibleTo(Json::stringValue)) {
            return false;
        }
        values.push_back(value.asString());
    }
    return list.isNull() || list.isArray();
}

}  // namespace

namespace nm::work {

Answer report_carrier(const Json::Value& arguments) {
    const std::string ifname = text_argument(arguments, "ifname");
    const std::string carrier = text_argument(arguments, "carrier");
    if (ifname.empty()) {
        return refuse({NM_ERR_EMPTY, "Arg. [ifname] should not be empty!"});
    }
    if (carrier.empty()) {
        return refuse({NM_ERR_EMPTY, "Arg. [carrier] should not be empty!"});
    }
    std::string port;
    int ret = get_portname_by_ifname(ifname, std::string(kDeviceInfoPath), port);
    if (ret != NM_OK) {
        return refuse({ret, "Get portname failed!"});
    }
    std::string role;
    ret = get_port_role(port, std::string(kDeviceInfoPath), role);
    const auto first = PORT_ROLE.find(role);
    if (ret != NM_OK || first == PORT_ROLE.end()) {
        return refuse({NM_ERR_NO_IFACE, "Get port role failed!"});
    }
    const auto second = PORT_CARRIER.find(carrier);
    if (second == PORT_CARRIER.end()) {
        return refuse({NM_ERR_BAD_ACT, "Arg. [carrier] is invalid or not supported."});
    }
    vslog_event event = port_event(first->second + second->second);
    event.values = {port_number_text(port)};
    return {send(event), ""};
}

Answer log_event(const Json::Value& arguments) {
    const std::string level = text_argument(arguments, "level", std::to_string(kEventLevel));
    vslog_event event{
        text_argument(arguments, "cat_id"), text_argument(arguments, "msg_id"), {}, severity_of(level)};
    if (event.event_class.empty() || event.number.empty()) {
        return refuse({NM_ERR_EMPTY, "Arg. [cat_id] or [msg_id] should not be empty!"});
    }
    if (event.level < 0) {
        return refuse({NM_ERR_BAD_VALUE, "Arg. [level] is invalid or not supported."});
    }
    if (!read_values(json_member(arguments, "args"), event.values)) {
        return refuse({NM_ERR_BAD_FORMAT, "Arg. [args] is not valid format"});
    }
    return {send(event), ""};
}

}  // namespace nm::work
