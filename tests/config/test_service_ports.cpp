// The registry of service ports: what may be registered, every clash, look-ups, and services that rules name.
#include <atomic>
#include <thread>

#include "config/service_ports.h"
#include "sandbox_fixture.h"

using namespace fixture;

namespace {

const std::string kRegistry = "/etc/networkmanagement/servicePort.json";

struct Services : Frugal {
    Services() { clean(); }
    ~Services() override { clean(); }
    static void clean() {
        for (const char* name : {"servicePort", "firewall", "policy"}) {
            fs::remove(std::string("/etc/networkmanagement/") + name + ".json");
        }
    }
    int add(const std::string& name, const std::string& protocol, const std::string& ports) {
        faults.clear();
        return add_service_port({name, protocol, ports, "", ""}, faults);
    }
    static std::string of_ports(const std::string& ports, const std::string& protocol) {
        std::vector<service_port> found;
        EXPECT_EQ(find_services_of_ports(ports, protocol, found), 0) << ports;
        std::string names;
        for (const service_port& service : found) {
            names += service.service + ";";
        }
        return names;
    }
    std::vector<std::string> faults;
};

TEST_F(Services, AreRegisteredUnlessTheyClash) {
    ASSERT_EQ(add("Camera", "tcp", " 8554-8558 ,554"), 0);
    const std::tuple<std::string, std::string, std::string, size_t, std::string> cases[] = {
        {"camera", "UDP", "9000", 1, "there is a service \"Camera\""},
        {"ssh service", "TCP", "22", 1, "there is a service \"SSH Service\""},
        {"A", "TCP", "1-65535", 17, "taken by \"Camera\" (TCP 554, 8554~8558)"},
        {"A", "UDP", "68~70", 1, "taken by \"TFTP Service\" (UDP 69)"},
        {"A", "All", "8558,3306", 2, "taken by \"SQL Server\" (TCP 3306)"},
        {"", "ICMP", "0", 3, "the service has no name"},
        {"A\nB", "TCP", "9000", 1, "control character"},
        {std::string(65, 'x'), "TCP", "9000", 1, "longer than 64 bytes"},
    };
    const std::string before = slurp(kRegistry);
    for (const auto& [name, protocol, ports, count, words] : cases) {
        EXPECT_EQ(add(name, protocol, ports), NM_ERR_BAD_VALUE) << name << ports;
        EXPECT_EQ(faults.size(), count) << name << ports;
        EXPECT_THAT(faults, testing::Contains(testing::HasSubstr(words))) << ports;
    }
    for (const char* ports :
         {"", "65536", "9002~9000", "9000,9000", "9000~9002,9001", "9000,", "+9000", "1~2~3"}) {
        EXPECT_EQ(add("A", "TCP", ports), NM_ERR_BAD_VALUE) << ports;
        EXPECT_THAT(faults, testing::ElementsAre(testing::HasSubstr("not a list of ports"))) << ports;
    }
    EXPECT_EQ(slurp(kRegistry), before);
    EXPECT_EQ(add("A", "UDP", "554, 3306, 65535, 1~20"), 0) << "the others have these ports of TCP";
    EXPECT_EQ(of_ports("554", "all"), "Camera;A;");
    EXPECT_EQ(of_ports("8556~9000", "TCP") + "/" + of_ports("8556", "UDP"), "RPLR Server;Camera;/");
    service_port found;
    EXPECT_EQ(find_service_port("CAMERA", found), 0);
    EXPECT_TRUE(found.protocol == "TCP" && found.ports == "554, 8554~8558");
    EXPECT_EQ(find_service_port("none", found), NM_ERR_NOT_FOUND);
    std::vector<service_port> none;
    EXPECT_EQ(find_services_of_ports("80", "sctp", none), NM_ERR_BAD_VALUE);
}

TEST_F(Services, ThatRulesNameStay) {
    ASSERT_EQ(add("Camera", "TCP", "554"), 0);
    put("/etc/networkmanagement/firewall.json",
        quoted("{'RULES':{'a/b':[{},{'DST_SERVICE':'camera'},{'SRC_SERVICE':'Nothing'}]},"
               "'PORT_FORWARDING':[{'WAN_SERVICE':'SSH Service'}]}"));
    put("/etc/networkmanagement/policy.json", "{");
    const std::tuple<std::string, int, std::string> cases[] = {
        {"Camera", NM_ERR_BAD_VALUE, "firewall names it at /RULES/a~1b/1/DST_SERVICE"},
        {"SSH Service", NM_ERR_BAD_VALUE, "firewall names it at /PORT_FORWARDING/0/WAN_SERVICE"},
        {"Nothing", NM_ERR_NOT_FOUND, "there is no service"},
        {"NTP Server", 0, ""}};
    for (const auto& [name, code, words] : cases) {
        faults.clear();
        EXPECT_EQ(delete_service_port(name, faults), code) << name;
        EXPECT_EQ(faults.size(), code != 0) << name;
        EXPECT_TRUE(code == 0 || faults[0].find(words) != std::string::npos) << faults[0];
    }
    EXPECT_EQ(of_ports("123", "All"), "");
    const std::string most =
        "555,554,9999,20001~20012,20021~20022,20031~20032,20041~20042,20051~20052,20061~20062";
    const service_port changes[] = {
        {"Cameras", "TCP", "554", "", "be renamed"},
        {"Camera", "UDP", "554", "", "lose a protocol"},
        {"Camera", "TCP", most + ",20070", "", "have more ports than a rule takes"}};
    for (service_port change : changes) {
        const std::string words =
            "\"Camera\" cannot " + std::exchange(change.internal_name, "") + ": firewall";
        faults.clear();
        EXPECT_EQ(change_service_port("Camera", change, faults), NM_ERR_BAD_VALUE) << words;
        EXPECT_THAT(faults, testing::ElementsAre(testing::HasSubstr(words)));
    }
    faults.clear();
    EXPECT_EQ(change_service_port("camera", {"CAMERA", "All", most, "r", ""}, faults), 0) << faults.size();
    EXPECT_EQ(of_ports("555", "TCP"), "CAMERA;") << "its own ports are no clash";
    Json::Value references, services;
    ASSERT_EQ(list_service_references(references), 0);
    ASSERT_EQ(references.size(), 3U);
    EXPECT_TRUE(references[0]["known"].asBool() && !references[1]["known"].asBool());
    ASSERT_EQ(list_service_ports(services), 0);
    EXPECT_TRUE(services.size() == 17 && services[0]["predefined"].asBool() &&
                !services[16]["predefined"].asBool());
    for (const char* text : {"{", "[]", "{\"dbversion\":\"0.0.3\"}", "{\"PREDEFINED\":{}}"}) {
        put(kRegistry, text);
        EXPECT_TRUE(add("B", "TCP", "9999") < 0 && list_service_ports(services) < 0) << text;
        EXPECT_EQ(slurp(kRegistry), text);
    }
    put(kRegistry, R"({"dbversion":"9","PREDEFINED":[],"USER_DEFINED":[{"service":"X","more":1}]})");
    EXPECT_EQ(add("B", "TCP", "9999"), NM_ERR_BAD_VALUE);
    EXPECT_THAT(faults, testing::ElementsAre(testing::HasSubstr("later version")));
}

/// Writers of one registry wait for each other, and none loses what another has written.
TEST_F(Services, AreRegisteredSideBySide) {
    std::vector<std::thread> writers;
    std::atomic<int> failures{0};
    for (int i = 0; i < 4; ++i) {
        writers.emplace_back([i, &failures] {
            std::vector<std::string> ignored;
            const std::string number = std::to_string(20000 + i);
            failures += add_service_port({"S" + number, "UDP", number, "", ""}, ignored) != 0;
        });
    }
    for (std::thread& writer : writers) {
        writer.join();
    }
    Json::Value services;
    ASSERT_EQ(list_service_ports(services), 0);
    EXPECT_EQ(static_cast<int>(services.size()), 17 + 4 - failures);
    EXPECT_EQ(failures, 0);
}

}  // namespace
