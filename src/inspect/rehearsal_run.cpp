// The frame of every rehearsal.
#include "inspect/rehearsal_run.h"

#include <sys/mman.h>
#include <unistd.h>

#include <chrono>
#include <exception>
#include <filesystem>
#include <iterator>
#include <thread>

#include "inspect/world_files.h"
#include "log.h"
#include "result_codes.h"
#include "utils/call_watch.h"
#include "utils/file_io.h"
#include "utils/handles.h"
#include "utils/json_text.h"

namespace nm {

namespace {

/// Where documents lie, and the copies of those in force.
constexpr const char* kDocumentDirectories[] = {"/etc/networkmanagement", "/run/network"};

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

/// Some settings exist in the device's first network only, and no namespace has them. The shared ones count
/// nevertheless: their copies are missing.
void forget_first_network(const Original& original, const Things& copy, Things& settings) {
    for (auto setting = settings.begin(); setting != settings.end();) {
        const bool is_shared = original.settings.count("/proc/sys/net/" + setting->first) > 0;
        const bool is_missing = !is_shared && copy.count(setting->first) == 0;
        setting = is_missing ? settings.erase(setting) : std::next(setting);
    }
}

World look() {
    World world = describe_world(read_world_source());
    world[Domain::File] = read_files();
    world[Domain::Unit] = recorded_units();
    return world;
}

bool is_document(const std::filesystem::directory_entry& entry) {
    const std::string suffix = entry.path().extension();
    std::error_code error;
    return entry.is_regular_file(error) && (suffix == ".json" || suffix == ".curr");
}

Original read_original() {
    return {read_world_source(), read_route_dumps(), read_units(), ask_device_facts(),
            read_shared_settings()};
}

void work(const Play& play, const Original& original, const Outlets& outlets) {
    Json::Value report;
    try {
        report = play(original, outlets.output);
    } catch (const std::exception& failure) {
        report = Json::objectValue;
        report["reason"] = failure.what();
    } catch (int code) {
        report = Json::objectValue;
        report["reason"] = "the request was left with the code " + std::to_string(code);
    }
    (void)write_all(outlets.report, write_compact_json(report));  // one that is cut is refused
}

int read_report(const FileDescriptor& file, Json::Value& report) {
    (void)lseek(file.get(), 0, SEEK_SET);
    const std::string text = read_to_end(file.get()).value_or("");
    Json::Value read;
    if (!parse_json(text, read) || !read.isObject()) {
        read = Json::objectValue;
        read["reason"] = "the rehearsal was ended before its report was whole";
    }
    report = read;
    return report.isMember("reason") ? NM_ERR_SERVICE : NM_OK;
}

int play_in_child(const Play& play, Json::Value& report) {
    const FileDescriptor report_file(memfd_create("report", MFD_CLOEXEC));
    const FileDescriptor output(memfd_create("output", MFD_CLOEXEC));
    if (!report_file || !output) {
        report = Json::objectValue;
        report["reason"] = "no memory for a rehearsal";
        return NM_ERR_NOMEM;
    }
    const Outlets outlets{report_file.get(), output.get()};
    const Original original = read_original();
    if (!run_apart(outlets, [&] { work(play, original, outlets); })) {
        NM_LOG(Error) << "The rehearsal did not end by itself.";
    }
    return read_report(report_file, report);
}

}  // namespace

/// Commands that look at the device throw if they cannot be started.
int play_apart(const Play& play, Json::Value& report) {
    try {
        return play_in_child(play, report);
    } catch (const std::exception& failure) {
        NM_LOG(Error) << "The rehearsal has failed: " << failure.what();
        report = Json::objectValue;
        report["reason"] = failure.what();
    }
    return NM_ERR_SERVICE;
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

/// Files are copied as they are, and units are recorded.
Json::Value unlike_device(const Original& original, World copy) {
    copy.erase(Domain::File);
    copy.erase(Domain::Unit);
    World device = describe_world(original.source);
    forget_first_network(original, copy[Domain::Setting], device[Domain::Setting]);
    Json::Value changes(Json::arrayValue);
    append_differences(device, copy, changes);
    return changes;
}

std::string printed_text(int output) {
    std::string text;
    char part[4096];
    for (ssize_t length = 0; (length = pread(output, part, sizeof(part), off_t(text.size()))) > 0;) {
        text.append(part, size_t(length));
    }
    return text;
}

void learn_documents(secret_words& secrets) {
    for (const char* const directory : kDocumentDirectories) {
        std::error_code error;
        for (std::filesystem::directory_iterator entry(directory, error), end; !error && entry != end;
             entry.increment(error)) {
            Json::Value document;
            if (is_document(*entry) && parse_json(read_file(entry->path()).value_or(""), document)) {
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

}  // namespace nm
