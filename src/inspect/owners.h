// Who owns what on the device, by design and in fact.
#pragma once

#include <json/value.h>

#pragma GCC visibility push(default)

/// Looks at what the network configuration shares with the rest of the system: fields of the packet mark,
/// routing tables, rule priorities, sets, chains, files, units and locks. Nothing is changed, no lock is
/// taken, and no service is called.
///
/// `report` becomes an object with `resources`, a list of what is owned, each with its `owner` by design, its
/// `purpose`, and `present`, what lies there now; `findings`, each of the grade "stranger" (something in the
/// range of an owner that is not that owner's) or "collision" (two owners, by design or in fact); and
/// `unread`, what could not be looked at and why (owners.json in /usr/share/networkmanagement/schema/). Only
/// root can see sets, chains and locks.
///
/// 0 without findings; NM_ERR_BAD_VALUE with some; NM_ERR_NOT_FOUND, whatever was found, if something could
/// not be looked at.
int report_owners(Json::Value& report);

#pragma GCC visibility pop
