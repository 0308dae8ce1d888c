// One type of a section of the device document (`SERVICES`, `MISC`) during one setup call.
#pragma once

#include <cstdint>
#include <string>
#include <vector>

#pragma GCC visibility push(default)

/// What a request says about one type: the base of the sections' classes.
class SectionEntry {
protected:
    /// `title` heads the request in the log, `supported` lists the types that the section takes. Throws
    /// NM_ERR_NULL_ARG for an empty type or path, NM_ERR_BAD_TYPE for a type that is not listed.
    SectionEntry(const char* title, const std::vector<std::string>& supported, std::string type, uint32_t act,
                 uint32_t opt, std::string path);
    ~SectionEntry() = default;

    std::string type;
    uint32_t act;
    uint32_t opt;
    std::string path;
};

#pragma GCC visibility pop
