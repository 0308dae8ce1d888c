// Reports of sessions are worked long after what they tell of, and in any order: whatever that order is, sets
// and rules end up as what is in force.

#include "control/lease_event.h"
#include "control/setup_wan.h"
#include "fake_pppoe.h"
#include "kernel_world.h"
#include "stand_in.h"

using namespace kernel_world;

namespace {

struct Report {
    std::string act, address, ifindex;
};

/// The dialler, its one configuration, and what it has reported that nobody has worked yet.
bool is_stored = false;
std::vector<Report> reports;

void session_up(const std::string& address) {
    run("ip link add ppp-swdev3 type veth peer name far2 && ip link set far2 up && ip link set ppp-swdev3 up "
        "&& "
        "ip addr add " +
        address + " peer 192.0.2.1 dev ppp-swdev3");
    fixture::session = {1, {std::stoi(fact("ppp-swdev3", "ifindex")), "ppp-swdev3", "", "192.0.2.1", "", ""}};
    address.copy(fixture::session.cfg.ip4_addr, 15);
    reports.push_back({"add", "", ""});
}

void session_down() {
    if (fixture::session.running != 0) {
        run("ip link del ppp-swdev3");
        reports.push_back(
            {"del", fixture::session.cfg.ip4_addr, std::to_string(fixture::session.cfg.ifindex)});
        fixture::session = {};
    }
}

}  // namespace

extern "C" int is_interface_pppoe_cfg_exist(const char*) {
    return is_stored ? VPPPOE_SUCCESS : VPPPOE_ERR_NO_SESSION;
}
extern "C" int stop_interface_pppoe(const char*) {
    session_down();
    return VPPPOE_SUCCESS;
}
extern "C" int del_interface_pppoe_cfg(const char*) {
    is_stored = false;
    return VPPPOE_SUCCESS;
}

namespace {

const std::string kStored = "/etc/networkmanagement/device_info.json";
const std::string kSession = "'IP4_TYPE':'PPPOE','USERNAME':'me','PASSWORD':'p'";
const std::string kFixed = "'IP4_TYPE':'STATIC','IP4_ADDR':'192.0.2.3','IP4_GW':'192.0.2.1'";

Json::Value document(const std::string& entry) {
    return json(
        "{'WAN_PORT':{'PORT3':{'INTERFACE':'swdev3','DEV_TYPE':'virtio'}},'WAN_IFACE_INFO':{'swdev3':{" +
        entry + ",'IP6_TYPE':'DISABLED'}}}");
}

void store(const Json::Value& root) {
    put(kStored, nm::write_compact_json(root));
}

/// Each is done at once, and only its reports wait.
const std::map<std::string, void (*)()> kSteps{
    {"up", [] { session_up("192.0.2.41"); }},
    {"down", session_down},
    {"redial", [] { session_down(), session_up("192.0.2.42"); }},
    {"alter",
     [] {
         EXPECT_EQ(_setup_waninfo("swdev3", ACT_ALT, OPT_IP4 | OPT_LINK, kStored, document(kFixed)), 0);
         store(document(kFixed));
     }},
    {"delete", [] {
         EXPECT_EQ(_setup_waninfo("swdev3", ACT_DEL, 15, kStored, {}), 0);
         store(json("{'WAN_PORT':{'PORT3':{'INTERFACE':'swdev3'}}}"));
     }}};

void work(const Report& report) {
    setenv("IPLOCAL", report.address.c_str(), 1);
    setenv("IFINDEX", report.ifindex.c_str(), 1);
    char ifname[] = "swdev3";
    EXPECT_EQ(Lease_event(ifname, std::string(report.act).data()), 0) << report.act << report.address;
}

/// Members of sets and the sources of rules.
std::string state() {
    std::string text;
    for (const std::string& line :
         lines_of("cd /tmp/sets && ls; ip -4 rule | sed -n 's/.*from \\(192[^ ]*\\).*/from \\1/p'")) {
        text += line + ";";
    }
    return text;
}

/// A world of sets as files, commands that do nothing, and a port whose session is configured.
struct LeaseEvent : testing::Test {
    LeaseEvent() {
        put("/usr/sbin/firewall.sh",
            "#!/bin/sh\n[ $2 = add ] && exec touch \"/tmp/sets/$3 $4\"\nexec rm -f \"/tmp/sets/$3 $4\"\n");
        fs::permissions("/usr/sbin/firewall.sh", fs::perms::all);
        put("/var/run/network/resolv.dnsmasq", "");
        fs::create_directories("/etc/vpppoe/env");
    }
    static void begin() {
        run("rm -rf /tmp/sets && mkdir /tmp/sets && ip addr flush dev swdev3 && ip link set far up && ip "
            "link set swdev3 up");
        store(document(kSession));
        is_stored = true;
        reports.clear();
    }
    static void end() {
        session_down();
        run("while ip rule | grep -q 'lookup 2[0-9][0-9]'; do ip rule del pref $(ip rule | sed -n "
            "'s/:.*lookup 2[0-9][0-9].*//p' | grep -v 3276 | head -n 1); done");
    }
    /// Takes the path that `choices` names: at each place one of the reports that wait, or the next step of
    /// the story. Appends the first choice where it ends, and stores how many there were.
    static void take(const Lines& story, std::vector<size_t>& choices, std::vector<size_t>& counts) {
        begin();
        counts.clear();
        size_t step = 0;
        for (size_t place = 0; step < story.size() || !reports.empty(); ++place) {
            if (place == choices.size()) {
                choices.push_back(0);
            }
            counts.push_back(reports.size() + (step < story.size() ? 1 : 0));
            if (choices[place] == reports.size()) {
                kSteps.at(story[step++])();
                continue;
            }
            const Report report = reports[choices[place]];
            reports.erase(reports.begin() + static_cast<std::ptrdiff_t>(choices[place]));
            work(report);
        }
    }
    /// The next path, depth first; false after the last.
    static bool advance(std::vector<size_t>& choices, const std::vector<size_t>& counts) {
        while (!choices.empty() && choices.back() + 1 == counts[choices.size() - 1]) {
            choices.pop_back();
        }
        return !choices.empty() && ++choices.back() > 0;
    }
    const Device device{"swdev3"};
    const StandIn dpi{"/usr/sbin/network-dpi.sh"}, units{"/usr/bin/systemctl"},
        events{"/usr/sbin/vsyslog-cli"};
    const StandIn sets{"/usr/sbin/firewall.sh"};
    const File stored{kStored};
};

TEST_F(LeaseEvent, OfASessionMayBeWorkedInAnyOrder) {
    const auto in_force = [](const std::string& address, const std::string& ifname) {
        return "WANIFSET " + address + "," + ifname + ";localip " + address + ";from " + address + ";";
    };
    const std::string fixed = in_force("192.0.2.3", "swdev3");
    const std::pair<Lines, std::string> cases[] = {{{"up", "down"}, ""},
                                                   {{"up", "redial"}, in_force("192.0.2.42", "ppp-swdev3")},
                                                   {{"up", "alter"}, fixed},
                                                   {{"up", "delete"}, ""},
                                                   {{"up", "down", "alter"}, fixed},
                                                   {{"up", "down", "delete"}, ""}};
    const LogTail log;
    for (const auto& [story, expected] : cases) {
        std::vector<size_t> choices, counts;
        int paths = 0;
        do {
            take(story, choices, counts);
            EXPECT_EQ(state(), expected) << testing::PrintToString(story) << testing::PrintToString(choices);
            end();
            ++paths;
        } while (advance(choices, counts) && !HasFailure());
        EXPECT_GT(paths, 2) << testing::PrintToString(story);
    }
    for (const char* error : {"No such iface: ", "set_dhcp_source_route fail", "PPPoE runtime cfg!"}) {
        EXPECT_FALSE(log.has(error)) << error << "an orderly end is no failure";
    }
}

}  // namespace
