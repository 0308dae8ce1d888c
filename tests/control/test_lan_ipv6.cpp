// LANs that follow their uplink: which are renumbered, what of their entries moves, in which order device,
// daemons and document change, and what a LAN or an uplink that is in use means.

#include <chrono>
#include <thread>

#include "fake_service.h"
#include "golden.h"
#include "networkinterface.h"
#include "stand_in.h"
#include "utils/handles.h"

using namespace fixture;

namespace {

/// In golden/renumbered_lans.json br_v1 is numbered from /48, br_v2 from no prefix yet, br_v3 has an uplink
/// of its own.
struct LanRenumbering : testing::Test {
    LanRenumbering() {
        for (const char* device : {"swdev1", "swdev2", "br_v1", "br_v2", "br_v3"}) {
            run(std::string("ip link add ") + device + " type veth peer name p" + device +
                " && ip link set " + device + " up addrgenmode none");
        }
        run("ip addr add 2001:db8:f::1/64 dev swdev1 nodad; ip addr add 2001:db8:e::1/64 dev swdev2 nodad; "
            "rm -f /run/network/ipv6/*; mkdir -p /etc/networkmanagement/dhcp6 /var/lib/dhcpd6");
        put("/etc/hosts", "127.0.0.1  localhost\n");
        for (const char* lan : {"br_v1", "br_v2", "br_v3"}) {
            EXPECT_EQ(_setup_laninfo(lan, ACT_ADD, OPT_IP6, kDeviceInfoPath, Json::Value()), 0);
        }
        (void)FakeService::take_calls();
    }
    ~LanRenumbering() override {
        run("for d in swdev1 swdev2 br_v1 br_v2 br_v3; do ip link del $d; done; "
            "ip -6 rule flush; ip -6 rule add prio 32766 lookup main");
    }

    static Json::Value lans() { return json(slurp(kDeviceInfoPath))["LAN_IFACE_INFO"]; }
    static std::string address(const std::string& lan) {
        return exec(("ip -6 -o addr show dev " + lan + " scope global | awk '{print $4}' | xargs").c_str());
    }
    static std::string units() { return FakeService::take_text({"systemctl "}, "; "); }

    const File booted{"/run/network/.boot_fin"},
        device{kDeviceInfoPath, golden("renumbered_lans").toStyledString()};
    const FakeService names{
        "DnsmasqMgr",
        {{"Add_addr", R"({"error":0})"}, {"Del_addr", R"({"error":0})"}, {"Restart", R"({"error":0})"}}};
    const StandIn sets{"/usr/sbin/firewall.sh"}, systemctl{"/usr/bin/systemctl"};
};

TEST_F(LanRenumbering, MovesTheLansOfTheUplinkAndStoresItLast) {
    const std::string others = address("br_v3") + slurp("/run/network/ipv6/br_v3.radvd.conf");
    Json::Value expected = lans();
    EXPECT_EQ(reconfig_pd_downlinks("swdev1", "2001:db8:9:ff00::/56"), NM_ERR_BAD_PREFIX)
        << "br_v7 lies outside of its own delegation, br_v8 has no place in the new one";
    EXPECT_EQ(address("br_v1") + address("br_v2"), "2001:db8:9:ff07::1/64\n2001:db8:9:ff02::1/64\n");
    EXPECT_EQ(units(),
              "<stop> <nm-dhcpd6@br_v1.service>; <stop> <nm-6relayd@br_v1.service>; <start> "
              "<nm-dhcpd6@br_v1.service>; <stop> <nm-6relayd@br_v2.service>; <restart> <nm-radvd.service>; ")
        << "one start of the daemon for all LANs";
    EXPECT_EQ(address("br_v3") + slurp("/run/network/ipv6/br_v3.radvd.conf"), others);

    Json::Value& first = expected["br_v1"];
    first["IP6_ADDR"] = first["IP6_DNS_SERVERS"][0] = "2001:db8:9:ff07::1";
    first["IP6_RANGE_START"] = "2001:db8:9:ff07::10";
    first["IP6_RANGE_END"] = "2001:db8:9:ff07::ff";
    expected["br_v2"]["IP6_ADDR"] = "2001:db8:9:ff02::1";
    first["IP6_PD_PREFIX"] = expected["br_v2"]["IP6_PD_PREFIX"] = "2001:db8:9:ff00::/56";
    EXPECT_EQ(lans(), expected);
    EXPECT_NE(slurp("/run/network/ipv6/br_v1.radvd.conf").find("prefix 2001:db8:1:7::/64\n"),
              std::string::npos)
        << "withdrawn by advertisement";
    EXPECT_EQ(exec("ip -6 rule | grep -c 2001:db8:1:7::"), "0\n");

    EXPECT_EQ(reconfig_pd_downlinks("ppp-swdev1", "2001:db8:9:ffff::/56"), NM_ERR_BAD_PREFIX);
    EXPECT_EQ(units(), "") << "the same prefix again";
    const std::tuple<const char*, const char*, int> refused[] = {
        {"swdev9", "2001:db8::/48", NM_ERR_NO_IFACE},
        {"swdev1", "2001:db8::\n/48", NM_ERR_BAD_IP},
        {"swdev1", "", NM_ERR_BAD_IP},
        {"swdev1", "2001:db8::/129", NM_ERR_BAD_PREFIX}};
    for (const auto& [uplink, prefix, code] : refused) {
        EXPECT_EQ(reconfig_pd_downlinks(uplink, prefix), code) << prefix;
        EXPECT_EQ(lans(), expected);
    }
}

/// Both waits of ten seconds at once.
TEST_F(LanRenumbering, SkipsWhatIsInUseAndIsMadeUpForByTheNextEvent) {
    const MainLog log;
    const auto event = [] { return Lease6_event(std::string("swdev1").data(), std::string("apply").data()); };
    const auto delegate = [](const std::string& prefix) {
        put("/run/network/ipv6/swdev1.json",
            quoted("{'curr_pd_prfx':'" + prefix + "','curr_pd_prfx_len':'48'}"));
    };
    delegate("2001:db8:8::");
    put("/run/network/ipv6/swdev2.json", "{}");
    const auto skipped = [] {
        return nm::write_compact_json(json(slurp("/run/network/ipv6/swdev2.json"))["in_force"]["skipped"]);
    };
    const auto began = std::chrono::steady_clock::now();
    {
        nm::LockGuard earlier("swdev1.lease6_report");
        std::thread later([&] {
            std::this_thread::sleep_for(std::chrono::milliseconds(300));
            delegate("2001:db8:9::");
            (void)earlier.release();
        });
        const nm::LockGuard lan("br_v1");
        const nm::LockGuard uplink("swdev2");
        char request[] = R"({"uplink":"PORT2"})";
        int reloaded = 1;
        std::thread reload([&] { reloaded = Reload_lan_ipv6(request); });
        EXPECT_EQ(event(), NM_ERR_LOCK);
        reload.join();
        later.join();
        EXPECT_EQ(reloaded, 0);
    }
    EXPECT_LT(std::chrono::steady_clock::now() - began, std::chrono::seconds(20));
    EXPECT_TRUE(log.has("br_v1 is in use; skip. It keeps its prefix until the next event."));
    EXPECT_TRUE(log.has("Failed to get lock of the uplink interface swdev2; skip."));
    EXPECT_EQ(skipped(), "[\"br_v3\"]\n") << "for the uplink's next report";
    EXPECT_EQ(lans()["br_v1"]["IP6_ADDR"], "2001:db8:1:7::1") << "what is stored is what is in force";
    EXPECT_EQ(address("br_v1") + address("br_v2"), "2001:db8:1:7::1/64\n2001:db8:9:2::1/64\n");
    EXPECT_EQ(exec("ip -6 rule | grep -c 2001:db8:1:9::"), "0\n");

    char all[] = "{}";
    const std::string documents = slurp(kDeviceInfoPath);
    put(kDeviceInfoPath, "{");
    EXPECT_EQ(event(), NM_ERR_PARSE);
    put(kDeviceInfoPath, documents);
    EXPECT_EQ(event(), NM_ERR_BAD_PREFIX);
    EXPECT_EQ(event(), 0) << "nothing is new any more";
    EXPECT_EQ(address("br_v1") + lans()["br_v1"]["IP6_ADDR"].asString(),
              "2001:db8:9:7::1/64\n2001:db8:9:7::1");
    (void)units();
    EXPECT_EQ(renew_lan_ipv6(kDeviceInfoPath, {"br_v3", "br_v9"}), 0);
    EXPECT_EQ(exec("ip -6 rule | grep -c 2001:db8:1:9::") + skipped(), "1\n[]\n");
    EXPECT_EQ(units(), "<stop> <nm-6relayd@br_v3.service>; <restart> <nm-radvd.service>; ");
    EXPECT_EQ(Reload_lan_ipv6(all), 0);
    EXPECT_EQ(units(),
              "<stop> <nm-6relayd@br_v1.service>; <stop> <nm-6relayd@br_v2.service>; "
              "<stop> <nm-6relayd@br_v3.service>; <restart> <nm-radvd.service>; ");
}

}  // namespace
