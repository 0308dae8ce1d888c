// The IPv6 side of WAN ports: addresses, routes and rules, the LANs that have theirs from the port, and the
// client with what it reports.

#include <chrono>
#include <thread>

#include "kernel_world.h"
#include "networkinterface.h"
#include "services/leases/ipv6_record.h"
#include "stand_in.h"
#include "utils/handles.h"

using namespace kernel_world;

namespace {

const std::string kPath = "/etc/networkmanagement/device_info.json";
const std::string kBlock = "/etc/networkmanagement/swdev3.dhcpcd.conf";
const std::string kRecord = "/var/run/network/ipv6/swdev3.json";
const std::string kStatic =
    "'IP6_TYPE':'STATIC','IP6_ADDR':'2001:db8:3::3','IP6_PREFIX':'64','IP6_GW':'2001:db8:3::1'";
const std::string kLeased = "'IP6_TYPE':'DHCPV6','IP6_DHCP_PD':'ENABLED'";

/// The port swdev3 with this entry, and four LANs behind it.
std::string document(const std::string& entry) {
    const std::string lan = "{'IP6_UPLINK':'PORT3','IP6_TYPE':'";
    return "{'WAN_PORT':{'PORT3':{'INTERFACE':'swdev3','DEV_TYPE':'virtio','PRIO':'7'}},"
           "'WAN_IFACE_INFO':{'swdev3':{'IP4_TYPE':'STATIC'," +
           entry + "}},'LAN_IFACE_INFO':{'nw0':" + lan +
           "STATIC','IP6_ADDR':'2001:db8:3::1:1','IP6_SERVICE_TYPE':'SLAAC_RDNSS'},'nw1':" + lan +
           "STATIC','IP6_ADDR':'2001:db8:100::1','IP6_SERVICE_TYPE':'STATEFUL'},'nw2':" + lan +
           "RELAY','IP6_ADDR':'2001:db8:4::1','IP6_SERVICE_TYPE':'STATEFUL'},'nw3':" + lan + "RELAY'}}}";
}

struct Wan6 : Devices {
    void SetUp() override {
        Devices::SetUp();
        run("ip link add swdev3 type veth peer name far && sysctl -qw net.ipv6.conf.swdev3.accept_dad=0 && "
            "ip link set far up && ip link set swdev3 up && for i in 0 1 2 3; do ip link set nw$i up; done");
        put("/var/run/network/resolv.dnsmasq", "");
        put("/etc/hosts", "127.0.0.1 localhost\n");
    }
    void TearDown() override {
        run("ip link del swdev3");
        Devices::TearDown();
    }
    static WanIfaceInfo info(const std::string& entry) {
        put(kPath, quoted(document(entry)));
        return {"swdev3", kPath, Json::Value()};
    }
    static std::string number(const std::string& ifname) {
        return std::to_string(256 + get_iface_index(ifname.c_str()));
    }
    /// Addresses, rules and routes of the port, the rules of nw1, and the host lines.
    static Lines state() {
        return lines_of("{ ip -6 -br addr show swdev3 scope global; ip -6 rule show table " +
                        number("swdev3") + "; ip -6 route show table " + number("swdev3") +
                        "; ip -6 route show table 253; " + "ip -6 route show table " + number("nw1") +
                        "; ip -6 rule show table " + number("nw1") +
                        " | grep from.2001; grep swdev3 /etc/hosts; } | tr -s ' ' | " +
                        "sed 's/.*:\t//; s/ lookup.*//; s/ pref medium//; s/ proto static//; s/ mtu.*//'");
    }
    static std::string env(const char* lan) {
        return slurp(std::string("/var/run/network/.nm-6relayd@") + lan + ".env");
    }
    /// The hook's half of an event with these variables in the environment.
    static int tell(const std::string& report) {
        std::istringstream words(report);
        std::vector<std::string> names;
        for (std::string word; words >> word;) {
            names.push_back(word.substr(0, word.find('=')));
            setenv(names.back().c_str(), word.substr(names.back().size() + 1).c_str(), 1);
        }
        const int ret = event("report");
        for (const std::string& name : names) {
            unsetenv(name.c_str());
        }
        return ret;
    }
    static int event(std::string act) {
        char ifname[] = "swdev3";
        return Lease6_event(ifname, act.data());
    }
    static bool are_all_locks_free() {
        return is_lock_free("nw0") && is_lock_free("nw1") && is_lock_free("nw2") && is_lock_free("nw3");
    }

    const StandIn sets{"/usr/sbin/firewall6.sh"}, dpi{"/usr/sbin/network-dpi.sh"};
    /// The relays of nw2 are edited while nw2 is locked.
    const StandIn units{"/usr/bin/systemctl", 0,
                        "flock -n /var/lock/network/nw2.lck true || echo -n ' locked'"};
    const File stored{kPath};
};

TEST_F(Wan6, RefusesWhatIsNotAnAddress) {
    const std::string address = "'IP6_TYPE':'STATIC','IP6_ADDR':'",
                      any = address + "2001:db8::3','IP6_PREFIX':'";
    const std::tuple<std::string, int, std::string> cases[] = {
        {address + "2001:db8::x'", NM_ERR_BAD_IP, "Bad ipv6 address!. ip6_addr: 2001:db8::x"},
        {address + "fe80::1'", NM_ERR_BAD_IP, "ip6_addr: fe80::1"},
        {address + "ff05::1'", NM_ERR_BAD_IP, "ip6_addr: ff05::1"},
        {address + "::1'", NM_ERR_BAD_IP, "ip6_addr: ::1"},
        {any + "0'", NM_ERR_BAD_IP, "Bad prefix."},
        {any + "129'", NM_ERR_BAD_IP, "Bad prefix."},
        {"'IP6_TYPE':''", 0, "DISABLED; do nothing."},
        {"'IP6_TYPE':'PPPOEV6'", 0, "PPPOEV6; do nothing."}};
    for (const auto& [entry, code, words] : cases) {
        const LogTail log;
        EXPECT_EQ(info(entry).setup_ipv6(2), code) << entry;
        EXPECT_TRUE(log.has(words)) << entry;
        EXPECT_TRUE(are_all_locks_free()) << entry;
    }
    EXPECT_EQ(info(any.substr(0, any.find("','IP6_P")) + "','IP6_PREFIX':'64'").setup_ipv6_dhcpcd(1),
              NM_ERR_BAD_TYPE);
    EXPECT_EQ(info("'IP6_TYPE':'SLAAC','IP6_ADDR':'2001:db8::3','IP6_PREFIX':'64'").setup_ipv6_static(),
              NM_ERR_BAD_TYPE);
    EXPECT_EQ(state(), Lines{});
    EXPECT_EQ(StandIn::take(), "") << "nothing is started or told";
}

TEST_F(Wan6, TakesItsDownlinksAlong) {
    const Lines up{"swdev3@far UP 2001:db8:3::3/64",
                   "from 2001:db8:3::3 fwmark 0/0xf",
                   "from all fwmark 0/0xf oif swdev3",
                   "from all fwmark 0x1003/0x100f",
                   "from all fwmark 0x2003/0x200f",
                   "2001:db8:3::/64 dev swdev3 metric 7",
                   "default via 2001:db8:3::1 dev swdev3 metric 7",
                   "default via 2001:db8:3::1 dev swdev3 metric 7",
                   "2001:db8:100::/64 dev nw1 metric 1024",
                   "default via 2001:db8:3::1 dev swdev3 metric 1024",
                   "from 2001:db8:100::1/64 fwmark 0/0xf",
                   "2001:db8:3::3 sandbox sandbox #swdev3"};
    run("ip link set swdev3 down && ip -6 addr add 2001:db8:9::9/64 dev swdev3 nodad");  // of another state
    for (int round = 0; round < 2; ++round) {
        const LogTail log;
        EXPECT_EQ(info(kStatic).setup_ipv6(2), 0);
        EXPECT_TRUE(log.has("Uplink ipv6 prefix: 2001:db8:3::, Downlink ipv6 prefix: 2001:db8:100::"));
        const std::string start = " <start> <nm-6relayd@";
        EXPECT_EQ(StandIn::take(),
                  "firewall6.sh <edit_ip6_ipset> <add> <ip6_localip> <2001:db8:3::3>\nsystemctl" + start +
                      "nw0.service> locked\nsystemctl" + start + "nw2.service> locked\nsystemctl" + start +
                      "nw3.service> locked\n");
        EXPECT_EQ(env("nw0") + env("nw2"),
                  "UPLINK=swdev3\nMODE=-N"
                  "UPLINK=swdev3\nMODE=-A");
        EXPECT_EQ(state(), up);
        EXPECT_TRUE(are_all_locks_free());
    }
    EXPECT_EQ(info(kStatic).disable_ipv6(0), 0);
    EXPECT_EQ(state(), Lines{});
    const std::string calls = StandIn::take();
    for (const char* call :
         {"<stop> <nm-6relayd@nw0.service> locked", "<stop> <nm-6relayd@nw3.service> locked",
          "<del> <ip6_localip> <2001:db8:3::3>"}) {
        EXPECT_NE(calls.find(call), calls.npos) << call << calls;
    }
}

/// Reports: the result of the hook's half, what is current then, and how many lines the kernel has. Somebody
/// else sets nw3 up while the first router is heard of, for longer than the uplink waits for it.
TEST_F(Wan6, FollowsItsClient) {
    put("/usr/bin/systemctl", "#!/bin/sh\nexit 3\n");
    EXPECT_EQ(info(kLeased).setup_ipv6(2), 3);
    EXPECT_FALSE(fs::exists(kRecord) || fs::exists(kBlock)) << "a failed start leaves nothing";
    put("/usr/bin/systemctl", "#!/bin/sh\n");
    EXPECT_EQ(info(kLeased).setup_ipv6(2), 0);
    const std::string block = slurp(kBlock);
    EXPECT_EQ(block.substr(block.find("  metric")),
              "  metric 7\n  ipv6rs\n  nogateway\n  noipv4\n" + block.substr(block.find("  ia_pd")));
    const std::string address = "new_dhcp6_ia_na1_ia_addr1=2001:db8:3::7 new_dhcp6_ia_na1_ia_addr1_vltime=60";
    const std::string router =
        "nd1_from=fe80::9 nd1_lifetime=30 nd1_prefix_information1_prefix=2001:db8:3:: "
        "nd1_prefix_information1_length=64 nd1_prefix_information1_flags=L";
    const std::tuple<std::string, int, std::string, size_t> cases[] = {
        {"reason=PREINIT6", 0, "/ ", 0},
        {"reason=BOUND6 " + address, 1, "2001:db8:3::7/128 ", 8},
        {"reason=RENEW6 " + address, 0, "2001:db8:3::7/128 ", 8},
        {"reason=ROUTERADVERT " + router + " in=use", 1, "2001:db8:3::7/64 fe80::9", 11},
        {"reason=ROUTERADVERT " + router, 0, "2001:db8:3::7/64 fe80::9", 11},
        {"reason=EXPIRE6", 1, "/ fe80::9", 0},
        {"reason=REBIND6 " + address, 1, "2001:db8:3::7/64 fe80::9", 11},
        {"reason=STOPPED", 1, "/ ", 0}};
    for (const auto& [report, code, current, lines] : cases) {
        const LogTail log;
        const bool is_in_use = report.find("in=use") != report.npos;
        std::optional<nm::LockGuard> other;
        if (is_in_use) {
            other.emplace("nw3");
        }
        std::thread setup([&] {
            std::this_thread::sleep_for(std::chrono::milliseconds(is_in_use ? 10500 : 0));
            other.reset();
        });
        fs::remove("/var/run/network/.nm-6relayd@nw3.env");
        (void)StandIn::take();
        EXPECT_EQ(tell(report), code) << report;
        if (code == 1) {
            EXPECT_EQ(event("apply"), 0) << report;
        }
        setup.join();
        if (is_in_use) {
            const std::string calls = StandIn::take(), other_lan = "<restart> <nm-6relayd@nw2.service>";
            EXPECT_EQ(calls.find(other_lan), calls.rfind(other_lan)) << "is left alone after that" << calls;
        }
        EXPECT_EQ(state().size(), lines) << report;
        EXPECT_EQ(exec(("ip -6 rule show table " + number("nw0")).c_str()).empty(),
                  current != "2001:db8:3::7/128 ")
            << "routed or relayed, by whether it shares the prefix: " << report;
        Json::Value record;
        EXPECT_EQ(nm::read_ipv6_record("swdev3", record), 0);
        const std::string text = record["curr_ip"].asString() + "/" +
                                 record["curr_prefix_length"].asString() + " " +
                                 record["curr_gateway"].asString();
        EXPECT_EQ(text, current) << report;
        EXPECT_EQ(log.has("Failed to get lock of the uplink interface nw3; skip."), is_in_use);
        EXPECT_EQ(log.has("nw3 follows swdev3 when it is free, or at the next report."), is_in_use);
        EXPECT_EQ(!env("nw3").empty(), code == 1 && lines > 0) << report;
        EXPECT_EQ(nm::skipped_downlinks(record), Lines{}) << report;
        EXPECT_TRUE(are_all_locks_free()) << report;
    }
    EXPECT_EQ(info(kLeased).disable_ipv6(0), 0);
    EXPECT_FALSE(fs::exists(kRecord) || fs::exists(kBlock));
    EXPECT_EQ(tell("reason=BOUND6 " + address), 0) << "nobody waits for it any more";
    EXPECT_FALSE(fs::exists(kRecord));
    EXPECT_EQ(event("renew"), NM_ERR_BAD_ACT);
}

TEST_F(Wan6, KeepsNothingOfTheTypeThatItHadBefore) {
    const std::string types[] = {kStatic, kLeased, "'IP6_TYPE':'SLAAC'", "'IP6_TYPE':'DISABLED'"};
    const std::string report =
        "reason=BOUND6 new_dhcp6_ia_na1_ia_addr1=2001:db8:3::7 "
        "new_dhcp6_ia_na1_ia_addr1_vltime=60";
    const auto all = [] {
        Json::Value record;
        (void)nm::read_ipv6_record("swdev3", record);
        Lines lines = state();
        lines.push_back(slurp(kBlock) + record["type"].asString() + record["curr_ip"].asString() +
                        record["in_force"]["curr_ip"].asString());
        return lines;
    };
    for (const std::string& next : types) {
        EXPECT_EQ(info(next).add_info(OPT_IP6), 0);
        const Lines expected = all();
        EXPECT_EQ(info(next).del_info(OPT_IP6), 0);
        for (const std::string& before : types) {
            if (before == next) {
                continue;
            }
            EXPECT_EQ(info(before).add_info(OPT_IP6), 0);
            if (before == kLeased) {
                EXPECT_EQ(tell(report) + event("apply"), 1);
            }
            StandIn::take();
            put("/tmp/new.json", quoted(document(next)));
            EXPECT_EQ(WanIfaceInfo("swdev3", "/tmp/new.json", Json::Value()).alt_info(OPT_IP6), 0);
            EXPECT_EQ(all(), expected) << before << " becomes " << next;
            const char* const left = before == kStatic   ? "<del> <ip6_localip> <2001:db8:3::3>"
                                     : before == kLeased ? "<del> <ip6_localip> <2001:db8:3::7>"
                                                         : "";
            EXPECT_NE(StandIn::take().find(left), std::string::npos) << before;
            EXPECT_EQ(info(next).del_info(OPT_IP6), 0);
            EXPECT_EQ(all(), Lines{""}) << next;
        }
    }
}

}  // namespace
