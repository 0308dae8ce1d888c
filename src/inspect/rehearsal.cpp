// The rehearsal of a request.
#include "inspect/rehearsal.h"

#include "inspect/rehearsal_run.h"
#include "inspect/world_copy.h"
#include "log.h"
#include "result_codes.h"

namespace {

using nm::Original;
using nm::World;

/// What would go on in a way that the copy cannot show.
void note_unlike(const char* what, Json::Value& changes) {
    Json::Value change;
    change["domain"] = nm::domain_name(nm::Domain::Unit);
    change["name"] = what;
    change["change"] = "changed";
    change["removed"] = Json::arrayValue;
    change["added"] = Json::arrayValue;
    changes.append(change);
}

/// The play of a request.
Json::Value work_in_copy(const std::function<int()>& request, const Original& original, int output) {
    nm::enter_place(original.settings);
    nm::copy_network(original.source, original.dumps, nm::kFarNamespace, nm::kRehearsalDirectory);
    nm::record_calls(original.facts, original.units);
    secret_words secrets;
    nm::learn_documents(secrets);
    const World before = nm::look_when_settled();
    Json::Value report;
    report["unlike"] = nm::unlike_device(original, before);
    report["answer"] = nm::answer_to(request);
    if (!nm::await_background()) {
        note_unlike("processes that go on in the background", report["unlike"]);
    }
    report["answer"]["output"] = nm::printed_text(output);
    report["changes"] = Json::arrayValue;
    nm::append_differences(before, nm::look_when_settled(), report["changes"]);
    bool is_whole = true;
    report["calls"] = nm::recorded_calls(is_whole);
    if (!is_whole) {
        note_unlike("calls made at the same time, whose records are mixed", report["unlike"]);
    }
    nm::learn_documents(secrets);
    nm::mask_options(report["changes"]);
    return secrets.mask_all(report);
}

}  // namespace

int rehearse(const std::function<int()>& request, Json::Value& report) {
    NM_LOG(Debug) << "Enter";
    if (!request) {
        NM_LOG(Error) << "request is Null pointer.";
        return NM_EXIT(NM_ERR_NULL_ARG);
    }
    return NM_EXIT(nm::play_apart(
        [&request](const Original& original, int output) { return work_in_copy(request, original, output); },
        report));
}
