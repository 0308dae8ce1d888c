// The report of a trace: events for viewers, and where the time went.
#include "inspect/trace_report.h"

#include <errno.h>

#include <algorithm>
#include <array>
#include <cmath>
#include <map>
#include <string>
#include <string_view>

namespace {

using nm::RecordedStep;
using Steps = std::vector<RecordedStep>;

/// Kinds that only enclose others: what is left of their time is not that of a step.
constexpr std::array<std::string_view, 4> kFrames{nm::kRequestKind, "entry", "target", "operation"};

constexpr size_t kLongestName = 100;
constexpr size_t kLongestObject = 2000;
constexpr size_t kMostSteps = 10;
constexpr size_t kMostPlaces = 5;

/// What is cut when it is noted may end within a secret.
constexpr size_t kUnsure = nm::kLongestText / 2;

bool is_frame(const RecordedStep& step) {
    return std::find(kFrames.begin(), kFrames.end(), step.kind) != kFrames.end();
}

std::string cut(std::string text, size_t longest) {
    return text.size() > longest ? text.substr(0, longest) + "..." : text;
}

class StepReport {
public:
    StepReport(const Steps& steps, int pid, const secret_words& secrets);
    Json::Value report() const;

private:
    int64_t begin(size_t step) const { return steps_[step].begin - steps_[0].begin; }
    int64_t duration(size_t step) const { return steps_[step].end - steps_[step].begin; }
    bool is_hold(size_t step) const { return steps_[step].kind == nm::kHoldKind; }
    std::string category(size_t step) const;
    bool is_outermost(size_t step) const;
    std::string shown(const std::string& text, size_t longest) const;
    std::string name(size_t step) const;
    std::string place(size_t step) const;
    std::string note(size_t step, const std::string& key) const;
    Json::Value event(size_t step, int track) const;
    Json::Value events() const;
    Json::Value label(const char* what, int track, const std::string& text) const;
    Json::Value categories() const;
    Json::Value longest(bool of_frames, size_t most) const;
    Json::Value times() const;
    Json::Value locks() const;
    double share(int64_t time) const;

    const Steps& steps_;
    int pid_;
    const secret_words& secrets_;
    std::vector<int64_t> self_;  // without the steps within
};

StepReport::StepReport(const Steps& steps, int pid, const secret_words& secrets)
    : steps_(steps), pid_(pid), secrets_(secrets), self_(steps.size()) {
    for (size_t i = 0; i < steps_.size(); ++i) {
        self_[i] += duration(i);
        if (steps_[i].parent >= 0) {
            self_[static_cast<size_t>(steps_[i].parent)] -= duration(i);
        }
    }
}

/// The process that controls a unit is the unit's.
std::string StepReport::category(size_t step) const {
    const int parent = steps_[step].parent;
    const bool is_of_unit =
        parent >= 0 && steps_[step].kind == "process" && steps_[static_cast<size_t>(parent)].kind == "unit";
    return is_of_unit ? "unit" : steps_[step].kind;
}

bool StepReport::is_outermost(size_t step) const {
    for (int around = steps_[step].parent; around >= 0; around = steps_[static_cast<size_t>(around)].parent) {
        if (category(static_cast<size_t>(around)) == category(step)) {
            return false;
        }
    }
    return true;
}

std::string StepReport::shown(const std::string& text, size_t longest) const {
    std::string masked = secrets_.mask(text);
    if (text.size() >= nm::kLongestText) {
        masked = masked.substr(0, masked.size() > kUnsure ? masked.size() - kUnsure : 0) + "...";
    }
    return cut(masked, longest);
}

std::string StepReport::name(size_t step) const {
    const RecordedStep& noted = steps_[step];
    const std::string text = shown(noted.object, kLongestObject);
    const std::string object = text.substr(0, text.find('\n'));
    return cut(noted.name + (noted.name.empty() || object.empty() ? "" : " ") + object, kLongestName);
}

/// The targets and operations around it, from outside.
std::string StepReport::place(size_t step) const {
    std::string path;
    for (int around = steps_[step].parent; around >= 0; around = steps_[static_cast<size_t>(around)].parent) {
        const bool is_named = is_frame(steps_[static_cast<size_t>(around)]) && around > 0;
        path = !is_named ? path : name(static_cast<size_t>(around)) + (path.empty() ? "" : " > ") + path;
    }
    return path;
}

std::string StepReport::note(size_t step, const std::string& key) const {
    for (const auto& [name, value] : steps_[step].notes) {
        if (name == key) {
            return shown(value, kLongestObject);
        }
    }
    return "";
}

Json::Value StepReport::event(size_t step, int track) const {
    Json::Value event;
    event["ph"] = "X";
    event["cat"] = category(step);
    event["name"] = name(step);
    event["ts"] = Json::Int64(begin(step));
    event["dur"] = Json::Int64(duration(step));
    event["pid"] = pid_;
    event["tid"] = track;
    event["args"] = Json::objectValue;
    if (!steps_[step].object.empty()) {
        event["args"]["about"] = shown(steps_[step].object, kLongestObject);
    }
    for (const auto& [key, value] : steps_[step].notes) {
        event["args"][key] = note(step, key);
    }
    if (steps_[step].is_open) {
        event["args"]["unfinished"] = true;
    }
    return event;
}

Json::Value StepReport::label(const char* what, int track, const std::string& text) const {
    Json::Value event;
    event["ph"] = "M";
    event["name"] = what;
    event["ts"] = 0;
    event["pid"] = pid_;
    event["tid"] = track;
    event["args"]["name"] = text;
    return event;
}

/// A lock may be held from within one step to within another, and a shared one twice at once, so that each
/// time goes to a track of that lock's on which nothing lies then.
Json::Value StepReport::events() const {
    Json::Value all(Json::arrayValue);
    all.append(label("process_name", pid_, program_invocation_short_name));
    all.append(label("thread_name", pid_, "steps"));
    int next_track = pid_ + 1;
    std::map<std::string, std::vector<std::pair<int, int64_t>>>
        tracks;  // with the end of what lies there last
    for (size_t i = 0; i < steps_.size(); ++i) {
        if (!is_hold(i)) {
            all.append(event(i, pid_));
            continue;
        }
        auto& own = tracks[steps_[i].name];
        auto free = std::find_if(own.begin(), own.end(),
                                 [&](const auto& track) { return track.second <= steps_[i].begin; });
        if (free == own.end()) {
            free = own.insert(free, {next_track++, 0});
            all.append(label("thread_name", free->first, "lock " + name(i)));
        }
        free->second = steps_[i].end;
        all.append(event(i, free->first));
    }
    return all;
}

double StepReport::share(int64_t time) const {
    const int64_t total = duration(0);
    return total > 0 ? std::floor(static_cast<double>(time) / static_cast<double>(total) * 1000) / 1000 : 0;
}

/// By their own time, the longest first.
Json::Value StepReport::categories() const {
    struct Sum {
        Json::UInt64 count = 0;
        int64_t total = 0;
        int64_t self = 0;
    };
    std::map<std::string, Sum> sums;
    for (size_t i = 0; i < steps_.size(); ++i) {
        if (is_hold(i) || is_frame(steps_[i])) {
            continue;
        }
        Sum& sum = sums[category(i)];
        sum.self += self_[i];
        if (is_outermost(i)) {
            ++sum.count;
            sum.total += duration(i);
        }
    }
    std::vector<std::pair<std::string, Sum>> sorted(sums.begin(), sums.end());
    std::stable_sort(sorted.begin(), sorted.end(),
                     [](const auto& one, const auto& other) { return one.second.self > other.second.self; });
    Json::Value rows(Json::arrayValue);
    for (const auto& [category, sum] : sorted) {
        Json::Value row;
        row["category"] = category;
        row["count"] = sum.count;
        row["total_us"] = Json::Int64(sum.total);
        row["self_us"] = Json::Int64(sum.self);
        row["share"] = share(sum.self);
        rows.append(row);
    }
    return rows;
}

/// Of the steps, or of the frames around them, those that took most of their own time.
Json::Value StepReport::longest(bool of_frames, size_t most) const {
    std::vector<size_t> order;
    for (size_t i = 0; i < steps_.size(); ++i) {
        if (!is_hold(i) && is_frame(steps_[i]) == of_frames) {
            order.push_back(i);
        }
    }
    std::stable_sort(order.begin(), order.end(),
                     [this](size_t one, size_t other) { return self_[one] > self_[other]; });
    Json::Value rows(Json::arrayValue);
    for (size_t i = 0; i < std::min(most, order.size()); ++i) {
        const size_t step = order[i];
        Json::Value row;
        row["category"] = category(step);
        row["name"] = name(step);
        row["where"] = place(step);
        row["begin_us"] = Json::Int64(begin(step));
        row["self_us"] = Json::Int64(self_[step]);
        if (!note(step, "holder").empty()) {
            row["holder"] = note(step, "holder");
        }
        rows.append(row);
    }
    return rows;
}

Json::Value StepReport::times() const {
    Json::Value times;
    int64_t uncovered = 0;
    for (size_t i = 0; i < steps_.size(); ++i) {
        uncovered += !is_hold(i) && is_frame(steps_[i]) ? self_[i] : 0;
    }
    times["total_us"] = Json::Int64(duration(0));
    times["categories"] = categories();
    times["longest"] = longest(false, kMostSteps);
    times["uncovered"]["self_us"] = Json::Int64(uncovered);
    times["uncovered"]["share"] = share(uncovered);
    times["uncovered"]["places"] = longest(true, kMostPlaces);
    return times;
}

/// How long each lock was waited for and held.
Json::Value StepReport::locks() const {
    std::map<std::string, Json::Value> rows;
    for (size_t i = 0; i < steps_.size(); ++i) {
        const bool is_taken = steps_[i].kind == "lock";
        if (!is_taken && !is_hold(i)) {
            continue;
        }
        Json::Value& row = rows[shown(is_taken ? steps_[i].object : steps_[i].name, kLongestName)];
        row["times"] = row["times"].asInt64() + (is_taken ? 1 : 0);
        row["wait_us"] = row["wait_us"].asInt64() + (is_taken ? duration(i) : 0);
        row["held_us"] = row["held_us"].asInt64() + (is_taken ? 0 : duration(i));
        if (is_taken && !note(i, "holder").empty()) {
            row["holder"] = note(i, "holder");
        }
    }
    Json::Value list(Json::arrayValue);
    for (auto& [lock, row] : rows) {
        row["lock"] = lock;
        list.append(row);
    }
    return list;
}

Json::Value StepReport::report() const {
    Json::Value report;
    report["traceEvents"] = events();
    report["displayTimeUnit"] = "ms";
    report["times"] = times();
    report["locks"] = locks();
    return report;
}

}  // namespace

namespace nm {

Json::Value report_steps(const std::vector<RecordedStep>& steps, int pid, const secret_words& secrets) {
    return StepReport(steps, pid, secrets).report();
}

}  // namespace nm
