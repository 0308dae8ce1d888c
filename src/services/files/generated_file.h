// Files that are generated for a daemon: written beside, renamed over.
#pragma once

#include <string>

#include "utils/handles.h"

namespace nm {

/// The new content of one file. Whatever happens, `path` holds the old text or the new one, whole, and
/// nothing stays beside it but what a kill leaves, which the next writer takes over.
class GeneratedFile {
public:
    /// Opens `<path>.tmp` for writing; "Unable to open file : <path>" goes to the log if that fails.
    explicit GeneratedFile(std::string path);
    /// As above with another name for the unfinished file, which has to be of the same directory: for
    /// directories whose readers take every name that holds a suffix.
    GeneratedFile(std::string path, std::string beside);
    ~GeneratedFile();
    GeneratedFile(const GeneratedFile&) = delete;
    GeneratedFile& operator=(const GeneratedFile&) = delete;

    explicit operator bool() const { return static_cast<bool>(file_); }

    /// Puts `text` in the file's place and brings it to the disk. 0 or NM_ERR_WRITE. Once only.
    int replace(const std::string& text);

private:
    std::string path_;
    std::string beside_;
    FileDescriptor file_;
    bool remains_;
};

/// Replaces `path` by `text` under the lock of its base name; a failure leaves the old file whole. The
/// unfinished file has another suffix, so that no reader of the directory takes it. 0; the codes of the lock;
/// NM_ERR_OPEN; NM_ERR_WRITE.
int replace_locked(const std::string& path, const std::string& text);

/// Removes the file if it exists; a failure is logged ("<path> remove fail.") and changes nothing.
void remove_generated(const std::string& path);

}  // namespace nm
