// The stored configurations as files that only root can read.
#include "configuration.h"

#include <fcntl.h>
#include <sys/stat.h>
#include <unistd.h>

#include <algorithm>
#include <cerrno>
#include <cstdio>
#include <cstring>
#include <filesystem>
#include <fstream>
#include <iterator>
#include <optional>
#include <sstream>
#include <string_view>

#include "vpppoe.h"

namespace vpppoe {

namespace {

const std::string kRoot = "/etc/vpppoe";
const std::string kPeers = kRoot + "/peers";
const std::string kEnvironments = kRoot + "/env";

// pppd keeps both in buffers of 256 bytes and cuts what is longer without a word.
constexpr std::size_t kMaxCredential = 255;

// What does not depend on the session. Routes are the business of whoever configures the port, and so is
// dialling again, which therefore respects the stop flag.
constexpr const char* kFixedOptions =
    "plugin rp-pppoe.so\n"
    "noauth\n"
    "hide-password\n"
    "nodetach\n"
    "nopersist\n"
    "noipdefault\n"
    "nodefaultroute\n"
    "usepeerdns\n"
    "mtu 1492\n"
    "mru 1492\n"
    "lcp-echo-interval 10\n"
    "lcp-echo-failure 3\n"
    "ip-up-script " NM_PRIVATE_DIR
    "/pppoe/ip-up\n"
    "ip-down-script " NM_PRIVATE_DIR "/pppoe/ip-down\n";

/// Where a file is written before it takes its place. The name begins with a dot, which no interface's does
/// here, and is always the same, so that killed processes leave no pile of old credentials.
std::string fresh_path(const std::string& directory, const std::string& name) {
    return directory + "/." + name;
}

std::string options_path(const std::string& ifname) {
    return kPeers + "/" + ifname;
}

std::string environment_path(const std::string& ifname) {
    return kEnvironments + "/" + ifname + ".env";
}

bool is_control(unsigned char c) {
    return c < ' ' || c == 0x7f;
}

/// A value as one word of an options file, nothing if it has no harmless form there.
std::optional<std::string> options_word(const std::string& value) {
    if (value.size() > kMaxCredential || std::any_of(value.begin(), value.end(), is_control)) {
        return std::nullopt;
    }
    std::string word = "\"";
    for (const char c : value) {
        if (c == '"' || c == '\\') {
            word += '\\';
        }
        word += c;
    }
    return word + "\"";
}

/// A directory that was there before may have been made by somebody less careful.
bool make_private_directory(const std::string& path) {
    (void)mkdir(path.c_str(), 0700);  // The next call fails if this one has for a reason other than EEXIST.
    return chmod(path.c_str(), 0700) == 0;
}

bool write_and_close(int fd, std::string_view text) {
    bool is_written = fd >= 0 && fchmod(fd, 0600) == 0;
    while (is_written && !text.empty()) {
        const ssize_t count = write(fd, text.data(), text.size());
        is_written = count > 0 || (count < 0 && errno == EINTR);
        text.remove_prefix(count > 0 ? static_cast<std::size_t>(count) : 0);
    }
    is_written = is_written && fsync(fd) == 0;
    return fd >= 0 && close(fd) == 0 && is_written;
}

/// All directories are made at once: the stop flag may be raised before the first start.
bool make_directories() {
    return make_private_directory(kRoot) && make_private_directory(kPeers) &&
           make_private_directory(kEnvironments);
}

int replace_file(const std::string& directory, const std::string& name, const std::string& text) {
    const std::string fresh = fresh_path(directory, name);
    if (!make_directories()) {
        return VPPPOE_ERR_STORE;
    }
    const int fd = open(fresh.c_str(), O_WRONLY | O_CREAT | O_TRUNC | O_NOFOLLOW | O_CLOEXEC, 0600);
    if (!write_and_close(fd, text) || rename(fresh.c_str(), (directory + "/" + name).c_str()) != 0) {
        (void)unlink(fresh.c_str());  // It is the first failure that counts.
        return VPPPOE_ERR_STORE;
    }
    return VPPPOE_SUCCESS;
}

}  // namespace

bool is_ifname(const char* ifname) {
    constexpr std::size_t kLongest = VPPPOE_NAME_SIZE - 1 - std::string_view(kSessionPrefix).size();
    if (ifname == nullptr || *ifname == '\0' || *ifname == '.' ||
        strnlen(ifname, VPPPOE_NAME_SIZE) > kLongest) {
        return false;
    }
    return ifname[strspn(ifname, "ABCDEFGHIJKLMNOPQRSTUVWXYZabcdefghijklmnopqrstuvwxyz0123456789_.-")] ==
           '\0';
}

std::string read_file(const std::string& path) {
    std::ifstream file(path, std::ios::binary);
    return {std::istreambuf_iterator<char>(file), {}};
}

bool is_stored(const std::string& ifname) {
    return access(options_path(ifname).c_str(), F_OK) == 0;
}

std::vector<std::string> stored_interfaces() {
    std::vector<std::string> names;
    std::error_code no_directory;
    for (const auto& entry : std::filesystem::directory_iterator(kPeers, no_directory)) {
        const std::string name = entry.path().filename();
        if (is_ifname(name.c_str())) {
            names.push_back(name);
        }
    }
    std::sort(names.begin(), names.end());
    return names;
}

int store(const std::string& ifname, const std::string& user, const std::string& password, bool ipv6,
          bool& changed) {
    const std::optional<std::string> user_word = options_word(user);
    const std::optional<std::string> password_word = options_word(password);
    if (user.empty() || !user_word || !password_word) {
        return VPPPOE_ERR_ARG;
    }
    const std::string text = kFixedOptions + ("nic-" + ifname) + "\nifname " + kSessionPrefix + ifname +
                             "\nipparam " + ifname + "\nuser " + *user_word + "\npassword " + *password_word +
                             (ipv6 ? "\n+ipv6\n" : "\nnoipv6\n");
    const bool is_new = read_file(options_path(ifname)) != text;
    const int result = is_new ? replace_file(kPeers, ifname, text) : VPPPOE_SUCCESS;
    if (result == VPPPOE_SUCCESS) {
        changed = is_new;
    }
    return result;
}

int remove(const std::string& ifname) {
    (void)unlink(environment_path(ifname).c_str());    // There is none before the first start,
    (void)unlink(fresh_path(kPeers, ifname).c_str());  // and this one only after a process was killed.
    if (unlink(options_path(ifname).c_str()) == 0) {
        return VPPPOE_SUCCESS;
    }
    return errno == ENOENT ? VPPPOE_ERR_NO_SESSION : VPPPOE_ERR_STORE;
}

int clear_stop_flag(const std::string& ifname) {
    std::istringstream lines(read_file(environment_path(ifname)));
    std::string kept;
    for (std::string line; std::getline(lines, line);) {
        if (line.rfind("STOP_FLAG=", 0) != 0) {
            kept += line + "\n";
        }
    }
    return replace_file(kEnvironments, ifname + ".env", kept);
}

}  // namespace vpppoe
