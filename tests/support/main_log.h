// The log of the time after the boot, for tests that run with the marker of its end.
#pragma once

#include "sandbox_fixture.h"

namespace fixture {

/// What the library has logged there since the object was made.
class MainLog {
public:
    MainLog() {
        INITIALIZE_LOG("MAIN");
        start_ = slurp(kFile).size();
    }
    bool has(const std::string& words) const { return slurp(kFile).find(words, start_) != std::string::npos; }

private:
    static constexpr const char* kFile = "/var/log/network/main.log";
    std::size_t start_;
};

}  // namespace fixture
