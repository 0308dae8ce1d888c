// Log statements. A statement is a stream that is written when it ends; the logger, the file and the
// format behind it are chosen by peers/logs/logging.h.
//
//     NM_LOG(Error) << ifname << " does not exist";
//     return NM_EXIT(result);
#pragma once

#include <sstream>

namespace nm {

/// Severities with the logging library's numeric values.
enum class LogLevel { Trace = 2, Debug = 4, Error = 16, Warning = 32, Info = 128 };

/// One log statement; its text is written when the object dies, at the end of the full expression.
class LogStatement {
public:
    LogStatement(LogLevel level, const char* file, int line, const char* function);
    ~LogStatement();
    LogStatement(const LogStatement&) = delete;
    LogStatement& operator=(const LogStatement&) = delete;

    template <class T>
    LogStatement& operator<<(const T& value) {
        text_ << value;
        return *this;
    }

private:
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
