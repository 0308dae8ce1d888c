// Whole files: read, write, copy, and getting them onto the disk.
#include "utils/files.h"

#include <errno.h>
#include <string.h>
#include <sys/stat.h>

#include "log.h"
#include "result_codes.h"
#include "utils/call_notes.h"
#include "utils/file_io.h"
#include "utils/handles.h"

namespace {

constexpr std::size_t kChunk = 16384;

int cannot(const char* what, const std::string& path, int result) {
    const int reason = errno;
    NM_LOG(Error) << "Cannot " << what << " " << path << ": " << strerror(reason);
    return result;
}

// "Cannot open <path>" stands without a reason, as operators' log filters know it.
int cannot_open(const std::string& path) {
    NM_LOG(Error) << "Cannot open " << path;
    return NM_ERR_OPEN;
}

ssize_t read_some(int fd, char* buffer, std::size_t size) {
    ssize_t got = 0;
    do {
        got = read(fd, buffer, size);
    } while (got < 0 && errno == EINTR);
    return got;
}

// Some errors (a full quota, a network file system) are reported by close() only.
int store(nm::FileDescriptor file, const std::string& path, std::string_view text) {
    if (!file) {
        return cannot_open(path);
    }
    return nm::write_all(file.get(), text) && file.close() ? NM_OK : cannot("write", path, NM_ERR_WRITE);
}

int pass_content(int source, int target, const std::string& from, const std::string& to) {
    char buffer[kChunk];
    while (true) {
        const ssize_t got = read_some(source, buffer, sizeof(buffer));
        if (got < 0) {
            return cannot("read", from, NM_ERR_OPEN);
        }
        if (got == 0) {
            return NM_OK;
        }
        if (!nm::write_all(target, {buffer, static_cast<std::size_t>(got)})) {
            return cannot("write", to, NM_ERR_WRITE);
        }
    }
}

// The copy of a document with passwords is for those only who may read the document, before the first byte is
// in it. A copy that was for fewer stays so.
nm::FileDescriptor open_copy(int source, const std::string& to) {
    struct stat access = {};
    struct stat present = {};
    if (fstat(source, &access) != 0) {
        return {};
    }
    auto target = nm::FileDescriptor::open(to.c_str(), O_WRONLY | O_CREAT | O_EXCL, S_IRUSR | S_IWUSR);
    if (!target) {
        target = nm::FileDescriptor::open(to.c_str(), O_WRONLY | O_TRUNC);
        if (fstat(target.get(), &present) != 0 || !S_ISREG(present.st_mode)) {
            return target;
        }
        access.st_mode &= present.st_mode;
    }
    return nm::take_over_access(target.get(), access) ? std::move(target) : nm::FileDescriptor();
}

// Both files are opened before either is judged; the target is emptied only when there is a source, so
// that a missing source does not cost the copy of yesterday.
int copy_content(const std::string& from, const std::string& to) {
    const auto source = nm::FileDescriptor::open(from.c_str(), O_RDONLY);
    auto target =
        source ? open_copy(source.get(), to) : nm::FileDescriptor::open(to.c_str(), O_WRONLY | O_CREAT, 0666);
    const int source_result = source ? NM_OK : cannot_open(from);
    const int target_result = target ? NM_OK : cannot_open(to);
    if (source_result != NM_OK || target_result != NM_OK) {
        return NM_ERR_OPEN;
    }
    const int result = pass_content(source.get(), target.get(), from, to);
    return target.close() ? result : cannot("write", to, NM_ERR_WRITE);
}

/// Whether `fd` is of this type (S_IFREG, S_IFDIR) and only root can change what it holds. Where access lists
/// are in use, the bits of the group bound what they grant.
bool is_roots_alone(int fd, mode_t type) {
    struct stat status = {};
    return fstat(fd, &status) == 0 && (status.st_mode & S_IFMT) == type && status.st_uid == 0 &&
           (status.st_mode & (S_IWGRP | S_IWOTH)) == 0;
}

}  // namespace

namespace nm {

std::optional<std::string> read_to_end(int fd) {
    std::string text;
    char buffer[kChunk];
    ssize_t got = 0;
    while ((got = read_some(fd, buffer, sizeof(buffer))) > 0) {
        text.append(buffer, static_cast<std::size_t>(got));
    }
    return got == 0 ? std::optional(std::move(text)) : std::nullopt;
}

bool write_all(int fd, std::string_view text) {
    while (!text.empty()) {
        const ssize_t written = write(fd, text.data(), text.size());
        if (written < 0 && errno == EINTR) {
            continue;
        }
        if (written < 0) {
            return false;
        }
        text.remove_prefix(static_cast<std::size_t>(written));
    }
    return true;
}

std::optional<std::string> read_file(const std::string& path) {
    const Step step("file", "read", path);
    const auto file = FileDescriptor::open(path.c_str(), O_RDONLY);
    return file ? read_to_end(file.get()) : std::nullopt;
}

std::optional<std::string> read_trusted_file(const std::string& path) {
    const std::size_t slash = path.rfind('/');
    if (slash == std::string::npos) {
        return std::nullopt;
    }
    const auto directory =
        FileDescriptor::open(path.substr(0, slash).c_str(), O_PATH | O_DIRECTORY | O_NOFOLLOW);
    // A pipe must not hold up whoever opens it.
    const FileDescriptor file(
        openat(directory.get(), path.c_str() + slash + 1, O_RDONLY | O_NOFOLLOW | O_NONBLOCK | O_CLOEXEC));
    const bool trusted = is_roots_alone(directory.get(), S_IFDIR) && is_roots_alone(file.get(), S_IFREG);
    return trusted ? read_to_end(file.get()) : std::nullopt;
}

bool take_over_access(int fd, const struct stat& status) {
    const mode_t mode = status.st_mode & ALLPERMS;
    return fchmod(fd, mode & S_IRWXU) == 0 && fchown(fd, status.st_uid, status.st_gid) == 0 &&
           fchmod(fd, mode) == 0;
}

int sync_to_disk(const std::string& path, std::size_t expected_size) {
    const Step step("file", "sync", path);
    const auto file = FileDescriptor::open(path.c_str(), O_RDONLY);
    struct stat status = {};
    if (!file || fstat(file.get(), &status) != 0 || fsync(file.get()) != 0) {
        return cannot("sync", path, NM_ERR_WRITE);
    }
    if (static_cast<std::size_t>(status.st_size) != expected_size) {
        NM_LOG(Error) << path << " holds " << status.st_size << " bytes instead of " << expected_size;
        return NM_ERR_WRITE;
    }
    return NM_OK;
}

}  // namespace nm

std::string readValue(std::string path, bool lock) {
    NM_LOG(Debug) << "Enter";
    const nm::Step step("file", "read", path);
    std::optional<nm::LockGuard> guard;
    if (lock) {
        guard.emplace(path, nm::LockGuard::Kind::Shared, lock);
    }
    if (guard && guard->handle() < 0) {
        return {};
    }
    const auto file = nm::FileDescriptor::open(path.c_str(), O_RDONLY);
    if (!file) {
        (void)cannot_open(path);
        return {};
    }
    // Some files of sysfs open and then refuse to be read, the carrier of a device that is down for one.
    const std::optional<std::string> text = nm::read_to_end(file.get());
    NM_LOG(Debug) << "Exit";
    return text.value_or("");
}

int writeValue(std::string path, std::string value, bool lock) {
    NM_LOG(Debug) << "Enter";
    const nm::Step step("file", "write", path);
    auto file = nm::FileDescriptor::open(path.c_str(), O_WRONLY | O_CREAT | O_TRUNC, 0666);
    if (!lock) {
        return NM_EXIT(store(std::move(file), path, value));
    }
    nm::LockGuard guard(path);
    if (guard.handle() < 0) {
        return NM_EXIT(guard.handle());
    }
    (void)store(std::move(file), path, value);  // The unlock's result is the caller's.
    return NM_EXIT(guard.release());
}

int copy_file(std::string from, std::string to) {
    NM_LOG(Debug) << "Enter";
    const nm::Step step("file", "copy", to);
    nm::LockGuard source_lock(from, nm::LockGuard::Kind::Shared);
    nm::LockGuard target_lock(to);
    if (source_lock.handle() < 0) {
        return NM_EXIT(source_lock.handle());
    }
    if (target_lock.handle() < 0) {
        return NM_EXIT(target_lock.handle());
    }
    (void)copy_content(from, to);  // The unlocks' results are the caller's, the last one last.
    (void)target_lock.release();
    return NM_EXIT(source_lock.release());
}

void copy_access(const std::string& from, const std::string& to) {
    struct stat access = {};
    const auto copy =
        nm::FileDescriptor::open(to.c_str(), O_WRONLY | O_CREAT | O_NOFOLLOW, S_IRUSR | S_IWUSR);
    if (stat(from.c_str(), &access) != 0 || !copy || !nm::take_over_access(copy.get(), access)) {
        NM_LOG(Error) << "Cannot set the mode of " << to;
    }
}

bool is_file_exists(const std::string& path) {
    struct stat status = {};
    return stat(path.c_str(), &status) == 0 && S_ISREG(status.st_mode);
}
