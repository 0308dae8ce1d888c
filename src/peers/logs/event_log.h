// Events for the appliance's system log, which operators and the management service read. The message texts
// are the appliance's own: an event carries a class, a message number and the values for its blanks.
#pragma once

#include <map>
#include <string>
#include <vector>

#pragma GCC visibility push(default)

/// Class and numbers of events about uplinks. Their values are the port's number and the address.
inline constexpr const char* kUplinkEvents = "C002";
inline constexpr const char* kEventSessionUp = "310";
inline constexpr const char* kEventLeaseGot = "311";

/// The severity of an event of which nothing else is known: 5, a notice (RFC 5424).
inline constexpr int kEventLevel = 5;

struct vslog_event {
    std::string event_class;
    std::string number;
    std::vector<std::string> values;
    int level = kEventLevel;  ///< 0, an emergency, to 7, of use for debugging only
};

/// Where the events about ports of a role begin in their table, and which of them says what about the
/// carrier. The sum of both is the index of an event.
extern const std::map<std::string, int> PORT_ROLE;
extern const std::map<std::string, int> PORT_CARRIER;

/// The event at that index, without values; its one value is the port's number. An index of the table only.
vslog_event port_event(int index);

/// Sends the event by /usr/sbin/vsyslog-cli [--level LEVEL] CLASS NUMBER VALUE..., without the option for a
/// notice, and waits for it; a machine without that command has no such log, which is not a failure. Failures
/// are logged only: no address hangs on an event. 0; the command's exit code; NM_ERR_SERVICE;
/// NM_ERR_BAD_FORMAT for a value that no command can take.
int vslog_send(const vslog_event& event);

/// The number of a port as events carry it: what follows "PORT" in its name.
std::string port_number_text(const std::string& portname);

#pragma GCC visibility pop
