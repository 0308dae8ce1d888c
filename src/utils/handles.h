// Owners of what the kernel hands out: descriptors, directory streams, pipes to a shell and locks. Each
// gives its handle back when it dies, on every path. Everything opened here is close-on-exec, because
// the library starts daemons that would otherwise inherit (and keep) its locks and files.
#pragma once

#include <dirent.h>
#include <fcntl.h>
#include <stdio.h>
#include <unistd.h>

#include <memory>
#include <string>
#include <utility>

#include "result_codes.h"
#include "utils/locks.h"

namespace nm {

/// Owns one file descriptor; -1 is "none".
class FileDescriptor {
public:
    FileDescriptor() = default;
    explicit FileDescriptor(int fd) : fd_(fd) {}
    FileDescriptor(FileDescriptor&& other) noexcept : fd_(other.release()) {}
    FileDescriptor& operator=(FileDescriptor&& other) noexcept {
        std::swap(fd_, other.fd_);
        return *this;
    }
    ~FileDescriptor() { (void)close(); }

    /// open(2) with O_CLOEXEC added; on failure the owner is empty and errno tells why.
    static FileDescriptor open(const char* path, int flags, mode_t mode = 0) {
        return FileDescriptor(::open(path, flags | O_CLOEXEC, mode));
    }

    int get() const { return fd_; }
    explicit operator bool() const { return fd_ >= 0; }

    /// Hands the descriptor to the caller, who closes it.
    int release() { return std::exchange(fd_, -1); }

    /// Closes now; false if the kernel reports that earlier writes were lost.
    bool close() {
        const int fd = release();
        return fd < 0 || ::close(fd) == 0;
    }

private:
    int fd_ = -1;
};

/// Owns a directory stream; empty if the directory can't be opened.
class Directory {
public:
    explicit Directory(const char* path) : stream_(opendir(path), &closedir) {}
    explicit operator bool() const { return stream_ != nullptr; }

    /// The next entry, null behind the last.
    const dirent* next() { return readdir(stream_.get()); }

private:
    std::unique_ptr<DIR, int (*)(DIR*)> stream_;
};

/// Owns the reading end of a pipe from a shell command; its death waits for the command to end.
class PipeStream {
public:
    explicit PipeStream(const char* command) : stream_(popen(command, "re"), &pclose) {}
    explicit operator bool() const { return stream_ != nullptr; }
    int fd() const { return fileno(stream_.get()); }

private:
    std::unique_ptr<FILE, int (*)(FILE*)> stream_;
};

/// Holds the lock of a name or path for a scope. A lock that can't be had costs ten seconds.
class LockGuard {
public:
    enum class Kind { Exclusive, Shared };

    /// With `remove` a shared lock deletes its lock file at the end; an exclusive one always leaves it.
    explicit LockGuard(std::string name, Kind kind = Kind::Exclusive, bool remove = false)
        : name_(std::move(name)),
          kind_(kind),
          remove_(remove),
          handle_(kind == Kind::Exclusive ? lock_ex(name_.c_str()) : lock_sh(name_.c_str())) {}
    LockGuard(const LockGuard&) = delete;
    LockGuard& operator=(const LockGuard&) = delete;
    ~LockGuard() { (void)release(); }

    /// The lock handle, or the result code of the failure.
    int handle() const { return handle_; }

    /// Whether an operation may run under this lock: handle 0 does not count, as a process that closed
    /// its standard input would otherwise take its lock for a failure code elsewhere.
    bool held() const { return handle_ >= 1; }

    /// Unlocks now; the unlock's result, or the negative handle if there is nothing to unlock.
    int release() {
        if (handle_ < 0) {
            return handle_;
        }
        const int fd = std::exchange(handle_, NM_ERR_LOCK);
        return kind_ == Kind::Exclusive ? unlock_ex(fd, name_.c_str(), false) : unlock_sh(fd, remove_);
    }

private:
    std::string name_;
    Kind kind_;
    bool remove_;
    int handle_;
};

}  // namespace nm
