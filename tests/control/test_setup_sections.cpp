// The small sections of the device document: who is reached by which request, and what the walk makes of it.
#include "fake_service.h"
#include "networkinterface.h"
#include "scripted_listener.h"
#include "stand_in.h"

using namespace fixture;

namespace {

const std::string kNew = "/etc/networkmanagement/new.json";
const std::string kLimit = "/proc/sys/net/nf_conntrack_max";

std::string member(const std::string& type, uint32_t ops, const std::string& path = kNew, uint32_t act = 3) {
    return "'" + type + "':{'ops':" + std::to_string(ops) + ",'act':" + std::to_string(act) + ",'path':'" +
           path + "'}";
}

int call(int (*entry)(char*), const std::string& members) {
    std::string request = quoted("{" + members + "}");
    return entry(request.data());
}

Listener::Act noting(const std::string& peer) {
    return [peer](int client) {
        const Json::Value sent = json(hear(client, "\n"));
        FakeService::note(peer + " " + sent["command"].asString() + " " + sent["path"].asString() + "\n");
    };
}

TEST(Misc, ReachesThoseWhoseBitsAreSet) {
    const File document(kNew, "{}");
    FakeService::take_calls();  // those of earlier tests
    {
        const Listener wanipd(noting("wanipd"), "/var/run/network/wanipd.sock");
        const Listener ncsid(noting("ncsid"), "/var/run/network/ncsid.sock");
        for (const uint32_t bit : {0U, 0x01U, 0x02U, 0x04U, 0x08U, 0x10U, 0x20U, 0x40U}) {
            for (const char* type : {"COMMON_PARAMETERS", "WANIPD_PARAMETERS", "NCSID_PARAMETERS"}) {
                EXPECT_EQ(call(Setup_misc, member(type, bit)), 0) << type << bit;
            }
        }
    }
    const Calls calls = FakeService::take_calls();
    EXPECT_EQ(std::count(calls.begin(), calls.end(), "wanipd refresh_all " + kNew + "\n"), 2 * 5);
    EXPECT_EQ(std::count(calls.begin(), calls.end(), "ncsid reconfig " + kNew + "\n"), 2 * 3);
    EXPECT_EQ(calls.size(), 16U);
    EXPECT_LT(call(Setup_misc, member("COMMON_PARAMETERS", 0x40)), 0) << "the daemons are gone";
}

TEST(Misc, LimitsTrackedConnections) {
    const auto written = [](const std::string& value, int code = 0) {
        const LogTail log;
        put(kNew, quoted("{'MISC':{'SYSNET_PARAMETERS':{'NF_CONNTRACK_MAX':" + value + "}}}"));
        EXPECT_EQ(call(Setup_misc, member("SYSNET_PARAMETERS", 0x20)), code) << value;
        // In a network namespace the kernel has no such file, or lets nobody write to it.
        const std::string text = slurp("/var/log/network/bootup.log");
        const size_t line = text.rfind(" >>> Write [");
        return log.has(" failed.") && line != text.npos
                   ? text.substr(line + 12, text.find(']', line) - line - 12)
                   : slurp(kLimit);
    };
    const File document(kNew);
    EXPECT_EQ(written("'100000'"), "101000");
    EXPECT_EQ(written("199"), "200") << "what lies behind the point is cut";
    EXPECT_EQ(written("'2147483647'"), "2147483647") << "the largest number";
    EXPECT_EQ(written("'-2147483648'"), "-2147483648") << "the smallest one";
    const LogTail log;
    EXPECT_EQ(written("'0'"), slurp(kLimit));
    written("{}", NM_ERR_BAD_FORMAT);
    EXPECT_FALSE(log.has("Write ["));
    fs::remove(kNew);
    EXPECT_EQ(call(Setup_misc, member("SYSNET_PARAMETERS", 0x20)), NM_ERR_NOT_FOUND);
    EXPECT_EQ(call(Setup_misc, member("SYSNET_PARAMETERS", 0x1f)), 0) << "not its bit";
}

TEST(Services, WorkTheNameServersOfTheDocumentThatTheActionMeans) {
    const auto servers = [](const char* address) {
        return quoted("{'SERVICES':{'DNS_INFO':{'DNS4':'" + std::string(address) + "'}}}");
    };
    const File stored(kDeviceInfoPath, servers("192.0.2.1")), changed(kNew, servers("192.0.2.2"));
    const File list(nm::kNameServersPath);
    const auto line = [](const char* address) {
        return "nameserver " + std::string(address) + " #ID=global\n";
    };
    struct Step {
        uint32_t act;
        uint32_t ops;
        int code;
        std::string after;
    };
    for (const Step& step : std::vector<Step>{{1, 0, 0, line("192.0.2.2")},
                                              {7, 4, NM_ERR_BAD_ACT, line("192.0.2.2")},
                                              {3, 4, 0, line("192.0.2.2")},
                                              {2, 0, 0, ""}}) {
        EXPECT_EQ(call(Setup_services, member("DNS_INFO", step.ops, kNew, step.act)), step.code) << step.act;
        EXPECT_EQ(slurp(nm::kNameServersPath), step.after) << step.act;
    }
}

TEST(Sections, RefuseWhatTheyDoNotKnow) {
    const LogTail log;
    const File document(kNew, "{}");
    for (int (*entry)(char*) : {Setup_services, Setup_misc}) {
        EXPECT_EQ(call(entry, member("OTHER", 1)), NM_ERR_BAD_TYPE);
        EXPECT_EQ(call(entry, member("", 1)), NM_ERR_NULL_ARG);
        EXPECT_EQ(call(entry, member("DNS_INFO", 1, "") + "," + member("MISC", 1, "")), NM_ERR_NULL_ARG);
        EXPECT_EQ(call(entry, "'A':7," + member("OTHER", 1)), NM_ERR_BAD_TYPE) << "the walk goes on";
        EXPECT_EQ(call(entry, ""), 0);
    }
    EXPECT_TRUE(log.has("Create Services instance failed, ret=-1008"));
    EXPECT_TRUE(log.has("Create Misc instance failed, ret=-1008"));
    EXPECT_EQ(_setup_misc("WANIPD_PARAMETERS", 14, 0x100, kNew), 0);
    EXPECT_TRUE(log.has("\nMisc type: WANIPD_PARAMETERS\npath: " + kNew + "\nact: e\nopt: 256\n"));
    Misc* misc = nullptr;
    EXPECT_EQ(create_Misc(&misc, "WANIPD_PARAMETERS", 1, 0, kNew), 0);
    EXPECT_EQ(create_Misc(&misc, "WANIPD_PARAMETERS", 1, 0, kNew), NM_ERR_NOT_NULL);
    delete misc;
}

TEST(Topology, SwitchesTheVpnByTheFirstBit) {
    const auto document = [](const std::string& vpn) {
        put(kNew, quoted("{'TOPOLOGY':{'VPN':" + vpn + "}}"));
    };
    const StandIn site_info("/usr/sbin/nm_bin");
    const FakeService rmgmtd("rmgmtd",
                             {{"ipsec.start", R"({"error":0})"}, {"ipsec.stop", R"({"error":-7})"}});
    const auto vpn = [](uint32_t ops) {
        const int code = call(Setup_topology, member("VPN", ops));
        return std::pair(code, FakeService::take_text());
    };
    const std::pair failed(NM_ERR_BAD_ACT, std::string("rmgmtd.ipsec.stop \n"));
    document("{'ENABLE':'TRUE'}");
    EXPECT_EQ(vpn(3), std::pair(0, std::string("rmgmtd.ipsec.start \n"))) << "during boot";
    EXPECT_EQ(vpn(2), std::pair(0, std::string()));
    for (const char* off : {"{'ENABLE':'true'}", "{'ENABLE':true}", "{}", "7"}) {
        document(off);
        EXPECT_EQ(vpn(1), failed) << off;
    }
    put(kNew, "no JSON");
    EXPECT_EQ(vpn(1), failed);
    fs::remove(kNew);
    EXPECT_EQ(vpn(1), failed);
    const File booted("/var/run/network/.boot_fin"), last(kNew);
    document("{'ENABLE':'TRUE'}");
    std::string calls = vpn(1).second;
    for (int wait = 0; wait < 100 && calls.find("nm_bin") == calls.npos; ++wait) {
        usleep(50000);
        calls += FakeService::take_text();
    }
    EXPECT_EQ(calls, "rmgmtd.ipsec.start \nnm_bin <site_info> <-l> <-r>\n");
}

TEST(Topology, CountsFailuresAndEndsAtAMemberThatAsksForNothing) {
    const File document(kNew, "{}");
    const FakeService rmgmtd("rmgmtd", {{"ipsec.stop", R"({"error":0})"}});
    const std::tuple<std::string, int, size_t> cases[] = {
        {"", 0, 0},
        {member("OTHER", 1) + "," + member("VPN", 1), NM_ERR_BAD_ACT, 1},
        {member("A", 0) + "," + member("VPN", 1), NM_ERR_BAD_FORMAT, 0},
        {member("A", 1, "") + "," + member("VPN", 1), NM_ERR_BAD_FORMAT, 0},
        {"'A':7," + member("VPN", 1), NM_ERR_BAD_FORMAT, 0},
        {member("VPN", 1) + "," + member("W", 0), NM_ERR_BAD_FORMAT, 1},
    };
    for (const auto& [members, code, calls] : cases) {
        EXPECT_EQ(call(Setup_topology, members), code) << members;
        EXPECT_EQ(FakeService::take_calls().size(), calls) << members;
    }
    EXPECT_EQ(Setup_topology(nullptr), NM_ERR_NULL_ARG);
}

}  // namespace
