// Events of the DHCPv6 and SLAAC client, from the environment of its hook to the device and the LANs behind
// it.
#include "control/lease6_event.h"

#include <algorithm>
#include <array>
#include <chrono>
#include <cstdlib>
#include <memory>
#include <string>
#include <thread>
#include <vector>

#include "config/port_names.h"
#include "control/event_document.h"
#include "control/lan_ipv6.h"
#include "control/setup_frame.h"
#include "interfaces/uplink/WanIfaceInfo.h"
#include "log.h"
#include "result_codes.h"
#include "services/dhcpcd/client_report.h"
#include "services/leases/ipv6_record.h"
#include "utils/handles.h"
#include "utils/json_text.h"

namespace {

constexpr int kTries = 20;
constexpr int kRounds = 3;
constexpr std::chrono::milliseconds kRest{500};
constexpr int kHasWork = 1;

std::string told(const std::string& name) {
    const char* const value = getenv(name.c_str());
    return value != nullptr ? value : "";
}

/// A LAN that was skipped has the address before as its way out still.
bool has_new_address(const Json::Value& record) {
    return !nm::is_in_force(record, nm::kAddressKeys) || !nm::skipped_downlinks(record).empty();
}

bool has_new_prefix(const Json::Value& record) {
    return !nm::is_in_force(record, nm::kDelegationKeys);
}

int note_report(const std::string& ifname) {
    bool has_work = false;
    const int ret = nm::change_ipv6_record(ifname, [&](Json::Value& record) {
        const Json::Value before = record;
        const bool is_about_us = nm::take_client_report(told, record);
        has_work = is_about_us && (has_new_address(record) || has_new_prefix(record));
        return record != before;
    });
    if (ret == NM_ERR_NOT_FOUND) {
        NM_LOG(Debug) << ifname << " is not meant to have a client any more";
        return NM_OK;
    }
    return ret == NM_OK && has_work ? kHasWork : ret;
}

/// LANs that an event could not take along, and the document that describes them.
struct LeftBehind {
    std::string path;
    std::vector<std::string> lans;
};

int replace_address(const std::string& ifname, const Json::Value& record, nm::EventDocument& document,
                    LeftBehind& left) {
    WanIfaceInfo* created = nullptr;
    int ret = create_WAN_INFO(&created, ifname, document.path, document.root);
    const std::unique_ptr<WanIfaceInfo> uplink(created);
    if (ret != NM_OK) {
        NM_LOG(Error) << "Create WanIfaceInfo instance failed, ret=" << ret;
        return ret;
    }
    const bool has_address = !nm::json_string_or(record, "curr_ip", "").empty();
    ret = uplink->dhcp6_source_route_cb(has_address ? "add" : "del");
    if (ret != NM_OK) {
        NM_LOG(Error) << ifname << " cannot take its IPv6 lease, ret=" << ret;
    }
    left = {document.path, uplink->skipped_downlinks()};
    return ret;
}

/// One attempt under the lock of the port; nothing if another one may fare better.
bool try_address(const std::string& ifname, int& ret, LeftBehind& left) {
    const nm::LockGuard lock(ifname);
    if (!lock.held()) {
        ret = NM_ERR_LOCK;
        return false;
    }
    Json::Value record;
    ret = nm::read_ipv6_record(ifname, record);
    if (ret == NM_ERR_NOT_FOUND) {
        ret = NM_OK;  // the client was ended meanwhile
        return true;
    }
    if (ret != NM_OK || !has_new_address(record)) {
        return true;
    }
    nm::EventDocument document;
    ret = nm::find_event_document(ifname, "IP6_TYPE", nm::json_string_or(record, "type", ""),
                                  nm::json_string_or(record, "path", ""), document);
    if (ret != NM_OK) {
        return false;
    }
    ret = replace_address(ifname, record, document, left);
    return true;
}

int take_address(const std::string& ifname, LeftBehind& left) {
    int ret = NM_OK;
    for (int attempt = 0; attempt < kTries; ++attempt) {
        if (try_address(ifname, ret, left)) {
            return ret;
        }
        std::this_thread::sleep_for(kRest);
    }
    NM_LOG(Error) << ifname << " cannot take its IPv6 lease, ret=" << ret;
    return ret;
}

/// A LAN that was being set up and this uplink may each have waited for the other's lock, and have given up.
/// With no lock held any more the LAN can follow; a relay has nothing to resume and is met in the next round.
int apply_address(const std::string& ifname) {
    int failure = NM_OK;
    int followed = NM_OK;
    for (int round = 0; round < kRounds; ++round) {
        LeftBehind left;
        const int ret = take_address(ifname, left);
        failure = failure != NM_OK ? failure : ret;
        if (left.lans.empty()) {
            return failure;
        }
        followed = renew_lan_ipv6(left.path, left.lans);
    }
    return failure != NM_OK ? failure : followed;
}

/// Whether a renumbering that ended like this may fare better at the next report: a LAN was in use, or the
/// document could not be read or written.
bool is_worth_another_try(int ret) {
    constexpr std::array kPassing{NM_ERR_LOCK, NM_ERR_OPEN, NM_ERR_PARSE, NM_ERR_WRITE};
    return std::find(kPassing.begin(), kPassing.end(), ret) != kPassing.end();
}

/// Renumbers the LANs behind the port to what its record says by now, with no lock of its own or theirs held.
/// A prefix that may be had at another try is not in force yet, so that the next report renumbers them. LANs
/// keep a prefix that has gone without another one in its place: their clients have no better one.
int renumber(const std::string& ifname) {
    Json::Value record;
    int ret = nm::read_ipv6_record(ifname, record);
    if (ret != NM_OK || !has_new_prefix(record)) {
        return ret == NM_ERR_NOT_FOUND ? NM_OK : ret;
    }
    const std::string prefix = nm::json_string_or(record, "curr_pd_prfx", "");
    if (!prefix.empty()) {
        ret =
            reconfig_pd_downlinks(ifname, prefix + "/" + nm::json_string_or(record, "curr_pd_prfx_len", ""));
    }
    if (is_worth_another_try(ret)) {
        return ret;
    }
    const int noted = nm::mark_in_force(ifname, record, nm::kDelegationKeys);
    return ret != NM_OK ? ret : noted;
}

/// One report at a time: a slow one with an older prefix would move LANs back that a later one has moved, and
/// one that holds the uplink would wait for a LAN that waits for the uplink on behalf of another. The lock is
/// not a device's.
int apply_report(const std::string& ifname) {
    for (int attempt = 0; attempt < kTries; ++attempt) {
        const nm::LockGuard turn(ifname + ".lease6_report");
        if (turn.held()) {
            const int ret = apply_address(ifname);
            const int renumbered = renumber(ifname);
            return ret != NM_OK ? ret : renumbered;
        }
    }
    NM_LOG(Error) << ifname << " is busy with an older report still; skip. The next event makes up for it.";
    return NM_ERR_LOCK;
}

int lease6_event(const char* ifname, const char* act) {
    if (ifname == nullptr || *ifname == '\0' || act == nullptr) {
        NM_LOG(Error) << "ifname is Null pointer.";
        return NM_ERR_NULL_ARG;
    }
    const std::string what = act;
    if (what != "report" && what != "apply") {
        NM_LOG(Error) << "Unknown act: " << act;
        return NM_ERR_BAD_ACT;
    }
    const std::string device = nm::device_of(ifname);
    return what == "report" ? note_report(device) : apply_report(device);
}

}  // namespace

int Lease6_event(char* ifname, char* act) {
    return nm::run_entry(__PRETTY_FUNCTION__, [=] { return lease6_event(ifname, act); });
}
