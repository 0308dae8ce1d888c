// What follows when an uplink of some kind changes its rates: the work that depends on the set of uplinks,
// which looks at the kinds that it is about.

#include "networkinterface.h"
#include "stand_in.h"

using namespace fixture;

namespace {

TEST(UplinkFollowUps, AreThoseOfTheKindAndSeeTheKindsTheyAreAbout) {
    const File document(
        "/etc/networkmanagement/new.json",
        quoted("{'WAN_PORT':{'PORT1':{'INTERFACE':'swdev1','PRIO':'1','ISP_BW':'1000000000'}},"
               "'PRIVATE_PORT':{'PORT2':{'INTERFACE':'swdev2','PRIO':'1','ISP_BW':'2000000000'}},"
               "'RGLINK_PORT':{'PORT3':{'INTERFACE':'swdev3','PRIO':'1','ISP_BW':'4000000000'}}}"));
    const fs::path window = "/proc/sys/net/ipv4/tcp_rmem";
    const std::string before = slurp(window);
    const StandIn ip4("/usr/sbin/iptables-restore"), ip6("/usr/sbin/ip6tables-restore");
    const std::map<std::string, int (*)(char*)> entries{
        {"PORT1", Setup_wanif}, {"PORT2", Setup_privateif}, {"PORT3", Setup_rglinkif}};
    for (const auto& [port, entry] : entries) {
        const LogTail log;
        put(window, before);
        for (const uint32_t ops : {4U, 16U}) {
            put("/tmp/stand_in", "");
            std::string request = quoted("{'" + port + "':{'act':3,'ops':" + std::to_string(ops) +
                                         ",'path':'/etc/networkmanagement/new.json'}}");
            EXPECT_EQ(entry(request.data()), NM_ERR_NO_IFACE) << port;
            const std::string rules = StandIn::take();
            const auto holds = [&rules](const char* words) { return rules.find(words) != rules.npos; };
            EXPECT_EQ(holds("-F S2SLB"), ops == 16) << port;
            EXPECT_EQ(holds("-F WANLB"), ops == 16 && port == "PORT1") << port;
            EXPECT_EQ(holds("--condition swdev1 ") && holds("--condition swdev2 "), ops == 16) << port;
            EXPECT_FALSE(holds("swdev3")) << port;
        }
        EXPECT_EQ(log.has("single_wan_condition"), port == "PORT1") << port;
        EXPECT_EQ(slurp(window), "4096\t87380\t300000000\n") << port;
    }
    put(window, before);
}

}  // namespace
