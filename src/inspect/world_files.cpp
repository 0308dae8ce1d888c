// Reading and covering files.
#include "inspect/world_files.h"

#include <sys/mount.h>
#include <sys/stat.h>

#include <algorithm>
#include <array>
#include <cerrno>
#include <cstring>
#include <filesystem>
#include <stdexcept>
#include <system_error>

#include "services/files/line_file.h"
#include "utils/file_io.h"
#include "utils/handles.h"
#include "utils/json_text.h"

namespace nm {

namespace {

namespace fs = std::filesystem;

/// What of a directory a copy holds. `Empty` are those of sockets, locks and logs; of `Files` other
/// directories are absent, of `Top` they are the real ones, read-only.
enum class Keep { Empty, Files, Top, Deep };

struct Tree {
    const char* path;
    Keep keep;
    bool counts;
};

/// Where set-ups write, parents first.
constexpr std::array kTrees{
    Tree{"/etc", Keep::Top, true},
    Tree{"/etc/networkmanagement", Keep::Deep, true},
    Tree{"/etc/vpppoe", Keep::Deep, true},
    Tree{"/var", Keep::Top, true},
    Tree{"/var/db", Keep::Deep, true},
    Tree{"/var/lib", Keep::Top, false},
    Tree{"/var/lib/dh6dns", Keep::Deep, true},
    Tree{"/var/lib/dhcpd", Keep::Deep, true},
    Tree{"/var/lib/dhcpd6", Keep::Deep, true},
    Tree{"/var/lib/dhcpv6", Keep::Deep, true},
    Tree{"/var/lib/rdnssd", Keep::Deep, true},
    Tree{"/var/lock", Keep::Empty, false},
    Tree{"/var/lock/network", Keep::Empty, false},
    Tree{"/var/log", Keep::Top, false},
    Tree{"/var/log/network", Keep::Empty, false},
    Tree{"/run", Keep::Files, false},
    Tree{"/run/lock", Keep::Empty, false},
    Tree{"/run/lock/network", Keep::Empty, false},
    Tree{"/run/network", Keep::Deep, true},
    Tree{"/run/vpppoe", Keep::Deep, true},
    Tree{"/run/vservice", Keep::Empty, false},
    Tree{"/tmp", Keep::Top, false},
};

/// Larger files are not configuration: not copied, and compared by their size.
constexpr off_t kLargest = off_t{4} << 20;

const Tree* find_tree(const std::string& path) {
    const auto* const found =
        std::find_if(kTrees.begin(), kTrees.end(), [&path](const Tree& tree) { return path == tree.path; });
    return found == kTrees.end() ? nullptr : found;
}

std::string access_of(const struct stat& status) {
    char text[64];
    (void)snprintf(text, sizeof(text), "mode %04o owner %u:%u", status.st_mode & 07777U, status.st_uid,
                   status.st_gid);
    return text;
}

/// A document of one line as people would write it.
std::string readable(const std::string& text) {
    Json::Value document;
    const bool is_document = text[0] == '{' && parse_json(text, document) && document.isObject();
    return is_document ? write_styled_json(document) : text;
}

Lines describe_file(const std::string& path, const struct stat& status) {
    if (S_ISLNK(status.st_mode)) {
        std::error_code error;
        return {"link to " + fs::read_symlink(path, error).string()};
    }
    Lines lines{access_of(status)};
    if (status.st_size > kLargest) {
        lines.push_back("size " + std::to_string(status.st_size));
        return lines;
    }
    const Lines content = split_lines(readable(read_file(path).value_or("")));
    lines.insert(lines.end(), content.begin(), content.end());
    return lines;
}

void read_directory(const std::string& directory, bool is_deep, Things& files) {
    std::error_code error;
    for (fs::directory_iterator entry(directory, error), end; !error && entry != end;
         entry.increment(error)) {
        const std::string path = entry->path();
        struct stat status {};
        const bool is_there = lstat(path.c_str(), &status) == 0;
        if (is_there && (S_ISREG(status.st_mode) || S_ISLNK(status.st_mode))) {
            files[path] = describe_file(path, status);
        } else if (is_there && S_ISDIR(status.st_mode) && is_deep) {
            read_directory(path, true, files);
        }
    }
}

[[noreturn]] void fail(const std::string& what) {
    throw std::runtime_error(what + ": " + strerror(errno));
}

void make_directory(const std::string& path, const struct stat& status) {
    if (mkdir(path.c_str(), 0700) != 0) {
        fail("cannot make " + path);
    }
    (void)!chown(path.c_str(), status.st_uid, status.st_gid);
    (void)chmod(path.c_str(), status.st_mode & 07777U);
}

/// A file that is gone by now, or cannot be read, is left out as one that was never there.
void copy_file_there(const std::string& from, const std::string& to, const struct stat& status) {
    const auto source = FileDescriptor::open(from.c_str(), O_RDONLY | O_NOFOLLOW | O_NONBLOCK);
    const std::optional<std::string> text = source ? read_to_end(source.get()) : std::nullopt;
    if (!text) {
        return;
    }
    const auto target = FileDescriptor::open(to.c_str(), O_WRONLY | O_CREAT | O_EXCL, 0600);
    const timespec times[] = {status.st_atim, status.st_mtim};
    if (!target || !write_all(target.get(), *text) || !take_over_access(target.get(), status) ||
        futimens(target.get(), times) != 0) {
        fail("cannot copy " + from);
    }
}

void copy_tree(const std::string& from, const std::string& to, Keep keep);

void copy_directory(const std::string& from, const std::string& to, Keep keep, const struct stat& status) {
    const Tree* const tree = find_tree(from);
    if (tree != nullptr || keep == Keep::Deep) {
        copy_tree(from, to, tree != nullptr ? tree->keep : keep);
    } else if (keep == Keep::Top) {
        make_directory(to, status);
        bind_mount(from, to, false);
    }
}

void copy_entry(const std::string& from, const std::string& to, Keep keep) {
    struct stat status {};
    if (lstat(from.c_str(), &status) != 0) {
        return;
    }
    std::error_code error;
    if (S_ISDIR(status.st_mode)) {
        copy_directory(from, to, keep, status);
    } else if (S_ISLNK(status.st_mode)) {
        fs::copy_symlink(from, to, error);
    } else if (S_ISREG(status.st_mode) && keep != Keep::Empty && status.st_size <= kLargest) {
        copy_file_there(from, to, status);
    }
}

/// A tree's own directory may be somewhere else, and a link to it be in its place.
void copy_tree(const std::string& from, const std::string& to, Keep keep) {
    struct stat status {};
    if (stat(from.c_str(), &status) != 0 || !S_ISDIR(status.st_mode)) {
        return;
    }
    make_directory(to, status);
    std::error_code error;
    for (fs::directory_iterator entry(from, error), end; !error && entry != end; entry.increment(error)) {
        copy_entry(entry->path(), to + "/" + entry->path().filename().string(), keep);
    }
}

}  // namespace

Things read_files() {
    Things files;
    for (const Tree& tree : kTrees) {
        if (tree.counts) {
            read_directory(tree.path, tree.keep == Keep::Deep, files);
        }
    }
    return files;
}

void mount_or_throw(const char* source, const std::string& target, const char* type, unsigned long flags,
                    const char* options) {
    if (mount(source, target.c_str(), type, flags, options) != 0) {
        fail("cannot mount " + target);
    }
}

void bind_mount(const std::string& source, const std::string& target, bool is_writable) {
    mount_or_throw(source.c_str(), target, nullptr, MS_BIND | MS_REC);
    mount_attr attributes{};
    (is_writable ? attributes.attr_clr : attributes.attr_set) = MOUNT_ATTR_RDONLY;
    if (mount_setattr(AT_FDCWD, target.c_str(), is_writable ? 0 : AT_RECURSIVE, &attributes,
                      sizeof(attributes)) != 0) {
        fail("cannot protect " + target);
    }
}

void cover_files(const std::string& scratch) {
    Lines covered;
    for (const Tree& tree : kTrees) {
        const std::string path = tree.path;
        if (path.rfind('/') == 0 && fs::is_directory(path)) {
            copy_tree(path, scratch + path, tree.keep);
            covered.push_back(path);
        }
    }
    for (const std::string& path : covered) {
        bind_mount(scratch + path, path, true);
    }
}

}  // namespace nm
