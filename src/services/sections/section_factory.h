// What the sections' lists of types and factories have in common.
#pragma once

#include <cstdint>
#include <string>
#include <utility>
#include <vector>

#include "log.h"
#include "result_codes.h"

namespace nm {

bool is_listed(const std::vector<std::string>& types, const std::string& type);

/// Builds one object into `*out`, which must be null on entry and stays null on failure; the caller owns it.
/// `word` is the section's own. 0; NM_ERR_NOT_NULL; the code that the constructor threw.
template <class Section>
int build_section(Section** out, const char* word, std::string type, uint32_t act, uint32_t opt,
                  std::string path) {
    if (out == nullptr || *out != nullptr) {
        NM_LOG(Error) << word << " is not NULL";
        return NM_ERR_NOT_NULL;
    }
    try {
        *out = new Section(std::move(type), act, opt, std::move(path));
        return NM_OK;
    } catch (int code) {
        return code;
    }
}

}  // namespace nm
