// What tests share that work on real paths and devices: the guard against running on the real machine,
// files, devices, and the log as an operator reads it.
#pragma once

#include <fcntl.h>
#include <gmock/gmock.h>
#include <json/json.h>
#include <sys/file.h>
#include <unistd.h>

#include <algorithm>
#include <array>
#include <cstdlib>
#include <filesystem>
#include <fstream>
#include <functional>
#include <map>
#include <memory>
#include <optional>
#include <set>
#include <sstream>
#include <string>
#include <tuple>
#include <vector>

#include "config/actions.h"
#include "config/nmconfig.h"
#include "peers/logs/logging.h"
#include "result_codes.h"
#include "utils/json_text.h"
#include "utils/process.h"

namespace fixture {

namespace fs = std::filesystem;

/// Ends the program before its first test where the machine is a real one.
class SandboxOnly : public testing::Environment {
    void SetUp() override {
        ASSERT_TRUE(fs::exists("/run/network/.sandbox")) << "run this by scripts/sandbox";
    }
};
inline testing::Environment* const sandbox_only = testing::AddGlobalTestEnvironment(new SandboxOnly);

inline std::string slurp(const fs::path& path) {
    std::ifstream file(path, std::ios::binary);
    return {std::istreambuf_iterator<char>(file), {}};
}

inline void put(const fs::path& path, const std::string& text) {
    fs::create_directories(path.parent_path());
    std::ofstream(path, std::ios::binary) << text;
}

/// A file that stands for the life of the object.
struct File {
    explicit File(fs::path name, const std::string& text = "") : path(std::move(name)) { put(path, text); }
    ~File() { fs::remove(path); }
    fs::path path;
};

/// A directory for one test, gone with the object.
class Scratch {
public:
    Scratch() {
        char name[] = "/tmp/unit-XXXXXX";
        root_ = mkdtemp(name);
    }
    ~Scratch() { fs::remove_all(root_); }
    std::string operator/(const std::string& name) const { return root_ / name; }

private:
    fs::path root_;
};

inline void run(const std::string& command) {
    ASSERT_EQ(std::system(command.c_str()), 0) << command;
}

/// A veth device for the life of the object. IPv6 is off, or the kernel would talk where tests count packets.
struct Device {
    explicit Device(std::string ifname, bool up = false, const std::string& far = "far")
        : name(std::move(ifname)) {
        run("ip link add " + name + " type veth peer name " + far);
        for (const std::string& end : {name, far}) {
            const std::string ip6 = "/proc/sys/net/ipv6/conf/" + end + "/disable_ipv6";
            fs::exists(ip6) ? put(ip6, "1") : void();
        }
        up ? run("ip link set " + far + " up && ip link set " + name + " up") : void();
    }
    /// It may be going, too, with the network of its far end.
    ~Device() { run("ip link del " + name + " || test ! -e /sys/class/net/" + name); }
    std::string name;
};

/// What sysfs says about a device: "mtu", "flags", ...; empty if there is no such device.
inline std::string fact(const std::string& ifname, const std::string& file) {
    const std::string text = slurp("/sys/class/net/" + ifname + "/" + file);
    return text.substr(0, text.find('\n'));
}

/// Texts are written with ' for ".
inline std::string quoted(std::string text) {
    std::replace(text.begin(), text.end(), '\'', '"');
    return text;
}
inline Json::Value json(const std::string& text) {
    Json::Value value;
    EXPECT_TRUE(nm::parse_json(quoted(text), value)) << text;
    return value;
}

inline std::string nested(std::size_t depth) {
    return std::string(depth, '[') + std::string(depth, ']');
}

inline std::ptrdiff_t open_descriptors() {
    const fs::directory_iterator descriptors("/proc/self/fd");
    return std::distance(begin(descriptors), end(descriptors));
}

/// Whether nobody holds the lock of this base name.
inline bool is_lock_free(const std::string& name) {
    const int fd = open(("/var/lock/network/" + name + ".lck").c_str(), O_RDONLY | O_CREAT | O_CLOEXEC, 0644);
    const bool is_free = flock(fd, LOCK_EX | LOCK_NB) == 0;
    close(fd);
    return is_free;
}

/// What the library has logged since the object was made.
class LogTail {
public:
    explicit LogTail(std::string file = "/var/log/network/bootup.log") : file_(std::move(file)) {
        INITIALIZE_LOG("MAIN");
        start_ = slurp(file_).size();
    }
    bool has(const std::string& words) const { return slurp(file_).find(words, start_) != std::string::npos; }

private:
    std::string file_;
    std::size_t start_ = 0;
};

/// The same for tests that run with the marker of the end of the boot.
struct MainLog : LogTail {
    MainLog() : LogTail("/var/log/network/main.log") {}
};

/// Its tests leave no descriptor behind; leaks of memory are told by the address sanitizer at the end.
struct Frugal : testing::Test {
    ~Frugal() override { EXPECT_EQ(open_descriptors(), before); }
    const LogTail log;  // its file stays open
    const std::ptrdiff_t before = open_descriptors();
};

}  // namespace fixture
