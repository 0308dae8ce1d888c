// The rehearsal as its callers see it: what is reported of a function that changes the device, that nothing
// of it is seen outside, and what is said where there is no report.
#include <linux/capability.h>
#include <signal.h>
#include <sys/prctl.h>
#include <sys/stat.h>
#include <sys/syscall.h>
#include <sys/sysmacros.h>
#include <unistd.h>

#include <cerrno>

#include "conforms.h"
#include "inspect/network_state.h"
#include "inspect/rehearsal.h"
#include "inspect/world.h"
#include "kernel_world.h"
#include "utils/call_notes.h"
#include "utils/json_text.h"
#include "utils/process.h"
#include "utils/secrets.h"

using namespace kernel_world;

namespace {

struct Rehearsed : Frugal {};

Json::Value change_of(const Json::Value& report, const std::string& domain, const std::string& name) {
    for (const Json::Value& change : report["changes"]) {
        if (change["domain"] == domain && change["name"] == name) {
            return change;
        }
    }
    return {};
}

TEST_F(Rehearsed, ChangesAreReportedAndStayInside) {
    put("/etc/networkmanagement/device_info.json", R"({"PASSWORD": "geheim-7"})");
    Json::Value before;
    read_network_state(before);
    Json::Value report;
    const auto request = [] {
        nm::note_error("about geheim-7");
        (void)nm::work_target("PORT1", [] { return -1002; });
        (void)system_cmd("/sbin/ip link add br7 type bridge && /sbin/ip addr add 10.7.0.1/24 dev br7");
        (void)system_cmd(
            "echo '10.7.0.1 here' >>/etc/hosts; echo pin 1234 >/run/network/options; rm -rf "
            "/usr/share/networkmanagement");
        (void)system_cmd(
            "echo geheim-7; /usr/bin/systemctl start nm-dhcpd@br7; echo mixed >>/run/rehearsal/calls; kill "
            "-9 -1");
        return -1045;
    };
    ASSERT_EQ(rehearse(request, report), NM_OK) << report;
    EXPECT_TRUE(conforms("plan.json", report)) << report;
    EXPECT_EQ(report["answer"]["code"], -1045);
    EXPECT_EQ(report["answer"]["targets"][0]["code"], -1002);
    EXPECT_EQ(report["answer"]["errors"][0], "about ***");
    EXPECT_NE(report["answer"]["output"].asString().find("***\n"), std::string::npos);
    EXPECT_EQ(report.toStyledString().find("geheim-7"), std::string::npos);
    EXPECT_EQ(change_of(report, "link", "br7")["change"], "created");
    EXPECT_EQ(change_of(report, "address", "br7")["added"][0], "10.7.0.1/24 scope global label br7");
    EXPECT_EQ(change_of(report, "file", "/etc/hosts")["added"][0], "10.7.0.1 here");
    EXPECT_EQ(change_of(report, "file", "/run/network/options")["added"][1], "pin ***");
    EXPECT_EQ(change_of(report, "unit", "nm-dhcpd@br7.service")["change"], "created");
    EXPECT_EQ(report["calls"][0]["command"][2], "nm-dhcpd@br7");
    EXPECT_EQ(report["unlike"][0]["name"], "calls made at the same time, whose records are mixed");
    Json::Value after;
    read_network_state(after);
    EXPECT_EQ(compare_network_states(before, after), Json::Value(Json::arrayValue));
    EXPECT_TRUE(fs::exists("/usr/share/networkmanagement/schema/plan.json"));
}

TEST_F(Rehearsed, TheKernelIsOutOfReach) {
    Json::Value report;
    const auto request = [] {
        const bool has_time = syscall(SYS_settimeofday, nullptr, nullptr) == 0 || errno != EPERM;
        const bool has_nodes = mknod("/tmp/node", S_IFCHR | 0600, makedev(1, 3)) == 0 || errno != EPERM;
        const bool has_modules = prctl(PR_CAPBSET_READ, CAP_SYS_MODULE) != 0;
        const bool has_controls = access("/proc/irq", W_OK) == 0 || errno != EROFS;
        return has_time + 2 * has_nodes + 4 * has_modules + 8 * has_controls;
    };
    ASSERT_EQ(rehearse(request, report), NM_OK) << report;
    EXPECT_EQ(report["answer"]["code"], 0);
    EXPECT_EQ(report["unlike"], Json::Value(Json::arrayValue)) << report;
}

TEST_F(Rehearsed, WithoutAReportTheReasonIsSaid) {
    Json::Value report;
    EXPECT_EQ(rehearse(nullptr, report), NM_ERR_NULL_ARG);
    EXPECT_EQ(rehearse([]() -> int { throw std::runtime_error("broken"); }, report), NM_ERR_SERVICE);
    EXPECT_EQ(report["reason"], "broken");
    EXPECT_EQ(rehearse([]() -> int { throw -7; }, report), NM_ERR_SERVICE);
    EXPECT_EQ(report["reason"], "the request was left with the code -7");
    EXPECT_EQ(rehearse([] { return _exit(0), 0; }, report), NM_ERR_SERVICE);
    EXPECT_EQ(report["reason"], "the rehearsal was ended before its report was whole");
    EXPECT_TRUE(conforms("plan.json", report)) << report;
}

TEST(Secrets, AreMaskedWhateverTheirType) {
    Json::Value document;
    ASSERT_TRUE(nm::parse_json(
        R"({"PASSWORD": 12345678, "keys": ["geheim-8", [77001]], "token": true, "VLAN": 10, "a": [{"pin": "4711"}]})",
        document));
    secret_words secrets;
    secrets.learn(document);
    const char* const rows[][2] = {
        {R"("PASSWORD" : 99,)", R"("PASSWORD" : ***,)"},
        {R"({"psk":1.5e3})", R"({"psk":***})"},
        {R"("PASSWORD" : 99)", R"("PASSWORD" : ***)"},
        {"\"PASSWORD\" : 99\nMTU 1500", "\"PASSWORD\" : ***\nMTU 1500"},
        {R"("PASSWORD" : "a\"b", "MTU" : 1500)", R"("PASSWORD" : "***", "MTU" : 1500)"},
        {R"({"keys":["]a",["b"],3],"MTU":1500})", R"({"keys":[***],"MTU":1500})"},
        {R"("keys" : [ "cut)", R"("keys" : [***)"},
        {R"("keys" : [)", R"("keys" : [)"},
        {R"("secret" : {"MTU": 1500})", R"("secret" : {"MTU": 1500})"},
        {R"("PASSWORD":)", R"("PASSWORD":)"},
        {"\t\"geheim-8\",", "\t\"***\","},
        {"77001 4711 12345678 123456789 true 10", "*** *** *** 123456789 true 10"},
    };
    for (const auto& [text, masked] : rows) {
        EXPECT_EQ(secrets.mask(text), masked);
        EXPECT_EQ(secrets.mask(masked), masked);
    }
}

TEST(Described, ATimeoutOfASetCountsAndThatOfAMemberDoesNot) {
    nm::WorldSource source;
    source.sets = "create s hash:ip timeout 60\nadd s 10.0.0.1 timeout 7\n";
    const nm::Lines lines = nm::describe_world(source)[nm::Domain::Set]["s"];
    EXPECT_EQ(lines, (nm::Lines{"type hash:ip timeout 60", "10.0.0.1"}));
}

TEST(Described, OnlyALinkLayerWithAddressesOfItsOwnShowsOne) {
    nm::WorldSource source;
    ASSERT_TRUE(nm::parse_json(R"([
        {"ifname": "eth1", "link_type": "ether", "address": "02:00:00:00:00:01"},
        {"ifname": "ppp-eth1", "link_type": "ppp"},
        {"ifname": "ppp-eth2", "link_type": "ether", "address": "02:00:00:00:00:02"},
        {"ifname": "tun0", "link_type": "none"}])",
                               source.devices));
    nm::Things links = nm::describe_world(source)[nm::Domain::Link];
    EXPECT_EQ(links["eth1"], (nm::Lines{"down", "address 02:00:00:00:00:01"}));
    for (const char* const name : {"ppp-eth1", "ppp-eth2", "tun0"}) {
        EXPECT_EQ(links[name], nm::Lines{"down"}) << name;
    }
}

TEST(Difference, IsTheLeastByLines) {
    using nm::Lines;
    const struct {
        Lines before, after, removed, added;
    } rows[] = {
        {{}, {}, {}, {}},
        {{"a", "b", "c"}, {"a", "b", "c"}, {}, {}},
        {{"a", "b", "c"}, {"a", "x", "c"}, {"b"}, {"x"}},
        {{"a", "a"}, {"a"}, {"a"}, {}},
        {{"a", "b"}, {"b", "a"}, {"a"}, {"a"}},
        {Lines(3000, "a"), Lines(2999, "a"), {"a"}, {}},
        {{"a", "b", "c", "d"}, {"b", "x", "d", "e"}, {"a", "c"}, {"x", "e"}},
    };
    for (const auto& row : rows) {
        const nm::LineDifference difference = nm::compare_lines(row.before, row.after);
        EXPECT_EQ(difference.removed, row.removed);
        EXPECT_EQ(difference.added, row.added);
    }
    Lines many, others;
    for (int i = 0; i < 5000; ++i) {
        many.push_back("x" + std::to_string(i * 2));
        others.push_back("x" + std::to_string(i * 2 + i % 2));
    }
    EXPECT_EQ(nm::compare_lines(many, others).added.size(), 2500U);
}

}  // namespace
