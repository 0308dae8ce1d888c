// The IPv6 DHCP client of a port: its block and the assembled configuration letter by letter, what becomes of
// its unit, and what is made of the variables that it prints.
#include <thread>

#include "golden.h"
#include "kernel_world.h"
#include "services/dhcpcd/client_report.h"
#include "services/dhcpcd/dhcp6_variables.h"
#include "services/dhcpcd/nm_dhcpcd.h"
#include "stand_in.h"

using namespace kernel_world;
using namespace std::string_literals;

namespace {

const std::string kDirectory = "/etc/networkmanagement/";
const std::string kHead = "/usr/lib/networkmanagement/init.dhcpcd.conf";
const std::string kConf = "/etc/dhcpcd.conf";

dhcpcd_iface iface(const std::string& ifname, const std::string& hw_ifname = "swdev1") {
    dhcpcd_iface record{};
    ifname.copy(record.ifname, sizeof(record.ifname));
    hw_ifname.copy(record.hw_ifname, sizeof(record.hw_ifname));
    return record;
}
std::string block(const std::string& lines, const std::string& ifname = "swdev1") {
    return "interface " + ifname + "\n  iaid 0a0bcd0e\n" + lines + "\n";
}
std::string block_of(const std::string& ifname) {
    return slurp(kDirectory + ifname + ".dhcpcd.conf");
}

struct Dhcpcd : Frugal {
    Dhcpcd() { run("rm -f " + kConf + "; ip link set swdev1 address 02:00:0a:0B:cd:0e addrgenmode none"); }
    ~Dhcpcd() override {
        run("rm -f " + kConf + " " + kDirectory + "*.dhcpcd.conf");
        EXPECT_FALSE(fs::exists("/pwned") || fs::exists("pwned"));
    }
    static std::string generation() {
        return exec("ip -d link show swdev1 | grep -o 'addrgenmode [a-z0-9]*' | cut -d' ' -f2");
    }
    const Device device{"swdev1"};
};

TEST_F(Dhcpcd, BlocksHoldWhatTheRecordSays) {
    using Fill = std::function<void(dhcpcd_iface&)>;
    const std::pair<Fill, std::string> cases[] = {
        {[](auto&) {}, "  ipv6rs\n  ipv6ra_autoconf\n"},
        {[](auto& record) { record.metric = 1; }, "  metric 1\n  ipv6rs\n  ipv6ra_autoconf\n"},
        {[](auto& record) { record.ia_na = true; }, "  ipv6rs\n  ia_na 0a0bcd0e\n  ipv6ra_noautoconf\n"},
        {[](auto& record) { record.ia_na = record.noipv6rs = true; }, "  noipv6rs\n  ipv6ra_noautoconf\n"},
        {[](auto& record) { record.ia_pd = record.nodhcp6 = record.noipv6rs = true; },
         "  noipv6rs\n  nodhcp6\n  ia_pd 0a0bcd0e\n  ipv6ra_autoconf\n"},
        {[](auto& record) {
             record.metric = 2147483647;
             for (bool* flag = &record.inform6; flag <= &record.ia_na; ++flag) {
                 *flag = flag != &record.noipv6rs;
             }
         },
         "  metric 2147483647\n  inform6\n  ipv6rs\n  nodhcp6\n  nogateway\n  noipv4\n  noipv6\n  noarp\n  "
         "nolink\n  ia_pd 0a0bcd0e\n  ia_na 0a0bcd0e\n  ipv6ra_noautoconf\n"},
    };
    for (const auto& [fill, expected] : cases) {
        dhcpcd_iface record = iface("swdev1");
        fill(record);
        EXPECT_EQ(dhcpcd_iface_set(&record), 0);
        EXPECT_EQ(block_of("swdev1"), block(expected));
        EXPECT_TRUE(is_lock_free("swdev1.dhcpcd.conf") && !fs::exists(kConf));
    }
    const dhcpcd_iface longest = iface("sixteen_letters_");
    EXPECT_EQ(dhcpcd_iface_set(&longest), 0) << "a name without a terminator";
    EXPECT_EQ(block_of("sixteen_letters_").substr(0, 27), "interface sixteen_letters_\n");
}

TEST_F(Dhcpcd, RefusedRecordsLeaveTheOldBlock) {
    const File old(kDirectory + "swdev1.dhcpcd.conf", "old");
    const dhcpcd_iface unknown = iface("swdev1", "none");
    EXPECT_EQ(dhcpcd_iface_set(nullptr), NM_ERR_NULL_ARG);
    EXPECT_EQ(dhcpcd_iface_set(&unknown), NM_ERR_IOCTL);
    EXPECT_EQ(dhcpcd_iface_unset(""), NM_ERR_NO_IFACE);
    for (const char* name :
         {"", "a\nb", "$(>/pwned)", "a\";>/pwned;\"", "`>/pwned`", "../swdev1", "-4", "*"}) {
        const dhcpcd_iface hostile = iface(name);
        Json::Value status;
        EXPECT_EQ(dhcpcd_iface_set(&hostile), NM_ERR_BAD_FORMAT) << name;
        EXPECT_EQ(*name == '\0' ? NM_ERR_BAD_FORMAT : dhcpcd_iface_unset(name), NM_ERR_BAD_FORMAT) << name;
        EXPECT_EQ(dhcpcd_iface_dhcp6_status(name, status), 0);
        EXPECT_EQ(status["ifname"], name);
        EXPECT_EQ(dhcpcd_iface_leased(name, 10) + dhcpcd_iface_unleased(name, 10), 0) << name;
    }
    EXPECT_EQ(lines_of("cd " + kDirectory + "; cat -- *.dhcpcd.conf; ls -A | grep dhcpcd; ls " + kConf),
              Lines({"oldswdev1.dhcpcd.conf"}));
}

TEST_F(Dhcpcd, AllBlocksAreOneConfigurationBeforeTheClientIsStarted) {
    const StandIn units("/usr/bin/systemctl");
    const File hostile(kDirectory + "\";>`>pwned`;$(>pwned)\n'.dhcpcd.conf", "# foreign\n");
    for (const char* name : {"swdev2", "swdev1"}) {
        const dhcpcd_iface record = iface(name);
        ASSERT_EQ(dhcpcd_iface_set(&record), 0);
    }
    const std::string lines = "  ipv6rs\n  ipv6ra_autoconf\n";
    const std::tuple<int (*)(std::string), const char*, const char*> cases[] = {
        {dhcpcd_iface_rebind, "restart", "DHCPCD_SVC_START=-n"},
        {dhcpcd_iface_renew, "restart", "DHCPCD_SVC_START=-N"},
        {dhcpcd_iface_release, "stop", "DHCPCD_SVC_STOP=-k"},
        {dhcpcd_iface_exit, "stop", "DHCPCD_SVC_STOP=-x"}};
    for (const auto& [operation, verb, env] : cases) {
        put(kConf, "old\n");
        EXPECT_EQ(operation("swdev1"), 0);
        EXPECT_EQ(StandIn::take(), "systemctl <"s + verb + "> <nm-dhcpcd@swdev1.service>\n");
        EXPECT_EQ(slurp("/run/network/.nm-dhcpcd@swdev1.env"), env);
        EXPECT_EQ(slurp(kConf), "allowinterfaces swdev1 swdev2\n" + slurp(kHead) + "# foreign\n" +
                                    block(lines) + block(lines, "swdev2"));
    }
    EXPECT_EQ(dhcpcd_iface_unset("swdev2"), 0);
    EXPECT_EQ(slurp(kConf), "allowinterfaces swdev1\n" + slurp(kHead) + "# foreign\n" + block(lines));
    put(kConf, "old\n");
    EXPECT_EQ(dhcpcd_iface_unset("swdev2"), 0) << "without a block";
    EXPECT_EQ(slurp(kConf), "old\n");
    EXPECT_EQ(dhcpcd_iface_unset("swdev1"), 0);
    EXPECT_EQ(slurp(kConf), slurp(kHead)) << "after the last one";
}

TEST_F(Dhcpcd, ClientIsLeftAloneWithoutItsConfiguration) {
    const dhcpcd_iface record = iface("swdev1");
    ASSERT_EQ(dhcpcd_iface_set(&record), 0);
    std::optional<StandIn> assembly(std::in_place, "/usr/bin/flock", 7);
    for (auto* operation :
         {dhcpcd_iface_rebind, dhcpcd_iface_renew, dhcpcd_iface_release, dhcpcd_iface_exit}) {
        const StandIn units("/usr/bin/systemctl");
        run("ip link set swdev1 addrgenmode none");
        EXPECT_EQ(operation("swdev1"), 7);
        EXPECT_EQ(StandIn::take().find("systemctl"), std::string::npos);
        const bool stops = operation == dhcpcd_iface_release || operation == dhcpcd_iface_exit;
        EXPECT_EQ(generation(), stops ? "eui64\n" : "none\n");
    }
    assembly.reset();
    const StandIn units("/usr/bin/systemctl", 5);
    EXPECT_EQ(dhcpcd_iface_rebind("swdev1"), 5);
    EXPECT_EQ(dhcpcd_iface_exit("swdev1"), 5);
    (void)StandIn::take();
    EXPECT_EQ(block_of("swdev1"), block("  ipv6rs\n  ipv6ra_autoconf\n")) << "a failed stop keeps it";
}

TEST_F(Dhcpcd, LeasesAreKeptByFamily) {
    const std::string lease = "/var/db/dhcpcd/swdev1.lease";
    const File v4(lease), other("/var/db/dhcpcd/swdev2.lease6");
    fs::create_directory(lease + "6");
    const std::tuple<const char*, int, int> cases[] = {{"swdev1", 2, 1}, {"swdev1", 10, 0}, {"swdev2", 10, 1},
                                                       {"swdev2", 2, 0}, {"swdev1", 3, 0},  {"swdev2", 3, 0}};
    for (const auto& [ifname, family, expected] : cases) {
        EXPECT_EQ(dhcpcd_iface_leased(ifname, static_cast<unsigned char>(family)), expected)
            << ifname << family;
    }
    for (const int family : {3, 10, 2, 2}) {
        EXPECT_EQ(dhcpcd_iface_unleased("swdev1", static_cast<unsigned char>(family)), 0) << family;
    }
    EXPECT_TRUE(!fs::exists(v4.path) && fs::exists(lease + "6") && fs::exists(other.path));
    fs::remove_all("/var/db/dhcpcd");
}

TEST(DhcpcdVariables, BecomeJson) {
    for (const Json::Value& row : golden("dhcp6_variables")) {
        Json::Value status = Json::objectValue;
        nm::read_dhcp6_variables(row[0].asString(), status);
        EXPECT_EQ(status, row[1]) << row << status;
    }
}

/// Reports one after the other on one record, and after each what is current: address/length by gateway, all
/// prefixes with their lifetimes, name servers.
TEST(DhcpcdReports, LeaveAddressesAndNumbersAlone) {
    Json::Value record;
    for (const Json::Value& row : golden("dhcp6_reports")) {
        const std::string text = " " + row[0].asString() + " ";
        const auto variable = [&](const std::string& name) {
            const std::size_t start = text.find(" " + name + "=");
            const std::size_t value = start + name.size() + 2;
            return start == text.npos ? "" : text.substr(value, text.find(' ', value) - value);
        };
        std::string now = "not ours";
        if (nm::take_client_report(variable, record)) {
            now = record["curr_ip"].asString() + "/" + record["curr_prefix_length"].asString() + " by " +
                  record["curr_gateway"].asString();
        }
        for (const Json::Value& prefix : now == "not ours" ? Json::Value() : record["pdInfo"]) {
            now += " " + prefix["prefix"].asString() + "/" + prefix["length"].asString() + " " +
                   prefix["pltime"].asString() + " " + prefix["vltime"].asString();
        }
        EXPECT_EQ(now, row[1].asString()) << row;
    }
}

/// A server in a network of its own at the far end of the device.
class Server {
public:
    Server() {
        put("/tmp/d6.conf",
            "option dhcp6.name-servers 2001:db8::53, 2001:db8::54;\nsubnet6 2001:db8:1::/64 {\n"
            "  range6 2001:db8:1::100 2001:db8:1::100;\n  prefix6 2001:db8:8:: 2001:db8:8:: /56;\n}\n");
        run("ip link set swdev1 up; sysctl -qw net.ipv6.conf.swdev1.disable_ipv6=0; : >/tmp/d6.leases; "
            "unshare -n sleep 600 & echo $! >/tmp/d6.net; sleep 0.2; ip link set far netns $(cat "
            "/tmp/d6.net); "
            "nsenter -t $(cat /tmp/d6.net) -n sh -c 'sysctl -qw net.ipv6.conf.far.disable_ipv6=0; ip link "
            "set far up; "
            "ip addr add 2001:db8:1::1/64 dev far nodad; sleep 2; exec dhcpd -6 -q -cf /tmp/d6.conf -lf "
            "/tmp/d6.leases "
            "-pf /tmp/d6.pid far' >/tmp/d6.log 2>&1");
    }
    ~Server() { run("kill $(cat /tmp/d6.pid /tmp/d6.net)"); }
};

std::string known() {
    Json::Value status;
    EXPECT_EQ(dhcpcd_iface_dhcp6_status("swdev1", status), 0);
    return nm::write_compact_json(status);
}

/// Waits until the client has seen that nobody else has the address of the lease: asked before, it would not
/// answer any more.
void wait_for_lease() {
    const std::string address = "ip -6 addr show swdev1 scope global -tentative";
    for (int tries = 0; tries < 100 && lines_of(address).empty(); ++tries) {
        usleep(200000);
    }
    sleep(1);
}

TEST_F(Dhcpcd, RealClientTakesItsConfigurationAndReportsItsLease) {
    using testing::HasSubstr;
    EXPECT_THAT(known(), HasSubstr(R"("ia_na":{},"ia_pd":{},"ifname":"swdev1")")) << "without a client";
    const Server server;
    dhcpcd_iface record = iface("swdev1");
    record.ia_na = record.ia_pd = record.noipv4 = true;
    record.metric = 7;
    ASSERT_EQ(dhcpcd_iface_set(&record), 0);
    const Lines lease{R"("address":"2001:db8:1::100")", R"("prefix":"2001:db8:8::")", R"("length":"56")",
                      R"(["2001:db8::53","2001:db8::54"])", R"("iaid":"0a0bcd0e")"};
    for (auto* operation : {dhcpcd_iface_rebind, dhcpcd_iface_renew}) {
        ASSERT_EQ(operation("swdev1"), 0);
        wait_for_lease();
        const std::string text = known();
        for (const std::string& word : lease) {
            EXPECT_THAT(text, HasSubstr(word));
        }
        EXPECT_EQ(dhcpcd_iface_leased("swdev1", 10), 1);
    }
    EXPECT_EQ(dhcpcd_iface_exit("swdev1"), 0);
    EXPECT_EQ(dhcpcd_iface_leased("swdev1", 10), 1) << "kept for the next start";
    ASSERT_EQ(dhcpcd_iface_rebind("swdev1"), 0);
    wait_for_lease();
    EXPECT_EQ(dhcpcd_iface_release("swdev1"), 0);
    EXPECT_EQ(dhcpcd_iface_leased("swdev1", 10), 0) << "given back";
    EXPECT_EQ(lines_of("pgrep dhcpcd; ip -6 addr show swdev1 scope global"), Lines{}) << "nothing is left";
}

TEST_F(Dhcpcd, RealClientKnowsEveryLine) {
    dhcpcd_iface record = iface("swdev1");
    for (bool* flag = &record.inform6; flag <= &record.ia_na; ++flag) {
        *flag = flag != &record.noipv6rs;
    }
    record.metric = 7;
    for (const bool noipv6rs : {false, true}) {
        record.noipv6rs = noipv6rs;
        ASSERT_EQ(dhcpcd_iface_set(&record), 0);
        const StandIn units("/usr/bin/systemctl");
        EXPECT_EQ(dhcpcd_iface_rebind("swdev1"), 0);
        (void)StandIn::take();
        run("echo '  bogus' >>" + kConf);
        EXPECT_EQ(lines_of("timeout 2 dhcpcd -B -6 swdev1 2>&1 | grep -iE 'unknown|invalid|bogus' | uniq"),
                  Lines{"unknown option: bogus"});
    }
}

}  // namespace
