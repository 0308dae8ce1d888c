// Directories: whether they exist, what they hold, emptying them.
#pragma once

#include <dirent.h>

#include <string>
#include <vector>

#pragma GCC visibility push(default)

/// Whether `path` is a directory, seen through symbolic links.
bool is_dir(const char* path);
bool is_dir_exists(const std::string& path);

/// Removes every entry of the directory; one that can't be removed (a directory with content) is logged
/// and passed over. 0, or NM_ERR_NULL_ARG for null or for a directory that can't be opened.
int remove_files_in_folder(const char* path);

/// The names in `dir` that `filter` accepts (null accepts all), in alphabetical order, without those
/// that begin with "."; empty if the directory can't be read.
std::vector<std::string> scandir_filter(const char* dir, int (*filter)(const dirent*));

/// The interfaces of one kind, in alphabetical order: "bridge", "bonding" or "vlan"; another type: empty.
std::vector<std::string> scandir_filter_by_devtype(std::string type);

/// The stems of the regular files in `dir` whose name contains `ext`, each cut before the first `ext`,
/// in alphabetical order and separated by one blank. Empty on null arguments and unreadable directories.
std::string get_cfgs_name_in_dir(const char* dir, const char* ext);

#pragma GCC visibility pop
