// The look for drift.
#include "inspect/drift.h"

#include <unistd.h>

#include <algorithm>
#include <exception>
#include <map>

#include "config/nmconfig.h"
#include "inspect/drift_boot.h"
#include "inspect/drift_view.h"
#include "inspect/rehearsal_run.h"
#include "inspect/world_files.h"
#include "log.h"
#include "result_codes.h"
#include "utils/file_io.h"
#include "utils/json_text.h"

namespace nm {

namespace {

/// More than anybody reads.
constexpr Json::ArrayIndex kMostFindings = 10000;

/// It is there from the end of the boot on.
constexpr const char* kBootMarker = "/var/run/network/.boot_fin";

/// The running system at one moment.
struct Running {
    World world;
    Indexes indexes;
    std::string unlisted;  // why its units are not known
};

Indexes indexes_of(const Json::Value& object) {
    Indexes indexes;
    for (auto entry = object.begin(); entry != object.end(); ++entry) {
        indexes[entry.name()] = entry->asUInt();
    }
    return indexes;
}

/// As it would come back from the copy: JSON holds only text.
World as_text(const World& world) {
    Json::Value state;
    (void)parse_json(write_compact_json(world_to_json(world)), state);  // its own output
    return world_from_json(state);
}

Running look_at_device() {
    const WorldSource source = read_world_source();
    World world = describe_world(source);
    world[Domain::File] = read_files();
    std::string unlisted;
    world[Domain::Unit] = read_units(&unlisted);
    Running running{as_text(world), {}, unlisted};
    for (const Json::Value& device : source.devices) {
        running.indexes[json_string_or(device, "ifname", "")] = device["ifindex"].asUInt();
    }
    return running;
}

void add_devices(const Json::Value& section, std::set<std::string>& devices) {
    for (const Json::Value& entry : section) {
        const std::string name = json_string_or(entry, "INTERFACE", "");
        if (!name.empty()) {
            devices.insert(name);
        }
    }
}

/// The devices that the documents name as ports or bridges.
std::set<std::string> named_devices() {
    std::set<std::string> devices;
    Json::Value document;
    if (parse_json(read_file(kDeviceInfoPath).value_or(""), document)) {
        for (const char* const section :
             {"WAN_PORT", "PRIVATE_PORT", "RGLINK_PORT", "LAN_PORT", "VLAN_SEG"}) {
            add_devices(json_member(document, section), devices);
        }
    }
    return devices;
}

void add_unread(const std::string& what, const std::string& reason, Json::Value& unread) {
    Json::Value row;
    row["what"] = what;
    row["reason"] = reason;
    unread.append(row);
}

std::string title_of(const Json::Value& change) {
    return change["domain"].asString() + " " + change["name"].asString();
}

using ChangesByTitle = std::map<std::string, Json::Value>;

ChangesByTitle by_title(const Json::Value& changes) {
    ChangesByTitle titled;
    for (const Json::Value& change : changes) {
        titled[title_of(change)] = change;
    }
    return titled;
}

/// The differences between what the copy has come to and what runs.
Json::Value compare(const Json::Value& described, Running running) {
    World world = world_from_json(described["expected"]);
    level_worlds(world, indexes_of(described["indexes"]), running.world, running.indexes);
    Json::Value changes(Json::arrayValue);
    if (!running.unlisted.empty()) {
        world.erase(Domain::Unit);
        running.world.erase(Domain::Unit);
    }
    append_differences(world, running.world, changes);
    return changes;
}

/// How many are left out.
Json::UInt cut(Json::Value& rows) {
    const Json::ArrayIndex omitted = rows.size() - std::min(rows.size(), kMostFindings);
    rows.resize(rows.size() - omitted);
    return omitted;
}

/// What is known of the device only in part. Before the end of the boot set-ups are still to come.
void note_partial(const Running& before, const Running& after, Json::Value& unread) {
    if (access(kBootMarker, F_OK) != 0) {
        add_unread("the boot", "it is not over", unread);
    }
    const std::string& unlisted = before.unlisted.empty() ? after.unlisted : before.unlisted;
    if (!unlisted.empty()) {
        add_unread("units", unlisted, unread);
    }
}

Json::Value judge(const Json::Value& described, const Running& before, const Running& after) {
    Json::Value report;
    report["unread"] = described["failures"];
    note_partial(before, after, report["unread"]);
    Json::Value changes =
        lasting_changes(compare(described, before), compare(described, after), report["unread"]);
    mask_options(changes);
    std::string reason;
    const OwnersView owners(all_claims(reason));
    if (!reason.empty()) {
        add_unread("what the base rules own", reason, report["unread"]);
    }
    DriftView view(owners, named_devices());
    for (const Json::Value& change : changes) {
        view.judge(change);
    }
    report["findings"] = view.findings();
    report["outside"] = view.outside();
    report["omitted"] = cut(report["findings"]) + cut(report["outside"]);
    secret_words secrets;
    learn_documents(secrets);
    return secrets.mask_all(report);
}

Json::Value nothing_but(const std::string& reason) {
    Json::Value report;
    report["findings"] = Json::arrayValue;
    report["outside"] = Json::arrayValue;
    report["unread"] = Json::arrayValue;
    report["omitted"] = 0;
    add_unread("the device", reason, report["unread"]);
    return report;
}

/// Commands that look at the device throw if they fail.
Json::Value look_for_drift(const boot_steps& boot) {
    try {
        const Running before = look_at_device();
        Json::Value described;
        const Play play = [&boot](const Original& original, int /*output*/) {
            return boot_in_copy(boot, original);
        };
        const int ret = play_apart(play, described);
        return ret == NM_OK ? judge(described, before, look_at_device())
                            : nothing_but(described["reason"].asString());
    } catch (const std::exception& failure) {
        NM_LOG(Error) << "The look for drift has failed: " << failure.what();
        return nothing_but(failure.what());
    }
}

}  // namespace

Json::Value lasting_changes(const Json::Value& changes, const Json::Value& later, Json::Value& unread) {
    const ChangesByTitle now = by_title(later);
    ChangesByTitle moving = now;
    Json::Value kept(Json::arrayValue);
    for (const Json::Value& change : changes) {
        const auto found = now.find(title_of(change));
        if (found != now.end() && found->second == change) {
            kept.append(change);
            moving.erase(title_of(change));
        } else {
            moving[title_of(change)] = change;
        }
    }
    for (const auto& [title, change] : moving) {
        add_unread(title, "it has changed while it was looked at", unread);
    }
    return kept;
}

}  // namespace nm

int report_drift(const boot_steps& boot, Json::Value& report) {
    NM_LOG(Debug) << "Enter";
    if (!boot.begin || !boot.finish) {
        NM_LOG(Error) << "A step of the boot is missing.";
        return NM_EXIT(NM_ERR_NULL_ARG);
    }
    report = nm::look_for_drift(boot);
    if (!report["unread"].empty()) {
        return NM_EXIT(NM_ERR_NOT_FOUND);
    }
    return NM_EXIT(report["findings"].empty() ? NM_OK : NM_ERR_BAD_VALUE);
}
