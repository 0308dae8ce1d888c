// The sessions as the machine knows them: a unit for each, and a record that pppd's events keep.
#include "session.h"

#include <arpa/inet.h>
#include <fcntl.h>
#include <net/if.h>
#include <spawn.h>
#include <sys/wait.h>
#include <unistd.h>

#include <array>
#include <cerrno>
#include <cstdlib>
#include <sstream>
#include <string_view>

#include "configuration.h"

namespace vpppoe {

namespace {

/// Runs a program without a shell and without our standard output; whether it ended with success.
bool succeeds(const char* program, std::array<const char*, 4> arguments) {
    posix_spawn_file_actions_t actions;
    if (posix_spawn_file_actions_init(&actions) != 0) {
        return false;
    }
    pid_t pid = -1;
    const bool is_started =
        posix_spawn_file_actions_addopen(&actions, STDOUT_FILENO, "/dev/null", O_WRONLY, 0) == 0 &&
        posix_spawn_file_actions_addopen(&actions, STDERR_FILENO, "/dev/null", O_WRONLY, 0) == 0 &&
        posix_spawn(&pid, program, &actions, nullptr, const_cast<char**>(arguments.data()), environ) == 0;
    posix_spawn_file_actions_destroy(&actions);
    int status = -1;
    while (is_started && waitpid(pid, &status, 0) < 0 && errno == EINTR) {
    }
    return status == 0;
}

/// The addresses of a record by the word that begins their line.
constexpr struct {
    std::string_view key;
    char (pppoe_runtime_cfg::*address)[VPPPOE_IP4_SIZE];
} kAddresses[] = {
    {"LOCAL=", &pppoe_runtime_cfg::ip4_addr},
    {"REMOTE=", &pppoe_runtime_cfg::ip4_gw},
    {"DNS1=", &pppoe_runtime_cfg::ip4_dns1},
    {"DNS2=", &pppoe_runtime_cfg::ip4_dns2},
};

void take_line(const std::string& line, pppoe_runtime_cfg& cfg) {
    constexpr std::string_view kIndex = "IFINDEX=";
    if (line.rfind(kIndex, 0) == 0) {
        cfg.ifindex = atoi(line.c_str() + kIndex.size());
    }
    for (const auto& [key, address] : kAddresses) {
        in_addr parsed = {};
        if (line.rfind(key, 0) == 0 && inet_pton(AF_INET, line.c_str() + key.size(), &parsed) == 1) {
            (void)inet_ntop(AF_INET, &parsed, cfg.*address, VPPPOE_IP4_SIZE);  // There is room for any.
        }
    }
}

pppoe_runtime_cfg parse_record(const std::string& record) {
    pppoe_runtime_cfg cfg = {};
    std::istringstream lines(record);
    for (std::string line; std::getline(lines, line);) {
        take_line(line, cfg);
    }
    return cfg;
}

}  // namespace

int control(const char* verb, const std::string& ifname) {
    const std::string unit = "nm-pppoe@" + ifname + ".service";
    const bool is_done = succeeds("/usr/bin/systemctl", {"systemctl", verb, unit.c_str(), nullptr});
    return is_done ? VPPPOE_SUCCESS : VPPPOE_ERR_UNAVAILABLE;
}

int start(const std::string& ifname, bool anew) {
    if (access("/usr/sbin/pppd", X_OK) != 0) {
        return VPPPOE_ERR_UNAVAILABLE;
    }
    const int result = clear_stop_flag(ifname);
    return result == VPPPOE_SUCCESS ? control(anew ? "restart" : "start", ifname) : result;
}

std::optional<pppoe_runtime_cfg> runtime_cfg(const std::string& ifname) {
    pppoe_runtime_cfg cfg = parse_record(read_file("/run/vpppoe/" + ifname + ".state"));
    const std::string session = kSessionPrefix + ifname;
    // A pppd that was killed has reported nothing, but its interface is gone, or is another one by now.
    if (cfg.ifindex < 1 || cfg.ip4_addr[0] == '\0' ||
        if_nametoindex(session.c_str()) != static_cast<unsigned>(cfg.ifindex)) {
        return std::nullopt;
    }
    session.copy(cfg.ifname, VPPPOE_NAME_SIZE - 1);
    return cfg;
}

}  // namespace vpppoe
