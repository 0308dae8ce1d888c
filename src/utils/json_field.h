// Values inside JSON that is written by a fixed format.
#pragma once

#include <string>

#include "utils/json_text.h"

namespace nm {

/// `text` as it stands between the quotes of a JSON string: a plain value as it is, quotes and control
/// characters escaped.
inline std::string json_field(const std::string& text) {
    const std::string line = write_compact_json(text);  // in quotes, with a line end
    return line.substr(1, line.size() - 3);
}

}  // namespace nm
