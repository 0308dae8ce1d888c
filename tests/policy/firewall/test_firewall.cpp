// The firewall, policy and steering documents: the scripts as they reach the restore command, with all
// commands around them, and what becomes of an apply that fails. That the scripts load, and what their rules
// do to packets, is shown in the test machine, whose kernel has the target VTARGET.
#include <tuple>

#include "config/nmconfig.h"
#include "fake_service.h"
#include "policy/firewall/firewall.h"
#include "policy/firewall/firewall_rule.h"
#include "policy/firewall/hostname_sets.h"
#include "policy/firewall/nat_rules.h"
#include "policy/firewall/policy.h"
#include "result_codes.h"
#include "sandbox_fixture.h"
#include "stand_in.h"

using namespace fixture;

namespace {

const std::string kMap = "/var/run/network/dnsmasq.d/ipset.conf";
const std::string kGolden = NM_POLICY_DIR "/firewall/golden";
const std::string kAbsent = "case $* in *absent* | 'destroy HOSTNAME1') echo; exit 1;; esac";

Json::Value document(const fs::path& path) {
    Json::Value value;
    nm::parse_json(slurp(path), value);
    return value;
}

/// What all goldens share: sets and chains called absent are not there, and the set HOSTNAME1 is in use.
struct Firewall : testing::Test {
    Firewall() {
        put(kMap, "");
        put(kDeviceInfoPath, slurp(kGolden + "/device_info.json"));
    }
    int apply(const std::string& chain, Json::Value& before, Json::Value& now) {
        error = "untouched";
        return chain == "POLICY" ? setup_firewall_policy(before, now, error)
                                 : setup_firewall(before, now, "mangle", chain, error);
    }
    const File booted{"/var/run/network/.boot_fin"};
    const FakeService dnsmasq{"DnsmasqMgr", {{"Restart", R"({"error":0})"}}};
    const StandIn ipset{"/sbin/ipset", 0, kAbsent}, iptables{"/sbin/iptables", 0, kAbsent};
    std::string error;
};

/// A directory a case: documents, map of host names and default class in; commands, scripts and what is kept
/// out.
TEST_F(Firewall, WritesTheGoldenScripts) {
    const StandIn restore("/sbin/iptables-restore");
    int cases = 0;
    for (const fs::path& test : fs::directory_iterator(kGolden)) {
        if (!fs::is_directory(test)) {
            continue;
        }
        Json::Value before = document(test / "old.json");
        Json::Value now = document(test / "new.json");
        put(kMap, slurp(test / "ipset.conf"));
        const File qos("/etc/networkmanagement/qos.json", slurp(test / "qos.json"));
        const std::string name = test.filename();
        const std::string chain = name[0] == 'f' ? "FIREWALL" : name[0] == 's' ? "STEER" : "POLICY";
        const std::string result = std::to_string(apply(chain, before, now)) + " " + error;
        const std::string taken = FakeService::take_text() + "= " + result + "\n" +
                                  nm::show_json(now["CHAIN_NAME"]) + "\n" + slurp(kMap);
        EXPECT_EQ(taken, slurp(test / "expected.txt")) << test;
        ++cases;
    }
    EXPECT_EQ(cases, 12);
}

}  // namespace
