// WAN ports: what their entry in the document becomes, what operations do to the device, and what they tell
// the services, in which order and with which result.

#include "fake_service.h"
#include "networkinterface.h"
#include "sandbox_fixture.h"

using namespace fixture;

namespace {

const std::string kId = "ncaas.get_devid ";
const std::string kQos = R"(VelanWsd.service.Setup_QOS {"conf":"/new/path","dev":"swdev1","op":"2"})";
const std::string kBandwidth =
    R"(VelanWmd.Reset_iface_bandwidth {"bandwidth":"40000000000","ifname":"swdev1"})";

/// An addressing side whose removal is remembered and fails.
struct FakeInfo : WanIfaceInfo {
    FakeInfo()
        : WanIfaceInfo("swdev1", "/new/path",
                       json("{'WAN_PORT':{'PORT1':{'INTERFACE':'swdev1','DEV_TYPE':'ethernet'}},"
                            "'WAN_IFACE_INFO':{'swdev1':{'IP4_TYPE':'PPPOE'}}}")) {}
    int del_info(uint32_t opt) override {
        removals.push_back(opt);
        return -1009;
    }
    inline static std::vector<uint32_t> removals;
};

struct Port : WanInterface {
    using WanInterface::WanInterface;
    explicit Port(const std::string& mtu = "1400", const std::string& type = "ethernet")
        : WanInterface("PORT1", "/new/path",
                       json("{'WAN_PORT':{'PORT1':{'INTERFACE':'swdev1','TX_RATE':'40000000000','MTU':'" +
                            mtu + "','DEV_TYPE':'" + type + "'}}}")) {}
    void give(WanIfaceInfo* side) { info.reset(side); }
    std::string facts() {
        return interface + "," + hw_port + "," + dev_type + "," + std::to_string(prio) + "," +
               std::to_string(mtu) + "," + std::to_string(rx_rate) + "," + std::to_string(tx_rate);
    }
};

TEST(PortEntry, HasADefaultForEveryKey) {
    const File ports("/etc/networkmanagement/hw_port_info.json", R"({"P":{"HW_PORT":"eth5"}})");
    const std::map<std::string, std::string> cases{
        {"'MORE':1", ",eth5,,1,1500,0,0"},
        {"'INTERFACE':'i','DEV_TYPE':'virtio','MTU':1400,'PRIO':7,'ISP_BW':5", "i,eth5,virtio,7,1400,5,5"},
        {"'ISP_BW':'100','RX_RATE':20,'TX_RATE':null", ",eth5,,1,1500,100,100"},
        {"'ISP_BW':'100','RX_RATE':'','TX_RATE':'010'", ",eth5,,1,1500,0,10"},
        {"'ISP_BW':'-100','RX_RATE':'99999999999999999999'", ",eth5,,1,1500,0,0"},
        {"'MTU':'14 B','PRIO':'x','RX_RATE':{},'TX_RATE':'40000000000'", ",eth5,,0,14,0,40000000000"}};
    for (const auto& [entry, expected] : cases) {
        EXPECT_EQ(Port("P", "/p", json("{'WAN_PORT':{'P':{" + entry + "}}}")).facts(), expected) << entry;
    }
}

TEST(WanFactory, TurnsEveryFailureIntoItsCode) {
    const File stored("/etc/networkmanagement/stored.json", quoted("{'WAN_PORT':{'PORT9':{'MTU':'1'}}}"));
    const std::string good = "{'WAN_PORT':{'PORT1':{'INTERFACE':'swdev1'}},'LAN_PORT':{'PORT9':1}}";
    const std::tuple<const char*, fs::path, std::string, int, const char*> cases[] = {
        {"PORT9", stored.path, "null", 0, ""},
        {"PORT9", stored.path, good, NM_ERR_NO_SECTION, "Cannot find [PORT9]'s configuration."},
        {"PORT1.100", "/p", good, 0, "PORT: PORT1's VLAN: 100"},
        {".100", "/p", good, NM_ERR_NULL_ARG, "wan is NULL"},
        {"PORT1", "", good, NM_ERR_NULL_ARG, "wan is NULL"},
        {"PORT1", "/p", "null", NM_ERR_NOT_FOUND, "File loading failed; path:/p"},
        {"PORT1", "/p", "{'WAN_PORT':{'PORT1':{'MTU':['1400']}}}", NM_ERR_BAD_FORMAT, "[PORT1] in /p"},
        {"PORT1", "/p", "{'WAN_PORT':{'PORT1':'text'}}", NM_ERR_BAD_FORMAT, "[PORT1] is not valid"}};
    EXPECT_EQ(create_WAN(nullptr, "PORT1", "/p", json(good)), NM_ERR_NULL_ARG);
    for (const auto& [port, path, cfg, code, words] : cases) {
        const LogTail log;
        WanInterface* wan = nullptr;
        EXPECT_EQ(create_WAN(&wan, port, path, json(cfg)), code) << port << cfg;
        const std::unique_ptr<WanInterface> owner(wan);
        EXPECT_EQ(wan != nullptr, code == 0) << port << cfg;
        EXPECT_TRUE(log.has(words)) << words;
    }
}

TEST(WanPort, IsToldToTheServicesWhateverBecomesOfItsDevice) {
    const std::string fine = R"({"error":0,"data":{"error":0}})";
    const FakeService qos("VelanWsd.service", {{"Setup_QOS", fine}});
    const FakeService monitor("VelanWmd", {{"Reset_iface_bandwidth", fine}});
    using Operation = int (WanInterface::*)(uint32_t opt);
    constexpr Operation add = &WanInterface::add_if;
    constexpr Operation del = &WanInterface::del_if;
    constexpr Operation alt = &WanInterface::alt_if;
    // Where no MTU is left there is no device.
    const std::tuple<Operation, uint32_t, const char*, std::string, int, std::string, Calls> cases[] = {
        {add, 63, "1400", "7", NM_ERR_NO_IFACE, "", {kId, kQos}},
        {del, 63, "1400", "-7", 0, "", {kId, kQos}},
        {del, 0, "1400", "\"7\"", 0, "", {kId}},
        {alt, OPT_LINK, "1400", "7", NM_ERR_NO_IFACE, "", {}},
        {alt, OPT_RATE, "1400", "0", NM_ERR_NO_IFACE, "", {kId, kBandwidth}},
        {alt, ~(OPT_LINK | OPT_RATE), "1400", "7", 0, "1500", {}},
        {alt, OPT_LINK, "1400", "7", 0, "1400", {}},
        {add, OPT_LINK, "1000000", "7", NM_ERR_IOCTL, "1500", {kId, kQos}},
        {alt, OPT_LINK | OPT_RATE, "1000000", "7", NM_ERR_IOCTL, "1500", {kId, kQos, kBandwidth}},
        {del, 63, "1400", "7", 0, "1500", {kId, kQos}}};
    const LogTail log;
    for (const auto& [operation, opt, mtu, id, code, left, calls] : cases) {
        const FakeService ncaas("ncaas", {{"get_devid", "{\"error\":0,\"data\":" + id + "}"}});
        std::optional<Device> device;
        left.empty() ? void() : void(device.emplace("swdev1", true));
        Port port(mtu);
        EXPECT_EQ((port.*operation)(opt), code) << mtu << opt;
        EXPECT_EQ(fact("swdev1", "mtu"), left) << mtu << opt;
        EXPECT_EQ(FakeService::take_calls(), calls) << mtu << opt;
    }
    EXPECT_TRUE(log.has("set_iface_flags IFF_NOMULTIPATH failed: swdev1"));
    EXPECT_TRUE(log.has("swdev1 does not exist") && log.has("swdev1 ifindex = 0; skip"));
}

TEST(WanPort, HandsItsAddressingSideOn) {
    Port port;
    port.give(new FakeInfo);
    FakeInfo::removals.clear();
    EXPECT_EQ(port.del_if(5), 0) << "there is no device to take addresses from";
    const Device device("swdev1");
    port.give(nullptr);
    const LogTail log;
    EXPECT_EQ(Port("1400", "").setup_if(OPT_LINK), NM_ERR_BAD_TYPE);
    EXPECT_EQ(port.get_ip4_type(), "DISABLED");
    EXPECT_EQ(port.del_info(5) + port.setup_if(OPT_LINK), 0);
    EXPECT_TRUE(log.has("PPPoE config for swdev1 does not exist.") && !log.has("PPPoE MTU is changed"));
    EXPECT_FALSE(log.has("wait for interface up")) << "it was down before";
    run("ip link set far up && ip link set swdev1 up");
    port.give(new FakeInfo);
    EXPECT_EQ(port.get_ip4_type(), "PPPOE");
    EXPECT_EQ(port.del_info(6) + port.setup_if(OPT_LINK), -1009);
    EXPECT_TRUE(log.has("PPPoE MTU is changed") && log.has("wait for interface up after setup MTU"));
    EXPECT_EQ(port.del_if(7), 0) << "a delete never fails";
    EXPECT_EQ(FakeInfo::removals, (std::vector<uint32_t>{6, 7}));
}

TEST(Services, AnswerIsTheResult) {
    Port port;
    const std::tuple<const char*, int, int, const char*> cases[] = {
        {R"({"error":0,"data":{"result":"fine"}})", 0, 0, ""},
        {R"({"error":0,"data":{"error":7,"result":"no such port"}})", 7, 0, "Error: no such port"},
        {R"({"error":-5,"data":{"error":0}})", -5, -5, "vsh VelanWsd.service.Setup_QOS failed."},
        {R"({"error":0})", NM_ERR_PARSE, 0, "Json parse failed."},
        {R"({"error":0,"data":{"error":"7"}})", NM_ERR_PARSE, 0, "Unknown Error: "},
        {"no JSON", NM_ERR_PARSE, NM_ERR_PARSE, "swdev1 Reset_iface_bandwidth failed! Ret: -1032"}};
    for (const auto& [reply, qos_code, monitor_code, words] : cases) {
        const FakeService qos("VelanWsd.service", {{"Setup_QOS", reply}});
        const FakeService monitor("VelanWmd", {{"Reset_iface_bandwidth", reply}});
        const LogTail log;
        EXPECT_EQ(setup_qos_rate("a\"b", "/p", 3), qos_code) << reply;
        EXPECT_EQ(port.reset_wan_monitor_bandwidth(), monitor_code) << reply;
        EXPECT_TRUE(log.has(words)) << reply;
        EXPECT_EQ(FakeService::take_calls()[0],
                  R"(VelanWsd.service.Setup_QOS {"conf":"/p","dev":"a\"b","op":"2"})");
    }
}

}  // namespace
