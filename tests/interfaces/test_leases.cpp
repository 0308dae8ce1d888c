// What gets into a lease's record from files as the clients write them, and from files that went wrong.
#include <cstring>
#include <tuple>

#include "fake_pppoe.h"
#include "interfaces/lease_info.h"
#include "result_codes.h"
#include "sandbox_fixture.h"
#include "scripted_listener.h"

using namespace fixture;
using namespace std::string_literals;

namespace {

std::string show(const DHCP_INFO& info) {
    return info.ip + "/"s + info.netmask + " " + info.gateway + " " + info.dns1 + "," + info.dns2 + " " +
           info.dhcp_server;
}

std::string show(const DHCP6_INFO& info) {
    return info.address + "/"s + info.prefixlen + " " + info.gateway + " " + info.dns1 + "," + info.dns2;
}

template <class Info>
Info dirty() {
    Info info;
    memset(&info, 'x', sizeof(info));
    return info;
}

const std::string kOptions = R"(  option subnet-mask 255.255.255.0;
  option routers 10.0.0.1,10.0.0.254;
  option dhcp-lease-time 20;
  option domain-name-servers 10.0.0.53,10.0.0.54,10.0.0.55;
  option dhcp-server-identifier 10.0.0.2;
  option domain-name "a;b\" }\012lease {";
  expire 6 2026/11/21 20:25:09;
)";

std::string block(const std::string& lines, const std::string& opening = "lease {") {
    return opening + "\n  interface \"swdev1\";\n" + lines + "}\n";
}
std::string lease(const std::string& ip) {
    return block("  fixed-address " + ip + ";\n" + kOptions);
}
const std::string kRest = "/255.255.255.0 10.0.0.1 10.0.0.53,10.0.0.54 10.0.0.2";

std::string parse4(const std::string& text) {
    DHCP_INFO info{};
    return nm::parse_leases(text, info) ? show(info) : "none";
}

TEST(Leases, LastValidBlockCounts) {
    const std::string good = lease("10.0.0.100");
    const std::string address = "  fixed-address 10.0.0.7;\n";
    const std::map<std::string, std::string> cases{
        {good, "10.0.0.100" + kRest},
        {"default-duid \"\\000;\";\n" + good + lease("10.0.0.101"), "10.0.0.101" + kRest},
        {good + lease("10.0.0.1111"), "10.0.0.100" + kRest},
        {good + lease("1.2.3.4 5.6.7.8 9.10"), "10.0.0.100" + kRest},
        {good + block(kOptions), "10.0.0.100" + kRest},
        {good + block(address, "lease6 {"), "10.0.0.100" + kRest},
        {good + "lease {\n  fixed-address 10.0.0.8;\n" + block(address), "10.0.0.7/  , "},
        {block(address + "  option routers ;\n  option subnet-mask 255.255.255.0\n"), "10.0.0.7/  , "},
        {block(address + "  option routers x,10.0.0.1;\n  option domain-name-servers 1.1.1.1, 2.2.2.2;\n"),
         "10.0.0.7/ 10.0.0.1 1.1.1.1,2.2.2.2 "},
        {block(address + "  option routers 10.0.0.1\0;\n  option dhcp-server-identifier fe80::1;\n"s),
         "10.0.0.7/  , "},
        {block("fixed-address 10.0.0.7;\n"), "none"},
        {block(address + "  released;\n"), "none"},
        {good + "}\n}\n" + address, "10.0.0.100" + kRest},
        {std::string(100000, '{') + "\xff\n;}\n", "none"}};
    for (const auto& [text, expected] : cases) {
        EXPECT_EQ(parse4(text), expected) << text.substr(0, 2000);
    }
}

TEST(Leases, CutOffBlockIsNone) {
    const std::string first = lease("10.0.0.100");
    const std::string both = first + lease("10.0.0.101");
    for (size_t length = 0; length <= both.size(); ++length) {
        // A block is whole with its brace, without the line end behind it.
        const std::string expected = length + 1 < first.size()  ? "none"
                                     : length + 1 < both.size() ? "10.0.0.100" + kRest
                                                                : "10.0.0.101" + kRest;
        ASSERT_EQ(parse4(both.substr(0, length)), expected) << length;
    }
}

TEST(Leases, OfDhcp6HaveAddressAndDetailsApart) {
    const std::string delegation = "  ia-pd \"gKB!\" {\n    iaprefix 2001:db8:f00::/56 {\n    }\n  }\n";
    const auto lease6 = [&](const std::string& ip, const std::string& more = "") {
        return block("  ia-na \"gKB!\" {\n    starts 1;\n    iaaddr " + ip +
                         " {\n      max-life 60;\n    }\n  }\n" + delegation + more +
                         "  option dhcp6.name-servers 2001:db8::53,2001:db8::54;\n",
                     "lease6 {");
    };
    const std::string good = lease6("2001:db8::100");
    const std::string details = "prefixlen: 64\ngateway: fe80::1\n";
    const std::string servers = "2001:db8::53,2001:db8::54";
    const std::tuple<std::string, std::string, std::string> cases[] = {
        {good, details, "2001:db8::100/64 fe80::1 " + servers},
        {good + lease6("2001:db8::101"), "gateway: fe80::2", "2001:db8::101/ fe80::2 " + servers},
        {good + lease6("2001:db8::100", "  released;\n"), details, "none"},
        {good + block(delegation, "lease6 {"), "prefixlen: 129\ngateway: 10.0.0.1\n",
         "2001:db8::100/  " + servers},
        {good + good.substr(0, good.size() - 2), "prefixlen: -1\n", "2001:db8::100/  " + servers},
        {lease6(std::string(60, '1')), details, "none"},
        {good, "prefixlen: 0064\ngateway: " + std::string(5000, ':') + "\n", "2001:db8::100/  " + servers},
        {lease("10.0.0.1"), details, "none"}};
    for (const auto& [leases, info, expected] : cases) {
        DHCP6_INFO record{};
        const bool found = nm::parse_leases6(leases, info, record);
        EXPECT_EQ(found ? show(record) : "none", expected) << leases << info;
    }
}

TEST(LeaseFiles, MissingAndEmptyOnesHaveTheirCodes) {
    const std::string directory = "/etc/networkmanagement/dhclient/";
    const File good4(directory + "swdev1.leases", lease("10.0.0.100"));
    const File good6("/etc/networkmanagement/dhclient6/swdev1.leases",
                     "lease6 {\n    iaaddr 2001:db8::1 {\n}\n");
    const File details("/var/lib/dhcpv6/swdev1.info", "prefixlen: 64\n");
    const File alone("/etc/networkmanagement/dhclient6/swdev4.leases", slurp(good6.path));
    const File empty4(directory + "swdev2.leases");
    const File empty6("/var/lib/dhcpv6/swdev2.info");
    const File none4(directory + "swdev3.leases", "lease {\n");
    const File none6("/etc/networkmanagement/dhclient6/swdev3.leases", "lease {\n");
    const File details3("/var/lib/dhcpv6/swdev3.info", "x");
    const Scratch elsewhere;
    put(elsewhere / "a.leases", lease("10.0.0.9"));
    const std::string outside = "../../.." + (elsewhere / "a");
    const std::tuple<const char*, int, int, const char*> cases[] = {
        {"swdev1", 0, 0, ""},
        {nullptr, NM_ERR_NULL_ARG, NM_ERR_NULL_ARG, "ifname is Null pointer."},
        {"swdev2", NM_ERR_EMPTY, NM_ERR_EMPTY,
         "file content is empty. Path: /etc/networkmanagement/dhclient/swdev2"},
        {"swdev3", NM_ERR_EMPTY, NM_ERR_EMPTY, "swdev3 has no valid lease"},
        {"swdev4", NM_ERR_NOT_FOUND, NM_ERR_NOT_FOUND, "No such file. Path: /var/lib/dhcpv6/swdev4.info"},
        {outside.c_str(), NM_ERR_NOT_FOUND, NM_ERR_NOT_FOUND, "No such file. Path: "}};
    for (const auto& [ifname, code4, code6, words] : cases) {
        const LogTail log;
        auto info4 = dirty<DHCP_INFO>();
        auto info6 = dirty<DHCP6_INFO>();
        EXPECT_EQ(get_interface_dhcp_info(const_cast<char*>(ifname), info4), code4) << words;
        EXPECT_EQ(get_interface_dhcp6_info(const_cast<char*>(ifname), info6), code6) << words;
        EXPECT_EQ(show(info4), code4 == 0 ? "10.0.0.100" + kRest : "/  , ") << words;
        EXPECT_EQ(show(info6), code6 == 0 ? "2001:db8::1/64  ," : "/  ,") << words;
        EXPECT_TRUE(log.has(words)) << words;
    }
}

TEST(Autoconfiguration, IsToldByItsPeer) {
    const std::string socket = "/var/run/network/slaacrrd.sock";
    char name[] = "swdev1";
    auto info = dirty<DHCP6_INFO>();
    EXPECT_EQ(get_interface_slaac_info(name, info), NM_ERR_NOT_FOUND) << "without the peer's runtime";
    EXPECT_EQ(show(info), "/  ,");
    const File runtime("/usr/bin/python");
    std::string long_name(2000, 'x');
    for (const auto& [ifname, code] : {std::pair{name, NM_ERR_CLI_RETCODE},
                                       {nullptr, NM_ERR_BAD_TYPE},
                                       {&name[6], NM_ERR_BAD_TYPE},
                                       {long_name.data(), NM_ERR_CLI_EMPTY}}) {
        EXPECT_EQ(get_interface_slaac_info(ifname, info), code);
    }
    const std::tuple<std::string, int, std::string> cases[] = {
        {"{'address':'2001:db8::5','prefixlen':64,'gateway':'fe80::1','dns1':'::1','dns2':null}", 0,
         "2001:db8::5/64 fe80::1 ::1,"},
        {"{'address':['2001:db8::5'],'prefixlen':'129','gateway':'fe80::1%swdev1','dns1':{},'dns2':'::2'}", 0,
         "/  ,::2"},
        {"[]", NM_ERR_PARSE, "/  ,"},
        {"{'address':'2001:db8::5'", NM_ERR_PARSE, "/  ,"}};
    for (const auto& [reply, code, expected] : cases) {
        std::string heard;
        const Listener peer([&, text = quoted(reply)](
                                int client) { heard = hear(client, "swdev1\"     }"), say(client, text); },
                            socket);
        EXPECT_EQ(get_interface_slaac_info(name, info), code) << reply;
        EXPECT_EQ(show(info), expected) << reply;
        EXPECT_NE(heard.find("\"command\": \"stat\""), std::string::npos);
    }
}

TEST(Session, IsALeaseOfOneAddress) {
    session = {1, {7, "ppp-swdev1", "198.51.100.7", "198.51.100.1", "9.9.9.9", ""}};
    auto info = dirty<DHCP_INFO>();
    EXPECT_EQ(cast_ppp_cfg_into_dhcp_info("swdev1", info), 0);
    EXPECT_EQ(show(info), "198.51.100.7/255.255.255.255 198.51.100.1 9.9.9.9, ");
    session.running = 0;
    const LogTail log;
    EXPECT_EQ(cast_ppp_cfg_into_dhcp_info("swdev1", info), kNoSession);
    EXPECT_EQ(show(info), "/  , ");
    EXPECT_TRUE(log.has("Failed to get swdev1's PPPoE runtime cfg!"));
}

}  // namespace
