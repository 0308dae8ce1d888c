// Commands that are read.
#include "inspect/read_command.h"

#include <stdio.h>
#include <sys/wait.h>
#include <unistd.h>

#include <algorithm>
#include <array>
#include <memory>

namespace nm {

namespace {

constexpr const char* kBounds = "exec /usr/bin/timeout --kill-after=1 10 ";
constexpr size_t kLargest = 64UL << 20;
constexpr int kTimedOut = 124;
constexpr int kKilled = 137;

/// False if there is more than anybody keeps.
bool read_all(FILE* stream, std::string& text) {
    std::array<char, 65536> buffer{};
    size_t length = 0;
    while ((length = fread(buffer.data(), 1, buffer.size(), stream)) > 0) {
        text.append(buffer.data(), length);
        if (text.size() > kLargest) {
            return false;
        }
    }
    return true;
}

std::string last_line(const std::string& text) {
    const std::vector<std::string> lines = lines_of(text);
    const auto last =
        std::find_if(lines.rbegin(), lines.rend(), [](const std::string& line) { return !line.empty(); });
    return last != lines.rend() ? *last : "";
}

std::string reason_of(int status, const std::string& text) {
    const int code = WIFEXITED(status) ? WEXITSTATUS(status) : kKilled;
    if (code == 0) {
        return "";
    }
    if (code == kTimedOut || code == kKilled) {
        return "no answer within ten seconds";
    }
    const std::string words = last_line(text);
    return words.empty() ? "it failed with " + std::to_string(code) : words;
}

}  // namespace

CommandText read_command(const std::string& command) {
    CommandText result;
    FILE* const stream = popen((kBounds + command + " 2>&1 </dev/null").c_str(), "re");
    if (stream == nullptr) {
        result.reason = "no process can be made";
        return result;
    }
    const bool is_whole = read_all(stream, result.text);
    const int status = pclose(stream);
    result.reason = is_whole ? reason_of(status, result.text) : "it is larger than 64 MiB";
    return result;
}

std::vector<std::string> lines_of(const std::string& text) {
    std::vector<std::string> lines;
    for (size_t begin = 0; begin < text.size();) {
        const size_t end = std::min(text.find('\n', begin), text.size());
        lines.push_back(text.substr(begin, end - begin));
        begin = end + 1;
    }
    return lines;
}

std::vector<std::string> words_of(const std::string& line) {
    std::vector<std::string> words;
    bool is_quoted = false;
    bool is_begun = false;
    for (size_t i = 0; i < line.size(); ++i) {
        const bool is_blank = !is_quoted && (line[i] == ' ' || line[i] == '\t');
        if (is_blank) {
            is_begun = false;
            continue;
        }
        if (!is_begun) {
            words.emplace_back();
            is_begun = true;
        }
        if (line[i] == '"') {
            is_quoted = !is_quoted;
            continue;
        }
        i += line[i] == '\\' && is_quoted && i + 1 < line.size() ? 1 : 0;
        words.back() += line[i];
    }
    return words;
}

std::string word_after(const std::vector<std::string>& words, const std::vector<std::string>& keys,
                       const std::string& key) {
    for (size_t i = 0; i + 1 < words.size(); ++i) {
        if (words[i] == key) {
            return words[i + 1];
        }
        i += std::find(keys.begin(), keys.end(), words[i]) != keys.end() ? 1 : 0;
    }
    return "";
}

}  // namespace nm
