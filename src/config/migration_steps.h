// The steps of formats: each completes or changes a document in memory, leaves alone what it does not know,
// and changes nothing the second time.
#pragma once

#include <json/value.h>

namespace nm {

/// Gives records by device type (those with a `device_type`, and the member `global`) the keys of their
/// default template that they lack.
void complete_device_records(Json::Value& config);

/// Gives ports and interfaces the keys that they lack, with the values that their readers assume. Keys whose
/// absence means something else to different readers, or follows from other keys, are not among them.
void complete_ports(Json::Value& config);

/// Gives the registry its predefined and its own services, and each of those the members of a row.
void complete_service_ports(Json::Value& config);

}  // namespace nm
