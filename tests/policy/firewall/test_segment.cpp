// The sets of segments, in the kernel.

#include "policy/firewall/segment.h"
#include "stand_in.h"

using namespace fixture;

namespace {

/// The members of all sets of segments, "set network" each.
std::string members() {
    return exec("ipset save | sed -n 's/^add //p' | sort");
}

void set_up(const std::string& before, const std::string& now) {
    Json::Value old_config = json(before);
    Json::Value new_config = json(now);
    std::string error = "untouched";
    EXPECT_EQ(setup_firewall_segment(old_config, new_config, error), 0);
    EXPECT_EQ(error, "untouched");
}

struct Segment : testing::Test {
    Segment() { (void)StandIn::take(); }
    ~Segment() override { run("iptables -t mangle -F; ipset destroy"); }
    const StandIn restore{"/sbin/iptables-restore"};
};

TEST_F(Segment, FollowTheDocument) {
    const std::string two = "{'a-1':['10.1.0.0/16','10.2.0.0/16'],'ab':['10.3.0.0/16']}";
    set_up("null", two);
    EXPECT_EQ(members(), "seg-a 10.1.0.0/16\nseg-a 10.2.0.0/16\nseg-ab 10.3.0.0/16\n");
    run("ipset add seg-a 10.9.0.0/16");
    set_up(two, two);
    EXPECT_EQ(members(), "seg-a 10.1.0.0/16\nseg-a 10.2.0.0/16\nseg-ab 10.3.0.0/16\n") << "filled anew";
    run("for set in seg-a seg-ab; do iptables -t mangle -A FORWARD -m set --match-set $set src; done");
    run("iptables -t mangle -A FORWARD -s 10.9.0.0/16");
    const LogTail log;
    set_up(two, "{'ab':[],'office-1':['10.4.0.0/16'],'office-2':['10.5.0.0/16']}");
    EXPECT_TRUE(log.has(
        "cmd: /sbin/iptables-save | /bin/awk '/seg-a/{$1=\"-D\"; system(\"/sbin/iptables -t mangle \"$0)}'"));
    EXPECT_EQ(members(), "seg-office 10.4.0.0/16\nseg-office 10.5.0.0/16\n");
    EXPECT_EQ(exec("iptables -t mangle -S FORWARD | grep -c src"), "0\n")
        << "the longer name has the shorter in it";
    EXPECT_EQ(exec("iptables -t mangle -S FORWARD | grep -c 10.9"), "1\n");
    EXPECT_EQ(StandIn::take(), "") << "no roll-back";
}

TEST_F(Segment, RollBackToTheLastNetworkOfEach) {
    const std::string two = "{'a':['10.1.0.0/16','10.2.0.0/16']}";
    put(kDeviceInfoPath, "{}");
    const File firewall("/etc/networkmanagement/firewall.json",
                        quoted("{'RULES':{'SITE':[{'ACTION':'DENY'}]}}"));
    for (const std::string network : {"'x'", "'10.4.0.0/16\\n'", "''", "5", "'-q'", "'$(touch /tmp/hit)'"}) {
        set_up("{}", two);
        const LogTail log;
        set_up(two, "{'a':['10.3.0.0/16'],'b':['10.4.0.0/16'," + network + "]}");
        EXPECT_EQ(members(), "seg-a 10.2.0.0/16\n") << network;
        EXPECT_EQ(exec("ipset list -name"), "seg-a\n") << network;
        EXPECT_THAT(StandIn::take(), testing::HasSubstr("*mangle\n-F FIREWALL\n-A FIREWALL -j VTARGET"))
            << network;
        EXPECT_TRUE(log.has("Add ipset: seg-b net ")) << network;
    }
    const LogTail log;
    set_up("{'a':['x','10.1.0.0/16']}", "{'a/,/b':[],'$(touch /tmp/hit)':['10.1.0.0/16'],'c\nd':[]}");
    EXPECT_TRUE(log.has("Bad segment name: seg-a/,/b"));
    EXPECT_TRUE(log.has("Restore failed: 1"));
    EXPECT_EQ(members(), "seg-a 10.1.0.0/16\n");
    EXPECT_EQ(StandIn::take(), "") << "no rules on sets that are not whole";
    EXPECT_FALSE(fs::exists("/tmp/hit"));
}

}  // namespace
