// Lookups between port, interface, role and kind.

#include "config/downlinks.h"
#include "config/port_lookup.h"
#include "config/tcp_window.h"
#include "sandbox_fixture.h"

using namespace fixture;
using namespace std::string_literals;

namespace {

const std::string kPath = "/etc/networkmanagement/lookup.json";

const std::string kDocument = quoted(R"({'dbversion':'1.0.2', 'EXTRA_PORT':{'PORT9':{'INTERFACE':'swdev9'}},
    'WAN_PORT':{'PORT1':{'INTERFACE':'swdev1'}, 'PORT10':{'INTERFACE':'swdev10'}, 'PORT7':{'INTERFACE':'both'},
                'PORT8':{}},
    'PRIVATE_PORT':{'PORT2':{'INTERFACE':'swdev2'}, 'PORT7':{'INTERFACE':'private7'}},
    'RGLINK_PORT':{'PORT3':{'INTERFACE':'swdev3'}, 'PORT6':{'INTERFACE':'swdev6'}},
    'LAN_PORT':{'PORT4':{'INTERFACE':'swdev4'}, 'PORT5':{'INTERFACE':'both'}, 'PORT7':{'INTERFACE':'lan7'}},
    'WAN_IFACE_INFO':{'swdev1':{'ID':'5','IP4_TYPE':'PPPOE'}, 'swdev10':{'ID':'0'}, 'both':{}, '':{}},
    'PRIVATE_IFACE_INFO':{'swdev2':{'IP4_TYPE':'PPPOE'}}, 'RGLINK_IFACE_INFO':{'swdev3':{'IP4_TYPE':'PPPOE'}},
    'LAN_IFACE_INFO':{'swdev4':{'IP4_TYPE':'PPPOE'}}, 'NONE_IFACE_INFO':{'nothing':{}}})");

struct Lookup : testing::Test {
    File file{kPath, kDocument};
    Json::Value root = json(kDocument);

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
    const File file(kPath,
                    quoted("{'LAN_IFACE_INFO':{"
                           "'lan1':{'IP6_UPLINK':'PORT1','IP6_TYPE':'STATIC','IP6_ADDR':'2001:db8::1',"
                           "'IP6_PREFIX':'60','IP6_SERVICE_TYPE':'SLAAC_RDNSS'},"
                           "'lan2':{'IP6_UPLINK':'PORT1','IP6_TYPE':'RELAY'},"
                           "'lan3':{'IP6_UPLINK':'PORT1','IP6_TYPE':'RELAY','IP6_ADDR':'2001:db8::3',"
                           "'IP6_SERVICE_TYPE':'STATEFUL'},"
                           "'lan4':{'IP6_UPLINK':'PORT1','IP6_ADDR':'2001:db8::4'},"
                           "'lan5':{'IP6_UPLINK':'PORT1','IP6_SERVICE_TYPE':'STATEFUL'},"
                           "'lan6':{'IP6_UPLINK':'PORT10','IP6_TYPE':'RELAY','IP6_ADDR':'2001:db8::6',"
                           "'IP6_SERVICE_TYPE':'STATEFUL'},"
                           "'lan7':{'IP6_TYPE':'RELAY'}, 'lo':{'IP6_UPLINK':'PORT2','IP6_TYPE':'RELAY'},"
                           "'lan8':'RELAY', 'lan9':{'IP6_UPLINK':7,'IP6_TYPE':'RELAY'}}}"));
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
    const std::string text =
        "{'WAN_PORT':{'P':{'RX_RATE':'1000000','TX_RATE':'2000000'},'Q':{'ISP_BW':'4000000'},"
        "'R':{'ISP_BW':7000000,'TX_RATE':'0100009 "
        "bit/s'},'S':{'ISP_BW':'800000','RX_RATE':1,'TX_RATE':null},'N':{'RX_RATE':'-5000000','TX_RATE':' "
        "-1','ISP_BW':'7'},"
        "'T':7},'PRIVATE_PORT':{'U':{'ISP_BW':'500000','TX_RATE':'700000'}},"
        "'RGLINK_PORT':{'V':{'ISP_BW':'90000000'}},'LAN_PORT':{'W':{'ISP_BW':'90000000'}}}";
    for (const auto& [document, code] : {std::pair(quoted(text), 0), std::pair("{"s, NM_ERR_PARSE)}) {
        const File file(kPath, document);
        EXPECT_EQ(scale_tcp_window(kPath), code);
        EXPECT_EQ(slurp("/proc/sys/net/ipv4/tcp_rmem"), "4096\t87380\t630000\n");
        EXPECT_EQ(slurp("/proc/sys/net/ipv4/tcp_wmem"), "4096\t87380\t760000\n");
    }
}

}  // namespace
