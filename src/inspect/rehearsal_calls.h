// What a rehearsed request calls: recorded, and answered in the place of those who are not called.
#pragma once

#include <json/value.h>

#include <map>
#include <string>

#include "inspect/world.h"

namespace nm {

/// What services tell about the device, asked for before the rehearsal begins: by "SERVICE.METHOD" the
/// reply's text, absent where none came.
using DeviceFacts = std::map<std::string, std::string>;

DeviceFacts ask_device_facts();

/// Puts recorders in the place of the commands that reach beyond the copy, and of this process's calls. Units
/// are as `units` has them, and then as the commands would have made them.
void record_calls(const DeviceFacts& facts, const Things& units);

/// The calls so far, in their order: objects with `peer`, `method` and `request`, or with `command`, a list
/// of words.
/// `is_whole` is false if records that were written at the same time cannot be read.
Json::Value recorded_calls(bool& is_whole);

/// The units as they would be by now.
Things recorded_units();

}  // namespace nm
