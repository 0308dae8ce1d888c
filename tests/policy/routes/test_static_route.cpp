// Static routes: what the documents' elements become, and what the kernel has afterwards.
#include <arpa/inet.h>
#include <net/if.h>

#include "control/edge_entries.h"
#include "kernel_world.h"
#include "policy/routes/static_route.h"
#include "stand_in.h"

using namespace kernel_world;
using testing::ElementsAre;
using testing::IsEmpty;

namespace {

constexpr const char* kDevice = "/etc/networkmanagement/device_info.json";
constexpr const char* kStored = "/etc/networkmanagement/static_route.json";
constexpr const char* kStored6 = "/etc/networkmanagement/static_route6.json";
using Parse = size_t (*)(Json::Value&, Json::Value&, Json::Value&, sroute**);

std::string text_of(const sroute& route) {
    const auto text = [&](const unsigned char* bytes) {
        char buffer[INET6_ADDRSTRLEN];
        return std::string(inet_ntop(route.family, bytes, buffer, sizeof buffer));
    };
    char ifname[IF_NAMESIZE] = "-";
    if (route.oif != 0) {
        if_indextoname(route.oif, ifname);
    }
    return text(route.dst) + "/" + std::to_string(route.prefix) + " " + ifname + " " +
           (route.has_gw ? text(route.gw) : "-") + " " + std::to_string(route.metric);
}

/// The routes of a list, one line each, or the words of what was thrown.
std::string parsed(Parse parse, const std::string& list, Json::Value device, Json::Value gateways) {
    Json::Value routes = json("[" + list + "]");
    sroute* out = nullptr;
    try {
        const size_t count = parse(routes, device, gateways, &out);
        const std::unique_ptr<sroute, decltype(&free)> owner(out, free);
        std::string lines;
        for (size_t i = 0; i < count; ++i) {
            lines += (i != 0 ? ", " : "") + text_of(out[i]);
        }
        return lines;
    } catch (const std::exception& error) {
        EXPECT_EQ(out, nullptr);
        return error.what();
    }
}

/// Three uplinks, one of them without a gateway yet, and the bridge of VLAN 12.
struct StaticRoute : Frugal {
    void SetUp() override {
        run("set -e; for i in 1 2 3; do ip link add swdev$i type veth peer name far$i; ip link set far$i up; "
            "ip link set swdev$i up; ip addr add 10.$i.0.1/24 dev swdev$i; "
            "ip addr add 2001:db8:$i::1/64 dev swdev$i nodad; done; ip link add br_v12 type bridge");
        put(kDevice, nm::write_compact_json(device));
    }
    void TearDown() override {
        run("for d in swdev1 swdev2 swdev3 br_v12; do ip link del $d; done; rm -f " + std::string(kDevice) +
            " " + kStored + " " + kStored6);
    }
    static std::string table(const std::string& family, const std::string& number) {
        std::string lines;
        for (const std::string& line : lines_of("ip " + family + " route show table " + number +
                                                " | sed 's/ proto static//; s/ pref medium//'")) {
            lines += line + "\n";
        }
        return lines;
    }
    const StandIn firewall{"/usr/sbin/firewall.sh"};
    const Json::Value device = json(
        "{'WAN_PORT':{'PORT1':{'INTERFACE':'swdev1','DEV_TYPE':'ethernet'}},"
        "'WAN_IFACE_INFO':{'swdev1':{'IP4_TYPE':'STATIC','IP4_ADDR':'10.1.0.1','IP4_GW':'10.1.0.9',"
        "'IP6_TYPE':'STATIC','IP6_ADDR':'2001:db8:1::1','IP6_GW':'2001:db8:1::9'}},"
        "'PRIVATE_PORT':{'PORT3':{'INTERFACE':'swdev3','DEV_TYPE':'ethernet'}},"
        "'PRIVATE_IFACE_INFO':{'swdev3':{'IP4_TYPE':'STATIC','IP4_ADDR':'10.3.0.1','IP4_GW':'10.3.0.9'}},"
        "'RGLINK_PORT':{'PORT2':{'INTERFACE':'swdev2','DEV_TYPE':'ethernet'}},"
        "'RGLINK_IFACE_INFO':{'swdev2':{'IP4_TYPE':'STATIC','IP4_ADDR':'10.2.0.1','IP4_GW':'10.2.0.9'}}}");
    const Json::Value gateways =
        json("{'swdev1':{'ip4_gw':'10.1.0.9','ip6_gw':'2001:db8:1::9'},'swdev2':{'ip4_gw':'','ip6_gw':''}}");
};

TEST_F(StaticRoute, IsReadFromItsElement) {
    const std::string to = "'ACTION':'ENABLE','IP':'10.9.8.0','NETMASK':";
    const struct {
        std::string element, expected;
    } cases[] = {
        {"{" + to + "'24','NEXTHOP_WAN':'PORT1','METRIC':'7'}", "10.9.8.0/24 swdev1 10.1.0.9 7"},
        {"{" + to + "24,'NEXTHOP_RGLINK':'PORT2','METRIC':4294967295}", "10.9.8.0/24 swdev2 - 4294967295"},
        {"{" + to + "'1','NEXTHOP_ADDRESS':'10.1.0.5','METRIC':'4294967298'}", "10.9.8.0/1 - 10.1.0.5 2"},
        {"{" + to + "'32','NEXTHOP_ADDRESS':'10.1.0.5','NEXTHOP_INTERFACE':'br_v12','FAMILY':'5'}",
         "10.9.8.0/32 br_v12 10.1.0.5 0"},
        {"{'ACTION':'ENABLE','IP':'2001:db8:7::','FAMILY':6,'NETMASK':32,'NEXTHOP_ADDRESS':'2001:db8:1::5'}",
         "2001:db8:7::/32 - 2001:db8:1::5 0"},
        {"{" + to + "'24','NEXTHOP_WAN':'','NEXTHOP_ADDRESS':'10.1.0.5'}", ""},
        {"{" + to + "'24','NEXTHOP_INTERFACE':'absent0'}", ""},
        {"{" + to + "'24'}", ""},
        {"{'ACTION':'DISABLE','IP':'nonsense'}", ""},
        {"7", "is not a object"},
        {"{'ACTION':true}", "no ACTION"},
        {"{'ACTION':'ENABLE','IP':'10.9.8'}", "invalid IP"},
        {"{" + to + "'0'}", "invalid NETMASK"},
        {"{" + to + "33}", "invalid NETMASK"},
        {"{" + to + "'x'}", "stoi"},
        {"{" + to + "'99999999999'}", "stoi"},
        {"{" + to + "'24','NEXTHOP_ADDRESS':'10.1.0.5;'}", "invalid NEXTHOP_ADDRESS"},
        {"{" + to + "'24','NEXTHOP_WAN':'PORT1','METRIC':''}", "stoul"},
    };
    for (const auto& one : cases) {
        EXPECT_EQ(parsed(parse_route, one.element, device, gateways), one.expected) << one.element;
    }
    EXPECT_EQ(parsed(parse_route, "{" + to + "8,'NEXTHOP_WAN':'PORT1'},{" + to + "9,'NEXTHOP_WAN':'PORT2'}",
                     device, gateways),
              "10.9.8.0/8 swdev1 10.1.0.9 0, 10.9.8.0/9 swdev2 - 0");
}

TEST_F(StaticRoute, OfIp6IsReadFromItsElement) {
    const std::string to = "'enable':true,'destination':'2001:db8:7::','prefixLength':";
    const struct {
        std::string element, expected;
    } cases[] = {
        {"{" + to + "48,'nextHopInterface':'PORT1','metric':'9'}", "2001:db8:7::/48 swdev1 2001:db8:1::9 9"},
        {"{" + to + "'128','nextHopInterface':'PORT1','nextHopIp':'fe80::1'}",
         "2001:db8:7::/128 swdev1 fe80::1 0"},
        {"{" + to + "64,'nextHopInterface':'12','nextHopIp':'fe80::2'}", "2001:db8:7::/64 br_v12 fe80::2 0"},
        {"{" + to + "64,'nextHopInterface':'12'}", ""},
        {"{" + to + "64,'nextHopIp':'fe80::2'}", ""},
        {"{'enable':false}", ""},
        {"[]", "is not a object"},
        {"{'enable':'true'}", "no enable action!"},
        {"{'enable':true,'destination':'10.0.0.0'}", "invalid destination IPv6 address!"},
        {"{" + to + "0}", "invalid IPv6 prefix"},
        {"{" + to + "129}", "invalid IPv6 prefix"},
        {"{" + to + "64,'nextHopIp':'fe80::g'}", "invalid nextHopIp"},
    };
    for (const auto& one : cases) {
        EXPECT_EQ(parsed(parse_route6, one.element, device, gateways), one.expected) << one.element;
    }
}

TEST_F(StaticRoute, StandsInBothTablesAndInTheSetWithoutAnInterface) {
    const std::string head = "{'META':{'VERSION':'1.1.0'},'STATIC_ROUTE':[";
    Json::Value config =
        json(head +
             "{'ACTION':'ENABLE','IP':'10.9.0.0','NETMASK':16,'NEXTHOP_WAN':'PORT1'},"
             "{'ACTION':'ENABLE','IP':'10.9.0.0','NETMASK':16,'NEXTHOP_WAN':'PORT1'},"
             "{'ACTION':'ENABLE','IP':'10.8.0.0','NETMASK':'16','NEXTHOP_INTERFACE':'swdev2'},"
             "{'ACTION':'ENABLE','IP':'10.5.0.0','NETMASK':'16','NEXTHOP_WAN':'PORT3'},"
             "{'ACTION':'ENABLE','IP':'10.6.0.0','NETMASK':'16','NEXTHOP_RGLINK':'PORT2'},"
             "{'ACTION':'ENABLE','IP':'10.7.0.0','NETMASK':16,'NEXTHOP_ADDRESS':'10.2.0.5',"
             "'METRIC':3}]}");
    const std::string routes =
        "10.5.0.0/16 via 10.3.0.9 dev swdev3\n10.6.0.0/16 via 10.2.0.9 dev swdev2\n10.7.0.0/16 via 10.2.0.5 "
        "dev swdev2 metric 3\n10.8.0.0/16 dev "
        "swdev2\n"
        "10.9.0.0/16 via 10.1.0.9 dev swdev1\n";
    const std::string member = "firewall.sh <edit_ipset> <add> <static_route> <10.7.0.0/16>\n";
    run("ip route add 192.0.2.0/24 dev swdev1 table 251; ip route add 192.0.2.0/24 dev swdev1 table 252");
    for (int again = 0; again < 2; ++again) {
        EXPECT_EQ(setup_static_route(config, kDevice), 0);
        EXPECT_EQ(StandIn::take(), "firewall.sh <edit_ipset> <flush> <static_route>\n" + member + member);
        EXPECT_EQ(table("-4", "251"), routes) << "what another put there is gone with the old list";
        EXPECT_EQ(table("-4", "1"), routes);
    }
    EXPECT_NE(table("-4", "252"), "");
    const struct {
        std::string list;
        int result;
        const char* words;
    } refused[] = {
        {"{}", -1012, "Invalid argument: no ACTION"},
        {"{'ACTION':'ENABLE','IP':'10.9.0.0','NETMASK':'99999999999'}", -1045, "Out of range: stoi"}};
    for (const auto& one : refused) {
        config = json(head + one.list + "]}");
        EXPECT_EQ(setup_static_route(config, kDevice), one.result);
        EXPECT_TRUE(log.has(one.words));
        EXPECT_EQ(table("-4", "251"), routes) << "a list that cannot be read replaces nothing";
    }
    config = json("[]");
    EXPECT_EQ(__setup_static_route(AF_INET, config, device, gateways), -1032);
    EXPECT_EQ(table("-4", "251"), routes) << "nor does what is not a document";
    config = json(head + "]}");
    EXPECT_EQ(setup_static_route(config, kDevice), 0);
    EXPECT_EQ(table("-4", "251") + table("-4", "1"), "");
    EXPECT_EQ(setup_static_route(config, "/absent.json"), -1020);
    EXPECT_EQ(without(its_sockets, [&] { return setup_static_route(config, kDevice); }), -1304);
}

/// More than one request holds, with some that the kernel refuses in each.
TEST_F(StaticRoute, OfALongListIsAddedUnlessItIsRefused) {
    constexpr int kRoutes = 430, kEvery = 43;
    std::string list;
    for (int i = 0; i < kRoutes; ++i) {
        list += std::string(i != 0 ? "," : "") + "{'ACTION':'ENABLE','IP':'10.9." + std::to_string(i / 2) +
                "." + std::to_string(i % 2 * 128 + 7) + "','NETMASK':25,'METRIC':" + std::to_string(i) +
                (i % kEvery == 0   ? ",'NEXTHOP_ADDRESS':'192.0.2.77'}"
                 : i % kEvery == 1 ? ",'NEXTHOP_ADDRESS':'10.1.0.7'}"
                                   : ",'NEXTHOP_INTERFACE':'swdev1'}");
    }
    Json::Value config = json("{'META':{'VERSION':'1.1.0'},'STATIC_ROUTE':[" + list + "]}");
    StandIn::take();
    EXPECT_EQ(setup_static_route(config, kDevice), 0);
    for (const char* const number : {"251", "1"}) {
        const std::string routes = table("-4", number);
        EXPECT_EQ(std::count(routes.begin(), routes.end(), '\n'), kRoutes - kRoutes / kEvery);
        EXPECT_NE(
            routes.find("10.9.0.128/25 via 10.1.0.7 dev swdev1 metric 1\n10.9.1.0/25 dev swdev1 metric 2\n"),
            std::string::npos);
    }
    const std::string members = StandIn::take();
    EXPECT_EQ(std::count(members.begin(), members.end(), '\n'), 1 + 2 * kRoutes / kEvery)
        << "the set has what was added without an interface";
}

TEST_F(StaticRoute, IsReloadedByFamily) {
    put(kStored, quoted("{'STATIC_ROUTE':[{'IP':'10.9.8.7','NETMASK':'16','NEXTHOP_WAN':'PORT1'}]}"));
    put(kStored6, quoted("{'staticRoute6':[{'destination':'2001:db8:7::7','prefixLength':48,"
                         "'nextHopInterface':'PORT1','metric':5}]}"));
    const std::string route = "10.9.0.0/16 via 10.1.0.9 dev swdev1\n";
    const std::string route6 = "2001:db8:7::/48 via 2001:db8:1::9 dev swdev1 metric 5\n";
    const struct {
        std::string args;
        int result;
        std::string routes, routes6;
    } cases[] = {
        {"{'family':'6'}", 0, "", route6},
        {"{'family':'4'}", 0, route, ""},
        {"{}", 0, route, route6},
        {"{'path':'/absent.json'}", -1020, "", ""},
        {"{'path':7}", -1012, "", ""},
        {"[]", -1012, "", ""},
        {"{", -1032, "", ""},
    };
    for (const auto& one : cases) {
        run("for t in 1 251; do ip -4 route flush table $t; ip -6 route flush table $t; done 2>/dev/null; "
            "true");
        std::string args = quoted(one.args);
        EXPECT_EQ(Reload_static_route(args.data()), one.result) << args;
        EXPECT_EQ(table("-4", "251") + table("-4", "1"), one.routes + one.routes) << args;
        EXPECT_EQ(table("-6", "251") + table("-6", "1"), one.routes6 + one.routes6) << args;
    }
    EXPECT_EQ(Reload_static_route(nullptr), -1005);
    put(kStored, quoted("{'STATIC_ROUTE':7}"));
    EXPECT_EQ(__reload_static_route(kDevice), -1012);
    EXPECT_TRUE(log.has("setup_static_route IPv4 fail. ret = -1012"));
    EXPECT_EQ(table("-6", "251"), route6) << "the other family goes on";
    StandIn::take();
}

TEST(StaticRouteDocument, IsMigratedOnce) {
    const struct {
        int (*migrate)(Json::Value&, std::string);
        std::string before, after;
        const char* words;
    } cases[] = {
        {migrate_static_route, "{}", "{'META':{'VERSION':'1.1.0'},'STATIC_ROUTE':[]}",
         "static route config is corrupted, try to fixed it."},
        {migrate_static_route,
         "{'META':{'VERSION':'1.0.0','LAST_UPDATE':'1','X':1},'OTHER':1,'STATIC_ROUTE':[{'DESCRIPTION':'d',"
         "'IP':'10.9.8.7','NETMASK':'20','METRIC':'','SHARED':true,'NEXTHOP_ADDRESS':'10.0.0.1','OLD':1},"
         "{'ACTION':'DISABLE','IP':'10.9.8.7','NETMASK':40,'NEXTHOP_WAN':'PORT1'},7]}",
         "{'META':{'LAST_UPDATE':'1','VERSION':'1.1.0'},'OTHER':1,'STATIC_ROUTE':[{'ACTION':'ENABLE',"
         "'DESCRIPTION':'d','IP':'10.9.0.0','METRIC':'','NETMASK':'20','NEXTHOP_ADDRESS':'10.0.0.1',"
         "'SHARED':true},{'ACTION':'DISABLE','IP':'10.9.8.7','NETMASK':40,'NEXTHOP_WAN':'PORT1'},7]}",
         "Calculate network address failed, ip: 10.9.8.7, prefix: 40"},
        {migrate_static_route, "{'STATIC_ROUTE':[]}", "{'META':{'VERSION':'1.1.0'},'STATIC_ROUTE':[]}",
         "Migrate static_route config from 0.0.0 to 1.1.0"},
        {migrate_static_route, "{'META':{'VERSION':'1.1.0'},'STATIC_ROUTE':[{'IP':'10.9.8.7','OLD':1}]}",
         "{'META':{'VERSION':'1.1.0'},'STATIC_ROUTE':[{'IP':'10.9.8.7','OLD':1}]}",
         "static_route version has not changed."},
        {migrate_static_route6,
         "{'staticRoute6':[{'destination':'2001:db8::7:1','prefixLength':112,'name':'n'}]}",
         "{'META':{'VERSION':'1.1.0'},'staticRoute6':[{'destination':'2001:db8::7:0','enable':true,'name':'n'"
         ","
         "'prefixLength':112}]}",
         "Transform ip: 2001:db8::7:1, prefix: 112 to network address: 2001:db8::7:0"},
    };
    for (const auto& one : cases) {
        const LogTail log;
        Json::Value config = json(one.before);
        EXPECT_EQ(one.migrate(config, ""), 0);
        EXPECT_EQ(config, json(one.after)) << nm::write_compact_json(config);
        EXPECT_TRUE(log.has(one.words)) << one.words;
    }
    Json::Value wrong = json("[]");
    EXPECT_EQ(migrate_static_route(wrong, ""), -1012);
}

TEST(StaticRouteDocument, StopsBeingShared) {
    EXPECT_EQ(disabled_static_route_shared(), 0) << "no stored list";
    const File stored(kStored, quoted("{'STATIC_ROUTE':[{'IP':'a','SHARED':true},{},7],'META':1}"));
    EXPECT_EQ(disabled_static_route_shared(), 0);
    EXPECT_EQ(json(slurp(kStored)),
              json("{'STATIC_ROUTE':[{'IP':'a','SHARED':false},{'SHARED':false},7],'META':1}"));
    put(kStored, "{");
    EXPECT_EQ(disabled_static_route_shared(), -1907);
    EXPECT_EQ(slurp(kStored), "{");
}

}  // namespace
