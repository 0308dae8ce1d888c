// Advisory locks: taking with retries, releasing, and the lock files' names.
#include "utils/locks.h"

#include <errno.h>
#include <net/if.h>
#include <stdio.h>
#include <sys/file.h>
#include <unistd.h>

#include <optional>
#include <string>

#include "log.h"
#include "result_codes.h"
#include "utils/call_notes.h"
#include "utils/handles.h"
#include "utils/lock_holder.h"

namespace {

constexpr int kAttempts = 10;
constexpr std::size_t kPathSize = 64;

enum class OutOfRecords { Close, LeaveOpen };

std::string base_name(const std::string& path) {
    return path.substr(path.rfind('/') + 1);
}

std::string lock_file(const std::string& name) {
    char path[kPathSize];
    (void)snprintf(path, sizeof(path), "/var/lock/network/%s.lck", name.c_str());
    return path;
}

int lock_failure() {
    if (errno != ENOLCK) {
        return NM_ERR_LOCK;
    }
    NM_LOG(Error) << "The kernel ran out of memory for allocating lock records.";
    return NM_ERR_LOCK_MEM;
}

/// Who had the lock last is whom it was waited for.
void note_holder(const nm::Step& step, const std::string& path) {
    const std::string holder = nm::are_steps_watched() ? lock_holder(path) : "";
    if (!holder.empty()) {
        step.note("holder", holder);
    }
}

int take(const std::string& name, int kind, OutOfRecords out_of_records) {
    const std::string path = lock_file(name);
    const nm::Step step("lock", "take", name);
    std::optional<nm::WaitNote> note;
    for (int attempt = 0; attempt < kAttempts; ++attempt) {
        // A failed open is met again as a failed flock, and may be over on the next attempt.
        // A link in its place would make a reader, which deletes its lock file, delete another file.
        nm::FileDescriptor file =
            nm::FileDescriptor::open(path.c_str(), O_RDONLY | O_CREAT | O_NOFOLLOW, 0644);
        if (flock(file.get(), kind | LOCK_NB) == 0) {
            NM_LOG(Debug) << "LOCKed: " << name << ", pid: " << getpid();
            nm::note_lock(file.get(), name);
            return file.release();
        }
        if (lock_failure() == NM_ERR_LOCK_MEM) {
            if (out_of_records == OutOfRecords::LeaveOpen) {
                (void)file.release();
            }
            return NM_ERR_LOCK_MEM;
        }
        (void)file.close();
        if (!note) {
            note.emplace("the lock of " + name, kAttempts, path.c_str());
        }
        note_holder(step, path);
        sleep(1);
    }
    NM_LOG(Error) << "Get LOCK failed: " << name << ", pid: " << getpid();
    return NM_ERR_LOCK;
}

int give_back(nm::FileDescriptor file, const std::string& name) {
    nm::note_unlock(file.get());
    if (flock(file.get(), LOCK_UN) == 0) {
        NM_LOG(Debug) << "UNLOCKed: " << name << ", pid: " << getpid();
        return NM_OK;
    }
    const int result = lock_failure();
    NM_LOG(Error) << "Get UNLOCK failed: " << name << ", pid: " << getpid();
    return result;
}

/// The path of the open lock file; empty if it cannot be found out.
std::string open_path(int fd) {
    // readlink() does not terminate what it writes.
    char target[kPathSize] = {};
    const std::string link = "/proc/self/fd/" + std::to_string(fd);
    return readlink(link.c_str(), target, sizeof(target) - 1) < 0 ? "" : target;
}

/// What the lock of this file is named after.
std::string locked_name(const std::string& path) {
    const std::string file = base_name(path);
    return file.substr(0, file.rfind(".lck"));
}

int interface_name(int ifindex, std::string& name) {
    char buffer[IF_NAMESIZE];
    if (if_indextoname(static_cast<unsigned int>(ifindex), buffer) == nullptr) {
        NM_LOG(Error) << "No such iface: " << ifindex;
        return NM_ERR_NO_IFACE;
    }
    name = buffer;
    return NM_OK;
}

int take_by_path(const char* path, int kind, OutOfRecords out_of_records) {
    if (path == nullptr) {
        NM_LOG(Error) << "path is Null pointer.";
        return NM_ERR_NULL_ARG;
    }
    return take(base_name(path), kind, out_of_records);
}

}  // namespace

int lock_ex(const char* path) {
    NM_LOG(Debug) << "Enter";
    return NM_EXIT(take_by_path(path, LOCK_EX, OutOfRecords::Close));
}

int lock_ex(int ifindex) {
    NM_LOG(Debug) << "Enter";
    std::string name;
    const int result = interface_name(ifindex, name);
    return NM_EXIT(result == NM_OK ? take(name, LOCK_EX, OutOfRecords::LeaveOpen) : result);
}

int lock_sh(const char* path) {
    NM_LOG(Debug) << "Enter";
    return NM_EXIT(take_by_path(path, LOCK_SH, OutOfRecords::LeaveOpen));
}

int unlock_ex(int fd, const char* path, bool remove) {
    NM_LOG(Debug) << "Enter";
    const std::string name = base_name(path != nullptr ? path : "");
    const int result = give_back(nm::FileDescriptor(fd), name);
    if (path == nullptr) {
        NM_LOG(Error) << "path is Null pointer.";
        return NM_EXIT(NM_ERR_NULL_ARG);
    }
    if (remove) {
        (void)unlink(lock_file(name).c_str());  // Another process may have been quicker.
    }
    return NM_EXIT(result);
}

int unlock_ex(int fd, int ifindex) {
    NM_LOG(Debug) << "Enter";
    std::string name;
    const int result = interface_name(ifindex, name);
    return NM_EXIT(result == NM_OK ? give_back(nm::FileDescriptor(fd), name) : result);
}

int unlock_sh(int fd, bool remove) {
    NM_LOG(Debug) << "Enter";
    const std::string path = open_path(fd);
    if (remove && path.empty()) {
        // The lock is released all the same, only its file stays.
        NM_LOG(Error) << "Failed to readlink. fd: " << fd;
    }
    const int result = give_back(nm::FileDescriptor(fd), locked_name(path));
    if (remove && !path.empty()) {
        (void)unlink(path.c_str());  // Another reader may have been quicker.
    }
    return NM_EXIT(result);
}
