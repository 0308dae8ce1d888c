// Tables, colours and JSON.
#include "nm_bin/console.h"

#include <json/value.h>
#include <json/writer.h>
#include <networkinterface.h>
#include <unistd.h>

#include <algorithm>
#include <cstdlib>
#include <iostream>

namespace nm_bin {

namespace {

bool is_set(const char* variable) {
    const char* const value = std::getenv(variable);
    return value != nullptr && *value != '\0';
}

/// By the convention of no-color.org.
bool has_colour(int fd) {
    const char* const terminal = std::getenv("TERM");
    const bool is_dumb = terminal == nullptr || std::string(terminal) == "dumb";
    return isatty(fd) == 1 && !is_dumb && !is_set("NO_COLOR");
}

const char* code_of(Tint colour) {
    switch (colour) {
        case Tint::Good:
            return "32";
        case Tint::Bad:
            return "31";
        case Tint::Warning:
            return "33";
        case Tint::Faint:
            return "2";
    }
    return "0";
}

}  // namespace

bool wants_json(const Options& options) {
    return options.json || (!options.text && isatty(STDOUT_FILENO) != 1);
}

std::string tint(Tint colour, const std::string& text, int fd) {
    return has_colour(fd) && !text.empty() ? std::string("\033[") + code_of(colour) + "m" + text + "\033[0m"
                                           : text;
}

std::string harmless(const std::string& text) {
    constexpr unsigned char kLastC1 = 0x9f;
    std::string shown;
    for (size_t i = 0; i < text.size(); ++i) {
        // The controls from U+0080 to U+009F begin with this byte, as do characters after them.
        const bool is_c1 =
            text[i] == '\xc2' && i + 1 < text.size() && static_cast<unsigned char>(text[i + 1]) <= kLastC1;
        i += is_c1 ? 1 : 0;
        shown += is_c1 || static_cast<unsigned char>(text[i]) < ' ' || text[i] == '\x7f' ? '?' : text[i];
    }
    return shown;
}

std::string text_of(const Json::Value& record, const char* key) {
    return harmless(record.get(key, "").asString());
}

std::string count_of(size_t number, const std::string& what) {
    return std::to_string(number) + " " + what + (number == 1 ? "" : "s");
}

size_t Table::width(size_t column) const {
    size_t widest = header_[column].size();
    for (const std::vector<std::string>& row : rows_) {
        widest = std::max(widest, harmless(row[column]).size());
    }
    return widest;
}

/// The last column is not filled up: no line ends in blanks.
void Table::print_row(const std::vector<std::string>& row, bool is_header) const {
    std::string line;
    for (size_t column = 0; column < row.size(); ++column) {
        const std::string cell = harmless(row[column]);
        line += cell;
        if (column + 1 < row.size()) {
            line.append(width(column) + 2 - cell.size(), ' ');
        }
    }
    line.erase(line.find_last_not_of(' ') + 1);
    std::cout << (is_header ? tint(Tint::Faint, line, STDOUT_FILENO) : line) << "\n";
}

void Table::print(const Options& options) const {
    if (!wants_json(options)) {
        print_row(header_, true);
        for (const std::vector<std::string>& row : rows_) {
            print_row(row, false);
        }
        return;
    }
    Json::Value list(Json::arrayValue);
    for (const std::vector<std::string>& row : rows_) {
        Json::Value& entry = list.append(Json::objectValue);
        for (size_t column = 0; column < row.size(); ++column) {
            entry[header_[column]] = row[column];
        }
    }
    std::cout << Json::FastWriter().write(list);
}

int show_findings(const Json::Value& report, int code, const Options& options,
                  void (*print)(const Json::Value& report)) {
    if (wants_json(options)) {
        std::cout << Json::writeString(Json::StreamWriterBuilder(), report) << "\n";
    } else {
        print(report);
    }
    if (code == NM_ERR_NOT_FOUND) {
        return kExitUsage;
    }
    return code < 0 ? kExitFailed : kExitOk;
}

void print_omitted(const Json::Value& report) {
    if (report["omitted"].asUInt64() > 0) {
        std::cout << "; " << report["omitted"].asUInt64() << " more are left out";
    }
    std::cout << "\n";
}

void print_unread(const Json::Value& report) {
    for (const Json::Value& part : report["unread"]) {
        std::cerr << "nm_bin: not looked at: " << text_of(part, "what") << ": " << text_of(part, "reason")
                  << "\n";
    }
}

void print_lines(const Json::Value& lines, const char* sign, Tint colour) {
    constexpr Json::ArrayIndex kMostLines = 40;
    for (Json::ArrayIndex i = 0; i < std::min(lines.size(), kMostLines); ++i) {
        std::cout << "    " << tint(colour, sign + harmless(lines[i].asString()), STDOUT_FILENO) << "\n";
    }
    if (lines.size() > kMostLines) {
        std::cout << "    " << sign << "... " << lines.size() - kMostLines << " more, with --json\n";
    }
}

int usage_error(const std::string& message) {
    std::cerr << "nm_bin: " << harmless(message) << "\nTry 'nm_bin --help'.\n";
    return kExitUsage;
}

int failure(const std::string& message) {
    std::cerr << "nm_bin: " << harmless(message) << "\n";
    return kExitFailed;
}

}  // namespace nm_bin
