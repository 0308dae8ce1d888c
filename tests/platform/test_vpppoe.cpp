// PPPoE sessions: what is stored, who can read it, and what the supervisor does as sessions come and go.
#include <net/if.h>
#include <vpppoe.h>

#include "interfaces/uplink/session_code.h"
#include "sandbox_fixture.h"

namespace {

using namespace fixture;

const std::string kOptions = "/etc/vpppoe/peers/swdev1", kFlags = "/etc/vpppoe/env/swdev1.env";

// Comes up at once, and stays as long as it is let.
constexpr const char* kPppd = R"sh(#!/bin/bash
echo "$*" >/run/argv
echo -n $$ >/run/pppd.pid
event() { "/usr/lib/networkmanagement/pppoe/$1" ppp-swdev1 "" 0 198.51.100.7 198.51.100.1 swdev1; }
trap 'event ip-down; ip link del ppp-swdev1; exit 5' TERM
ip link del ppp-swdev1 2>/dev/null
ip link add ppp-swdev1 type veth peer name far-end
event ip-up
while sleep 0.02; do :; done
)sh";

class Vpppoe : public testing::Test {
protected:
    void SetUp() override {
        script("/usr/sbin/pppd", kPppd);
        script("/usr/sbin/nm_bin", "#!/bin/sh\necho \"$*\" >>/run/events\n");
        put(kFlags, "REDIAL_SECONDS=\"1\"\n");
    }
    void TearDown() override {
        (void)stop_interface_pppoe("swdev1");
        run("rm -rf /etc/vpppoe /run/vpppoe /run/events");
    }
    static void script(const std::string& path, const std::string& text) {
        put(path, text);
        fs::permissions(path, fs::perms(0755));
    }
    static bool eventually(const std::function<bool()>& condition) {
        for (int i = 0; i < 1000 && !condition(); ++i) {
            usleep(10000);
        }
        return condition();
    }
    static bool is_raised(const std::string& ifname) {
        return (std::stoul(fact(ifname, "flags"), nullptr, 16) & IFF_UP) != 0;
    }
    static bool is_up() { return is_interface_pppoe_running("swdev1") == 0; }
};

TEST_F(Vpppoe, CredentialsAreDataOrRefused) {
    // User, password and what is stored: nothing of those that are refused.
    const std::array<std::string, 3> cases[] = {
        {"a b@c", "#$(x)`;'", "user \"a b@c\"\npassword \"#$(x)`;'\"\n"},
        {"\"\\", "\\n\xc3\xa9", "user \"\\\"\\\\\"\npassword \"\\\\n\xc3\xa9\"\n"},
        {std::string(255, 'u'), "", "u\"\npassword \"\"\n"},
        {std::string(256, 'u'), "p", ""},
        {"u\nconnect x", "p", ""},
        {"", "p", ""}};
    for (const auto& [user, password, stored] : cases) {
        fs::remove(kOptions);
        EXPECT_EQ(add_interface_pppoe_cfg("swdev1", user.c_str(), password.c_str(), 1),
                  stored.empty() ? VPPPOE_ERR_ARG : 0);
        EXPECT_EQ(fs::exists(kOptions), !stored.empty()) << user;
        EXPECT_THAT(slurp(kOptions), testing::HasSubstr(stored));
    }
    for (const char* ifname : {"", "../env", "a b", ".x", "a\nb", "swdev4.40930"}) {
        EXPECT_EQ(nm_add_pppoe_and_run(ifname, "u", "p", 0), VPPPOE_ERR_ARG) << ifname;
    }
}

TEST_F(Vpppoe, AFullDiskKeepsTheOldConfiguration) {
    run("mkdir /etc/vpppoe/peers && mount -t tmpfs -o size=4k,mode=755 tmpfs /etc/vpppoe/peers");
    ASSERT_EQ(add_interface_pppoe_cfg("swdev1", "old", "p", 0), 0);
    EXPECT_EQ(add_interface_pppoe_cfg("swdev1", "new", "p", 0), VPPPOE_ERR_STORE);
    EXPECT_THAT(slurp(kOptions), testing::HasSubstr("\"old\""));
    EXPECT_EQ(fs::status("/etc/vpppoe/peers").permissions(), fs::perms(0700));
    EXPECT_EQ(fs::status(kOptions).permissions(), fs::perms(0600));
    run("umount /etc/vpppoe/peers");
}

TEST_F(Vpppoe, RaisesItsDeviceAndTheParent) {
    const Device parent("swdev1"), vlan("swdev1.7", false, "far7");
    ASSERT_EQ(nm_add_pppoe_and_run("swdev1.7", "user", "c4n4ry", 0), 0);
    EXPECT_TRUE(eventually([] { return is_raised("swdev1") && is_raised("swdev1.7"); }));
    EXPECT_EQ(stop_interface_pppoe("swdev1.7"), 0);
}

TEST_F(Vpppoe, ALife) {
    ASSERT_EQ(nm_add_pppoe_and_run("swdev1", "user", "c4n4ry", 0), 0);
    ASSERT_TRUE(eventually(is_up));
    EXPECT_EQ(slurp("/run/argv"), "file " + kOptions + "\n");
    const std::string before = slurp("/run/pppd.pid");
    EXPECT_EQ(nm_add_pppoe_and_run("swdev1", "user", "c4n4ry", 0), 0);
    EXPECT_EQ(slurp("/run/pppd.pid"), before) << "the same again changes nothing";
    const std::string life = "Lease_event swdev1 add\nLease_event swdev1 del\n";
    std::string lives = life;
    // With supervisor and pppd killed only the record is left, for the next start or for a stop to find.
    for (int (*next)() : {start_all_pppoe, +[] { return stop_interface_pppoe("swdev1"); }}) {
        const std::string pppd = slurp("/run/pppd.pid");
        run("kill -KILL $(ps -o ppid= -p " + pppd + ")");
        EXPECT_TRUE(eventually([&] { return !fs::exists("/proc/" + pppd); })) << "it outlives its supervisor";
        EXPECT_EQ(next(), 0);
        EXPECT_TRUE(eventually([&] { return slurp("/run/events").rfind(lives, 0) == 0; }))
            << slurp("/run/events");
        EXPECT_EQ(start_interface_pppoe("swdev1"), 0);
        EXPECT_TRUE(eventually([&] { return is_up() && slurp("/run/pppd.pid") != pppd; }));
        lives += life;
    }
    EXPECT_EQ(stop_interface_pppoe("swdev1"), 0);
    EXPECT_FALSE(is_up() || fs::exists("/sys/class/net/ppp-swdev1"));
    EXPECT_TRUE(eventually([&] { return slurp("/run/events") == lives; })) << slurp("/run/events");
    EXPECT_EQ(del_interface_pppoe_cfg("swdev1"), 0);
    EXPECT_EQ(del_interface_pppoe_cfg("swdev1"), VPPPOE_ERR_NO_SESSION);
}

TEST_F(Vpppoe, TheKernelDecidesWhetherARecordIsTrue) {
    const Device session("ppp-swdev1");
    const std::string index = "IFINDEX=" + fact("ppp-swdev1", "ifindex") + "\n";
    const std::pair<std::string, int> cases[] = {
        {index + "LOCAL=192.0.2.1\nDNS1=" + std::string(4096, '1') + "\nDNS2", 0},
        {"IFINDEX=1\nLOCAL=192.0.2.1\n", VPPPOE_ERR_NO_SESSION},
        {index + "LOCAL=192.0.2.256\n", VPPPOE_ERR_NO_SESSION}};
    for (const auto& [record, code] : cases) {
        put("/run/vpppoe/swdev1.state", record);
        pppoe_runtime_cfg cfg;
        EXPECT_EQ(get_pppoe_runtime_cfg("swdev1", &cfg), code) << record;
        EXPECT_EQ(cfg.ip4_addr + std::string(cfg.ip4_dns1), code == 0 ? "192.0.2.1" : "");
    }
}

TEST(SessionCodes, HaveANameAmongTheLibrarysOwn) {
    for (const int code : {VPPPOE_ERR_ARG, VPPPOE_ERR_NO_SESSION, VPPPOE_ERR_UNAVAILABLE, VPPPOE_ERR_STORE}) {
        const std::string_view name = describe_result(nm::session_code(code)).name;
        EXPECT_EQ(name.substr(0, 15), "NM_ERR_SESSION_") << code;
    }
    EXPECT_EQ(nm::session_code(VPPPOE_SUCCESS), NM_OK);
}

}  // namespace
