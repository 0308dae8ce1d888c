// Generated files: the write beside and the rename over.
#include "services/files/generated_file.h"

#include <errno.h>
#include <stdio.h>
#include <string.h>
#include <unistd.h>

#include "log.h"
#include "result_codes.h"
#include "utils/call_notes.h"
#include "utils/file_io.h"

namespace nm {

GeneratedFile::GeneratedFile(std::string path) : GeneratedFile(path, path + ".tmp") {
}

GeneratedFile::GeneratedFile(std::string path, std::string beside)
    : path_(std::move(path)),
      beside_(std::move(beside)),
      file_(FileDescriptor::open(beside_.c_str(), O_WRONLY | O_CREAT | O_TRUNC, 0644)),
      remains_(static_cast<bool>(file_)) {
    if (!file_) {
        NM_LOG(Error) << "Unable to open file : " << path_;
    }
}

GeneratedFile::~GeneratedFile() {
    if (remains_) {
        (void)unlink(beside_.c_str());  // What is left of a full disk's room belongs to others.
    }
}

int GeneratedFile::replace(const std::string& text) {
    const Step step("file", "replace", path_);
    const bool replaced = write_all(file_.get(), text) && fsync(file_.get()) == 0 && file_.close() &&
                          rename(beside_.c_str(), path_.c_str()) == 0;
    if (!replaced) {
        const int reason = errno;
        NM_LOG(Error) << "Cannot write " << path_ << ": " << strerror(reason);
        return NM_ERR_WRITE;
    }
    remains_ = false;
    return NM_OK;
}

int replace_locked(const std::string& path, const std::string& text) {
    LockGuard lock(path);
    if (lock.handle() < 0) {
        return lock.handle();
    }
    GeneratedFile file(path, path.substr(0, path.rfind('.')) + ".tmp");
    const int ret = file ? file.replace(text) : NM_ERR_OPEN;
    const int unlocked = lock.release();
    return ret == NM_OK ? unlocked : ret;
}

void remove_generated(const std::string& path) {
    if (unlink(path.c_str()) != 0 && errno != ENOENT) {
        NM_LOG(Error) << path << " remove fail.";
    }
}

}  // namespace nm
