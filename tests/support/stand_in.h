// A command that records what it is asked and does nothing.
#pragma once

#include "sandbox_fixture.h"

namespace fixture {

/// Lies over the command at its path for the life of the object and ends with `status`. What `aside` prints
/// is recorded behind the words.
class StandIn {
public:
    explicit StandIn(std::string path, int status = 0, const std::string& aside = ":")
        : path_(std::move(path)) {
        fs::rename(path_, path_ + ".real", absent_);
        put(path_, R"(#!/bin/bash
            { printf '%s' "${0##*/}"; printf ' <%s>' "$@"; )" +
                       aside + R"(; echo; [[ ! -p /dev/stdin ]] || cat; } >>/tmp/stand_in
            exit )" + std::to_string(status) +
                       "\n");
        fs::permissions(path_, fs::perms::all);
    }
    ~StandIn() {
        fs::remove(path_);
        fs::rename(path_ + ".real", path_, absent_);
    }
    /// All calls since the last, "command <word> <word>" with piped input below.
    static std::string take() { return exec("cat /tmp/stand_in; rm -f /tmp/stand_in"); }

private:
    std::string path_;
    std::error_code absent_;
};

}  // namespace fixture
