// Load balancing: the scripts as they reach the restore commands, and whose result the call has. That they
// load and spread real connections is shown in the test machine, whose kernel has the match `condition`.
#include <tuple>

#include "fake_service.h"
#include "policy/load_balance.h"
#include "result_codes.h"
#include "sandbox_fixture.h"
#include "stand_in.h"

using namespace fixture;
using namespace std::string_literals;

namespace {

const std::string kReload = "VelanWmd.Reload_condition \n";
const std::string kFine = R"({"error":0,"data":{"error":0}})";

std::string wan(const std::string& entries) {
    return quoted("{'WAN_PORT':{" + entries + "}}");
}
std::string entry(const std::string& port, const std::string& ifname, const std::string& prio,
                  const std::string& rate) {
    return "'" + port + "':{'INTERFACE':'" + ifname + "','PRIO':'" + prio + "','TX_RATE':'" + rate + "'}";
}

/// Rules are written short: "?" tests a condition, "%" a probability, "~" the mark, " = " sets it.
std::string expanded(std::string text) {
    for (const auto& [sign, meaning] : std::initializer_list<std::pair<std::string, std::string>>{
             {"?", "-m condition --condition"},
             {"%", "-m statistic --mode random --probability"},
             {" = ", " -j MARK --set-mark "},
             {"~", "-m mark --mark"}}) {
        for (std::size_t at = 0; (at = text.find(sign, at)) != std::string::npos; at += meaning.size()) {
            text.replace(at, sign.size(), meaning);
        }
    }
    return text;
}

const std::string kRestore = "-A S2SLB -j CONNMARK --restore-mark --nfmask 0xf --ctmask 0xf\n";
const std::string kMpls = "-A S2SLB -m set ! --match-set mpls_rlan dst -j S2SLB_WITHOUT_MPLS\n";
std::string saved(const std::string& chain, const std::string& mask = "0xf") {
    return "-A " + chain + " -j CONNMARK --save-mark --nfmask " + mask + " --ctmask " + mask + "\n";
}
std::string kept(const std::string& chain) {
    return "-A " + chain + " -m mark ! --mark 0x0/0xf -j RETURN\n";
}

/// The commands with what they read, and the calls to the monitor, in the order in which they came.
std::string taken() {
    std::string text;
    for (const std::string& line : FakeService::take_calls()) {
        text += line + "\n";
    }
    return text;
}

struct LoadBalance : testing::Test {
    const StandIn ip4{"/sbin/iptables-restore", 2}, ip6{"/sbin/ip6tables-restore", 2};
    const Scratch dir;
    const std::string path = dir / "device.json";
};

TEST_F(LoadBalance, SpreadsTrafficBetweenSites) {
    const FakeService monitor("VelanWmd", {{"Reload_condition", kFine}});
    put(path, quoted("{'WAN_PORT':{" + entry("PORT1", "swdev3", "3", "30") + "," +
                     entry("PORT2", "swdev1", "1", "10") +
                     ",'PORT5':7,'PORT6':{'INTERFACE':[],'PRIO':'1','TX_RATE':'1'}},"
                     "'PRIVATE_PORT':{" +
                     entry("PORT3", "eth12", "2", "20") + "," + entry("PORT4", "mpls", "0", "10") + "}}"));
    const LogTail log;
    EXPECT_EQ(setup_site_to_site_load_balance(path), 0) << "the reload's result counts";
    EXPECT_TRUE(log.has("setup_site_to_site_load_balance() failed."));
    EXPECT_TRUE(log.has("setup ipv6 site-to-site load balancing failed."));
    const auto choice = [](const std::string& c) {
        return "-A " + c + " ~ 0x0/0xf ? swdev3 % 0.750000 = 3/0xf\n-A " + c +
               " ~ 0x0/0xf ? swdev1 = 1/0xf\n" + "-A " + c + " ~ 0x0/0xf ? swdev3 = 3/0xf\n";
    };
    EXPECT_EQ(taken(),
              expanded("iptables-restore <-n>\n*mangle\n-F S2SLB\n-F S2SLB_WITHOUT_MPLS\n" + kRestore +
                       "-A S2SLB ~ 1/0xf -m condition ! --condition swdev1 = 0x0/0xf\n"
                       "-A S2SLB ~ 12/0xf -m condition ! --condition eth12 = 0x0/0xf\n"
                       "-A S2SLB ~ 3/0xf -m condition ! --condition swdev3 = 0x0/0xf\n" +
                       kMpls + kept("S2SLB") +
                       "-A S2SLB ~ 0x0/0xf ? swdev3 % 0.500000 = 3/0xf\n"
                       "-A S2SLB ~ 0x0/0xf ? eth12 % 0.666667 = 12/0xf\n"
                       "-A S2SLB ~ 0x0/0xf ? swdev1 = 1/0xf\n-A S2SLB ~ 0x0/0xf ? eth12 = 12/0xf\n"
                       "-A S2SLB ~ 0x0/0xf ? swdev3 = 3/0xf\n" +
                       saved("S2SLB") +
                       "-A S2SLB_WITHOUT_MPLS ~ 12/0xf = 0x0/0xf\n-A S2SLB_WITHOUT_MPLS ~ 0/0xf = 0x0/0xf\n" +
                       kept("S2SLB_WITHOUT_MPLS") + choice("S2SLB_WITHOUT_MPLS") +
                       saved("S2SLB_WITHOUT_MPLS") + "COMMIT\nip6tables-restore <-n>\n*mangle\n-F S2SLB\n" +
                       kRestore + choice("S2SLB") + saved("S2SLB") + "COMMIT\n" + kReload));
}

TEST_F(LoadBalance, SpreadsLanTraffic) {
    const FakeService monitor("VelanWmd", {{"Reload_condition", kFine}});
    put(path, wan(entry("PORT1", "a;$(b)`c\\\\ \\\"d", "1", "1") + "," + entry("PORT2", "swdev2", "2", "2") +
                  "," + entry("PORT3", "x\\ny", "3", "3")));
    EXPECT_EQ(setup_lan_to_wan_load_balance(path), 0);
    const std::string odd = R"("a;$(b)`c\\ \"d_ncsi")";
    EXPECT_EQ(taken(),
              expanded("iptables-restore <-n>\n*mangle\n-F WANLB\n"
                       "-A WANLB -j CONNMARK --restore-mark --nfmask 0x200f --ctmask 0x200f\n"
                       "-A WANLB ~ 8192/0x200f -m condition ! --condition " +
                       odd +
                       " = 0x0/0x200f\n"
                       "-A WANLB ~ 8194/0x200f -m condition ! --condition swdev2_ncsi = 0x0/0x200f\n" +
                       kept("WANLB") +
                       "-A WANLB ~ 0x0/0xf ? swdev2_ncsi % 0.666667 = 8194/0x200f\n"
                       "-A WANLB ~ 0x0/0x200f ? " +
                       odd +
                       " = 8192/0x200f\n"
                       "-A WANLB ~ 0x0/0x200f ? swdev2_ncsi = 8194/0x200f\n" +
                       saved("WANLB", "0x200f") + "COMMIT\n" + kReload));
}

TEST_F(LoadBalance, WeighsTheRates) {
    const FakeService monitor("VelanWmd", {{"Reload_condition", kFine}});
    std::string eight;
    for (int i = 1; i <= 8; ++i) {
        eight += (i > 1 ? "," : "") + entry("P" + std::to_string(i), "swdev", "7", "5");
    }
    const std::string huge = "9223372036854775807";
    for (const auto& [entries, probabilities] : std::initializer_list<std::pair<std::string, std::string>>{
             {entry("P1", "swdev1", "1", "5"), ""},
             {eight, "0.125000 0.142857 0.166667 0.200000 0.250000 0.333333 0.500000 "},
             {entry("P1", "i", "-1", huge) + "," + entry("P2", "i", "4", huge), "0.500000 "},
             {entry("P1", "i", "1", "6") + ",'P2':{'INTERFACE':'i','PRIO':'2','TX_RATE':9,'ISP_BW':'2 M'}",
              "0.250000 "},
             {entry("P1", "i", "1", "6") + ",'P2':{'INTERFACE':'i','PRIO':2,'ISP_BW':2}", "0.250000 "}}) {
        put(path, wan(entries));
        EXPECT_EQ(setup_lan_to_wan_load_balance(path), 0) << entries;
        const std::string script = taken();
        std::string found;
        for (std::size_t at = 0; (at = script.find("--probability ", at)) != std::string::npos; ++at) {
            found += script.substr(at + 14, 9);
        }
        EXPECT_EQ(found, probabilities) << entries;
    }
}

TEST_F(LoadBalance, NeedsAPortThatTakesPart) {
    const FakeService monitor("VelanWmd", {{"Reload_condition", kFine}});
    for (const auto& [entries, words] : std::initializer_list<std::pair<std::string, std::string>>{
             {"", "Missing WAN_PORT info."},
             {entry("P1", "i", "0", "1"), "Empty WAN_PORT info."},
             {entry("P1", "", "1", "1"), "Empty WAN_PORT info."},
             {entry("P1", "i", "x", "1"), "Empty WAN_PORT info."},
             {entry("P1", "x\\ny", "1", "1"), "Bad interface name: x"},
             {"'P1':{'INTERFACE':'i','PRIO':'1','TX_RATE':'0','ISP_BW':'9'}", "Empty WAN_PORT info."},
             {entry("P1", "i", "1", "-1"), "Empty WAN_PORT info."},
             {entry("P1", "i", "1", "18446744073709551616"), "Empty WAN_PORT info."}}) {
        put(path, wan(entries));
        for (const auto setup : {setup_lan_to_wan_load_balance, setup_site_to_site_load_balance}) {
            const LogTail log;
            EXPECT_EQ(setup(path), NM_ERR_EMPTY) << entries;
            EXPECT_TRUE(log.has(words)) << entries;
        }
    }
    const LogTail log;
    EXPECT_EQ(setup_lan_to_wan_load_balance("/none"), NM_ERR_NOT_FOUND);
    EXPECT_TRUE(log.has("Read json file: /none failed."));
    EXPECT_EQ(setup_local_single_wan_nf_condiftion(path), NM_ERR_OPEN) << "no rule names the condition";
    EXPECT_TRUE(log.has("file not good: "));
    EXPECT_EQ(taken(), "");
}

TEST_F(LoadBalance, HasTheResultOfTheReload) {
    put(path, wan(entry("P1", "swdev1", "1", "1")));
    put("/sbin/iptables-restore", "#!/bin/sh\n");  // loads whatever it is given
    const LogTail absent;
    EXPECT_EQ(setup_site_to_site_load_balance(path), NM_ERR_BUS_CALL);
    EXPECT_TRUE(absent.has("vsh VelanWmd.Reload_condition failed."));
    EXPECT_FALSE(absent.has("setup_site_to_site_load_balance() failed."));
    for (const auto& [reply, result, words] :
         std::initializer_list<std::tuple<std::string, int, std::string>>{
             {R"({"error":-7})", -7, "vsh VelanWmd.Reload_condition failed."},
             {R"({"error":0,"data":{"error":4,"result":"no file"}})", NM_ERR_RELOAD, "Error: no file"},
             {R"({"error":0,"data":{"error":4}})", NM_ERR_RELOAD, "Error: Unknown Error."},
             {R"({"error":0})", NM_ERR_PARSE, "Json parse failed."},
             {R"({"error":0,"data":{"error":"x"}})", NM_ERR_PARSE, "Unknown Error: "},
             {R"({"error":0,"data":{}})", 0, ""}}) {
        const FakeService monitor("VelanWmd", {{"Reload_condition", reply}});
        const LogTail log;
        EXPECT_EQ(setup_lan_to_wan_load_balance(path), result) << reply;
        EXPECT_TRUE(log.has(words)) << reply;
    }
}

}  // namespace
