// Log statements. A statement is a stream that is written when it ends; the logger, the file and the
// format behind it are chosen by peers/logs/logging.h.
//
//     NM_LOG(Error) << ifname << " does not exist";
//     return NM_EXIT(result);
#pragma once

#include <sstream>
#include <string_view>
#include <type_traits>

namespace nm {

/// Severities with the logging library's numeric values.
enum class LogLevel { Trace = 2, Debug = 4, Error = 16, Warning = 32, Info = 128 };

/// A text of several lines of our own making, a script for one: its line ends stay what they are in the log.
struct LogLines {
    std::string_view text;
};

/// One log statement; its text is written when the object dies, at the end of the full expression. A literal
/// goes into the log as it is. Values come from documents, peers and packets: their control characters become
/// escapes (\n, \x1b), so that none adds a line to the log or moves a terminal's cursor.
class LogStatement {
public:
    LogStatement(LogLevel level, const char* file, int line, const char* function);
    ~LogStatement();
    LogStatement(const LogStatement&) = delete;
    LogStatement& operator=(const LogStatement&) = delete;

    template <class T>
    LogStatement& operator<<(T&& value) {
        using Kind = std::remove_reference_t<T>;
        constexpr bool is_literal = std::is_array_v<Kind> && std::is_const_v<std::remove_extent_t<Kind>>;
        if constexpr (std::is_same_v<std::decay_t<T>, LogLines>) {
            put_value(value.text, "\n");
        } else if constexpr (!is_literal && std::is_convertible_v<T, std::string_view>) {
            put_value(view(value), "");
        } else {
            text_ << value;
        }
        return *this;
    }

private:
    static std::string_view view(std::string_view text) { return text; }
    static std::string_view view(const char* text) { return text != nullptr ? text : ""; }
    void put_value(std::string_view value, std::string_view allowed);

    LogLevel level_;
    const char* file_;
    int line_;
    const char* function_;
    std::ostringstream text_;
};

/// Logs "Exit " and the result on behalf of `function`, and hands the result back.
int log_exit(int result, const char* file, int line, const char* function);

}  // namespace nm

/// One statement of the level Trace, Debug, Error, Warning or Info.
#define NM_LOG(level) ::nm::LogStatement(::nm::LogLevel::level, __FILE__, __LINE__, __PRETTY_FUNCTION__)

/// The last line of a traced function: `return NM_EXIT(result);`
#define NM_EXIT(result) ::nm::log_exit((result), __FILE__, __LINE__, __PRETTY_FUNCTION__)
