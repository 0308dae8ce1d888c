// The netfilter match `condition`: rules that apply only while a named switch is on. A switch is a file under
// /proc/net/nf_condition/ that exists while a rule of the network namespace names it.
#pragma once

#include <string>

#include "utils/handles.h"

namespace nm {

/// The path of a switch.
std::string condition_path(const std::string& name);

/// The switch `name`, open for writing; empty if no rule names it.
FileDescriptor open_condition(const std::string& name);

/// Turns the switch on or off; false if the kernel refuses.
bool set_condition(FileDescriptor& condition, bool on);

}  // namespace nm
