// Adds and deletes the addressing of an uplink in one process: uplink_cycles COUNT ADD_REQUEST
// DELETE_REQUEST.
#include <networkinterface.h>

#include <cstdlib>
#include <filesystem>
#include <iostream>

int main(int, char** argv) {
    const auto descriptors = [] {
        const std::filesystem::directory_iterator open("/proc/self/fd");
        return std::distance(begin(open), end(open));
    };
    int failures = 0;
    std::ptrdiff_t before = 0;
    for (int cycle = 0; cycle < atoi(argv[1]); ++cycle) {
        failures += Setup_waninfo(argv[2]) != 0 || Setup_waninfo(argv[3]) != 0;
        before = cycle == 0 ? descriptors() : before;
    }
    std::cout << failures << " failed, " << descriptors() - before << " descriptors more\n";
}
