// Recorders in the place of commands, services and peers.
//
// A record is the number of its words and the words, each ended by a NUL: what a word holds cannot end it.
#include "inspect/rehearsal_calls.h"

#include <fcntl.h>
#include <sys/stat.h>
#include <unistd.h>

#include <algorithm>
#include <array>
#include <filesystem>
#include <sstream>
#include <stdexcept>

#include "config/document_file.h"
#include "inspect/rehearsal_place.h"
#include "inspect/world_files.h"
#include "peers/bus/bus_exchange.h"
#include "result_codes.h"
#include "utils/call_stand_in.h"
#include "utils/file_io.h"
#include "utils/handles.h"
#include "utils/json_text.h"

#define NM_REHEARSAL "/run/rehearsal"  // kRehearsalDirectory, within texts

namespace nm {

namespace {

constexpr const char* kRecords = NM_REHEARSAL "/calls";
constexpr const char* kUnits = NM_REHEARSAL "/units/";
constexpr const char* kSocket = "socket";  // the kind of a call to a peer daemon
constexpr size_t kCallWords = 4;           // kind, peer, method and request
constexpr int kFactSeconds = 5;

/// Records its own words, and succeeds.
constexpr const char* kRecorder =
    "#!/bin/sh\nprintf '%s\\0' $(($# + 1)) \"$0\" \"$@\" >>" NM_REHEARSAL "/calls\n";

/// The same for systemctl, which answers questions as if each unit had done what it was asked for.
constexpr const char* kUnitRecorder = R"(#!/bin/sh
verb="" status=0
for word; do
    case $word in
        -*) continue ;;
        */*) exit 1 ;;
        *.*) unit=)" NM_REHEARSAL R"(/units/$word ;;
        *) unit=)" NM_REHEARSAL R"(/units/$word.service ;;
    esac
    case $verb in
        "") verb=$word ;;
        start | restart | reload) : >"$unit" ;;
        stop) rm -f "$unit" ;;
        status | is-active) [ -e "$unit" ] || status=3 ;;
    esac
done
case $verb in
    status | is-active | is-enabled | show | list-units | "") ;;
    *) printf '%s\0' $(($# + 1)) "$0" "$@" >>)" NM_REHEARSAL R"(/calls ;;
esac
exit $status
)";

struct Recorder {
    const char* command;
    const char* program;
};

/// What acts beyond the files and the network of the copy. The others that set-ups run have nothing else to
/// act on there.
constexpr std::array kRecorders{
    Recorder{"/usr/bin/systemctl", "unit-recorder"},
    Recorder{"/usr/sbin/modprobe", "recorder"},
    Recorder{"/usr/sbin/nm_bin", "recorder"},
    Recorder{"/usr/sbin/vsyslog-cli", "recorder"},
    Recorder{"/usr/sbin/network-dpi.sh", "recorder"},
    Recorder{"/usr/sbin/run-dpi.sh", "recorder"},
    Recorder{"/usr/sbin/log_compress.sh", "recorder"},
    Recorder{"/etc/init.d/mastin200.sh", "recorder"},
    Recorder{"/sbin/hal_app", "recorder"},
};

struct Fact {
    const char* service;
    const char* method;
};

/// Questions that change nothing.
constexpr std::array kFacts{Fact{"ncaas", "get_model"}, Fact{"ncaas", "get_devid"},
                            Fact{"ncaas", "get_local_mgmt"}};

void add_record(const Lines& words) {
    std::string record = std::to_string(words.size()) + '\0';
    for (const std::string& word : words) {
        record += word.c_str() + std::string(1, '\0');
    }
    const auto file = FileDescriptor::open(kRecords, O_WRONLY | O_APPEND | O_CREAT, 0600);
    if (!file || !write_all(file.get(), record)) {
        throw std::runtime_error("a call could not be recorded");
    }
}

std::string envelope(int error, const Json::Value& value) {
    Json::Value reply;
    reply["error"] = error;
    reply["data"] = value;
    return write_compact_json(reply);
}

/// The service of documents writes into the copy, and reads there.
std::string answer_about_document(const OutsideCall& call) {
    Json::Value request;
    Json::Value document;
    (void)parse_json(call.request, request);  // without a path nothing is found
    const std::string path = json_string_or(request, "path", "");
    if (call.method == "write_json") {
        return envelope(replace_document(path, request["data"]) == NM_OK ? 0 : -1, "");
    }
    const bool is_read = parse_json(read_file(path).value_or(""), document);
    return envelope(is_read ? 0 : -1, document);
}

/// Services answer in an envelope, and in that with an error and a result; peers with `ret` or `retcode`.
std::string success() {
    Json::Value data;
    data["error"] = 0;
    data["result"] = "";
    Json::Value reply;
    reply["error"] = 0;
    reply["ret"] = 0;
    reply["retcode"] = 0;
    reply["data"] = data;
    return write_compact_json(reply);
}

class StandIn {
public:
    explicit StandIn(DeviceFacts facts) : facts_(std::move(facts)) {}

    bool operator()(const OutsideCall& call, std::string& answer) const {
        if (is_fact(call)) {
            const auto fact = facts_.find(call.peer + "." + call.method);
            answer = fact != facts_.end() ? fact->second : "";
            return fact != facts_.end();
        }
        add_record({call.kind, call.peer, call.method, call.request});
        const bool is_document = call.method == "read_json" || call.method == "write_json";
        answer = is_document ? answer_about_document(call) : success();
        return true;
    }

private:
    static bool is_fact(const OutsideCall& call) {
        return std::any_of(kFacts.begin(), kFacts.end(), [&call](const Fact& fact) {
            return call.peer == fact.service && call.method == fact.method;
        });
    }

    DeviceFacts facts_;
};

void write_program(const std::string& name, const std::string& text) {
    const auto file = FileDescriptor::open((NM_REHEARSAL "/" + name).c_str(), O_WRONLY | O_CREAT, 0755);
    if (!file || !write_all(file.get(), text) || fchmod(file.get(), 0755) != 0) {
        throw std::runtime_error("cannot write the recorder " + name);
    }
}

/// Recorders that run at the same time may write into each other's records.
bool read_words(std::istream& records, const std::string& count, Lines& words) {
    constexpr size_t kMostDigits = 5;
    if (count.empty() || count.size() > kMostDigits ||
        count.find_first_not_of("0123456789") != std::string::npos) {
        return false;
    }
    words.resize(std::stoul(count));
    for (std::string& word : words) {
        if (!std::getline(records, word, '\0')) {
            return false;
        }
    }
    return !words.empty() && (words.front()[0] == '/' || words.size() == kCallWords);
}

Json::Value request_of(const std::string& text) {
    Json::Value value;
    return parse_json(text, value) && (value.isObject() || value.isArray()) ? value : Json::Value(text);
}

Json::Value call_of(const Lines& words) {
    Json::Value call;
    if (words.front()[0] == '/') {
        for (const std::string& word : words) {
            call["command"].append(word);
        }
        return call;
    }
    const bool is_daemon = words.front() == kSocket;
    call["request"] = request_of(words.at(3));
    call["peer"] = is_daemon ? std::filesystem::path(words.at(1)).stem().string() : words.at(1);
    call["method"] = is_daemon ? json_string_or(call["request"], "command", "") : words.at(2);
    return call;
}

}  // namespace

DeviceFacts ask_device_facts() {
    DeviceFacts facts;
    for (const Fact& fact : kFacts) {
        std::string reply;
        if (exchange(fact.service, fact.method, "", kFactSeconds, reply) == NM_OK) {
            facts[std::string(fact.service) + "." + fact.method] = reply;
        }
    }
    return facts;
}

void record_calls(const DeviceFacts& facts, const Things& units) {
    if (mkdir(kUnits, 0700) != 0) {
        throw std::runtime_error("the rehearsal has no directory");
    }
    for (const auto& [unit, state] : units) {
        (void)FileDescriptor::open((kUnits + unit).c_str(), O_WRONLY | O_CREAT, 0600);
    }
    write_program("recorder", kRecorder);
    write_program("unit-recorder", kUnitRecorder);
    for (const Recorder& recorder : kRecorders) {
        if (access(recorder.command, F_OK) == 0) {
            bind_mount(std::string(kRehearsalDirectory) + "/" + recorder.program, recorder.command, false);
        }
    }
    stand_in_for_calls(StandIn(facts));
}

Json::Value recorded_calls(bool& is_whole) {
    Json::Value calls(Json::arrayValue);
    std::istringstream records(read_file(kRecords).value_or(""));
    is_whole = true;
    for (std::string count; std::getline(records, count, '\0');) {
        Lines words;
        const bool is_read = read_words(records, count, words);
        is_whole = is_whole && is_read;
        if (is_read) {
            calls.append(call_of(words));
        }
    }
    return calls;
}

Things recorded_units() {
    Things units;
    std::error_code error;
    for (std::filesystem::directory_iterator entry(kUnits, error), end; !error && entry != end;
         entry.increment(error)) {
        units[entry->path().filename()] = {"active"};
    }
    return units;
}

}  // namespace nm
