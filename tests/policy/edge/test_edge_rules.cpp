// Edge rules as iptables takes them and as the kernel has them afterwards, and the commands of ipset edits.
// The match on IP options is no part of stock iptables: its lines are compared with what reaches the restore
// command, all others are loaded.
#include "networkinterface.h"
#include "stand_in.h"

using namespace fixture;
using namespace std::string_literals;

namespace {

const std::pair<uint32_t, std::string> kMatches[] = {
    {1, "-f"},
    {2, "-p tcp --tcp-flags ALL FIN"},
    {2, "-p tcp --tcp-flags FIN,SYN,RST,ACK,URG FIN,SYN,RST,ACK,URG"},
    {2, "-p tcp --tcp-flags ALL NONE"},
    {4, "-p icmp -m length --length 65500:65535"},
    {8, "-p icmp -m length --length 1500:65535"},
    {16, "-p icmp -m set --match-set WANIFSET src,src"},
    {32, "-p tcp -m multiport --dport 137:139 --tcp-flags URG URG"},
    {64, "-p tcp --tcp-flags FIN,SYN FIN,SYN"},
    {128, "-p tcp --tcp-flags FIN,ACK FIN"},
};
constexpr uint32_t kFlags[] = {0, 1, 2, 4, 8, 16, 32, 64, 128, 255, 1U << 15};

std::string rules(uint32_t flags, const std::string& begin, const std::string& end) {
    std::string text;
    for (const auto& [bit, match] : kMatches) {
        text += (flags & bit) != 0 ? begin + match + end : "";
    }
    return text;
}

TEST(AttackDefense, WritesTheseScripts) {
    const StandIn restore("/sbin/iptables-restore", 3);
    const auto expect_script = [](uint32_t flags, const std::string& last = "") {
        EXPECT_EQ(setup_attack_defense(flags), 3);
        EXPECT_EQ(StandIn::take(), "iptables-restore <-n>\n*filter\n-F ATTACK_DEFENSE\n" +
                                       rules(flags, "-A ATTACK_DEFENSE ", " -j DROP\n") + last + "COMMIT\n");
    };
    expect_script(1U << 15);
    for (const auto& [flags, options] : {std::pair{1U << 14, "1"},
                                         {1U << 8, "2"},
                                         {1U << 9, "3"},
                                         {1U << 13, "4"},
                                         {1U << 11, "7"},
                                         {1U << 12, "8"},
                                         {1U << 10, "9"},
                                         {~0U, "1,2,3,4,7,8,9"}}) {
        expect_script(flags, "-A ATTACK_DEFENSE -m ipv4options --flags "s + options + " -j DROP\n");
    }
}

TEST(AttackDefense, IsWhatTheKernelHas) {
    EXPECT_GT(setup_attack_defense(1), 0) << "there is no chain";
    run("ipset create WANIFSET hash:net,iface && iptables -N ATTACK_DEFENSE && iptables -N SINGLY");
    const auto chain = [](const std::string& name) {
        return exec(("iptables-save | sed -n 's/^-A " + name + " //p'").c_str());
    };
    for (const uint32_t flags : kFlags) {
        run("iptables -F SINGLY" + rules(flags, " && iptables -A SINGLY ", " -j DROP"));
        EXPECT_EQ(setup_attack_defense(flags), 0) << flags;
        EXPECT_EQ(chain("ATTACK_DEFENSE"), chain("SINGLY")) << flags;
    }
    run("iptables -X SINGLY && ipset destroy WANIFSET");
    EXPECT_EQ(setup_attack_defense(1), 0);
    EXPECT_GT(setup_attack_defense(16), 0) << "there is no set";
    EXPECT_EQ(chain("ATTACK_DEFENSE"), "-f -j DROP\n") << "all or nothing";
}

TEST(TcpMss, ClampsEachUplinkToItsDevice) {
    const Scratch dir;
    const std::string path = dir / "device.json";
    const Device plain("swdev1"), pppoe("ppp-swdev2", false, "far2"), odd("'a;$(b)`c\"'", false, "far3");
    run("ip link set swdev1 mtu 1400 && ip link set ppp-swdev2 mtu 68");
    put(path, R"({"WAN_IFACE_INFO":{"swdev1":{"IP4_TYPE":"DHCP"},"swdev2":{"IP4_TYPE":"PPPOE"},"swdev9":[],
        "swdev1\nx":{},"a;$(b)`c\"":7}})");
    const std::string wan =
        "-N WAN_MSS\n-A WAN_MSS -i a;$(b)`c\" = 1460\n-A WAN_MSS -i swdev1 = 1360\n"
        "-A WAN_MSS -i ppp-swdev2 = 28\n";
    std::string expected =
        "-N TCP_MSS\n-A TCP_MSS -o ppp-swdev2 = 28\n-A TCP_MSS -o swdev1 = 1360\n"
        "-A TCP_MSS -o a;$(b)`c\" = 1460\n" +
        wan + wan +
        "-N WAN_MSS\n-A WAN_MSS -i a;$(b)`c\" = 1440\n-A WAN_MSS -o a;$(b)`c\" = 1440\n"
        "-A WAN_MSS -i swdev1 = 1340\n-A WAN_MSS -o swdev1 = 1340\n"
        "-A WAN_MSS -i ppp-swdev2 = 8\n-A WAN_MSS -o ppp-swdev2 = 8\n";
    for (std::size_t at = 0; (at = expected.find('=', at)) != std::string::npos;) {
        expected.replace(at, 1, "-p tcp -m tcp --tcp-flags SYN,RST SYN -j TCPMSS --set-mss");
    }
    const auto tables = [] {
        return exec(
            "iptables -t nat -S TCP_MSS; iptables -t nat -S WAN_MSS; iptables -t mangle -S WAN_MSS;"
            "ip6tables -t mangle -S WAN_MSS");
    };
    const LogTail log;
    EXPECT_EQ(set_tcp_mss(path), NM_ERR_SERVICE) << "there are no chains";
    EXPECT_TRUE(log.has("Get MTU FAILED."));
    run("iptables -t nat -N TCP_MSS && iptables -t nat -N WAN_MSS && iptables -t mangle -N WAN_MSS &&"
        "ip6tables -t mangle -N WAN_MSS");
    for (int twice = 0; twice < 2; ++twice) {
        EXPECT_EQ(Reload_tcpmss(("{\"path\":\"" + path + "\"}").data()), 0);
        EXPECT_EQ(tables(), expected);
    }
    EXPECT_EQ(Reload_tcpmss(nullptr), NM_ERR_NULL_ARG);
    EXPECT_EQ(Reload_tcpmss("{"s.data()), NM_ERR_PARSE);
    EXPECT_EQ(Reload_tcpmss(R"({"path":7})"s.data()), NM_ERR_BAD_FORMAT);
    EXPECT_EQ(Reload_tcpmss(R"({"path":"/none"})"s.data()), NM_ERR_NOT_FOUND);
    EXPECT_EQ(tables(), expected) << "what cannot be read empties no chain";
    put("/etc/networkmanagement/device_info.json", R"({"WAN_IFACE_INFO":[]})");
    const StandIn iptables("/sbin/iptables"), ip6tables("/sbin/ip6tables");
    EXPECT_EQ(Reload_tcpmss("{}"s.data()), 0);
    EXPECT_EQ(StandIn::take(),
              "iptables <-t> <nat> <-F> <TCP_MSS>\niptables <-t> <nat> <-F> <WAN_MSS>\n"
              "iptables <-t> <mangle> <-F> <WAN_MSS>\nip6tables <-t> <mangle> <-F> <WAN_MSS>\n");
}

TEST(Alg, LoadsOrUnloadsEachHelper) {
    const StandIn modprobe("/usr/sbin/modprobe", 1);
    EXPECT_EQ(setup_alg(~10U), 0);
    EXPECT_EQ(StandIn::take(),
              "modprobe <nf_nat_ftp>\nmodprobe <-r> <nf_nat_h323>\nmodprobe <nf_nat_pptp>\n"
              "modprobe <-r> <nf_nat_sip>\nmodprobe <nf_nat_proto_esp>\n");
}

TEST(Ipset, EditsThroughTheScripts) {
    const StandIn script("/usr/sbin/firewall.sh"), script6("/usr/sbin/firewall6.sh", 4);
    EXPECT_EQ(edit_ipset("add", "lan", "192.0.2.0/24,swdev1"), 0);
    EXPECT_EQ(edit_ip6_ipset("del", "lan", "2001:db8::1"), 4);
    EXPECT_EQ(edit_ipset("flush", "lan", ""), 0);
    EXPECT_EQ(edit_ipset("add", "lan", ""), NM_ERR_EMPTY);
    EXPECT_EQ(edit_ipset("add", "a b;$(c)'", "x"), 0);
    EXPECT_EQ(edit_ipset("add", "lan", "a\nb"), NM_ERR_BAD_FORMAT);
    EXPECT_EQ(StandIn::take(),
              "firewall.sh <edit_ipset> <add> <lan> <192.0.2.0/24,swdev1>\n"
              "firewall6.sh <edit_ip6_ipset> <del> <lan> <2001:db8::1>\n"
              "firewall.sh <edit_ipset> <flush> <lan>\nfirewall.sh <edit_ipset> <add> <a b;$(c)'> <x>\n");
}

}  // namespace
