// The log of a process: picks file, limit and format by category, configures the logging library with
// them, writes the statements of log.h and hands full files to compression. The only unit that knows
// the logging library.
#include "peers/logs/logging.h"

#include <easylogging++.h>
#include <fcntl.h>
#include <fnmatch.h>
#include <sys/file.h>
#include <sys/stat.h>
#include <unistd.h>

#include <algorithm>
#include <array>
#include <atomic>
#include <cerrno>
#include <cstdio>
#include <cstdlib>
#include <filesystem>
#include <fstream>
#include <iostream>
#include <map>
#include <memory>
#include <optional>
#include <string_view>
#include <tuple>

#include "log.h"
#include "utils/Utils.h"
#include "utils/call_notes.h"
#include "utils/file_io.h"
#include "utils/handles.h"
#include "utils/shell_text.h"

const std::string SEPARATE_LINE = std::string(80, '=') + "\n";

namespace {

constexpr char kDefaultLogger[] = "default";
constexpr char kOtherLogger[] = "other";

constexpr char kLogDirectory[] = "/var/log/network/";
constexpr char kSettingsDirectory[] = "/tmp/log_config/";
constexpr char kDefaultSettings[] = "/tmp/log_config/default.conf";
constexpr char kDefaultLogFile[] = "/var/log/network/default.log";
constexpr char kDefaultLimit[] = "102400";

constexpr char kLineFormat[] = "%datetime{%Y-%M-%d %H:%m:%s.%g} %thread %level [%loc] %func >>> %msg";
constexpr char kBriefFormat[] = "%datetime{%Y-%M-%d %H:%m:%s.%g} %thread %level %msg";
constexpr char kBareFormat[] = "%msg";

/// When a row of the category table applies.
enum class Phase { Any, Booting, GoingDown };

/// Where the machine stands between power-on and power-off.
struct MachineState {
    bool booting;
    bool going_down;
};

/// One row of the category table. Names are shell patterns; `settings` and `log` are file names without
/// directory and suffix, an empty `log` is the name of the category itself. `limit` is in bytes, empty
/// for a file that never rolls over.
struct Category {
    const char* pattern;
    Phase phase;
    const char* settings;
    const char* log;
    const char* limit;
};

constexpr std::array kCategories{
    Category{"MAIN", Phase::Booting, "bootup", "bootup", ""},
    Category{"MAIN", Phase::GoingDown, "shutdown", "shutdown", ""},
    Category{"MAIN", Phase::Any, "main", "main", "524288"},
    Category{"API", Phase::Any, "api", "api", "102400"},
    Category{"TEST", Phase::Any, "test", "test", "102400"},
    Category{"VPPPOE", Phase::Any, "vpppoe", "default", "102400"},
    Category{"WANIPD", Phase::Any, "wanipd", "wanipd", "102400"},
    Category{"RESSD", Phase::Any, "ressd", "ressd", "102400"},
    Category{"NCSID", Phase::Any, "ncsid", "ncsid", "102400"},
    Category{"DNSMASQMGR", Phase::Any, "dnsmasq_mgr", "dnsmasq_mgr", "102400"},
    Category{"RMGMTD", Phase::Any, "rmgmtd", "rmgmtd", "102400"},
    Category{"NCAAS", Phase::Any, "ncaas", "ncaas", "102400"},
    Category{"DAS", Phase::Any, "das", "das", "102400"},
    Category{"MAPED", Phase::Any, "maped", "maped", "102400"},
    Category{"*-wrapper*", Phase::Any, "default", "", "102400"},
    Category{"*", Phase::Any, "default", "default", "102400"},
};

bool in_phase(Phase phase, const MachineState& state) {
    switch (phase) {
        case Phase::Booting:
            return state.booting;
        case Phase::GoingDown:
            return state.going_down;
        case Phase::Any:
            break;
    }
    return true;
}

const Category& find_category(const std::string& name, const MachineState& state) {
    for (const Category& row : kCategories) {
        if (fnmatch(row.pattern, name.c_str(), 0) == 0 && in_phase(row.phase, state)) {
            return row;
        }
    }
    return kCategories.back();
}

bool is_named_by_category(const Category& row) {
    return *row.log == '\0';
}

std::string log_file_of(const Category& row, const std::string& name) {
    return kLogDirectory + (is_named_by_category(row) ? name : row.log) + ".log";
}

MachineState read_machine_state() {
    return {!is_file_exists("/var/run/network/.boot_fin"),
            is_file_exists("/var/run/network/.reboot") || is_file_exists("/var/run/network/.poweroff")};
}

/// The storage is never destroyed: threads that still run while the process exits may log until the end.
el::base::type::StoragePointer make_lasting_storage() {
    const el::LogBuilderPtr builder(new el::base::DefaultLogBuilder());
    return {new el::base::Storage(builder), [](el::base::Storage*) {}};
}

}  // namespace

SHARE_EASYLOGGINGPP(make_lasting_storage())

namespace {

/// The file behind the statements of one level. The descriptor belongs to the stream that the logging library
/// has opened; `limit` is in bytes, 0 for a file that never rolls over.
struct LogFile {
    std::string path;
    int fd;
    std::size_t limit;
};

using LogFiles = std::map<el::Level, LogFile>;

/// The open files by logger, guarded by the lock of the logging library's storage. Never destroyed, like
/// that.
std::map<std::string, LogFiles>& open_files = *new std::map<std::string, LogFiles>();

/// What the log of a process is made of: equal set-ups configure a logger alike.
struct LogSetup {
    const char* logger;
    std::optional<std::string>
        settings;          ///< text of the configuration file, if it is there and to be believed
    std::string file;      ///< the built-in one
    std::string limit;     ///< the built-in one, empty for none
    bool insists_on_file;  ///< whatever the settings say
    bool brief;

    bool operator==(const LogSetup& other) const {
        const auto parts = [](const LogSetup& setup) {
            return std::tie(setup.logger, setup.settings, setup.file, setup.limit, setup.insists_on_file,
                            setup.brief);
        };
        return parts(*this) == parts(other);
    }
};

/// The last set-up, if all of its levels got their file. Guarded like the files.
std::optional<LogSetup>& setup_in_force = *new std::optional<LogSetup>();

/// Whether full files are kept by rolloutHandler or just emptied.
std::atomic<bool> keeps_full_files{false};

/// The logging library opens its files so that children inherit them. That is set right on the open
/// descriptor, which the stream class keeps to itself; without an open file it is -1.
int guarded_descriptor(std::fstream* stream) {
    struct OpenFile : std::filebuf {
        static auto member() { return &OpenFile::_M_file; }
    };
    if (stream == nullptr || !stream->is_open()) {
        return -1;
    }
    const int fd = (stream->rdbuf()->*OpenFile::member()).fd();
    (void)fcntl(fd, F_SETFD, FD_CLOEXEC);
    (void)fcntl(fd, F_SETFL, O_APPEND);
    return fd;
}

/// Puts what is opened here behind the descriptor that the logging library knows.
bool reopen(const LogFile& file, const nm::FileDescriptor& fresh) {
    return fresh && dup3(fresh.get(), file.fd, O_CLOEXEC) >= 0;
}

bool reopen_by_path(const LogFile& file) {
    return reopen(file, nm::FileDescriptor::open(file.path.c_str(), O_WRONLY | O_APPEND | O_CREAT, 0666));
}

/// What stands in the file behind `offset`; nothing if it cannot be read.
std::string read_behind(const nm::FileDescriptor& file, off_t offset) {
    return lseek(file.get(), offset, SEEK_SET) == offset ? nm::read_to_end(file.get()).value_or("") : "";
}

/// Puts an empty file in the place of the full one, for the same users. What others have written since it was
/// found full is moved over: they go on with the old file until they see that its name has gone.
bool put_empty_file(const LogFile& file, const struct stat& full) {
    std::error_code error;
    const std::string path = std::filesystem::canonical(file.path, error).string();  // a link stays
    const std::string beside = path + ".new";
    (void)unlink(beside.c_str());  // It need not be there.
    const auto old = nm::FileDescriptor::open(path.c_str(), O_RDONLY);
    const auto fresh = nm::FileDescriptor::open(beside.c_str(), O_WRONLY | O_APPEND | O_CREAT | O_EXCL, 0600);
    if (!old || !fresh || !nm::take_over_access(fresh.get(), full) ||
        rename(beside.c_str(), path.c_str()) != 0) {
        return false;
    }
    (void)nm::write_all(fresh.get(), read_behind(old, full.st_size));
    return reopen(file, fresh);
}

/// Not lock_ex(), which logs and waits: one process rolls a file over, the others go on with their work.
/// Without the directory of locks nobody is kept out.
bool is_rolled_by_other(const nm::FileDescriptor& lock) {
    return lock && flock(lock.get(), LOCK_EX | LOCK_NB) != 0;
}

void roll_over(const LogFile& file) {
    const std::string name = file.path.substr(file.path.rfind('/') + 1);
    const auto lock = nm::FileDescriptor::open(("/var/lock/network/" + name + ".lck").c_str(),
                                               O_RDONLY | O_CREAT | O_NOFOLLOW, 0644);
    struct stat full {};
    const bool is_mine = !is_rolled_by_other(lock) && fstat(file.fd, &full) == 0 && full.st_nlink > 0;
    if (!is_mine) {
        return;
    }
    if (keeps_full_files) {
        rolloutHandler(file.path.c_str(), static_cast<std::size_t>(full.st_size));
    }
    if (!put_empty_file(file, full)) {
        (void)!ftruncate(file.fd, 0);  // Better without the old lines than without room for new ones.
    }
}

/// A line that went into a file without a name is written again: another process has rolled the file over, or
/// somebody has removed it.
void append(const LogFile& file, const std::string& line) {
    constexpr int kTries = 3;
    struct stat status {};
    for (int attempt = 0; attempt < kTries; ++attempt) {
        (void)nm::write_all(file.fd, line);  // Logging never fails the caller.
        if (fstat(file.fd, &status) != 0 || status.st_nlink > 0 || !reopen_by_path(file)) {
            break;
        }
    }
    if (file.limit != 0 && static_cast<std::size_t>(status.st_size) >= file.limit) {
        roll_over(file);
    }
}

/// Writes the finished lines in place of the logging library, which would ask for the size of its file twice
/// a line and empties a full file under the hands of other processes.
class LineWriter : public el::LogDispatchCallback {
protected:
    void handle(const el::LogDispatchData* dispatched) override {
        const el::LogMessage* const message = dispatched->logMessage();
        el::Logger* const logger = message->logger();
        const std::string line = logger->logBuilder()->build(message, true);
        const LogFiles& files = open_files[logger->id()];
        const auto file = files.find(message->level());
        if (file != files.end()) {
            append(file->second, line);
        }
        if (logger->typedConfigurations()->toStandardOutput(message->level())) {
            std::cout << line << std::flush;
        }
    }
};

/// The library's defaults without its habit of printing every statement on standard output.
void set_to_quiet_default(el::Configurations& conf) {
    conf.setToDefault();
    conf.set(el::Level::Global, el::ConfigurationType::ToStandardOutput, "false");
}

constexpr std::array kLevels{el::Level::Trace, el::Level::Debug, el::Level::Error, el::Level::Warning,
                             el::Level::Info};

/// Takes the size limits out of the configuration: the logging library would empty a full file when it opens
/// it.
std::map<el::Level, std::size_t> take_limits(el::Configurations& conf) {
    std::map<el::Level, std::size_t> limits;
    for (const el::Level level : kLevels) {
        const el::Configuration* const limit = conf.get(level, el::ConfigurationType::MaxLogFileSize);
        limits[level] = limit == nullptr ? 0 : strtoul(limit->value().c_str(), nullptr, 10);
    }
    conf.set(el::Level::Global, el::ConfigurationType::MaxLogFileSize, "0");
    return limits;
}

/// Gives the logger the configuration, with its file opened anew: a file that could not be opened before,
/// was removed, or belongs to the previous category does not stay behind. Whether all levels have a file now.
bool reconfigure(el::Logger* logger, el::Configurations& conf) {
    const std::map<el::Level, std::size_t> limits = take_limits(conf);
    el::Loggers::logStreamsReference()->clear();
    logger->configure(conf);
    LogFiles& files = open_files[logger->id()];
    files.clear();
    el::base::TypedConfigurations* const typed = logger->typedConfigurations();
    for (const auto& [level, limit] : limits) {
        const int fd = typed->toFile(level) ? guarded_descriptor(typed->fileStream(level)) : -1;
        if (fd >= 0) {
            files[level] = {typed->filename(level), fd, limit};
        }
    }
    return files.size() == limits.size();
}

/// Whether the logger's lines still go into the files that have their names.
bool has_its_files(const char* logger_id) {
    const LogFiles& files = open_files[logger_id];
    return std::all_of(files.begin(), files.end(), [](const auto& row) {
        struct stat open_file {};
        struct stat named {};
        return fstat(row.second.fd, &open_file) == 0 && stat(row.second.path.c_str(), &named) == 0 &&
               open_file.st_ino == named.st_ino && open_file.st_dev == named.st_dev;
    });
}

/// Both loggers exist, and are silent, from the moment the library is loaded until INITIALIZE_LOG.
class LoadedLog {
public:
    LoadedLog() {
        using el::base::DefaultLogDispatchCallback;
        el::Helpers::uninstallLogDispatchCallback<DefaultLogDispatchCallback>("DefaultLogDispatchCallback");
        el::Helpers::installLogDispatchCallback<LineWriter>("LineWriter");
        el::Configurations silent;
        set_to_quiet_default(silent);
        silent.set(el::Level::Global, el::ConfigurationType::Enabled, "false");
        reconfigure(el::Loggers::getLogger(kDefaultLogger), silent);
        reconfigure(el::Loggers::getLogger(kOtherLogger), silent);
        ready_ = true;
    }
    ~LoadedLog() { ready_ = false; }
    LoadedLog(const LoadedLog&) = delete;
    LoadedLog& operator=(const LoadedLog&) = delete;

    /// False before this unit's initialisers ran and after its end: nothing can be logged then.
    bool is_ready() const { return ready_; }

private:
    std::atomic<bool> ready_{false};
};

LoadedLog loaded_log;

/// The values that the library would take without complaint and misread: a relative path, which lands in
/// whatever directory the caller stands in, and a size that is not a number.
bool is_sound(const el::Configuration* setting) {
    const std::string& value = setting->value();
    if (setting->configurationType() == el::ConfigurationType::Filename) {
        return value.compare(0, 1, "/") == 0;
    }
    if (setting->configurationType() == el::ConfigurationType::MaxLogFileSize) {
        return !value.empty() && value.find_first_not_of("0123456789") == std::string::npos;
    }
    return true;
}

/// Reads the text of a configuration file onto the quiet defaults; true if every line of it is understood.
/// The library's own reader reports the last line only, so each line is given to it alone, under the level
/// line that it belongs to.
bool parse_log_conf(const std::string& text, el::Configurations& conf) {
    std::istringstream lines(text);
    el::Configurations settings;
    std::string level;
    for (std::string line; std::getline(lines, line);) {
        const std::size_t first = line.find_first_not_of(" \t");
        if (first != std::string::npos && line[first] == '*') {
            level = line + "\n";
            continue;
        }
        if (!settings.parseFromText(level + line + "\n")) {
            return false;
        }
    }
    const bool sound = std::all_of(settings.list().begin(), settings.list().end(), is_sound);
    if (settings.empty() || !sound) {
        return false;
    }
    set_to_quiet_default(conf);
    conf.setFromBase(&settings);
    return true;
}

/// The built-in configuration, for a process that finds no usable configuration file.
void build_default_log_conf(el::Configurations& conf, const LogSetup& setup) {
    using Type = el::ConfigurationType;
    conf.setToDefault();
    conf.set(el::Level::Global, Type::Format, kLineFormat);
    conf.set(el::Level::Global, Type::ToStandardOutput, "false");
    conf.set(el::Level::Global, Type::LogFlushThreshold, "1");
    conf.set(el::Level::Info, Type::Format, kBareFormat);
    conf.set(el::Level::Global, Type::Filename, setup.file);
    if (!setup.limit.empty()) {
        conf.set(el::Level::Global, Type::MaxLogFileSize, setup.limit);
    }
}

/// What the environment, the machine's state and the configuration files ask for now. Anybody may write in
/// /tmp, and the settings name files that this process writes as root.
LogSetup find_setup(const std::string& name) {
    if (std::getenv("NALOG") != nullptr) {
        return {kOtherLogger, nm::read_trusted_file(kDefaultSettings), kDefaultLogFile, kDefaultLimit, false,
                false};
    }
    const Category& row = find_category(name, read_machine_state());
    return {kDefaultLogger,
            nm::read_trusted_file(std::string(kSettingsDirectory) + row.settings + ".conf"),
            log_file_of(row, name),
            row.limit,
            is_named_by_category(row),
            std::getenv("CALL_BY_NMLOG") != nullptr};
}

el::Configurations configuration_of(const LogSetup& setup) {
    el::Configurations conf;
    if (!setup.settings || !parse_log_conf(*setup.settings, conf)) {
        build_default_log_conf(conf, setup);
    }
    if (setup.insists_on_file) {
        conf.set(el::Level::Global, el::ConfigurationType::Filename, setup.file);
    }
    if (setup.brief) {
        conf.set(el::Level::Global, el::ConfigurationType::Format, kBriefFormat);
    }
    return conf;
}

/// Configuring a logger and opening its files takes longer than a whole query, so it is only done where it
/// would change something.
void configure_log(const std::string& name) {
    const LogSetup setup = find_setup(name);
    // The library looks loggers up under a lock of its own, which it may hold when it locks a logger.
    el::Logger* const logger = el::Loggers::getLogger(setup.logger);
    const el::base::threading::ScopedLock logger_lock(logger->lock());
    const el::base::threading::ScopedLock storage_lock(el::base::elStorage->lock());
    if (setup_in_force == setup && has_its_files(setup.logger)) {
        return;
    }
    el::Configurations conf = configuration_of(setup);
    setup_in_force.reset();
    if (reconfigure(logger, conf)) {
        setup_in_force = setup;
    }
}

/// Reopening standard error on a path that cannot be opened would leave the process without one, so the
/// path is tried first.
void redirect_stderr() {
    constexpr char kErrorLog[] = "/var/log/network/err_log";
    const char* const debug = std::getenv("DEBUG_NA");
    if (debug == nullptr || std::string_view(debug) != "1") {
        return;
    }
    const std::unique_ptr<std::FILE, int (*)(std::FILE*)> trial(std::fopen(kErrorLog, "a+e"), std::fclose);
    if (trial != nullptr) {
        [[maybe_unused]] const std::FILE* const reopened = std::freopen(kErrorLog, "a+", stderr);
    }
}

void write_statement(nm::LogLevel severity, const char* file, int line, const char* function,
                     const std::string& text) {
    const auto level = static_cast<el::Level>(severity);
    const char* const id = std::getenv("NALOG") != nullptr ? kOtherLogger : kDefaultLogger;
    el::Logger* const logger = el::Loggers::getLogger(id);
    const el::base::threading::ScopedLock lock(logger->lock());
    if (!logger->enabled(level)) {
        return;
    }
    const auto line_number = static_cast<el::base::type::LineNumber>(line);
    el::base::Writer(level, file, line_number, function).construct(logger) << text;
}

constexpr std::size_t kRolledPathLimit = 256;

std::optional<std::string> read_link_target(const char* link) {
    std::array<char, kRolledPathLimit> target{};
    const ssize_t length = readlink(link, target.data(), target.size());
    if (length < 0) {
        return std::nullopt;
    }
    return std::string(target.data(), static_cast<std::size_t>(length));
}

std::optional<std::string> path_to_compress(const char* filename) {
    struct stat status {};
    if (filename == nullptr || lstat(filename, &status) != 0) {
        return std::nullopt;
    }
    if (S_ISLNK(status.st_mode)) {
        return read_link_target(filename);
    }
    if (S_ISREG(status.st_mode)) {
        return std::string(filename).substr(0, kRolledPathLimit);
    }
    return std::nullopt;
}

}  // namespace

void rolloutHandler(const char* filename, std::size_t /*size*/) {
    const std::optional<std::string> path = path_to_compress(filename);
    const std::optional<std::string> word = path ? nm::shell_word(*path) : std::nullopt;
    if (!word) {
        return;
    }
    // Not through system_cmd, which logs: this runs under the locks of the logging library.
    [[maybe_unused]] const int status = std::system(("/usr/sbin/log_compress.sh " + *word).c_str());
}

void INITIALIZE_LOG(const char* name) {
    if (!loaded_log.is_ready()) {
        return;
    }
    redirect_stderr();
    configure_log(name == nullptr ? "" : name);
    keeps_full_files = true;
}

void DETACH_LOG() {
    keeps_full_files = false;
}

namespace nm {

void LogStatement::put_value(std::string_view value, std::string_view allowed) {
    constexpr std::string_view kControls("\a\b\t\n\v\f\r");
    constexpr char kLetters[] = "abtnvfr";
    constexpr char kDigits[] = "0123456789abcdef";
    for (const char c : value) {
        const auto code = static_cast<unsigned char>(c);
        const bool is_control = code < 0x20 || code == 0x7f;
        if (!is_control || allowed.find(c) != std::string_view::npos) {
            text_ << c;
        } else if (const std::size_t place = kControls.find(c); place != std::string_view::npos) {
            text_ << '\\' << kLetters[place];
        } else {
            text_ << "\\x" << kDigits[code >> 4] << kDigits[code & 0xf];
        }
    }
}

LogStatement::LogStatement(LogLevel level, const char* file, int line, const char* function)
    : level_(level), file_(file), line_(line), function_(function) {
    // A caller's locale must not put separators into the numbers of our lines.
    text_.imbue(std::locale::classic());
}

LogStatement::~LogStatement() {
    const int caller_errno = errno;
    try {
        const std::string text = text_.str();
        if (level_ == LogLevel::Error) {
            note_error(text);
        }
        if (loaded_log.is_ready()) {
            write_statement(level_, file_, line_, function_, text);
        }
    } catch (...) {
        // Logging never fails the caller, and a destructor has nobody to tell.
    }
    errno = caller_errno;
}

int log_exit(int result, const char* file, int line, const char* function) {
    LogStatement(LogLevel::Debug, file, line, function) << "Exit " << result;
    return result;
}

}  // namespace nm
