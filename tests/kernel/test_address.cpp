// Addresses as the kernel has them afterwards, with real duplicate address detection.
#include <net/if.h>
#include <netlink/errno.h>
#include <netlink/route/rtnl.h>

#include <chrono>
#include <future>

#include "kernel/netlink.h"
#include "kernel_world.h"
#include "networkinterface.h"

using namespace kernel_world;
using testing::ElementsAre;

namespace {

Lines addresses(const std::string& ifname, const std::string& family = "") {
    return lines_of("ip -o " + family + " addr show dev " + ifname + " | awk '{print $4}'");
}

struct Address : Devices {
    void SetUp() override {
        Devices::SetUp();
        run("for i in 0 2; do sysctl -qw net.ipv6.conf.nw$i.accept_dad=0; done");
        ifindex = if_nametoindex("nw0");
    }
    int set(std::string text) const {
        return text.find(':') == text.npos ? set_ipv4_addr(ifindex, text) : set_ipv6_addr(ifindex, text, 0);
    }
    std::string read(int (*reader)(unsigned int, std::string&)) const {
        std::string out = "untouched";
        EXPECT_EQ(reader(ifindex, out), 0);
        return out;
    }
    unsigned int ifindex = 0;
};

TEST_F(Address, IsAddedOnceAndRead) {
    EXPECT_EQ(read(get_ipv4_addr), "untouched");
    EXPECT_EQ(set("fe80::1/64"), 0);
    EXPECT_EQ(read(get_ipv6_addr), "untouched") << "a link-local address alone is none";
    for (const char* text : {"192.0.2.1/24", "198.51.100.7", "2001:db8::1/48"}) {
        EXPECT_EQ(set(text) | set(text), 0) << text;
    }
    EXPECT_THAT(addresses("nw0"),
                ElementsAre("192.0.2.1/24", "198.51.100.7/32", "2001:db8::1/48", "fe80::1/64"));
    EXPECT_EQ(read(get_ipv6_link_addr) + read(get_ipv6_addr), "fe80::1/642001:db8::1/48");
    EXPECT_EQ(get_ipv6_addr_count("nw0"), 2);
    run("ip addr flush dev nw0; ip addr add 192.0.2.1 peer 203.0.113.9/30 dev nw0");
    EXPECT_EQ(read(get_ipv4_addr), "192.0.2.1/30") << "the local end, not the peer";
    for (const char* text : {"", "192.0.2.1/", "192.0.2.1/280", "host", "2001:db8::1/", " ::1"}) {
        EXPECT_EQ(set(text), -1009) << text;
    }
    EXPECT_EQ(set_ipv4_addr(ifindex, "2001:db8::1/64"), -1009);
    for (const int result : {set("192.0.2.1/33"), set("::1/129"), set_ipv4_addr(999999, "192.0.2.1/24")}) {
        EXPECT_EQ(result, -1007);
    }
    EXPECT_EQ(without(its_rights, [&] { return set("2001:db8::1/64"); }), -1007);
    EXPECT_EQ(without(its_sockets, [&] { return set("2001:db8::1/64"); }), -1304);
    EXPECT_EQ(without(its_sockets, [] { return get_ipv6_addr_count("nw0"); }), -1013);
    EXPECT_EQ(get_ipv6_addr_count(nullptr), -1005);
}

TEST_F(Address, FlushesDifferInWhatTheyTakeAndInRefusals) {
    const auto fill = [this] {
        for (const char* text : {"192.0.2.1/24", "192.0.2.2/24", "2001:db8::1/64", "2001:db8::2/64",
                                 "fe80::1/64", "fec0::1/64"}) {
            EXPECT_EQ(set(text), 0) << text;
        }
        run("ip addr replace 192.0.2.9/24 dev nw2");
    };
    fill();
    EXPECT_EQ(flush_ipv4_addr(ifindex), 0) << "192.0.2.2 goes with 192.0.2.1, which is no refusal";
    EXPECT_EQ(flush_ipv6_addr(ifindex), 0);
    EXPECT_THAT(addresses("nw0"), ElementsAre("fec0::1/64", "fe80::1/64"));
    EXPECT_THAT(addresses("nw2"), ElementsAre("192.0.2.9/24"));
    fill();
    const Outcome by_name([] { return flush_ipaddr("nw0", AF_INET) | flush_ipaddr("nw0", AF_INET6); });
    EXPECT_EQ(by_name.result, 0);
    EXPECT_THAT(by_name.err, testing::StartsWith("flush_ipaddr(327): nw0\nUnable to delete address"));
    EXPECT_THAT(addresses("nw0"), ElementsAre("fec0::1/64", "fe80::1/64"));
    fill();
    const std::string told = Outcome([] { return flush_ipaddr("nw0", AF_INET6); }, its_rights).err;
    EXPECT_NE(told.find("Unable to delete"), told.rfind("Unable to delete")) << "it goes on:\n" << told;
    for (const auto flush : {flush_ipv4_addr, flush_ipv6_addr}) {
        EXPECT_EQ(without(its_rights, [&] { return flush(ifindex); }), -1007);
        EXPECT_EQ(flush(999999), 0);
    }
    EXPECT_EQ(addresses("nw0").size(), 6U);
}

// The error stands in the last message, where libnl does not look.
TEST_F(Address, ListThatTheKernelBreaksOffIsAFailure) {
    bool connected = false;
    const nm::NlSocket socket = nm::open_route_socket(connected);
    const int on = 1;
    EXPECT_EQ(
        setsockopt(nl_socket_get_fd(socket.get()), SOL_NETLINK, NETLINK_GET_STRICT_CHK, &on, sizeof(on)), 0);
    ifaddrmsg body{AF_INET, 0, 0, 0, 999999};
    EXPECT_GT(nl_send_simple(socket.get(), RTM_GETADDR, NLM_F_DUMP, &body, sizeof(body)), 0);
    EXPECT_EQ(nl_recvmsgs_default(socket.get()), -NLE_NODEV);
}

// The waits run side by side: an address that comes late, one that never gets through detection, and one
// after a reset that fails.
TEST_F(Address, IsWaitedForUntilDetectionIsDone) {
    using Clock = std::chrono::steady_clock;
    run("set -e; for i in 0 2; do sysctl -qw net.ipv6.conf.nw$i.accept_dad=1; done; "
        "sysctl -qw net.ipv6.conf.nw2.dad_transmits=60; ip -6 addr add fe80::2/64 dev nw2");
    int tentative = 0;
    EXPECT_EQ(check_tentative_state("nw2", tentative), 0);
    EXPECT_EQ(tentative, 1);
    std::vector<std::future<void>> waits;
    const auto expect = [&](int (*call)(const char*), const char* ifname, int result, double least,
                            double most) {
        waits.push_back(std::async(std::launch::async, [=, start = Clock::now()] {
            EXPECT_EQ(call(ifname), result) << ifname;
            const double seconds = std::chrono::duration<double>(Clock::now() - start).count();
            EXPECT_TRUE(seconds >= least && seconds < most) << ifname << " " << seconds;
        }));
    };
    expect(wait_for_link_address, "nw0", 0, 2, 8.5);
    expect(wait_for_link_address, "nw2", 1, 6, 8);
    expect(reset_ethernet_physical, "nw-none", -1007, 3, 5);
    run("sleep 1; ip link set nw0 address 00:11:22:33:44:55");
    EXPECT_EQ(read(gen_ipv6_default_link_addr), "fe80::211:22ff:fe33:4455/64");
    EXPECT_THAT(addresses("nw0"), ElementsAre("fe80::211:22ff:fe33:4455/64"));
    tentative = 7;
    EXPECT_EQ(check_tentative_state("nw0", tentative), 0);
    EXPECT_EQ(tentative, 7) << "detection is done, and the flag is never cleared";
    waits.clear();
}

TEST_F(Address, HostileNamesAreInert) {
    const File victim("/tmp/elsewhere/forwarding", "whole"), record("/var/lib/rdnssd/nw0"),
        other("/var/lib/o");
    EXPECT_EQ(do_ipv6_forwarding("nw0", 1), 0);
    EXPECT_EQ(slurp("/proc/sys/net/ipv6/conf/nw0/forwarding"), "1\n");
    EXPECT_EQ(do_ipv6_forwarding("../../../../../../tmp/elsewhere", 1), -1004);
    EXPECT_EQ(slurp(victim.path), "whole");
    remove_rdnssd_record("../o");
    remove_rdnssd_record("nw0");
    EXPECT_TRUE(fs::exists(other.path) && !fs::exists(record.path));
    for (std::string hostile : {"eui64; touch /tmp/bait", "$(touch /tmp/bait)", "eui64\ntouch /tmp/bait"}) {
        std::string ifname = "nw0";
        EXPECT_NE(set_ipv6_addrgenmode(ifname, hostile), 0) << hostile;
        EXPECT_NE(set_ipv6_addrgenmode(hostile, "eui64"), 0) << hostile;
    }
    EXPECT_FALSE(fs::exists("/tmp/bait"));
}

}  // namespace
