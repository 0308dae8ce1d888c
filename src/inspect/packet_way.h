// The way of one packet through the device, told from a packet that was really sent: in a copy of the device.
#pragma once

#include <json/value.h>

#include <string>

#pragma GCC visibility push(default)

/// The packet that is asked about, as text. `protocol` is a name (tcp, udp, icmp, ...) or a number, empty for
/// an echo request; ports are numbers or names of the registry (config/service_ports.h), of which the first
/// port counts. TCP and UDP need `destination_port`; an empty `source_port` is any. `device` is the one by
/// which the packet comes in. If it is empty the source says so: an own address is the device itself, any
/// other one has to lie in a network of one of its devices.
struct packet_question {
    std::string source;
    std::string destination;
    std::string protocol;
    std::string source_port;
    std::string destination_port;
    std::string device;
};

/// Sends the packet, the first one of a connection, through a copy of the device as rehearse() makes it, and
/// reports what the kernel's trace, its counters and the far ends of the copy's cables have seen. Every next
/// hop answers in the copy. Nothing of the device is changed.
///
/// `report` becomes an object (explain.json in /usr/share/networkmanagement/schema/): `packet`; `verdict`
/// (sent, delivered or dropped), with `why` and `dropped_by` for one that is dropped; `steps`, the rules
/// that it met, each with its `text`, what it wrote of the mark, the sets it asked, and its `source`: a
/// document and the pointer into it, or an owner; `routing`, the rule of the policy routing, its table and
/// route; `uplink`, `translation`, `mark`, and `left`, the packet as it came out. `unread` lists what could
/// not be found out and why, `unlike` what the copy had otherwise than the device. Secrets are masked.
///
/// 0, whatever the verdict; NM_ERR_BAD_VALUE for a packet that cannot be, NM_ERR_SERVICE if there is no copy:
/// then `reason` says why, and the report has no other member; NM_ERR_NOT_FOUND if something could not be
/// found out.
int explain_packet(const packet_question& question, Json::Value& report);

#pragma GCC visibility pop
