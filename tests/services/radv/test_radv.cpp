// The files of router advertisements and DHCPv6 servers, letter by letter and against the daemons' own
// checks, and what is done to their units.

#include "networkinterface.h"
#include "stand_in.h"

namespace {

using namespace fixture;

constexpr const char* kConf = "/etc/networkmanagement/dhcp6/dhcpd6_lan0.conf";
constexpr const char* kLeases = "/var/lib/dhcpd6/dhcpd6_lan0.leases";
constexpr const char* kBlock = "/var/run/network/ipv6/lan0.radvd.conf";
constexpr const char* kAssembled = "/etc/radvd.conf";
constexpr const char* kSystemctl = "/usr/bin/systemctl";
const std::string kTooMuch = std::string("2001:db8::53\0;}", 15);

/// A change of a plain record and the code that comes of it; the text of the new file, else words of the log.
template <class Record>
struct Row {
    std::function<void(Record&)> change;
    int code;
    std::string expected;
    bool accepted = true;  // by the daemon
};

bool accepts(const std::string& check) {
    return std::system((check + " >/tmp/check 2>&1").c_str()) == 0;
}

/// What is beside the finished files.
bool has_unfinished() {
    return !exec("find /etc/networkmanagement/dhcp6 /run/network/ipv6 -name '*tmp*'").empty();
}

template <class Record>
void expect_files(const std::vector<Row<Record>>& rows, const Record& plain, int (*set)(const Record*),
                  const std::string& path, const std::string& check) {
    for (const Row<Record>& row : rows) {
        SCOPED_TRACE(row.expected);
        Record record = plain;
        row.change(record);
        put(path, "old");
        const LogTail tail;
        EXPECT_EQ(set(&record), row.code);
        EXPECT_EQ(slurp(path), row.code == NM_OK ? row.expected : "old");
        EXPECT_TRUE(row.code == NM_OK || tail.has(row.expected));
        EXPECT_TRUE(row.code != NM_OK || accepts(check + path) == row.accepted);
        EXPECT_FALSE(has_unfinished());
    }
    EXPECT_EQ(set(nullptr), NM_ERR_NULL_ARG);
}

class Dhcpd6 : public Frugal {
protected:
    using Rec = dhcpd6_iface;
    Dhcpd6() {
        fs::remove(kLeases);
        put(kConf, "old");
    }
    const Rec plain{"lan0",         true,          "2001:db8::1, 2001:db8::2", 600, "2001:db8::", 64,
                    "2001:db8::10", "2001:db8::ff"};
};

std::string conf(const std::string& lease, const std::string& subnet,
                 const std::string& dns = "2001:db8::1, 2001:db8::2") {
    return "max-lease-time " + lease + ";\ndefault-lease-time " + lease + ";\noption dhcp6.name-servers " +
           dns + ";\nsubnet6 " + subnet + "}\n";
}

TEST_F(Dhcpd6, FileIsWhatTheDaemonTakesOrStaysAsItWas) {
    constexpr int kBad = NM_ERR_BAD_FORMAT;
    const std::string whole = "2001:db8::/64\n{\n  range6 2001:db8::10 2001:db8::ff;\n";
    const std::string outside = "IP in range6 is outof subnet6!";
    const std::string bounds = "lease time should between 300 and 2592000";
    const std::string ends = "range6 statement should be set with low-address and high-address!";
    const auto unmanaged = [](Rec& r) { r.managed = false, r.range_start = r.range_end = ""; };
    const std::vector<Row<Rec>> rows{
        {[](Rec&) {}, 0, conf("600", whole)},
        {[](Rec& r) { r.lease_time = 300; }, 0, conf("300", whole)},
        {[](Rec& r) { r.lease_time = 2592000; }, 0, conf("2592000", whole)},
        {[](Rec& r) { r.dns = ""; }, 0, conf("600", whole, ""), false},
        {unmanaged, 0, conf("600", "2001:db8::/64\n{\n")},
        {[](Rec& r) { r.managed = false, r.range_start = "fd00::1"; }, 0, conf("600", "2001:db8::/64\n{\n")},
        {[](Rec& r) { r.prefix = "2001:0DB8:0::", r.prefix_len = 121, r.range_end = "2001:db8::7f"; }, 0,
         conf("600", "2001:0DB8:0::/121\n{\n  range6 2001:db8::10 2001:db8::7f;\n")},
        {[](Rec& r) { r.prefix_len = 128, r.prefix = r.range_start = r.range_end = "fd00::1"; }, 0,
         conf("600", "fd00::1/128\n{\n  range6 fd00::1 fd00::1;\n")},
        {[](Rec& r) { r.ifname = ""; }, NM_ERR_NO_IFACE, "Interface name is empty."},
        {[](Rec& r) { r.lease_time = 299; }, kBad, bounds},
        {[](Rec& r) { r.lease_time = 2592001; }, kBad, bounds},
        {[](Rec& r) { r.range_start = ""; }, NM_ERR_EMPTY, ends},
        {[](Rec& r) { r.range_end = ""; }, NM_ERR_EMPTY, ends},
        {[](Rec& r) { r.range_start = "2001:db8:0:1::10"; }, NM_ERR_BAD_PREFIX, outside},
        {[](Rec& r) { r.range_end = "2001:db8:0:1::"; }, NM_ERR_BAD_PREFIX, outside},
        {[](Rec& r) { r.prefix_len = 121; }, NM_ERR_BAD_PREFIX, outside},
        {[](Rec& r) { r.prefix = "2001:db8::1"; }, NM_ERR_BAD_PREFIX, outside},
        {[](Rec& r) { r.prefix = "fd00::"; }, NM_ERR_BAD_PREFIX, outside},
        {[](Rec& r) { r.prefix_len = 129, r.prefix = "::"; }, NM_ERR_BAD_PREFIX, outside},
        {[](Rec& r) { r.prefix = r.range_start = r.range_end = "x"; }, NM_ERR_BAD_PREFIX, outside},
        {[](Rec& r) { r.range_end += ";"; }, NM_ERR_BAD_PREFIX, outside},
        {[](Rec& r) { r.range_end = kTooMuch; }, kBad, "Bad value: 2001:db8::53"},
        {[](Rec& r) { r.dns = "2001:db8::1; }"; }, kBad, "Bad value: "},
        {[](Rec& r) { r.dns = "2001:db8::1\n"; }, kBad, "Bad value: "},
        {[](Rec& r) { r.dns = "$(touch /tmp/broken)"; }, kBad, "Bad value: "},
        {[&](Rec& r) { unmanaged(r), r.prefix = "::/0 {} #"; }, kBad, "Bad value: "},
        {[](Rec& r) { r.ifname = "x/../../dhcp6/dhcpd6_lan0"; }, kBad, "Bad interface name: "},
        {[](Rec& r) { r.ifname = "lan0\nx"; }, kBad, "Bad interface name: "},
    };
    expect_files(rows, plain, dhcpd6_iface_set, kConf, "dhcpd -6 -t -q -cf ");
    EXPECT_FALSE(fs::exists("/tmp/broken"));
}

TEST_F(Dhcpd6, LeasesAreKeptByASetAndGoWithAnUnset) {
    ASSERT_EQ(dhcpd6_iface_set(&plain), NM_OK);
    EXPECT_TRUE(dhcpd6_iface_cfg_exist("lan0") && dhcpd6_iface_lease_exist("lan0"));
    EXPECT_EQ(slurp(kLeases), "");
    put(kLeases, "leases");
    put(kLeases + std::string("~"), "older");
    ASSERT_EQ(dhcpd6_iface_set(&plain), NM_OK);
    EXPECT_EQ(slurp(kLeases), "leases");

    run("mount --bind /var/lib/dhcpd6 /var/lib/dhcpd6 && mount -o remount,bind,ro /var/lib/dhcpd6");
    const LogTail tail;
    EXPECT_EQ(dhcpd6_iface_unset("lan0"), -1);
    EXPECT_TRUE(tail.has("Read-only file system")) << "the reason is logged";
    EXPECT_FALSE(dhcpd6_iface_cfg_exist("lan0"));
    run("umount /var/lib/dhcpd6");
    EXPECT_TRUE(dhcpd6_iface_lease_exist("lan0"));
    EXPECT_EQ(dhcpd6_iface_unset("lan0"), NM_OK) << "what is gone is passed over";
    EXPECT_EQ(exec("find /var/lib/dhcpd6 -type f"), "");
    EXPECT_EQ(dhcpd6_iface_unset("lan0"), NM_OK);
}

TEST_F(Dhcpd6, UnitIsStoppedOnlyIfThereIsAFile) {
    const StandIn systemctl(kSystemctl);
    EXPECT_EQ(dhcpd6_service_start("lan0"), 0);
    EXPECT_EQ(dhcpd6_service_stop("lan0"), 0);
    fs::remove(kConf);
    EXPECT_EQ(dhcpd6_service_stop("lan0"), 0);
    EXPECT_EQ(StandIn::take(),
              "systemctl <start> <nm-dhcpd6@lan0.service>\nsystemctl <stop> <nm-dhcpd6@lan0.service>\n");
}

class Radvd : public Frugal {
protected:
    using Rec = radvd_iface;
    Radvd() {
        run("rm -f /run/network/ipv6/*");
        put(kAssembled, "old");
    }
    static std::string assembled() { return slurp(kAssembled); }
    const Rec plain{false, false, "lan0", "2001:db8::1 2001:db8::2", "2001:db8::", 64, 1800, 600, 900};
};

std::string block(const std::string& flags, const std::string& prefix, const std::string& autonomous,
                  const std::string& rest) {
    return "interface lan0\n{\n  AdvSendAdvert on;\n" + flags +
           "  MaxRtrAdvInterval 30;\n  MinRtrAdvInterval 10;\n  AdvDefaultLifetime 1800;\n"
           "  AdvDefaultPreference high;\n  AdvLinkMTU 1500;\n  prefix " +
           prefix + "\n  {\n    AdvOnLink on;\n    AdvAutonomous " + autonomous +
           ";\n    AdvRouterAddr off;\n" + rest + "};\n\n";
}

TEST_F(Radvd, BlockIsWhatTheDaemonTakesOrStaysAsItWas) {
    const std::string neither = "  AdvManagedFlag off;\n  AdvOtherConfigFlag off;\n";
    const std::string times = "    AdvPreferredLifetime 600;\n    AdvValidLifetime 900;\n";
    const std::string dns = "  RDNSS 2001:db8::1 2001:db8::2\n  {\n    AdvRDNSSLifetime 60;\n  };\n";
    const std::string net = "2001:db8::/64";
    constexpr int kBad = NM_ERR_BAD_FORMAT;
    const std::vector<Row<Rec>> rows{
        {[](Rec&) {}, 0, block(neither, net, "on", times + "  };\n" + dns)},
        {[](Rec& r) { r.managed = true; }, 0,
         block("  AdvManagedFlag on;\n  AdvOtherConfigFlag off;\n", net, "off", times + "  };\n" + dns)},
        {[](Rec& r) { r.other = true; }, 0,
         block("  AdvManagedFlag off;\n  AdvOtherConfigFlag on;\n", net, "on", times + "  };\n" + dns)},
        {[](Rec& r) { r.dns = ""; }, 0, block(neither, net, "on", times + "  };\n")},
        {[](Rec& r) { r.preferred_lifetime = r.valid_lifetime = 0; }, 0,
         block(neither, net, "on", "  };\n" + dns)},
        {[](Rec& r) { r.preferred_lifetime = 0; }, 0,
         block(neither, net, "on", "    AdvValidLifetime 900;\n  };\n" + dns), false},
        {[](Rec& r) { r.valid_lifetime = 0; }, 0,
         block(neither, net, "on", "    AdvPreferredLifetime 600;\n  };\n" + dns)},
        {[](Rec& r) { r.preferred_lifetime = r.valid_lifetime = 4294967295U; }, 0,
         block(neither, net, "on",
               "    AdvPreferredLifetime 4294967295;\n    AdvValidLifetime 4294967295;\n  };\n" + dns)},
        {[](Rec& r) { r.prefix_len = -1; }, 0, block(neither, "2001:db8::/-1", "on", times + "  };\n" + dns),
         false},
        {[](Rec& r) { r.ifname = ""; }, NM_ERR_NO_IFACE, "Interface name is empty."},
        {[](Rec& r) { r.ifname = "x/../lan0"; }, kBad, "Bad interface name: "},
        {[](Rec& r) { r.ifname = "lan0 {};"; }, kBad, "Bad interface name: "},
        {[](Rec& r) { r.dns = "::1 {}; }; interface far"; }, kBad, "Bad value: "},
        {[](Rec& r) { r.dns = "::1\n"; }, kBad, "Bad value: "},
        {[](Rec& r) { r.prefix = "`touch /tmp/broken`"; }, kBad, "Bad value: "},
        {[](Rec& r) { r.prefix = kTooMuch; }, kBad, "Bad value: "},
    };
    expect_files(rows, plain, radvd_iface_set, kBlock, "radvd -c -C ");
    EXPECT_EQ(assembled(), "old") << "the daemon's file is not for a set to touch";
    EXPECT_FALSE(fs::exists("/tmp/broken"));
}

/// What the block advertises: "<prefix> <A flag>", with a minus before what is withdrawn.
std::string prefixes() {
    return exec(
        "awk '/^  prefix/{p=$2} /Autonomous/{a=$2} /Valid.* 0;/{p=\"-\" p} /^  };/{if (p) print p, a; "
        "p=\"\"}' "
        "/run/network/ipv6/lan0.radvd.conf | xargs");
}

TEST_F(Radvd, PrefixIsWithdrawnAsLongAsItsClientsMayHoldIt) {
    const StandIn systemctl(kSystemctl);
    const std::string list = "/run/network/ipv6/lan0.withdrawn";
    const auto set = [this](const std::string& prefix, bool managed = false) {
        Rec record = plain;
        record.prefix = prefix;
        record.managed = managed;
        EXPECT_EQ(radvd_iface_set(&record), NM_OK);
        return prefixes();
    };
    EXPECT_EQ(set("2001:db8:1::") + set("2001:db8:1::"), "2001:db8:1::/64 on;\n2001:db8:1::/64 on;\n");
    EXPECT_FALSE(fs::exists(list));
    EXPECT_EQ(set("2001:db8:2::", true), "2001:db8:2::/64 off; -2001:db8:1::/64 on;\n") << "flags are kept";
    EXPECT_TRUE(accepts("radvd -c -C /run/network/ipv6/lan0.radvd.conf"));
    EXPECT_EQ(radvd_iface_unset("lan0"), NM_OK);
    EXPECT_EQ(set("2001:db8:3::"), "2001:db8:3::/64 on; -2001:db8:1::/64 on; -2001:db8:2::/64 off;\n");
    EXPECT_EQ(set("2001:db8:1::"), "2001:db8:1::/64 on; -2001:db8:2::/64 off; -2001:db8:3::/64 on;\n");
    // The advertised lifetime counts, radvd's own without one, and an endless one is bounded.
    const std::pair<uint32_t, uint64_t> lifetimes[] = {{900, 900}, {0, 86400}, {4294967295U, 2592000}};
    for (const auto& [valid, lasts] : lifetimes) {
        fs::remove(list);
        Rec record = plain;
        record.valid_lifetime = valid;
        EXPECT_EQ(radvd_iface_set(&record) + radvd_iface_unset("lan0"), 0);
        const std::string left = exec(
            "awk -v now=$(cut -d. -f1 /proc/uptime) '{print $3 - now}' /run/network/ipv6/lan0.withdrawn");
        EXPECT_NEAR(std::stod(left), static_cast<double>(lasts), 5) << valid;
    }
    std::string many = "2001:db8:99::/64 on; 1\n";
    for (int i = 10; i < 20; ++i) {
        many += "2001:db8:" + std::to_string(i) + "::/64 on 99999999999\n";
    }
    put(list, many);
    EXPECT_EQ(std::count(many.begin(), many.end(), '\n'), 11);
    const std::string kept = set("2001:db8:7::");
    EXPECT_EQ(std::count(kept.begin(), kept.end(), '-'), 8) << "the latest, and none that is over";
}

TEST_F(Radvd, ChangesOfOneCallerShareOneStartOfTheDaemon) {
    const StandIn systemctl(kSystemctl, 3);
    ASSERT_EQ(radvd_iface_set(&plain), NM_OK);
    nm::RadvdHold outer;
    {
        nm::RadvdHold inner;
        EXPECT_EQ(nm::refresh_radvd() + nm::refresh_radvd() + inner.release() + inner.release(), 0);
    }
    EXPECT_EQ(StandIn::take(), "");
    EXPECT_EQ(outer.release(), 3);
    EXPECT_EQ(StandIn::take(), "systemctl <restart> <nm-radvd.service>\n");
    { const nm::RadvdHold idle; }
    ASSERT_EQ(radvd_iface_unset("lan0"), NM_OK);
    EXPECT_EQ(nm::refresh_radvd(), 3) << "without any LAN the daemon ends";
    EXPECT_EQ(StandIn::take(), "systemctl <stop> <nm-radvd.service>\n");
}

TEST_F(Radvd, FailedWriteLeavesTheOldBlockAndNoLock) {
    run("mount -t tmpfs -o size=8k none /run/network/ipv6");
    put(kBlock, "old");
    EXPECT_NE(std::system("cat /dev/zero >/run/network/ipv6/fill 2>/dev/null"), 0);
    EXPECT_EQ(radvd_iface_set(&plain), NM_ERR_WRITE);
    EXPECT_TRUE(slurp(kBlock) == "old" && !has_unfinished() && is_lock_free("lan0.radvd.conf"));
    fs::create_directory("/run/network/ipv6/lan0.radvd.tmp");  // where the unfinished file would be
    EXPECT_EQ(radvd_iface_set(&plain), NM_ERR_OPEN);
    EXPECT_TRUE(is_lock_free("lan0.radvd.conf"));
    run("umount /run/network/ipv6");

    put(kBlock, "old");
    const int held = lock_ex(kBlock);
    EXPECT_EQ(radvd_iface_set(&plain), NM_ERR_LOCK);
    EXPECT_EQ(slurp(kBlock), "old");
    EXPECT_EQ(unlock_ex(held, kBlock, false), NM_OK);
}

TEST_F(Radvd, DaemonsFileHoldsAllBlocksAndIsEmptiedByTheLast) {
    const StandIn systemctl(kSystemctl);
    Rec other = plain;
    other.ifname = "br_v12.3";
    ASSERT_EQ(radvd_service_start(), NM_OK) << "without a block nothing is done";
    EXPECT_TRUE(assembled() == "old" && StandIn::take().empty());

    ASSERT_TRUE(radvd_iface_set(&plain) == NM_OK && radvd_iface_set(&other) == NM_OK);
    put("/run/network/ipv6/lan9.radvd.tmp", "}");  // what a killed call left
    ASSERT_EQ(radvd_service_start(), NM_OK);
    const std::string first = slurp("/run/network/ipv6/br_v12.3.radvd.conf");
    EXPECT_EQ(assembled(), first + slurp(kBlock));
    EXPECT_TRUE(accepts("radvd -c -C /etc/radvd.conf"));
    EXPECT_EQ(StandIn::take(), "systemctl <restart> <nm-radvd.service>\n");

    EXPECT_EQ(radvd_iface_unset(""), NM_ERR_NO_IFACE);
    EXPECT_EQ(radvd_iface_unset("x/../lan0"), NM_ERR_BAD_FORMAT);
    EXPECT_EQ(radvd_iface_unset("absent"), NM_OK);
    EXPECT_EQ(assembled(), first + slurp(kBlock));
    EXPECT_TRUE(radvd_iface_exist("lan0"));
    EXPECT_EQ(radvd_iface_unset("lan0"), NM_OK);
    EXPECT_TRUE(assembled() == first && !radvd_iface_exist("lan0"));
    EXPECT_EQ(radvd_iface_unset("br_v12.3"), NM_OK);
    EXPECT_EQ(assembled(), "");
    EXPECT_EQ(StandIn::take(), "") << "the unit is left alone";
    EXPECT_EQ(radvd_service_stop(), 0);
    EXPECT_EQ(StandIn::take(), "systemctl <stop> <nm-radvd.service>\n");
}

TEST_F(Radvd, RebuildWaitsForWhoeverHasTheDaemonsFile) {
    put(kBlock, "block\n");
    run("rm -f /tmp/held /tmp/seen; flock /etc/radvd.conf -c "
        "'touch /tmp/held; sleep 1; cp /etc/radvd.conf /tmp/seen' & "
        "while [ ! -e /tmp/held ]; do sleep 0.05; done");
    const StandIn systemctl(kSystemctl, 3);
    const LogTail tail;
    EXPECT_EQ(radvd_service_start(), 3);
    EXPECT_TRUE(tail.has("Failed to restart service nm-radvd!"));
    EXPECT_TRUE(slurp("/tmp/seen") == "old" && assembled() == "block\n");

    fs::remove(kAssembled);
    fs::create_directory(kAssembled);
    (void)StandIn::take();
    EXPECT_NE(radvd_service_start(), NM_OK);
    EXPECT_TRUE(tail.has("Failed to generate radvd conf!") && StandIn::take().empty());
    EXPECT_NE(radvd_iface_unset("lan0"), NM_OK) << "the rebuild's code";
    fs::remove(kAssembled);
}

}  // namespace
