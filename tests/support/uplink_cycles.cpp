// Adds and deletes the addressing of an uplink in one process: uplink_cycles ENTRY COUNT ADD_REQUEST
// DELETE_REQUEST. ENTRY is "Setup_waninfo" or that of another kind.
#include <networkinterface.h>

#include <cstdlib>
#include <filesystem>
#include <iostream>
#include <map>
#include <string>

int main(int, char** argv) {
    const auto descriptors = [] {
        const std::filesystem::directory_iterator open("/proc/self/fd");
        return std::distance(begin(open), end(open));
    };
    const std::map<std::string, int (*)(char*)> entries{{"Setup_waninfo", Setup_waninfo},
                                                        {"Setup_privateinfo", Setup_privateinfo},
                                                        {"Setup_rglinkinfo", Setup_rglinkinfo}};
    const auto entry = entries.at(argv[1]);
    int failures = 0;
    std::ptrdiff_t before = 0;
    for (int cycle = 0; cycle < atoi(argv[2]); ++cycle) {
        failures += entry(argv[3]) != 0 || entry(argv[4]) != 0;
        before = cycle == 0 ? descriptors() : before;
    }
    std::cout << failures << " failed, " << descriptors() - before << " descriptors more\n";
}
