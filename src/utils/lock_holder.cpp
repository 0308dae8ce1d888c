// Who holds a lock, from the kernel's list of locks.
#include "utils/lock_holder.h"

#include <stdio.h>
#include <sys/stat.h>
#include <sys/sysmacros.h>
#include <unistd.h>

#include <fstream>
#include <sstream>

namespace {

std::string process_name(const std::string& pid) {
    std::ifstream file("/proc/" + pid + "/comm");
    std::string name;
    std::getline(file, name);
    return name.empty() ? "a process that has ended" : name;
}

/// The file as proc(5) names it in /proc/locks.
std::string name_in_proc_locks(const struct stat& file) {
    char name[64];
    (void)snprintf(name, sizeof(name), "%02x:%02x:%lu", major(file.st_dev), minor(file.st_dev),
                   static_cast<unsigned long>(file.st_ino));
    return name;
}

}  // namespace

std::string lock_holder(const std::string& lock_file) {
    struct stat file = {};
    if (stat(lock_file.c_str(), &file) != 0) {
        return "";
    }
    const std::string wanted = name_in_proc_locks(file);
    std::ifstream locks("/proc/locks");
    for (std::string line; std::getline(locks, line);) {
        std::istringstream fields(line);
        std::string number;
        std::string kind;
        std::string mode;
        std::string access;
        std::string pid;
        std::string place;
        fields >> number >> kind >> mode >> access >> pid >> place;
        if (kind == "FLOCK" && place == wanted && pid != std::to_string(getpid())) {
            return process_name(pid) + " (process " + pid + ")";
        }
    }
    return "";
}
