// Namespaces, mounts and descriptors of a rehearsal.
#include "inspect/rehearsal_place.h"

#include <fcntl.h>
#include <linux/capability.h>
#include <poll.h>
#include <sched.h>
#include <signal.h>
#include <sys/mount.h>
#include <sys/prctl.h>
#include <sys/stat.h>
#include <sys/syscall.h>
#include <sys/wait.h>
#include <unistd.h>

#include <cerrno>
#include <chrono>
#include <cstdlib>
#include <cstring>
#include <filesystem>
#include <stdexcept>
#include <string>
#include <thread>
#include <vector>

#include "inspect/world_files.h"
#include "result_codes.h"
#include "utils/file_io.h"
#include "utils/files.h"
#include "utils/handles.h"

namespace nm {

const char* const kFarNamespace = "far";
const char* const kRehearsalDirectory = "/run/rehearsal";

namespace {

namespace fs = std::filesystem;

/// Exists everywhere, and holds nothing that the copy needs from outside: its own contents come last.
constexpr const char* kScratch = "/sys";
constexpr const char* kRoom = "mode=755,size=512m";
constexpr const char* kSettings = "/proc/sys/net/";
constexpr const char* kSharedSettings[] = {"core", "nf_conntrack_max", "netfilter/nf_conntrack_max"};

/// Files of /proc that act on the whole device, where its kernel has them.
constexpr const char* kDeviceControls[] = {"acpi", "bus",  "driver", "fs",
                                           "irq",  "mtrr", "scsi",   "sysrq-trigger"};

/// What acts on the whole device, whatever the namespace (capabilities(7)).
constexpr int kDeviceCapabilities[] = {CAP_SYS_MODULE, CAP_SYS_RAWIO, CAP_SYS_BOOT,
                                       CAP_SYS_TIME,   CAP_MKNOD,     CAP_SYSLOG};

constexpr auto kPause = std::chrono::milliseconds(5);
constexpr int kNamespaces = CLONE_NEWNS | CLONE_NEWNET | CLONE_NEWPID | CLONE_NEWIPC | CLONE_NEWUTS;

void require(bool is_done, const char* what) {
    if (!is_done) {
        throw std::runtime_error(std::string(what) + ": " + strerror(errno));
    }
}

/// What is open of the device's files (logs above all) leads nowhere from now on; the numbers stay taken.
void cut_descriptors(const Outlets& outlets) {
    const auto nowhere = FileDescriptor::open("/dev/null", O_RDWR);
    require(bool(nowhere), "/dev/null cannot be opened");
    std::vector<int> open_ones;
    for (const auto& entry : fs::directory_iterator("/proc/self/fd")) {
        open_ones.push_back(atoi(entry.path().filename().c_str()));
    }
    for (const int fd : open_ones) {
        const bool is_outlet = fd == outlets.report || fd == outlets.output;
        if (!is_outlet && fd != nowhere.get() && fcntl(fd, F_GETFD) >= 0) {
            require(dup3(nowhere.get(), fd, fd > STDERR_FILENO ? O_CLOEXEC : 0) == fd, "an open file stays");
        }
    }
    for (const int fd : {STDOUT_FILENO, STDERR_FILENO}) {
        require(dup2(outlets.output, fd) == fd, "what is printed cannot be kept");
    }
}

/// Dies with its parent, which may have died already: the pipe has lost its other end then.
void die_with_parent(int pipe_end) {
    pollfd parent{pipe_end, 0, 0};
    if (prctl(PR_SET_PDEATHSIG, SIGKILL) != 0 || poll(&parent, 1, 0) != 0) {
        _exit(EXIT_FAILURE);
    }
}

/// A child, and the pipe's end that tells it whether this process lives.
struct Child {
    pid_t pid = -1;
    FileDescriptor lifeline;
};

/// Nothing may lead back into the caller, of which the child is a second one.
[[noreturn]] void run_to_end(const std::function<void()>& work) {
    try {
        work();
    } catch (...) {
        _exit(EXIT_FAILURE);
    }
    _exit(EXIT_SUCCESS);
}

/// Forks; in the child `work` runs, and ends it.
Child fork_with(const std::function<void()>& work) {
    int ends[2];
    if (pipe2(ends, O_CLOEXEC) != 0) {
        return {};
    }
    const FileDescriptor reader(ends[0]);
    Child child;
    child.lifeline = FileDescriptor(ends[1]);
    child.pid = fork();
    if (child.pid == 0) {
        (void)child.lifeline.close();
        die_with_parent(reader.get());
        run_to_end(work);
    }
    return child;
}

/// Ends the child, and with it what it has started, when its time is over.
bool await(const Child& child) {
    constexpr auto kLongest = std::chrono::minutes(10);
    const auto end = std::chrono::steady_clock::now() + kLongest;
    int status = 0;
    pid_t ended = 0;
    while (child.pid > 0 && (ended = waitpid(child.pid, &status, WNOHANG)) == 0) {
        if (std::chrono::steady_clock::now() >= end) {
            (void)kill(child.pid, SIGKILL);
        }
        std::this_thread::sleep_for(kPause);
    }
    return child.pid > 0 && ended == child.pid && WIFEXITED(status) && WEXITSTATUS(status) == EXIT_SUCCESS;
}

void protect_files() {
    mount_or_throw(nullptr, "/", nullptr, MS_REC | MS_PRIVATE);
    mount_attr read_only{};
    read_only.attr_set = MOUNT_ATTR_RDONLY;
    require(mount_setattr(AT_FDCWD, "/", AT_RECURSIVE, &read_only, sizeof(read_only)) == 0,
            "cannot protect the files");
    mount_or_throw("scratch", kScratch, "tmpfs", MS_NOSUID | MS_NODEV, kRoom);
    cover_files(kScratch);
    require(mkdir(kRehearsalDirectory, 0700) == 0, "the rehearsal has no directory");
}

/// The kernel's settings of the whole device are out of reach, those of the network belong to the namespace.
void mount_proc() {
    mount_or_throw("proc", "/proc", "proc", MS_NOSUID | MS_NODEV | MS_NOEXEC);
    bind_mount("/proc/sys", "/proc/sys", false);
    bind_mount("/proc/sys/net", "/proc/sys/net", true);
    for (const char* const name : kDeviceControls) {
        const std::string path = std::string("/proc/") + name;
        if (access(path.c_str(), F_OK) == 0) {
            bind_mount(path, path, false);
        }
    }
}

/// Devices that are made in the copy are virtual ones.
void mount_sysfs() {
    mount_or_throw("sysfs", "/sys", "sysfs", MS_NOSUID | MS_NODEV | MS_NOEXEC);
    bind_mount("/sys", "/sys", false);
    if (access("/sys/devices/virtual/net", F_OK) == 0) {
        bind_mount("/sys/devices/virtual/net", "/sys/devices/virtual/net", true);
    }
}

void put(const char* path, const char* value) {
    const auto file = FileDescriptor::open(path, O_WRONLY);
    (void)(file && write_all(file.get(), value));  // absent where the kernel has no IPv6
}

/// The network that this process begins with keeps the far ends, quiet; the next one is the copy's.
void enter_network() {
    put("/proc/sys/net/ipv6/conf/all/disable_ipv6", "1");
    put("/proc/sys/net/ipv6/conf/default/disable_ipv6", "1");
    const std::string name = std::string("/run/netns/") + kFarNamespace;
    require(mkdir("/run/netns", 0755) == 0, "cannot name the far network");
    require(bool(FileDescriptor::open(name.c_str(), O_WRONLY | O_CREAT, 0600)),
            "cannot name the far network");
    mount_or_throw("/proc/self/ns/net", name, nullptr, MS_BIND);
    require(unshare(CLONE_NEWNET) == 0, "a network of its own is refused");
}

void take_setting(const std::string& path, SharedSettings& settings) {
    if (const std::optional<std::string> value = read_file(path)) {
        settings[path] = {*value, access(path.c_str(), W_OK) == 0};
    }
}

/// Files of our own in the place of settings that the whole device shares: each with its value, and as open
/// as it is. The directory is covered as a whole, as in a network of its own most of its files are absent.
void cover_settings(const SharedSettings& settings) {
    const std::string core = std::string(kSettings) + "core";
    const std::string copies = std::string(kRehearsalDirectory) + "/settings";
    require(mkdir(copies.c_str(), 0700) == 0 && mkdir((copies + "/core").c_str(), 0755) == 0,
            "cannot copy settings");
    for (const auto& [path, setting] : settings) {
        const std::string copy = copies + path.substr(strlen(kSettings) - 1);
        fs::create_directories(fs::path(copy).parent_path());
        require(writeValue(copy, setting.value, false) == NM_OK, "cannot copy a setting");
    }
    bind_mount(copies + "/core", core, true);
    for (const auto& [path, setting] : settings) {
        const bool is_covered = path.rfind(core + "/", 0) == 0;
        if (access(path.c_str(), F_OK) == 0 && !(is_covered && setting.is_writable)) {
            bind_mount(copies + path.substr(strlen(kSettings) - 1), path, setting.is_writable);
        }
    }
}

/// For this process and what it runs. A capability that is missing already needs no right to drop it.
void drop_capabilities() {
    __user_cap_header_struct header{_LINUX_CAPABILITY_VERSION_3, 0};
    __user_cap_data_struct sets[_LINUX_CAPABILITY_U32S_3] = {};
    require(syscall(SYS_capget, &header, sets) == 0, "cannot read the capabilities");
    for (const int capability : kDeviceCapabilities) {
        require(prctl(PR_CAPBSET_READ, capability) == 0 || prctl(PR_CAPBSET_DROP, capability) == 0,
                "cannot drop a capability");
        __user_cap_data_struct& set = sets[CAP_TO_INDEX(capability)];
        set.effective &= ~CAP_TO_MASK(capability);
        set.permitted &= ~CAP_TO_MASK(capability);
        set.inheritable &= ~CAP_TO_MASK(capability);
    }
    require(syscall(SYS_capset, &header, sets) == 0, "cannot drop the capabilities");
}

[[noreturn]] void refuse(const Outlets& outlets) {
    (void)write_all(outlets.report, std::string(R"({"reason":"namespaces of its own are refused: )") +
                                        strerror(errno) + "\"}");
    _exit(EXIT_FAILURE);
}

}  // namespace

SharedSettings read_shared_settings() {
    SharedSettings settings;
    for (const char* const tree : kSharedSettings) {
        const std::string path = std::string(kSettings) + tree;
        std::error_code error;
        fs::directory_iterator entry(path, error);
        if (error) {
            take_setting(path, settings);
        }
        for (; !error && entry != fs::directory_iterator(); entry.increment(error)) {
            take_setting(entry->path(), settings);
        }
    }
    return settings;
}

bool run_apart(const Outlets& outlets, const std::function<void()>& work) {
    return await(fork_with([&] {
        cut_descriptors(outlets);
        if (unshare(kNamespaces) != 0) {
            refuse(outlets);
        }
        _exit(await(fork_with(work)) ? EXIT_SUCCESS : EXIT_FAILURE);
    }));
}

void enter_place(const SharedSettings& settings) {
    protect_files();
    mount_proc();
    enter_network();
    cover_settings(settings);
    mount_sysfs();
    drop_capabilities();
}

bool await_background() {
    constexpr auto kPatience = std::chrono::seconds(3);
    const auto end = std::chrono::steady_clock::now() + kPatience;
    while (std::chrono::steady_clock::now() < end) {
        const pid_t ended = waitpid(-1, nullptr, WNOHANG);
        if (ended < 0 && errno == ECHILD) {
            return true;
        }
        if (ended == 0) {
            std::this_thread::sleep_for(kPause);
        }
    }
    return false;
}

}  // namespace nm
