// The rehearsal: a request is worked in a copy of the device, and what it has changed there is reported.
#pragma once

#include <json/value.h>

#include <functional>

#pragma GCC visibility push(default)

/// Works `request` in a child process that has a copy of this device: mount, network, process, IPC and host
/// name namespaces of its own, in which links, addresses, routes, rules, sets, chains, settings and the files
/// that set-ups write are those of the running system, and all else of the file system is read-only. Devices
/// that are neither bridges nor VLANs are virtual Ethernet there. The copy ends with the child, however
/// that ends, and with this process; nothing of it is seen outside.
///
/// Units and calls are recorded, not made. Each call is answered with success, documents of `ncaas` from the
/// copy, and its questions about the device (model, id, management) as they were answered beforehand. A unit
/// counts as active from its start to its stop, but runs nothing: what its daemon, a lease or a session would
/// set up later is not part of the report.
///
/// `request` is called in the child, so that what it changes in memory is lost; its result is the answer.
/// This process should have no other thread.
///
/// `report` becomes an object (plan.json in /usr/share/networkmanagement/schema/): `answer`, what the request
/// would return, with its targets, the errors it would log and what it would print; `changes`, what differs
/// afterwards, by domain (link, address, route, rule, set, chain, setting, condition, file, unit), thing and
/// lines; `calls` in their order; `unlike`, what the copy had otherwise than the device to begin with, in the
/// form of the changes. Secrets are masked.
///
/// 0, whatever the answer is; NM_ERR_NULL_ARG without a request; NM_ERR_SERVICE if the copy could not be made
/// or was ended: `reason` of the report says why, and it has no other member.
int rehearse(const std::function<int()>& request, Json::Value& report);

#pragma GCC visibility pop
