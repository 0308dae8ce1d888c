// Static routes: what the documents' elements become, and what the kernel has afterwards.
#include <arpa/inet.h>
#include <net/if.h>

#include "control/edge_entries.h"
#include "golden.h"
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
std::string parsed(Parse parse, Json::Value routes, Json::Value device, Json::Value gateways) {
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
    const Json::Value device = golden("route_device");
    const Json::Value gateways =
        json("{'swdev1':{'ip4_gw':'10.1.0.9','ip6_gw':'2001:db8:1::9'},'swdev2':{'ip4_gw':'','ip6_gw':''}}");
};

/// Lists of elements, and what becomes of them.
TEST_F(StaticRoute, IsReadFromItsElement) {
    for (const Json::Value& row : golden("route_elements")) {
        EXPECT_EQ(parsed(parse_route, row[0], device, gateways), row[1].asString()) << row;
    }
    for (const Json::Value& row : golden("route6_elements")) {
        EXPECT_EQ(parsed(parse_route6, row[0], device, gateways), row[1].asString()) << row;
    }
}

TEST_F(StaticRoute, StandsInBothTablesAndInTheSetWithoutAnInterface) {
    const std::string head = "{'META':{'VERSION':'1.1.0'},'STATIC_ROUTE':[";
    Json::Value config = golden("routes");
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
    const std::tuple<std::string, int, const char*> refused[] = {
        {"{}", -1012, "Invalid argument: no ACTION"},
        {"{'ACTION':'ENABLE','IP':'10.9.0.0','NETMASK':'99999999999'}", -1045, "Out of range: stoi"}};
    for (const auto& [list, result, words] : refused) {
        config = json(head + list + "]}");
        EXPECT_EQ(setup_static_route(config, kDevice), result);
        EXPECT_TRUE(log.has(words));
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
    const std::tuple<std::string, int, std::string, std::string> cases[] = {
        {"{'family':'6'}", 0, "", route6},
        {"{'family':'4'}", 0, route, ""},
        {"{}", 0, route, route6},
        {"{'path':'/absent.json'}", -1020, "", ""},
        {"{'path':7}", -1012, "", ""},
        {"[]", -1012, "", ""},
        {"{", -1032, "", ""},
    };
    for (const auto& [request, result, routes, routes6] : cases) {
        run("for t in 1 251; do ip -4 route flush table $t; ip -6 route flush table $t; done 2>/dev/null; "
            "true");
        std::string args = quoted(request);
        EXPECT_EQ(Reload_static_route(args.data()), result) << args;
        EXPECT_EQ(table("-4", "251") + table("-4", "1"), routes + routes) << args;
        EXPECT_EQ(table("-6", "251") + table("-6", "1"), routes6 + routes6) << args;
    }
    EXPECT_EQ(Reload_static_route(nullptr), -1005);
    put(kStored, quoted("{'STATIC_ROUTE':7}"));
    EXPECT_EQ(__reload_static_route(kDevice), -1012);
    EXPECT_TRUE(log.has("setup_static_route IPv4 fail. ret = -1012"));
    EXPECT_EQ(table("-6", "251"), route6) << "the other family goes on";
    StandIn::take();
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
