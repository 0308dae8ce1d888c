// The log of the library, as far as it concerns a port.
#include <unistd.h>

#include <cctype>
#include <chrono>
#include <cstdlib>
#include <deque>
#include <filesystem>
#include <fstream>
#include <iostream>
#include <thread>

#include "nm_bin/commands.h"
#include "nm_bin/explain.h"
#include "nm_bin/places.h"
#include "nm_bin/secrets.h"

namespace nm_bin {

namespace {

constexpr const char* kDirectory = "/var/log/network/";

/// Where the entries log now, in the words of nm_bin(8).
std::string log_path() {
    const auto is_there = [](const char* marker) {
        return std::filesystem::exists(std::string("/var/run/network/") + marker);
    };
    if (std::getenv("NALOG") != nullptr) {
        return std::string(kDirectory) + "default.log";
    }
    if (!is_there(".boot_fin")) {
        return std::string(kDirectory) + "bootup.log";
    }
    const bool is_going_down = is_there(".reboot") || is_there(".poweroff");
    return std::string(kDirectory) + (is_going_down ? "shutdown.log" : "main.log");
}

bool is_name_character(const std::string& line, size_t position) {
    const char c = position < line.size() ? line[position] : ' ';
    return std::isalnum(static_cast<unsigned char>(c)) != 0 || c == '_';
}

bool has_word(const std::string& line, const std::string& word) {
    for (size_t at = line.find(word); at != std::string::npos; at = line.find(word, at + 1)) {
        const bool begins = at == 0 || !is_name_character(line, at - 1);
        if (begins && !is_name_character(line, at + word.size())) {
            return true;
        }
    }
    return false;
}

/// The names under which a port stands in the log: its own, and its interface's.
std::vector<std::string> names_of(const Arguments& words) {
    std::vector<std::string> names = words;
    const Documents documents = read_documents();
    for (const Place& place : words.empty() ? std::vector<Place>() : find_places(documents, words[0])) {
        names.push_back(place.key);
        const Json::Value interface = entry_at(documents, place).get("INTERFACE", "");
        if (interface.isString() && !interface.asString().empty()) {
            names.push_back(interface.asString());
        }
    }
    return names;
}

bool concerns(const std::string& line, const std::vector<std::string>& names) {
    bool is_named = names.empty();
    for (const std::string& name : names) {
        is_named = is_named || has_word(line, name);
    }
    return is_named;
}

void print_line(const std::string& line) {
    const bool is_error = line.find(" ERROR ") != std::string::npos;
    const bool is_warning = line.find(" WARNING ") != std::string::npos;
    const std::string text = harmless(mask_text(line));
    std::cout << (is_error     ? tint(Tint::Bad, text, STDOUT_FILENO)
                  : is_warning ? tint(Tint::Warning, text, STDOUT_FILENO)
                               : text)
              << "\n";
}

void print_last(std::ifstream& file, const std::vector<std::string>& names, size_t count) {
    std::deque<std::string> last;
    for (std::string line; std::getline(file, line);) {
        if (concerns(line, names)) {
            last.push_back(line);
        }
        if (last.size() > count) {
            last.pop_front();
        }
    }
    for (const std::string& line : last) {
        print_line(line);
    }
    std::cout << std::flush;
}

/// A file that is full gives its name to an empty one.
bool is_replaced(const std::string& path, std::ifstream& file) {
    std::error_code error;
    const auto size = std::filesystem::file_size(path, error);
    return error || static_cast<std::streamoff>(size) < file.tellg();
}

[[noreturn]] void follow(const std::string& path, std::ifstream& file,
                         const std::vector<std::string>& names) {
    constexpr std::chrono::milliseconds kRest{200};
    for (std::string line;;) {
        file.clear();
        const auto start = file.tellg();
        if (std::getline(file, line) && !file.eof()) {
            if (concerns(line, names)) {
                print_line(line);
                std::cout << std::flush;
            }
            continue;
        }
        file.clear();
        file.seekg(start);  // a line is read when it is whole
        if (is_replaced(path, file)) {
            file.close();
            file.open(path);
        }
        std::this_thread::sleep_for(kRest);
    }
}

}  // namespace

int log(const Arguments& words, const Options& options) {
    const std::vector<std::string> names = names_of(words);
    const std::string path = log_path();
    if (const int status = check_readable({path}); status != kExitOk) {
        return status;
    }
    std::ifstream file(path);
    if (!file && !options.follow) {
        return failure("cannot read " + path);
    }
    print_last(file, names, options.lines);
    if (options.follow) {
        follow(path, file, names);
    }
    return kExitOk;
}

}  // namespace nm_bin
