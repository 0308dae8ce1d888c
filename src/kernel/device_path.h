// Device names that become part of a path.
#pragma once

#include <string>

namespace nm {

/// Whether the name, put into a path as one entry of a directory, would lead out of that directory. No
/// device has such a name.
inline bool leaves_directory(const std::string& ifname) {
    return ifname.find('/') != std::string::npos;
}

}  // namespace nm
