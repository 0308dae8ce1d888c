// The trace of a request as viewers and people get it: steps that lie in each other, times that add up,
// whatever becomes of the request, and no secret.
#include <signal.h>

#include <csignal>
#include <thread>

#include "conforms.h"
#include "inspect/step_record.h"
#include "inspect/trace.h"
#include "inspect/trace_report.h"
#include "utils/call_notes.h"
#include "utils/handles.h"
#include "utils/units.h"

using namespace fixture;

namespace {

using Events = std::vector<Json::Value>;

/// The events of one track in the order in which a viewer puts them: what begins earlier or lasts longer lies
/// around the others.
Events track(const Json::Value& report, int tid) {
    Events events;
    for (const Json::Value& event : report["traceEvents"]) {
        if (event["ph"] == "X" && event["tid"] == tid) {
            events.push_back(event);
        }
    }
    std::stable_sort(events.begin(), events.end(), [](const Json::Value& one, const Json::Value& other) {
        const auto key = [](const Json::Value& event) {
            return std::pair(event["ts"].asInt64(), -event["dur"].asInt64());
        };
        return key(one) < key(other);
    });
    return events;
}

int64_t end_of(const Json::Value& event) {
    return event["ts"].asInt64() + event["dur"].asInt64();
}

/// What is wrong with the times of a report, empty if nothing is.
std::string fault_of(const Json::Value& report) {
    std::set<int> tracks;
    for (const Json::Value& event : report["traceEvents"]) {
        tracks.insert(event["tid"].asInt());
    }
    for (const int tid : tracks) {
        Events around;
        for (const Json::Value& event : track(report, tid)) {
            while (!around.empty() && end_of(around.back()) <= event["ts"].asInt64()) {
                around.pop_back();
            }
            const bool lies_within = around.empty() || end_of(event) <= end_of(around.back());
            if (event["dur"].asInt64() < 0 || event["ts"].asInt64() < 0 || !lies_within) {
                return event.toStyledString();
            }
            around.push_back(event);
        }
    }
    const Json::Value& times = report["times"];
    int64_t sum = times["uncovered"]["self_us"].asInt64();
    for (const Json::Value& row : times["categories"]) {
        sum += row["self_us"].asInt64();
        if (row["self_us"].asInt64() < 0) {
            return row.toStyledString();
        }
    }
    return sum == times["total_us"].asInt64() ? "" : "the times make " + std::to_string(sum);
}

Json::Value event_of(const Json::Value& report, const std::string& name) {
    for (const Json::Value& event : report["traceEvents"]) {
        if (event["name"].asString().rfind(name, 0) == 0) {
            return event;
        }
    }
    return {};
}

Json::Value row_of(const Json::Value& rows, const char* key, const std::string& value) {
    for (const Json::Value& row : rows) {
        if (row[key] == value) {
            return row;
        }
    }
    return {};
}

int nested_request() {
    return nm::work_target("PORT1", [] {
        const nm::LockGuard outer("trace-outer");
        const nm::Step step("operation", "alter", "Something");
        {
            const nm::LockGuard inner("trace-inner", nm::LockGuard::Kind::Shared);
            const nm::LockGuard again("trace-inner", nm::LockGuard::Kind::Shared);
            (void)service_status("nm-none", "", nullptr);
        }
        Json::Value document;
        (void)json_file_to_mem("/run/trace-request.json", document);
        return system_cmd("sleep 0.02; echo geheim-7 geheim-8 'geheim-9' >/dev/null; exit 4");
    });
}

TEST(Trace, StepsLieInEachOtherAndTheirTimesAddUp) {
    put("/etc/networkmanagement/device_info.json", R"({"PASSWORD": "geheim-7"})");
    const File loaded("/run/trace-request.json", R"({"X": {"PASSWORD": "geheim-8"}})");
    Json::Value report;
    ASSERT_EQ(trace_request(nested_request, report), NM_OK);
    EXPECT_TRUE(conforms("trace.json", report)) << report;
    EXPECT_EQ(fault_of(report), "") << report;
    EXPECT_EQ(report["answer"]["code"], 4);
    EXPECT_EQ(report["dropped"].asInt(), 0);
    const Json::Value command = event_of(report, "run sleep");
    EXPECT_EQ(command["args"]["about"], "sleep 0.02; echo *** *** 'geheim-9' >/dev/null; exit 4");
    EXPECT_EQ(command["args"]["result"], "4");
    EXPECT_GE(command["dur"].asInt64(), 20000);
    EXPECT_EQ(row_of(report["times"]["longest"], "name", command["name"].asString())["where"],
              "PORT1 > alter Something");
    EXPECT_EQ(row_of(report["times"]["categories"], "category", "unit")["count"].asInt(), 1);
    EXPECT_EQ(row_of(report["times"]["categories"], "category", "process")["count"].asInt(), 1);
    EXPECT_EQ(row_of(report["locks"], "lock", "trace-inner")["times"], 2);
    EXPECT_GE(row_of(report["locks"], "lock", "trace-outer")["held_us"].asInt64(), 20000);
    const Json::Value hold = event_of(report, "trace-outer");
    EXPECT_NE(hold["tid"], command["tid"]);
    EXPECT_LE(end_of(command), end_of(hold));
}

TEST(Trace, GoesAsFarAsTheRequestCame) {
    const struct {
        const char* what;
        int (*request)();
        const char* answer;
        bool is_unfinished;
    } rows[] = {
        {"a failure", [] { return -1045; }, R"({"code":-1045})", false},
        {"an exit", []() -> int { _exit(3); }, R"({"code":3})", true},
        {"a kill", []() -> int { return raise(SIGKILL); }, R"({"signal":9})", true},
        {"an exception", []() -> int { throw std::runtime_error("broken"); }, R"({"signal":6})", false},
        {"a signal to the parent",
         []() -> int {
             (void)kill(getppid(), SIGTERM);
             std::this_thread::sleep_for(std::chrono::minutes(1));
             return 0;
         },
         R"({"signal":15})", true},
    };
    for (const auto& row : rows) {
        Json::Value report;
        const auto request = [&row] { return nm::work_target("PORT1", row.request); };
        (void)std::signal(SIGCHLD, SIG_IGN);  // as some supervisors start programs
        ASSERT_EQ(trace_request(request, report), NM_OK) << row.what;
        EXPECT_EQ(std::signal(SIGCHLD, SIG_DFL), SIG_IGN) << row.what;
        EXPECT_TRUE(conforms("trace.json", report)) << report;
        EXPECT_EQ(fault_of(report), "") << row.what;
        EXPECT_EQ(nm::write_compact_json(report["answer"]), row.answer + std::string("\n")) << row.what;
        EXPECT_EQ(event_of(report, "PORT1")["args"].isMember("unfinished"), row.is_unfinished) << row.what;
    }
    Json::Value report;
    EXPECT_EQ(trace_request(nullptr, report), NM_ERR_NULL_ARG);
}

TEST(Trace, AtTheCommandConformsAsWell) {
    Json::Value report;
    ASSERT_TRUE(nm::parse_json(exec("nm_bin trace --json Setup_wanif '{\"PORT9\":{\"act\":9}}' 2>/dev/null"),
                               report));
    EXPECT_TRUE(conforms("trace.json", report)) << report;
    EXPECT_EQ(fault_of(report), "") << report;
    EXPECT_EQ(report["answer"]["code"], 1);
    EXPECT_EQ(report["otherData"]["command"], "Setup_wanif");
}

TEST(StepRecord, WhatDoesNotFitIsCounted) {
    const struct {
        nm::RecordRoom room;
        uint64_t dropped;
    } rows[] = {{{6, 65536}, 3}, {{5, 65536}, 4}, {{1, 65536}, 8}, {{100, 80}, 4}, {{100, 12}, 8}};
    for (const auto& row : rows) {
        nm::StepRecord record(row.room);
        record.begin(nm::kRequestKind, "", "");
        for (int i = 0; i < 4; ++i) {
            record.begin("file", "read", "/etc/x");
            record.begin_hold(7 + i, "x");
            record.note("result", std::string(20000, 'x').c_str());
            record.end_hold(7 + i);
            record.end();
        }
        record.end();
        record.end();  // one too many
        const Json::Value report = nm::report_steps(record.steps(record.now()), 1, secret_words());
        EXPECT_EQ(fault_of(report), "") << row.room.steps << report;
        EXPECT_EQ(record.dropped(), row.dropped) << row.room.steps << " " << row.room.text;
    }
}

TEST(StepRecord, WhatIsCutShowsNoPartOfASecret) {
    const std::string secret(3000, 's');
    secret_words secrets;
    secrets.learn(Json::Value(Json::objectValue));
    Json::Value document;
    document["PASSWORD"] = secret;
    secrets.learn(document);
    for (const size_t before : {size_t{0}, size_t{100}, nm::kLongestText - 2000, nm::kLongestText - 1}) {
        nm::StepRecord record({10, 65536});
        record.begin(nm::kRequestKind, "", "");
        record.begin("process", "run",
                     (std::string(before, '-') + secret + " " + secret + " " + secret).c_str());
        const Json::Value report = nm::report_steps(record.steps(record.now()), 1, secrets);
        EXPECT_EQ(report.toStyledString().find("sss"), std::string::npos) << before;
    }
}

}  // namespace
