// One type of a section of the device document.
#include "services/sections/section_entry.h"

#include <algorithm>
#include <sstream>

#include "services/sections/section_factory.h"

namespace {

std::string hexadecimal(uint32_t number) {
    std::ostringstream text;
    text << std::hex << number;
    return text.str();
}

}  // namespace

SectionEntry::SectionEntry(const char* title, const std::vector<std::string>& supported, std::string type,
                           uint32_t act, uint32_t opt, std::string path)
    : type(std::move(type)), act(act), opt(opt), path(std::move(path)) {
    if (this->type.empty() || this->path.empty()) {
        throw NM_ERR_NULL_ARG;
    }
    if (!nm::is_listed(supported, this->type)) {
        throw NM_ERR_BAD_TYPE;
    }
    NM_LOG(Info) << nm::LogLines{title} << this->type << "\npath: " << this->path
                 << "\nact: " << hexadecimal(act) << "\nopt: " << opt << "\n";
}

namespace nm {

bool is_listed(const std::vector<std::string>& types, const std::string& type) {
    return std::find(types.begin(), types.end(), type) != types.end();
}

}  // namespace nm
