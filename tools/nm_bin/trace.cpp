// trace: a request, a change or the whole bring-up, worked here, and where its time went.
#include <fcntl.h>
#include <json/writer.h>
#include <networkinterface.h>
#include <sys/resource.h>
#include <unistd.h>

#include <cerrno>
#include <csignal>
#include <cstring>
#include <iomanip>
#include <iostream>
#include <sstream>

#include "nm_bin/commands.h"
#include "nm_bin/explain.h"

namespace nm_bin {

namespace {

constexpr int kTimeWidth = 12;
constexpr int kNameWidth = 10;

/// The file that the trace goes to. It is opened before anything is worked, and keeps what it holds until
/// there is a trace.
class TraceFile {
public:
    explicit TraceFile(const std::string& path)
        : path_(path), fd_(path.empty() ? -1 : open(path.c_str(), O_WRONLY | O_CREAT | O_CLOEXEC, 0600)) {}
    TraceFile(const TraceFile&) = delete;
    TraceFile& operator=(const TraceFile&) = delete;
    ~TraceFile() {
        if (fd_ >= 0) {
            (void)close(fd_);
        }
    }

    bool is_usable() const { return path_.empty() || fd_ >= 0; }

    /// 0, or what errno says.
    int write(const std::string& text) const {
        if (!path_.empty() && ftruncate(fd_, 0) != 0 && errno != EINVAL) {  // a pipe or a terminal
            return errno;
        }
        for (size_t written = 0; !path_.empty() && written < text.size();) {
            const ssize_t part = ::write(fd_, text.data() + written, text.size() - written);
            if (part < 0 && errno != EINTR) {
                return errno;
            }
            written += part > 0 ? static_cast<size_t>(part) : 0;
        }
        return 0;
    }

private:
    std::string path_;
    int fd_;
};

/// The time of a member in milliseconds.
std::string milliseconds(const Json::Value& record, const char* key) {
    std::ostringstream text;
    text << std::fixed << std::setprecision(3) << std::setw(kTimeWidth) << record[key].asDouble() / 1000;
    return text.str();
}

std::string percent(const Json::Value& record) {
    std::ostringstream text;
    text << std::fixed << std::setprecision(1) << std::setw(6) << record["share"].asDouble() * 100 << " %";
    return text.str();
}

void print_head(const std::string& text) {
    std::cerr << tint(Tint::Faint, text, STDERR_FILENO) << "\n";
}

void print_categories(const Json::Value& times) {
    print_head("category    count    total ms     self ms    share");
    for (const Json::Value& row : times["categories"]) {
        std::cerr << std::left << std::setw(kNameWidth) << row["category"].asString() << std::right
                  << std::setw(7) << row["count"].asUInt64() << milliseconds(row, "total_us")
                  << milliseconds(row, "self_us") << " " << percent(row) << "\n";
    }
    std::cerr << std::left << std::setw(kNameWidth + 7 + kTimeWidth) << "between the steps" << std::right
              << milliseconds(times["uncovered"], "self_us") << " " << percent(times["uncovered"]) << "\n"
              << std::left << std::setw(kNameWidth + 7 + kTimeWidth) << "in all" << std::right
              << milliseconds(times, "total_us") << "\n";
}

void print_steps(const std::string& head, const Json::Value& rows) {
    print_head(head);
    for (const Json::Value& row : rows) {
        const std::string holder = text_of(row, "holder");
        const std::string place = text_of(row, "where");
        std::cerr << milliseconds(row, "self_us") << "  " << row["category"].asString() << " "
                  << text_of(row, "name") << (holder.empty() ? "" : ", held by " + holder)
                  << (place.empty() ? "" : " (" + place + ")") << "\n";
    }
}

void print_locks(const Json::Value& locks) {
    print_head("     wait ms     held ms  times  lock");
    for (const Json::Value& row : locks) {
        std::cerr << milliseconds(row, "wait_us") << milliseconds(row, "held_us") << std::setw(7)
                  << row["times"].asUInt64() << "  " << text_of(row, "lock") << "\n";
    }
}

/// The output of the request is on standard output.
void print_trace(const Json::Value& report) {
    const Json::Value& times = report["times"];
    print_categories(times);
    print_steps("     self ms  longest steps", times["longest"]);
    print_steps("     self ms  longest between the steps", times["uncovered"]["places"]);
    if (!report["locks"].empty()) {
        print_locks(report["locks"]);
    }
    if (report["dropped"].asUInt64() > 0) {
        std::cerr << report["dropped"].asUInt64()
                  << " more steps did not fit; their time is that of what is around them\n";
    }
}

/// As the request would have ended without a trace.
int end_as(const Json::Value& answer) {
    if (answer.isMember("code")) {
        return answer["code"].asInt();
    }
    constexpr rlimit kNone{0, 0};  // of a core, which would be that of this process
    (void)setrlimit(RLIMIT_CORE, &kNone);
    const int signal = answer["signal"].asInt();
    (void)std::signal(signal, SIG_DFL);
    (void)raise(signal);
    return 128 + signal;
}

/// What is worked. Its options are those of the line but for the trace's own.
int work(const Arguments& words, Options options, bool is_output_free) {
    options.json = false;
    if (!is_output_free && dup2(STDERR_FILENO, STDOUT_FILENO) < 0) {
        return failure(std::string("no output: ") + strerror(errno));
    }
    return run_words(words, options);
}

}  // namespace

bool is_traced(const std::string& name) {
    return is_rehearsed(name) || name == "Lease_event";
}

int trace(const Arguments& words, const Options& options) {
    if (!is_traced(words.front())) {
        return usage_error("not a request: " + words.front());
    }
    if (const std::optional<Cause> obstacle = find_obstacle()) {
        return explain_obstacle(*obstacle);
    }
    const TraceFile file(options.out);
    if (!file.is_usable()) {
        return failure("cannot write " + options.out + ": " + strerror(errno));
    }
    Json::Value report;
    if (trace_request([&] { return work(words, options, !options.json); }, report) != NM_OK) {
        return failure("no trace, and nothing was worked: " + report["reason"].asString());
    }
    report["otherData"]["command"] = words.front();
    Json::StreamWriterBuilder writer;
    writer["indentation"] = "";
    const std::string text = Json::writeString(writer, report) + "\n";
    if (options.json) {
        std::cout << text << std::flush;
    } else {
        print_trace(report);
    }
    if (const int error = file.write(text); error != 0) {
        (void)failure("cannot write " + options.out + ": " + strerror(error));  // the status is the request's
    }
    return end_as(report["answer"]);
}

}  // namespace nm_bin
