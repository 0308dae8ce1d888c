#include "target.h"

#include <cstdint>

extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t* bytes, std::size_t size) {
    holds({reinterpret_cast<const char*>(bytes), size}) ? void() : std::abort();
    return 0;
}
