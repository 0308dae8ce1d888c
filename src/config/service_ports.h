// The registry of service ports, /etc/networkmanagement/servicePort.json: predefined and own services, each a
// name for ports of TCP, UDP or both, which rules may name instead of the ports.
//
//     {"dbversion": "0.0.3", "PREDEFINED": [...], "USER_DEFINED": [{"service": "Camera", "protocol": "TCP",
//      "ports": "554, 8554~8558", "remark": "", "internal_name": ""}]}
//
// `protocol` is "All" (TCP and UDP), "TCP" or "UDP"; `ports` lists ports and ranges. A device without the
// document has the predefined services. Names are told apart without regard to the case of ASCII letters.
#pragma once

#include <json/value.h>

#include <cstdint>
#include <string>
#include <vector>

#include "config/schema.h"

#pragma GCC visibility push(default)

/// Registers a service, or changes the one of this name: its name, protocol, ports and remark, and
/// `internal_name` if that is not empty. What is kept is the service in the form shown above. `faults` lists
/// all that is wrong, a line each: the name is empty, longer than 64 bytes, not printable or another
/// service's; the protocol or a port is none; ports are those of another service; the registry holds 1,024
/// own services; while rules name it, a service is renamed, loses a protocol or gets more ports than a rule
/// takes.
///
/// 0; NM_ERR_BAD_VALUE with `faults`; NM_ERR_NOT_FOUND if there is no service to change; NM_ERR_BAD_FORMAT
/// for a registry of another form; the codes of reading and writing the document, which is locked meanwhile.
int add_service_port(const service_port& service, std::vector<std::string>& faults);
int change_service_port(std::string name, const service_port& service, std::vector<std::string>& faults);

/// Removes a service, a predefined one as well. NM_ERR_BAD_VALUE with a line in `faults` for each rule that
/// names it; the other codes as above.
int delete_service_port(std::string name, std::vector<std::string>& faults);

/// All services, a list of rows as in the document, each with `predefined` true or false. 0; the codes of
/// reading.
int list_service_ports(Json::Value& services);

/// The service of this name. 0; NM_ERR_NOT_FOUND; the codes of reading.
int find_service_port(std::string name, service_port& service);

/// The services that have one of `ports` ("443", "8000~8010", lists of them) under `protocol` ("TCP", "UDP",
/// "All" for either). 0, also if there is none; NM_ERR_BAD_VALUE for what is not a port or a protocol; the
/// codes of reading.
int find_services_of_ports(const std::string& ports, const std::string& protocol,
                           std::vector<service_port>& services);

/// Where stored rules name services: a list of {"document": "firewall", "pointer":
/// "/RULES/SITE/0/DST_SERVICE", "service": "Camera", "known": true}. 0; the codes of reading the registry;
/// documents that cannot be read have no references.
int list_service_references(Json::Value& references);

#pragma GCC visibility pop

namespace nm {

/// The members of rules and of forwards that name a service.
constexpr const char* kSourceService = "SRC_SERVICE";
constexpr const char* kDestinationService = "DST_SERVICE";
constexpr const char* kForwardService = "WAN_SERVICE";

/// First and last port of a range.
struct PortRange {
    uint16_t first;
    uint16_t last;
};

/// The ranges of a text as `ports` has it ("-" may stand for "~"), ordered; false for what is not a list of
/// ports, is empty, or holds a port twice.
bool parse_ports(const std::string& text, std::vector<PortRange>& ranges);

/// How many ports the match of one rule takes (xt_multiport.h: XT_MULTI_PORTS), and how many of them the
/// ranges count as: a range of more than one port takes two.
constexpr size_t kMostPlaces = 15;
size_t count_places(const std::vector<PortRange>& ranges);

/// Protocols as a mask: 1 TCP, 2 UDP; 0 for another word.
constexpr unsigned kTcp = 1;
constexpr unsigned kUdp = 2;
unsigned protocol_mask(const std::string& protocol);

/// Reads the registry. 0; NM_ERR_BAD_FORMAT; NM_ERR_PARSE.
int read_service_ports(std::vector<service_port>& services);

/// The service of this name in `services`, null if there is none.
const service_port* find_service(const std::vector<service_port>& services, const std::string& name);

}  // namespace nm
