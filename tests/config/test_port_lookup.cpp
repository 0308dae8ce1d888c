// Lookups between port, interface, role and kind.

#include "golden.h"
#include "networkinterface.h"

using namespace fixture;
using namespace std::string_literals;

namespace {

const std::string kPath = "/etc/networkmanagement/lookup.json";

struct Lookup : testing::Test {
    Json::Value root = golden("lookup");
    File file{kPath, root.toStyledString()};

    /// Rows of key, expected name and expected result. A name "-" stands for none.
    template <class Function>
    void check(const char* table, Function look_up) {
        std::istringstream rows(table);
        std::string key;
        std::string expected;
        for (int code = 0; rows >> key >> expected >> code;) {
            std::string found = "-";
            EXPECT_EQ(look_up(key, root, found), code) << key;
            EXPECT_EQ(found, expected) << key;
            EXPECT_EQ(look_up(key, kPath, found), code) << key;
        }
    }
};

TEST_F(Lookup, NamesAreFoundByNames) {
    check("PORT1 WAN 0 PORT2 PRIVATE 0 PORT3 RGLINK 0 PORT4 LAN 0 PORT9 - -1 PORT - -1",
          [](auto& port, auto& from, auto& out) { return get_port_role(port, from, out); });
    check("swdev1 PORT1 0 ppp-swdev1 PORT1 0 both PORT7 0 swdev4 PORT4 0 swdev2 - -1002 swdev - -1002",
          [](auto& ifname, auto& from, auto& out) { return get_portname_by_ifname(ifname, from, out); });
    check("swdev1 - 1 swdev2 - 2 swdev3 - 3 swdev4 - 4 swdev9 - 0 nothing - 0",
          [](auto& ifname, auto& from, auto&) { return get_ifacetype_by_ifname(ifname, from); });
    // The mode stands before the port.
    check(
        "0PORT1 ppp-swdev1 0  0PORT10 swdev10 0  0PORT2 swdev2 0  0PORT4 swdev4 0  0PORT3 ppp-swdev3 0 "
        "0PORT6 swdev6 0  0PORT7 both 0  1PORT7 both 0  2PORT7 lan7 0  4PORT7 private7 0  5PORT7 - -1002 "
        "3PORT7 - -1002  2PORT1 - -1002  0PORT9 - -1002  5PORT3 ppp-swdev3 0  0 - -1022",
        [](auto& key, auto& from, auto& out) {
            return get_ifname_by_portname(key.substr(1), from, out, key[0] - '0');
        });
}

TEST_F(Lookup, IdIsStoredOrThePortsNumber) {
    const std::map<std::string, int> ids{{"swdev1", 5},   {"ppp-swdev1", 5},   {"both", 7},
                                         {"swdev10", 10}, {"ppp-swdev10", 10}, {"swdev1.7", 5},
                                         {"swdev2", 0}};
    for (const auto& [ifname, expected] : ids) {
        uint8_t id = 0;
        EXPECT_EQ(get_id_by_wan_ifname(ifname, id, kPath), expected == 0 ? NM_ERR_NO_IFACE : 0) << ifname;
        EXPECT_EQ(id, expected) << ifname;
    }
}

TEST(Downlinks, AreThoseOfTheUplinkThatAreServedOrRelayed) {
    const File file(kPath, golden("downlinks").toStyledString());
    const auto names = [](auto collect, const std::string& uplink) {
        std::vector<ipv6_downlink> list(1);
        EXPECT_EQ(collect(uplink, kPath, list), NM_OK);
        std::string text;
        for (const ipv6_downlink& downlink : list) {
            text += downlink.ifname + (downlink.ifindex != 0 ? "+" : "") + " " + downlink.ip6_addr + "/" +
                    std::to_string(downlink.ip6_prefix) + " ";
        }
        return text;
    };
    EXPECT_EQ(names(get_all_ipv6_radvd_downlink, "PORT1"), "lan1 2001:db8::1/60 lan3 2001:db8::3/64 ");
    EXPECT_EQ(names(get_all_ipv6_relay_downlink, "PORT1"), "lan2 /64 lan3 2001:db8::3/64 ");
    EXPECT_EQ(names(get_all_ipv6_relay_downlink, "PORT2"), "lo+ /64 ");
    EXPECT_EQ(names(get_all_ipv6_relay_downlink, ""), "");
    std::vector<ipv6_downlink> kept(1);
    EXPECT_EQ(get_all_ipv6_radvd_downlink("PORT1", "/nowhere.json", kept), NM_ERR_NOT_FOUND);
    EXPECT_EQ(kept.size(), 1U);
}

TEST(TcpWindow, IsATenthOfTheSummedRates) {
    for (const auto& [document, code] :
         {std::pair(golden("rates").toStyledString(), 0), std::pair("{"s, NM_ERR_PARSE)}) {
        const File file(kPath, document);
        EXPECT_EQ(scale_tcp_window(kPath), code);
        EXPECT_EQ(slurp("/proc/sys/net/ipv4/tcp_rmem"), "4096\t87380\t630000\n");
        EXPECT_EQ(slurp("/proc/sys/net/ipv4/tcp_wmem"), "4096\t87380\t760000\n");
    }
}

}  // namespace
