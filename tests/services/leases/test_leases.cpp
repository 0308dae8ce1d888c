// What gets into a lease's record from files as the clients write them, and from files that went wrong.
#include <cstring>

#include "sandbox_fixture.h"
#include "scripted_listener.h"
#include "services/leases/lease_info.h"

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

const std::string kOptions = R"(  option subnet-mask 255.255.255.0;
  option routers 10.0.0.1,10.0.0.254;
  option domain-name-servers 10.0.0.53,10.0.0.54,10.0.0.55;
  option dhcp-server-identifier 10.0.0.2;
  option domain-name "a;b\" }\012lease {";
)";
const std::string kRest = "/255.255.255.0 10.0.0.1 10.0.0.53,10.0.0.54 10.0.0.2";
const std::string kIp = "  fixed-address 10.0.0.7;\n";

std::string block(const std::string& lines, const std::string& opening = "lease {") {
    return opening + "\n  interface \"swdev1\";\n" + lines + "}\n";
}
std::string lease(const std::string& ip) {
    return block("  fixed-address " + ip + ";\n" + kOptions);
}
std::string parse(const std::string& text) {
    DHCP_INFO info{};
    return nm::parse_leases(text, info) ? show(info) : "none";
}

TEST(Leases, LastValidBlockCounts) {
    const std::string good = lease("10.0.0.100");
    const std::map<std::string, std::string> cases{
        {"default-duid \"\\000;\";\n" + good + lease("10.0.0.101"), "10.0.0.101" + kRest},
        {good + lease("10.0.0.1111") + block(kOptions) + block(kIp, "lease6 {"), "10.0.0.100" + kRest},
        {good + "lease {\n  fixed-address 10.0.0.8;\n" + block(kIp), "10.0.0.7/  , "},
        {block(kIp + "  option routers ;\n  option subnet-mask 255.255.255.0\n"), "10.0.0.7/  , "},
        {block(kIp + "  option routers x,10.0.0.1;\n  option domain-name-servers 1.1.1.1, 2.2.2.2;\n"),
         "10.0.0.7/ 10.0.0.1 1.1.1.1,2.2.2.2 "},
        {block(kIp + "  option routers 10.0.0.1\0;\n  option subnet-mask ::1;\n"s), "10.0.0.7/  , "},
        {good + block(kIp + "  released;\n"), "none"}};
    for (const auto& [text, expected] : cases) {
        EXPECT_EQ(parse(text), expected) << text.substr(0, 2000);
    }
    const std::string both = good + lease("10.0.0.101");
    for (size_t length = 0; length <= both.size(); ++length) {
        const char* const ip = length + 1 < both.size() ? "10.0.0.100" : "10.0.0.101";
        ASSERT_EQ(parse(both.substr(0, length)), length + 1 < good.size() ? "none" : ip + kRest) << length;
    }
}

TEST(Leases, OfDhcp6HaveAddressAndDetailsApart) {
    const auto lease6 = [](const std::string& lines) {
        return block(lines + "  }\n  option dhcp6.name-servers ::53,::54;\n", "lease6 {");
    };
    const std::string good = lease6("  ia-na \"gKB!\" {\n    iaaddr ::100 {\n    }\n");
    const std::tuple<std::string, std::string, std::string> cases[] = {
        {good + lease6("    iaaddr ::101 {\n"), "prefixlen: 64\ngateway: ::2", "::101/64 ::2 ::53,::54"},
        {good + lease6("    iaaddr ::101 {\n  released;\n"), "prefixlen: 64", "none"},
        {good + lease6("    iaprefix ::/56 {\n"), "prefixlen: 129\ngateway: 10.0.0.1", "::100/  ::53,::54"},
        {good + good.substr(0, good.size() - 2), "gateway: " + std::string(5000, ':'), "::100/  ::53,::54"}};
    for (const auto& [leases, details, expected] : cases) {
        DHCP6_INFO record{};
        EXPECT_EQ(nm::parse_leases6(leases, details, record) ? show(record) : "none", expected) << leases;
    }
}

TEST(LeaseFiles, MissingAndEmptyOnesHaveTheirCodes) {
    const std::string clients = "/etc/networkmanagement/dhclient";
    const File good(clients + "/a.leases", lease("10.0.0.100"));
    const File good6(clients + "6/a.leases", "lease6 {\n    iaaddr ::1 {\n}\n");
    const File details("/var/lib/dhcpv6/a.info", "prefixlen: 64\n");
    run("cd /var/lib/dhcpv6; : >b.info; cp a.info c.info; cd " + clients +
        "; : >b.leases; echo 'lease {' >c.leases;"
        "cp c.leases ../dhclient6; cp ../dhclient6/a.leases ../dhclient6/d.leases; cp a.leases /tmp");
    const std::tuple<const char*, int, const char*> cases[] = {
        {"a", 0, ""},
        {nullptr, NM_ERR_NULL_ARG, "ifname is Null pointer."},
        {"b", NM_ERR_EMPTY, "file content is empty. Path: /etc/networkmanagement/dhclient/b.leases"},
        {"c", NM_ERR_EMPTY, "c has no valid lease"},
        {"d", NM_ERR_NOT_FOUND, "No such file. Path: /var/lib/dhcpv6/d.info"},
        {"../../../tmp/a", NM_ERR_NOT_FOUND, "No such file. Path: "}};
    for (const auto& [ifname, code, words] : cases) {
        const LogTail log;
        DHCP_INFO info{"x", "x", "x", "x", "x", "x"};
        DHCP6_INFO info6{"x", "x", "x", "x", "x"};
        EXPECT_EQ(get_interface_dhcp_info(const_cast<char*>(ifname), info), code) << words;
        EXPECT_EQ(get_interface_dhcp6_info(const_cast<char*>(ifname), info6), code) << words;
        EXPECT_EQ(show(info), code == 0 ? "10.0.0.100" + kRest : "/  , ") << words;
        EXPECT_EQ(show(info6), code == 0 ? "::1/64  ," : "/  ,") << words;
        EXPECT_TRUE(log.has(words)) << words;
    }
}

TEST(Autoconfiguration, IsToldByItsPeer) {
    char name[] = "swdev1";
    DHCP6_INFO info{"x", "x", "x", "x", "x"};
    EXPECT_EQ(get_interface_slaac_info(name, info), NM_ERR_NOT_FOUND) << "without the peer's runtime";
    const File runtime("/usr/bin/python");
    EXPECT_EQ(get_interface_slaac_info(name, info), NM_ERR_CLI_RETCODE) << "without the peer";
    const std::tuple<std::string, int, std::string> cases[] = {
        {"{'address':'::5','prefixlen':64,'gateway':'::1','dns1':'::1','dns2':null}", 0, "::5/64 ::1 ::1,"},
        {"{'address':['::5'],'prefixlen':'129','gateway':'fe80::1%swdev1','dns2':'::2'}", 0, "/  ,::2"},
        {"{'address':'::5'", NM_ERR_PARSE, "/  ,"}};
    for (const auto& [reply, code, expected] : cases) {
        const auto answer = [text = quoted(reply)](int client) {
            say(client, hear(client, "}").find(R"("command": "stat")") != text.npos ? text : "");
        };
        const Listener peer(answer, "/var/run/network/slaacrrd.sock");
        EXPECT_EQ(get_interface_slaac_info(name, info), code) << reply;
        EXPECT_EQ(show(info), expected) << reply;
    }
}

}  // namespace
