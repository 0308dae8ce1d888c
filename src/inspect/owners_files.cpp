// Files, units and locks: what lies there, and what of it is not its owner's.
#include <sys/stat.h>
#include <sys/sysmacros.h>

#include <algorithm>
#include <array>
#include <cerrno>
#include <cstring>
#include <map>
#include <set>

#include "inspect/owners_view.h"
#include "inspect/read_command.h"
#include "inspect/unit_list.h"
#include "kernel/link.h"
#include "services/dhcp/dhcp_files.h"
#include "utils/file_io.h"
#include "utils/handles.h"
#include "utils/unit_names.h"

namespace nm {

namespace {

constexpr const char* kLockDirectory = "/var/lock/network/";

/// The names in a directory, dots included; none if it is not there.
std::vector<std::string> names_in(OwnersView& view, const std::string& path) {
    std::vector<std::string> names;
    errno = 0;
    Directory directory(path.c_str());
    if (!directory) {
        if (errno != ENOENT) {
            view.unread(path, strerror(errno));
        }
        return names;
    }
    while (const dirent* const entry = directory.next()) {
        const std::string name = entry->d_name;
        if (name != "." && name != "..") {
            names.push_back(name);
        }
    }
    std::sort(names.begin(), names.end());
    return names;
}

void look_at_directory(OwnersView& view, const std::string& path) {
    for (const std::string& name : names_in(view, path)) {
        struct stat status {};
        const bool is_there = lstat((path + name).c_str(), &status) == 0;
        const Present thing{Resource::File, path, name, 0,
                            is_there ? std::to_string(status.st_size) + " bytes" : ""};
        if (view.enter(thing) == nullptr) {
            view.stranger(thing, "nobody", "nothing of the network configuration has this name");
        }
    }
}

void look_at_directories(OwnersView& view) {
    std::set<std::string> directories;
    for (const Claim& claim : view.claims()) {
        if (claim.resource == Resource::File) {
            directories.insert(claim.place);
        }
    }
    for (const std::string& path : directories) {
        look_at_directory(view, path);
    }
}

// ---- Units.

std::string instance_of(const std::string& unit, const std::string& prefix) {
    const std::string ending = ".service";
    const bool is_one = unit.rfind(prefix, 0) == 0 && unit.size() > prefix.size() + ending.size();
    return is_one ? unit.substr(prefix.size(), unit.size() - prefix.size() - ending.size()) : "";
}

/// A server and a relay on one interface would answer the same questions.
void find_two_servers(OwnersView& view, const std::vector<ListedUnit>& units) {
    std::set<std::string> serving;
    for (const ListedUnit& unit : units) {
        if (unit.state == "active") {
            serving.insert(instance_of(unit.name, kDhcpServerUnit));
        }
    }
    for (const ListedUnit& unit : units) {
        const std::string relaying = instance_of(unit.name, kDhcpRelayUnit);
        if (unit.state == "active" && !relaying.empty() && serving.count(relaying) != 0) {
            view.collision({Resource::Unit, "", unit.name}, "services",
                           std::string(kDhcpServerUnit) + relaying + " serves the same interface");
        }
    }
}

void judge_unit(OwnersView& view, const ListedUnit& unit) {
    const Present thing{Resource::Unit, "", unit.name, 0, unit.state};
    const Claim* const claim = view.enter(thing);
    if (claim == nullptr) {
        view.stranger(thing, "nobody", "nothing of the network configuration has this name");
    } else if (!claim->shape.empty() && unit.state == "active") {
        view.collision(thing, claim->owner,
                       "it " + claim->purpose + " as units of the network configuration");
    }
}

void look_at_units(OwnersView& view) {
    std::vector<std::string> others;
    for (const Claim& claim : view.claims()) {
        if (claim.resource == Resource::Unit && !claim.shape.empty()) {
            others.push_back(claim.name);
        }
    }
    std::vector<ListedUnit> units;
    const std::string reason = list_units(others, units);
    if (!reason.empty()) {
        view.unread("units", reason);
    }
    for (const ListedUnit& unit : units) {
        judge_unit(view, unit);
    }
    find_two_servers(view, units);
}

// ---- Locks.

/// The processes that hold locks of files, by the file's device and inode as /proc/locks has them.
std::map<std::string, std::string> read_holders() {
    std::map<std::string, std::string> holders;
    constexpr size_t kPid = 4;
    for (const std::string& line : lines_of(read_file("/proc/locks").value_or(""))) {
        const std::vector<std::string> words = words_of(line);
        if (words.size() > kPid + 1 && words[1] == "FLOCK") {
            holders.emplace(words[kPid + 1], words[kPid]);
        }
    }
    return holders;
}

std::string file_id(const struct stat& status) {
    std::array<char, 48> text{};
    (void)snprintf(text.data(), text.size(), "%02x:%02x:%lu", major(status.st_dev), minor(status.st_dev),
                   static_cast<unsigned long>(status.st_ino));
    return text.data();
}

std::string holder_words(const std::string& pid) {
    std::string name = read_file("/proc/" + pid + "/comm").value_or("");
    name.erase(name.find_last_not_of('\n') + 1);
    return "held by " + (name.empty() ? "a process" : name) + " (" + pid + ")";
}

/// A lock file is named after the interface or the work that it guards; an interface that is called like a
/// piece of work would share its lock.
void judge_lock(OwnersView& view, const Present& thing) {
    const Claim* const claim = view.enter(thing);
    if (claim == nullptr) {
        view.stranger(thing, "nobody", "it is not a lock file");
        return;
    }
    const std::string name = thing.name.substr(0, thing.name.rfind('.'));
    if (claim->name.front() != '*' && get_iface_index(name.c_str()) != 0) {
        view.collision(thing, claim->owner, "the interface " + name + " has the same lock");
    }
}

void look_at_locks(OwnersView& view) {
    const std::map<std::string, std::string> holders = read_holders();
    for (const std::string& name : names_in(view, kLockDirectory)) {
        struct stat status {};
        const bool is_there = lstat((kLockDirectory + name).c_str(), &status) == 0;
        const auto holder = is_there ? holders.find(file_id(status)) : holders.end();
        judge_lock(view, {Resource::Lock, "", name, 0,
                          holder != holders.end() ? holder_words(holder->second) : "free"});
    }
}

}  // namespace

void look_at_files(OwnersView& view) {
    look_at_directories(view);
    look_at_units(view);
    look_at_locks(view);
}

}  // namespace nm
