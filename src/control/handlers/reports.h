// What reports say about ports, LANs and documents, as the handlers answer it. Members are texts unless a
// number is meant: counters in packets and bytes, speeds in Mb/s. The schemas are in
// share/networkmanagement/schema.
#pragma once

#include <json/value.h>

#include <string>

#include "interfaces/uplink/available_info.h"

#pragma GCC visibility push(default)

/// The LAN interfaces of the document at `path`, a list in key order, each with what it has in force; with
/// `comprehensive` other than 0 also the members of its bridge. 0, or the code of reading, with `lans`
/// untouched.
int get_available_lan_info(Json::Value& lans, std::string path, int comprehensive);

/// The WAN interfaces of the document at `path` that ask for IPv6 prefixes, each with those that were
/// delegated to it. 0, or the code of reading.
int get_all_wan_dhcp_pd_info(Json::Value& data, std::string path);

/// `META` and `dbversion` of the document at `path` or, if that is a directory, of all documents in it, by
/// file name. A document that cannot be read is left out.
void get_configs_meta_info(Json::Value& data, std::string path);

#pragma GCC visibility pop

namespace nm {

/// Counters since the devices of the section's ports were made, by device. A device that does not exist is
/// left out. 0; NM_ERR_SOCKET or NM_ERR_NOMEM if the kernel cannot be asked; the code of reading.
int count_traffic(const char* section, const std::string& path, Json::Value& data);

/// The records of get_available_lan_info(), comprehensive, and, of any section of ports, those of
/// lan_port_records(), for a document that has been read.
Json::Value lans_of(const Json::Value& document, LinkQuestion has_link);
Json::Value ports_of(const Json::Value& document, const char* section, LinkQuestion has_link);

/// The LAN ports of the document at `path` with the state of their links. 0, or the code of reading.
int lan_port_records(const std::string& path, Json::Value& data);

}  // namespace nm
