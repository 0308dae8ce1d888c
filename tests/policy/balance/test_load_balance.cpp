// Load balancing: the scripts as they reach the restore commands, and whose result the call has. That they
// load and spread real connections is shown in the test machine, whose kernel has the match `condition`.

#include "fake_service.h"
#include "policy/balance/load_balance.h"
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

struct LoadBalance : testing::Test {
    const StandIn ip4{"/sbin/iptables-restore", 2}, ip6{"/sbin/ip6tables-restore", 2};
    const Scratch dir;
    const std::string path = dir / "device.json";
};

/// The documents of golden/load_balance, and beside each what both calls make of it.
TEST_F(LoadBalance, WritesTheGoldenScripts) {
    const FakeService monitor("VelanWmd", {{"Reload_condition", kFine}});
    int cases = 0;
    for (const fs::path& file : fs::directory_iterator(NM_TEST_DIR "/balance/golden/load_balance")) {
        if (file.extension() != ".json") {
            continue;
        }
        const LogTail log;
        EXPECT_EQ(setup_site_to_site_load_balance(file), 0) << "the reload's result counts";
        EXPECT_EQ(setup_lan_to_wan_load_balance(file), 0);
        EXPECT_EQ(FakeService::take_text(), slurp(fs::path(file).replace_extension(".txt"))) << file;
        for (const char* const words :
             {"setup_site_to_site_load_balance() failed.", "setup ipv6 site-to-site load balancing failed.",
              "setup_lan_to_wan_load_balance() failed."}) {
            EXPECT_TRUE(log.has(words)) << words;
        }
        ++cases;
    }
    EXPECT_EQ(cases, 4);
}

TEST_F(LoadBalance, WeighsTheRates) {
    const FakeService monitor("VelanWmd", {{"Reload_condition", kFine}});
    const std::string huge = "9223372036854775807";
    for (const auto& [entries, probabilities] : std::initializer_list<std::pair<std::string, std::string>>{
             {entry("P1", "i", "7", "5") + "," + entry("P2", "i", "7", "5"), "0.500000 "},
             {entry("P1", "i", "-1", huge) + "," + entry("P2", "i", "4", huge), "0.500000 "},
             {entry("P1", "i", "1", "6") + ",'P2':{'INTERFACE':'i','PRIO':'2','TX_RATE':9,'ISP_BW':'2 M'}",
              "0.250000 "},
             {entry("P1", "i", "1", "6") + ",'P2':{'INTERFACE':'i','PRIO':2,'ISP_BW':2}", "0.250000 "}}) {
        put(path, wan(entries));
        EXPECT_EQ(setup_lan_to_wan_load_balance(path), 0) << entries;
        const std::string script = FakeService::take_text();
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
    EXPECT_EQ(FakeService::take_text(), "");
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
             {R"({"error":0,"data":{}})", 0, ""}}) {
        const FakeService monitor("VelanWmd", {{"Reload_condition", reply}});
        const LogTail log;
        EXPECT_EQ(setup_lan_to_wan_load_balance(path), result) << reply;
        EXPECT_TRUE(log.has(words)) << reply;
    }
}

}  // namespace
