// How results reach people and programs: tables and colours on a terminal, JSON elsewhere.
#pragma once

#include <json/value.h>

#include <string>
#include <utility>
#include <vector>

namespace nm_bin {

constexpr int kExitOk = 0;
constexpr int kExitFailed = 1;
constexpr int kExitUsage = 2;

/// What the command line says about a command's output and ways.
struct Options {
    bool json = false;
    bool text = false;
    bool dry_run = false;
    bool follow = false;
    bool watch = false;
    std::string picture = {};
    std::string out = {};
    std::string device = {};
    size_t lines = 20;
};

/// Whether the output is for a program: --json, or no terminal and no --text.
bool wants_json(const Options& options);

enum class Tint { Good, Bad, Warning, Faint };

/// `text` in a colour, as it is where descriptor `fd` is not a terminal or NO_COLOR or TERM ask for none.
std::string tint(Tint colour, const std::string& text, int fd);

/// Without what moves a terminal's cursor, as names in documents and of files may hold it.
std::string harmless(const std::string& text);

/// A member's text for people, harmless; empty without the member.
std::string text_of(const Json::Value& record, const char* key);

/// "1 error", "2 errors".
std::string count_of(size_t number, const std::string& what);

/// Rows under a header; as JSON a list of objects whose keys are the header's words.
class Table {
public:
    explicit Table(std::vector<std::string> header) : header_(std::move(header)) {}
    void add(std::vector<std::string> row) { rows_.push_back(std::move(row)); }
    bool empty() const { return rows_.empty(); }
    void print(const Options& options) const;

private:
    void print_row(const std::vector<std::string>& row, bool is_header) const;
    size_t width(size_t column) const;

    std::vector<std::string> header_;
    std::vector<std::vector<std::string>> rows_;
};

/// Answers with the report of a look for faults, as JSON or by `print`; the exit status of its result `code`.
int show_findings(const Json::Value& report, int code, const Options& options,
                  void (*print)(const Json::Value& report));

/// Ends the summary of such a report: how many findings it has no room for.
void print_omitted(const Json::Value& report);

/// What such a report could not look at, on standard error.
void print_unread(const Json::Value& report);

/// The lines of one thing that differ, harmless, each behind a sign; of many the first ones.
void print_lines(const Json::Value& lines, const char* sign, Tint colour);

/// Complains on standard error; kExitUsage.
int usage_error(const std::string& message);

/// The same for what is not the usage's fault; kExitFailed.
int failure(const std::string& message);

}  // namespace nm_bin
