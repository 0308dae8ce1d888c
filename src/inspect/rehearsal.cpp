// The rehearsal of a request.
#include "inspect/rehearsal.h"

#include <sys/mman.h>
#include <unistd.h>

#include <chrono>
#include <exception>
#include <filesystem>
#include <iterator>
#include <stdexcept>
#include <thread>

#include "inspect/rehearsal_calls.h"
#include "inspect/rehearsal_place.h"
#include "inspect/world.h"
#include "inspect/world_copy.h"
#include "inspect/world_files.h"
#include "log.h"
#include "result_codes.h"
#include "utils/call_watch.h"
#include "utils/file_io.h"
#include "utils/handles.h"
#include "utils/json_text.h"
#include "utils/secrets.h"

namespace {

using nm::Domain;
using nm::World;

/// Where documents lie, and the copies of those in force.
constexpr const char* kDocumentDirectories[] = {"/etc/networkmanagement", "/run/network"};

/// What is taken of the device before the copy is made.
struct Original {
    nm::WorldSource source;
    nm::RouteDumps dumps;
    nm::Things units;
    nm::DeviceFacts facts;
    nm::SharedSettings settings;
};

/// The answer as it comes together; the watcher of calls has no argument of its own.
Json::Value* answer_in_work = nullptr;

void note_error(const char* text) {
    (*answer_in_work)["errors"].append(text);
}

void note_target(const char* target, int code) {
    Json::Value row;
    row["target"] = target;
    row["code"] = code;
    (*answer_in_work)["targets"].append(row);
}

Json::Value answer_to(const std::function<int()>& request) {
    static constexpr nm_call_watch kWatch{nullptr, nullptr, note_error, nullptr, note_target};
    Json::Value answer;
    answer["targets"] = Json::arrayValue;
    answer["errors"] = Json::arrayValue;
    answer_in_work = &answer;
    nm_watch_calls(&kWatch);
    answer["code"] = request();
    nm_watch_calls(nullptr);
    return answer;
}

World look() {
    World world = nm::describe_world(nm::read_world_source());
    world[Domain::File] = nm::read_files();
    world[Domain::Unit] = nm::recorded_units();
    return world;
}

/// The kernel finishes some of a change in the background, as it does on the device: carriers and addresses
/// of their own that follow.
World look_when_settled() {
    constexpr int kMostLooks = 5;
    constexpr auto kPause = std::chrono::milliseconds(50);
    World world = look();
    for (int i = 0; i < kMostLooks; ++i) {
        std::this_thread::sleep_for(kPause);
        World later = look();
        if (later == world) {
            break;
        }
        world = std::move(later);
    }
    return world;
}

/// Some settings exist in the device's first network only, and no namespace has them. The shared ones count
/// nevertheless: their copies are missing.
void forget_first_network(const Original& original, const nm::Things& copy, nm::Things& settings) {
    for (auto setting = settings.begin(); setting != settings.end();) {
        const bool is_shared = original.settings.count("/proc/sys/net/" + setting->first) > 0;
        const bool is_missing = !is_shared && copy.count(setting->first) == 0;
        setting = is_missing ? settings.erase(setting) : std::next(setting);
    }
}

/// Files are copied as they are, and units are recorded.
Json::Value unlike(const Original& original, World copy) {
    copy.erase(Domain::File);
    copy.erase(Domain::Unit);
    World device = nm::describe_world(original.source);
    forget_first_network(original, copy[Domain::Setting], device[Domain::Setting]);
    Json::Value changes(Json::arrayValue);
    nm::append_differences(device, copy, changes);
    return changes;
}

/// What would go on in a way that the copy cannot show.
void note_unlike(const char* what, Json::Value& changes) {
    Json::Value change;
    change["domain"] = nm::domain_name(Domain::Unit);
    change["name"] = what;
    change["change"] = "changed";
    change["removed"] = Json::arrayValue;
    change["added"] = Json::arrayValue;
    changes.append(change);
}

bool is_document(const std::filesystem::directory_entry& entry) {
    const std::string suffix = entry.path().extension();
    std::error_code error;
    return entry.is_regular_file(error) && (suffix == ".json" || suffix == ".curr");
}

void learn_documents(secret_words& secrets) {
    for (const char* const directory : kDocumentDirectories) {
        std::error_code error;
        for (std::filesystem::directory_iterator entry(directory, error), end; !error && entry != end;
             entry.increment(error)) {
            Json::Value document;
            if (is_document(*entry) && nm::parse_json(nm::read_file(entry->path()).value_or(""), document)) {
                secrets.learn(document);
            }
        }
    }
}

void mask_options(Json::Value& changes) {
    for (Json::Value& change : changes) {
        for (const char* const lines : {"removed", "added"}) {
            for (Json::Value& line : change[lines]) {
                line = change["domain"] == "file" ? mask_option(line.asString()) : line.asString();
            }
        }
    }
}

/// What the request and its commands have printed. They share the descriptor's place in it, which stays.
std::string printed_text(int output) {
    std::string text;
    char part[4096];
    for (ssize_t length = 0; (length = pread(output, part, sizeof(part), off_t(text.size()))) > 0;) {
        text.append(part, size_t(length));
    }
    return text;
}

class Rehearsal {
public:
    Rehearsal(const Original& original, int output) : original_(original), output_(output) {}
    Json::Value run(const std::function<int()>& request);

private:
    const Original& original_;
    int output_;
};

Json::Value Rehearsal::run(const std::function<int()>& request) {
    nm::enter_place(original_.settings);
    nm::copy_network(original_.source, original_.dumps, nm::kFarNamespace, nm::kRehearsalDirectory);
    nm::record_calls(original_.facts, original_.units);
    secret_words secrets;
    learn_documents(secrets);
    const World before = look_when_settled();
    Json::Value report;
    report["unlike"] = unlike(original_, before);
    report["answer"] = answer_to(request);
    if (!nm::await_background()) {
        note_unlike("processes that go on in the background", report["unlike"]);
    }
    report["answer"]["output"] = printed_text(output_);
    report["changes"] = Json::arrayValue;
    nm::append_differences(before, look_when_settled(), report["changes"]);
    bool is_whole = true;
    report["calls"] = nm::recorded_calls(is_whole);
    if (!is_whole) {
        note_unlike("calls made at the same time, whose records are mixed", report["unlike"]);
    }
    learn_documents(secrets);
    mask_options(report["changes"]);
    return secrets.mask_all(report);
}

void work(const std::function<int()>& request, const Original& original, const nm::Outlets& outlets) {
    Json::Value report;
    try {
        report = Rehearsal(original, outlets.output).run(request);
    } catch (const std::exception& failure) {
        report = Json::objectValue;
        report["reason"] = failure.what();
    } catch (int code) {
        report = Json::objectValue;
        report["reason"] = "the request was left with the code " + std::to_string(code);
    }
    (void)nm::write_all(outlets.report, nm::write_compact_json(report));  // one that is cut is refused
}

int read_report(const nm::FileDescriptor& file, Json::Value& report) {
    (void)lseek(file.get(), 0, SEEK_SET);
    const std::string text = nm::read_to_end(file.get()).value_or("");
    Json::Value read;
    if (!nm::parse_json(text, read) || !read.isObject()) {
        read = Json::objectValue;
        read["reason"] = "the rehearsal was ended before its report was whole";
    }
    report = read;
    return report.isMember("reason") ? NM_ERR_SERVICE : NM_OK;
}

int rehearse_by_child(const std::function<int()>& request, Json::Value& report) {
    const nm::FileDescriptor report_file(memfd_create("report", MFD_CLOEXEC));
    const nm::FileDescriptor output(memfd_create("output", MFD_CLOEXEC));
    if (!report_file || !output) {
        return NM_ERR_NOMEM;
    }
    const nm::Outlets outlets{report_file.get(), output.get()};
    const Original original{nm::read_world_source(), nm::read_route_dumps(), nm::read_units(),
                            nm::ask_device_facts(), nm::read_shared_settings()};
    if (!nm::run_apart(outlets, [&] { work(request, original, outlets); })) {
        NM_LOG(Error) << "The rehearsal did not end by itself.";
    }
    return read_report(report_file, report);
}

/// Commands that look at the device throw if they cannot be started.
int rehearse_or_say_why(const std::function<int()>& request, Json::Value& report) {
    try {
        return rehearse_by_child(request, report);
    } catch (const std::exception& failure) {
        NM_LOG(Error) << "The rehearsal has failed: " << failure.what();
        report = Json::objectValue;
        report["reason"] = failure.what();
    }
    return NM_ERR_SERVICE;
}

}  // namespace

int rehearse(const std::function<int()>& request, Json::Value& report) {
    NM_LOG(Debug) << "Enter";
    if (!request) {
        NM_LOG(Error) << "request is Null pointer.";
        return NM_EXIT(NM_ERR_NULL_ARG);
    }
    report = Json::objectValue;
    const int ret = rehearse_or_say_why(request, report);
    if (ret != NM_OK && !report.isMember("reason")) {
        report["reason"] = "no memory for a rehearsal";
    }
    return NM_EXIT(ret);
}
