// Directories: whether they exist, what they hold, emptying them.
#include "utils/directories.h"

#include <stdio.h>
#include <stdlib.h>
#include <sys/stat.h>

#include <algorithm>
#include <memory>

#include "log.h"
#include "result_codes.h"
#include "utils/containers.h"
#include "utils/files.h"
#include "utils/handles.h"

namespace {

std::vector<std::string> entries(nm::Directory& directory) {
    std::vector<std::string> names;
    while (const dirent* entry = directory.next()) {
        const std::string name = entry->d_name;
        if (name != "." && name != "..") {
            names.push_back(name);
        }
    }
    return names;
}

// One kind of device: the directory that lists its members and the test that a name must pass there.
struct DeviceType {
    const char* type;
    const char* dir;
    bool (*matches)(const std::string& dir, const std::string& name);
};

bool is_bridge(const std::string& dir, const std::string& name) {
    return is_dir_exists(dir + "/" + name + "/bridge");
}

bool is_regular(const std::string& dir, const std::string& name) {
    return is_file_exists(dir + "/" + name);
}

// "config" is the summary of all VLAN devices, not a device.
bool is_vlan(const std::string& dir, const std::string& name) {
    return name != "config" && is_regular(dir, name);
}

constexpr DeviceType kDeviceTypes[] = {
    {"bridge", "/sys/class/net", is_bridge},
    {"bonding", "/proc/net/bonding", is_regular},
    {"vlan", "/proc/net/vlan", is_vlan},
};

}  // namespace

bool is_dir(const char* path) {
    struct stat status = {};
    return path != nullptr && stat(path, &status) == 0 && S_ISDIR(status.st_mode);
}

bool is_dir_exists(const std::string& path) {
    return is_dir(path.c_str());
}

int remove_files_in_folder(const char* path) {
    NM_LOG(Debug) << "Enter";
    if (path == nullptr) {
        NM_LOG(Error) << "path is Null pointer.";
        return NM_EXIT(NM_ERR_NULL_ARG);
    }
    nm::Directory directory(path);
    if (!directory) {
        NM_LOG(Error) << "Directory does not exist. path: " << path;
        return NM_EXIT(NM_ERR_NULL_ARG);
    }
    for (const std::string& name : entries(directory)) {
        const std::string file = std::string(path) + "/" + name;
        if (remove(file.c_str()) != 0) {
            NM_LOG(Error) << file << " remove fail.";
        }
    }
    return NM_EXIT(NM_OK);
}

std::vector<std::string> scandir_filter(const char* dir, int (*filter)(const dirent*)) {
    dirent** list = nullptr;
    const int count = dir != nullptr ? scandir(dir, &list, filter, alphasort) : -1;
    if (count < 0) {
        return {};
    }
    const std::unique_ptr<dirent*, void (*)(void*)> owner(list, &free);
    std::vector<std::string> names;
    for (int i = 0; i < count; ++i) {
        const std::unique_ptr<dirent, void (*)(void*)> entry(list[i], &free);
        if (entry->d_name[0] != '.') {
            names.emplace_back(entry->d_name);
        }
    }
    return names;
}

std::vector<std::string> scandir_filter_by_devtype(std::string type) {
    for (const DeviceType& row : kDeviceTypes) {
        if (type != row.type) {
            continue;
        }
        std::vector<std::string> names = scandir_filter(row.dir, nullptr);
        const auto foreign = [&row](const std::string& name) { return !row.matches(row.dir, name); };
        names.erase(std::remove_if(names.begin(), names.end(), foreign), names.end());
        return names;
    }
    return {};
}

std::string get_cfgs_name_in_dir(const char* dir, const char* ext) {
    if (dir == nullptr || ext == nullptr) {
        NM_LOG(Error) << "both dir_path and cfg_ext should not be empty!";
        return {};
    }
    nm::Directory directory(dir);
    if (!directory) {
        return {};
    }
    std::vector<std::string> stems;
    for (const std::string& name : entries(directory)) {
        const std::size_t cut = name.find(ext);
        if (cut != std::string::npos && cut > 0 && is_regular(dir, name)) {
            stems.push_back(name.substr(0, cut));
        }
    }
    std::sort(stems.begin(), stems.end());
    return vector_into_string(stems, "", " ");
}
