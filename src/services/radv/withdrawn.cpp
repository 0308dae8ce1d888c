// Prefixes that are withdrawn by advertisement.
#include "services/radv/withdrawn.h"

#include <time.h>

#include <algorithm>
#include <cstdint>
#include <cstdlib>
#include <sstream>
#include <vector>

#include "services/files/generated_file.h"
#include "utils/file_io.h"

namespace {

/// What radvd advertises where the block does not say (radvd.conf(5)), and how long a prefix is withdrawn at
/// most: some servers give lifetimes without an end.
constexpr uint64_t kDefaultLifetime = 86400;
constexpr uint64_t kLongest = 2592000;
/// So many prefixes fit into an advertisement beside the rest, whatever the link's MTU.
constexpr size_t kMost = 8;

struct Withdrawn {
    std::string prefix;
    std::string autonomous;
    uint64_t until = 0;
};
using List = std::vector<Withdrawn>;

std::string list_path(const std::string& ifname) {
    return "/var/run/network/ipv6/" + ifname + ".withdrawn";
}

uint64_t now() {
    timespec time{};
    (void)clock_gettime(CLOCK_BOOTTIME, &time);  // it always can be read
    return static_cast<uint64_t>(time.tv_sec);
}

List read_list(const std::string& ifname) {
    List list;
    std::istringstream lines(nm::read_file(list_path(ifname)).value_or(""));
    for (Withdrawn one; lines >> one.prefix >> one.autonomous >> one.until;) {
        list.push_back(one);
    }
    return list;
}

/// The word behind the first `name` of a block, without its semicolon.
std::string word_behind(const std::string& block, const std::string& name, const std::string& fallback) {
    const size_t place = block.find(name + " ");
    if (place == std::string::npos) {
        return fallback;
    }
    const size_t begin = place + name.size() + 1;
    return block.substr(begin, block.find_first_of(";\n", begin) - begin);
}

/// What a block advertises, its first prefix. The ones behind it are in the list already.
Withdrawn advertised(const std::string& block) {
    const std::string first = block.substr(0, block.find("\n  };"));
    const std::string lifetime = word_behind(first, "AdvValidLifetime", std::to_string(kDefaultLifetime));
    const uint64_t seconds = std::min<uint64_t>(strtoull(lifetime.c_str(), nullptr, 10), kLongest);
    return {word_behind(first, "\n  prefix", ""), word_behind(first, "AdvAutonomous", "on"), now() + seconds};
}

void drop(List& list, const std::string& prefix) {
    list.erase(
        std::remove_if(list.begin(), list.end(), [&](const Withdrawn& one) { return one.prefix == prefix; }),
        list.end());
}

void drop_expired(List& list) {
    list.erase(std::remove_if(list.begin(), list.end(),
                              [time = now()](const Withdrawn& one) { return one.until <= time; }),
               list.end());
    list.erase(list.begin(), list.end() - static_cast<std::ptrdiff_t>(std::min(list.size(), kMost)));
}

}  // namespace

void nm::keep_withdrawn(const std::string& ifname, const std::string& block, const std::string& prefix) {
    List list = read_list(ifname);
    const Withdrawn old = advertised(block);
    if (!old.prefix.empty()) {
        drop(list, old.prefix);
        list.push_back(old);
    }
    drop(list, prefix);
    drop_expired(list);
    const std::string path = list_path(ifname);
    if (list.empty()) {
        remove_generated(path);
        return;
    }
    std::string text;
    for (const Withdrawn& one : list) {
        text += one.prefix + " " + one.autonomous + " " + std::to_string(one.until) + "\n";
    }
    (void)replace_locked(path, text);  // logged there; the prefix that is in force counts
}

std::string nm::withdrawn_text(const std::string& ifname) {
    std::string text;
    for (const Withdrawn& one : read_list(ifname)) {
        text += "  prefix " + one.prefix + "\n  {\n    AdvOnLink on;\n    AdvAutonomous " + one.autonomous +
                ";\n    AdvRouterAddr off;\n    AdvPreferredLifetime 0;\n    AdvValidLifetime 0;\n  };\n";
    }
    return text;
}
