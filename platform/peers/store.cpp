// Reading and replacing the files of the reference daemons.
#include "store.h"

#include <fcntl.h>
#include <sys/stat.h>
#include <unistd.h>

#include <algorithm>
#include <array>
#include <cerrno>
#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <memory>
#include <sstream>
#include <string_view>

namespace peers {

namespace {

constexpr std::array<std::string_view, 2> kServedDirectories{"/etc/networkmanagement/", "/var/run/network/"};
constexpr mode_t kNewFileMode = 0644;

[[noreturn]] void refuse(const std::string& path, const char* what) {
    throw Refusal(path + ' ' + what + ": " + std::strerror(errno));
}

struct CloseStream {
    void operator()(FILE* stream) const { std::fclose(stream); }
};
using Stream = std::unique_ptr<FILE, CloseStream>;

// The new text's file beside the target; gone again unless it was put in the target's place.
class NewFile {
public:
    explicit NewFile(const std::string& target) : path_(target + ".XXXXXX") {
        fd_ = mkostemp(path_.data(), O_CLOEXEC);
        if (fd_ < 0) {
            refuse(target, "cannot be written");
        }
    }
    NewFile(const NewFile&) = delete;
    NewFile& operator=(const NewFile&) = delete;
    ~NewFile() {
        close(fd_);
        if (!path_.empty()) {
            unlink(path_.c_str());
        }
    }

    bool write_all(const std::string& text) const {
        std::size_t written = 0;
        while (written < text.size()) {
            const ssize_t count = write(fd_, text.data() + written, text.size() - written);
            if (count < 0 && errno != EINTR) {
                return false;
            }
            written += count > 0 ? static_cast<std::size_t>(count) : 0;
        }
        return true;
    }
    // On the disk before the rename: after a power cut the name leads to the whole old or the whole new text.
    bool settle(mode_t mode) const { return fchmod(fd_, mode) == 0 && fsync(fd_) == 0; }
    bool move_to(const std::string& target) {
        if (rename(path_.c_str(), target.c_str()) != 0) {
            return false;
        }
        path_.clear();
        return true;
    }

private:
    std::string path_;
    int fd_;
};

mode_t mode_of(const std::string& path) {
    struct stat found {};
    return stat(path.c_str(), &found) == 0 ? found.st_mode & 07777 : kNewFileMode;
}

}  // namespace

Json::Value parse_json(const std::string& text) {
    Json::CharReaderBuilder builder;
    builder["failIfExtra"] = true;
    builder["collectComments"] = false;
    const std::unique_ptr<Json::CharReader> reader(builder.newCharReader());
    Json::Value value;
    std::string problems;
    if (!reader->parse(text.data(), text.data() + text.size(), &value, &problems)) {
        throw Refusal("not valid JSON: " + problems);
    }
    return value;
}

std::string to_line(const Json::Value& value) {
    Json::StreamWriterBuilder builder;
    builder["indentation"] = "";
    builder["emitUTF8"] = true;
    return Json::writeString(builder, value) + '\n';
}

void check_path(const std::string& path) {
    const bool served =
        std::any_of(kServedDirectories.begin(), kServedDirectories.end(), [&](std::string_view root) {
            return path.size() > root.size() && path.compare(0, root.size(), root) == 0;
        });
    const bool plain = std::all_of(path.begin(), path.end(), [](unsigned char c) { return c >= ' '; });
    if (!served || !plain || (path + '/').find("/../") != std::string::npos) {
        throw Refusal("path is not served: " + path);
    }
}

std::string read_file(const std::string& path) {
    // Not blocking on a pipe that somebody put there.
    const int fd = open(path.c_str(), O_RDONLY | O_CLOEXEC | O_NONBLOCK);
    const Stream stream(fd < 0 ? nullptr : fdopen(fd, "r"));
    if (!stream) {
        refuse(path, "cannot be read");
    }
    struct stat found {};
    if (fstat(fd, &found) != 0 || !S_ISREG(found.st_mode)) {
        throw Refusal(path + " is not a regular file");
    }
    std::string text;
    std::array<char, 16384> chunk;
    for (std::size_t count; (count = std::fread(chunk.data(), 1, chunk.size(), stream.get())) > 0;) {
        text.append(chunk.data(), count);
    }
    if (std::ferror(stream.get()) != 0) {
        refuse(path, "cannot be read");
    }
    return text;
}

void replace_file(const std::string& path, const std::string& text) {
    NewFile file(path);
    if (!file.write_all(text) || !file.settle(mode_of(path)) || !file.move_to(path)) {
        refuse(path, "cannot be written");
    }
}

std::map<std::string, std::string> read_pairs(const std::string& path) {
    std::map<std::string, std::string> pairs;
    std::istringstream lines(read_file(path));
    for (std::string line; std::getline(lines, line);) {
        const std::size_t equals = line.find('=');
        if (equals != std::string::npos) {
            pairs[line.substr(0, equals)] = line.substr(equals + 1);
        }
    }
    return pairs;
}

}  // namespace peers
