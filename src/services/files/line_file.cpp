// Files of lines: fields, lines, and the replacement of the whole file.
#include "services/files/line_file.h"

#include <errno.h>
#include <stdio.h>
#include <string.h>
#include <sys/stat.h>

#include <algorithm>
#include <optional>

#include "log.h"
#include "result_codes.h"
#include "utils/call_notes.h"
#include "utils/file_io.h"
#include "utils/handles.h"

namespace {

constexpr unsigned char kBlank = 0x20;
constexpr unsigned char kDelete = 0x7f;

int open_failed(const std::string& path) {
    NM_LOG(Error) << "open " << path << " file failed.";
    return NM_ERR_OPEN;
}

/// Readers must be able to open the new file exactly as they could open the old one.
bool take_over_from(int fd, const std::string& path) {
    struct stat old = {};
    return stat(path.c_str(), &old) == 0 && nm::take_over_access(fd, old);
}

int write_beside(nm::FileDescriptor file, const std::string& beside, const std::string& path,
                 const std::string& text) {
    const bool written = nm::write_all(file.get(), text) && take_over_from(file.get(), path) &&
                         fsync(file.get()) == 0 && file.close();
    if (!written) {
        const int reason = errno;
        NM_LOG(Error) << "Write file " << beside << " failed: " << strerror(reason);
        return NM_ERR_WRITE;
    }
    if (rename(beside.c_str(), path.c_str()) != 0) {
        NM_LOG(Error) << "Rename file " << beside << " to " << path << " failed";
        return NM_ERR_WRITE;
    }
    return NM_OK;
}

}  // namespace

namespace nm {

bool is_one_word(const std::string& text) {
    return std::all_of(text.begin(), text.end(), [](unsigned char c) { return c > kBlank && c != kDelete; });
}

std::vector<std::string> split_lines(const std::string& text) {
    std::vector<std::string> lines;
    std::size_t begin = 0;
    while (begin < text.size()) {
        const std::size_t end = std::min(text.find('\n', begin), text.size());
        lines.push_back(text.substr(begin, end - begin));
        begin = end + 1;
    }
    return lines;
}

std::string keep_lines(const std::string& text, const std::function<bool(const std::string& line)>& keep) {
    std::string kept;
    for (const std::string& line : split_lines(text)) {
        if (keep(line)) {
            kept += line + "\n";
        }
    }
    return kept;
}

int read_text(const std::string& path, std::string& text) {
    std::optional<std::string> content = read_file(path);
    if (!content) {
        return open_failed(path);
    }
    text = std::move(*content);
    return NM_OK;
}

int replace_text(const std::string& path, const std::string& text) {
    const Step step("file", "replace", path);
    const std::string beside = path + ".tmp";
    FileDescriptor file = FileDescriptor::open(beside.c_str(), O_WRONLY | O_CREAT | O_TRUNC, 0644);
    if (!file) {
        return open_failed(beside);
    }
    const int ret = write_beside(std::move(file), beside, path, text);
    if (ret != NM_OK) {
        (void)unlink(beside.c_str());  // What is left of a full disk's room belongs to others.
    }
    return ret;
}

}  // namespace nm
