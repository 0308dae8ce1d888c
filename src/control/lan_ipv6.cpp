// LANs that follow their uplink's IPv6.
#include "control/lan_ipv6.h"

#include <json/value.h>

#include <algorithm>
#include <functional>
#include <vector>

#include "config/actions.h"
#include "config/document_file.h"
#include "config/lan_renumbering.h"
#include "config/nmconfig.h"
#include "config/port_lookup.h"
#include "control/setup_lan.h"
#include "interfaces/common/target.h"
#include "interfaces/lan/LanIfaceInfo.h"
#include "log.h"
#include "result_codes.h"
#include "services/radv/radvd.h"
#include "utils/json_text.h"

namespace {

constexpr const char* kLans = "LAN_IFACE_INFO";

/// A LAN's entry after a renumbering.
struct Move {
    std::string ifname;
    Json::Value entry;
};

void keep_first(int& failure, int ret) {
    failure = failure != NM_OK ? failure : ret;
}

int load_device(const std::string& path, Json::Value& device) {
    const int ret = json_file_to_mem(path, device);
    if (ret < 0) {
        NM_LOG(Error) << "Could not get " << path << ", return.";
        return ret;
    }
    return NM_OK;
}

void for_each_lan(const Json::Value& device,
                  const std::function<void(const std::string& ifname, const Json::Value& entry)>& visit) {
    const Json::Value& lans = nm::json_member(device, kLans);
    for (auto lan = lans.begin(); lans.isObject() && lan != lans.end(); ++lan) {
        if (lan->isObject()) {
            visit(lan.name(), *lan);
        }
    }
}

int plan_moves(const Json::Value& device, const std::string& uplink, const std::string& prefix,
               std::vector<Move>& moves) {
    int failure = NM_OK;
    for_each_lan(device, [&](const std::string& ifname, const Json::Value& entry) {
        if (!nm::is_delegated_lan(entry, uplink)) {
            return;
        }
        Move move{ifname, entry};
        const int ret = nm::renumber_lan(prefix, move.entry);
        if (ret != NM_OK) {
            NM_LOG(Error) << ifname << " cannot be renumbered to " << prefix << ", ret=" << ret;
            keep_first(failure, ret);
        } else if (move.entry != entry) {
            moves.push_back(move);
        }
    });
    return failure;
}

/// Alters the LANs to their new addresses. Those whose lock cannot be had leave the list: NM_ERR_LOCK.
int apply_moves(Json::Value device, std::vector<Move>& moves) {
    int failure = NM_OK;
    for (const Move& move : moves) {
        device[kLans][move.ifname] = move.entry;
    }
    std::vector<Move> done;
    nm::RadvdHold advertisements;
    for (const Move& move : moves) {
        const int ret = _setup_laninfo(move.ifname, ACT_ALT, OPT_IP6, kDeviceInfoPath, device);
        keep_first(failure, ret);
        if (ret == NM_ERR_LOCK) {
            failure = ret;
            NM_LOG(Error) << move.ifname << " is in use; skip. It keeps its prefix until the next event.";
        } else {
            done.push_back(move);
        }
    }
    moves = done;
    keep_first(failure, advertisements.release());
    return failure;
}

/// What somebody else has changed of the entries meanwhile is renumbered with them.
int store_moves(const std::vector<Move>& moves, const std::string& prefix) {
    const int ret = nm::edit_document(kDeviceInfoPath, [&](Json::Value& device) {
        for (const Move& move : moves) {
            if (nm::json_member(nm::json_member(device, kLans), move.ifname).isObject() &&
                nm::renumber_lan(prefix, device[kLans][move.ifname]) != NM_OK) {
                NM_LOG(Error) << move.ifname << " was changed meanwhile; it is stored as it is.";
            }
        }
        return NM_OK;
    });
    if (ret != NM_OK) {
        NM_LOG(Error) << "Failed to store the new prefixes, ret=" << ret;
        return ret;
    }
    return copy_save_to_curr();
}

int resume_lan(const std::string& ifname, const std::string& path, const Json::Value& device) {
    static const nm::Family<LanIfaceInfo> family{
        "LanIfaceInfo",
        create_LAN_INFO,
        [](LanIfaceInfo&, const std::string& key) { return key; },
        &LanIfaceInfo::resume_ipv6,
        &LanIfaceInfo::resume_ipv6,
        &LanIfaceInfo::resume_ipv6,
    };
    return nm::run_target(family, {ifname, ACT_ALT, 0, path, device});
}

int resume_lans(const std::string& path,
                const std::function<bool(const std::string& ifname, const Json::Value& entry)>& is_wanted) {
    Json::Value device;
    int failure = load_device(path, device);
    if (failure != NM_OK) {
        return failure;
    }
    nm::RadvdHold advertisements;
    for_each_lan(device, [&](const std::string& ifname, const Json::Value& entry) {
        if (is_wanted(ifname, entry)) {
            keep_first(failure, resume_lan(ifname, path, device));
        }
    });
    keep_first(failure, advertisements.release());
    return failure;
}

}  // namespace

int reconfig_pd_downlinks(std::string uplink_ifname, std::string new_prefix) {
    NM_LOG(Debug) << "Enter";
    Json::Value device;
    std::string portname;
    int failure = load_device(kDeviceInfoPath, device);
    if (failure != NM_OK || (failure = get_portname_by_ifname(uplink_ifname, device, portname)) != NM_OK) {
        return NM_EXIT(failure);
    }
    NM_LOG(Info) << "uplink portname: " << portname;
    NM_LOG(Info) << "uplink ifname: " << uplink_ifname;
    NM_LOG(Info) << "new DHCP-PD prefix: " << new_prefix;
    std::vector<Move> moves;
    failure = plan_moves(device, portname, new_prefix, moves);
    if (moves.empty()) {
        return NM_EXIT(failure);
    }
    const int applied = apply_moves(device, moves);
    const int stored = moves.empty() ? NM_OK : store_moves(moves, new_prefix);
    failure = applied != NM_OK ? applied : failure;
    return NM_EXIT(stored != NM_OK ? stored : failure);
}

int reload_lan_ipv6(std::string path, std::string uplink) {
    NM_LOG(Debug) << "Enter";
    return NM_EXIT(resume_lans(path, [&](const std::string&, const Json::Value& entry) {
        return uplink.empty() || nm::json_string_or(entry, "IP6_UPLINK", "") == uplink;
    }));
}

int renew_lan_ipv6(const std::string& path, const std::vector<std::string>& lans) {
    NM_LOG(Debug) << "Enter";
    return NM_EXIT(resume_lans(path, [&](const std::string& ifname, const Json::Value&) {
        return std::find(lans.begin(), lans.end(), ifname) != lans.end();
    }));
}
