// The state of the whole device.
#pragma once

#include <json/value.h>

#include <string>

#pragma GCC visibility push(default)

/// Looks at ports, uplinks, LANs, names, the counters of the packet policy, units, and what the last requests
/// came to. Nothing is changed, no lock is taken, no service is called, and no secret is reported.
///
/// `report` becomes the object that status.json describes (/usr/share/networkmanagement/schema/): numbers
/// have their unit in the name of the member. Its `unread` lists what could not be looked at and why: only
/// root can see the counters of the packet policy, and a document that is broken says nothing of its ports.
///
/// 0; NM_ERR_NOT_FOUND, with all the rest in the report, if something could not be looked at.
int report_status(Json::Value& report);

/// A report of report_status() as a picture to be printed: SVG 1.1 in UTF-8, an A4 page upright, which grows
/// longer where there is more than fits. At most 60 uplinks and 60 LANs are drawn, and the others counted.
std::string draw_status(const Json::Value& report);

#pragma GCC visibility pop
