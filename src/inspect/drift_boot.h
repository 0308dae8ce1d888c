// What the stored documents describe: the device as a boot from them would make it, in a copy without
// anything that set-ups have made.
#pragma once

#include <json/value.h>

#include <string>

#include "inspect/drift.h"
#include "inspect/rehearsal_run.h"

namespace nm {

/// What the names of devices that set-ups make or work on begin with.
constexpr const char* kDeviceForms[] = {"swdev", "br_v", "ppp-"};

/// The play of a boot (rehearsal_run.h). Its report has the world after it (`expected`), the indexes of its
/// devices by name (`indexes`), and the steps that failed (`failures`, each with `what` and `reason`).
///
/// It begins with the hardware and with what comes from outside: documents, leases, sessions, records of
/// IPv6. Leases are handed to the entries that the hooks of the clients call.
Json::Value boot_in_copy(const boot_steps& boot, const Original& original);

/// Whether the contents of a file come from outside, or follow from the moment, so that no document describes
/// them: documents and leases, what daemons note, marks of the boot.
bool is_undescribed_file(const std::string& path);

}  // namespace nm
