// The DHCP server's and relay's files against the real daemon's own check, and the readers of what daemons
// write.
#include <ctime>

#include "golden.h"
#include "networkinterface.h"

namespace {

using namespace fixture;

constexpr const char* kConf = "/etc/networkmanagement/dhcp/dhcpd_lan0.conf";
constexpr const char* kRelay = "/etc/networkmanagement/dhcp/dhcrelay_lan0";
constexpr const char* kLeases = "/var/lib/dhcpd/dhcpd_lan0.leases";
const std::string kMac = "'MAC':'00:11:22:33:44:55'";

std::string host(const std::string& last, const std::string& name = "tv", const std::string& mac = kMac) {
    return "{'DEVICE_NAME':'" + name + "','IP4_ADDR':'192.168.1." + last + "'," + mac + "}";
}
std::string hosts(const std::string& list) {
    return "'RESERVED_IP':[" + list + "]";
}
std::string pool(const std::string& first, const std::string& last) {
    return "'START_IP':'192.168.1." + first + "','END_IP':'192.168." + last + "'";
}

class Dhcp : public testing::Test {
protected:
    Dhcp() : lan("lan0", true) { run("ip addr add 192.168.1.1/24 dev lan0"); }

    /// The service of an entry that differs from a plain one in the members of `patch`.
    std::unique_ptr<DhcpService> service(const std::string& patch, const std::string& kind = "SERVER") {
        return service_of(json("{" + patch + "}"), kind);
    }
    std::unique_ptr<DhcpService> service_of(const Json::Value& patch, const std::string& kind = "SERVER") {
        Json::Value entry = json("{'SERVICE':'" + kind + "','LEASE_TIME':'600'," + pool("10", "1.20") + "}");
        for (const std::string& key : patch.getMemberNames()) {
            entry[key] = patch[key];
        }
        put(kDhcpServicePath, "{\"DHCP_SERVICE\":{\"lan0\":" + nm::write_compact_json(entry) + "}}");
        DhcpService* made = nullptr;
        EXPECT_EQ(create_DHCP_SERVICE(&made, "lan0", kDhcpServicePath), NM_OK) << patch;
        return std::unique_ptr<DhcpService>(made);
    }

    Device lan;
};

/// The values of the file's lines that begin with `words`.
std::string values(const std::string& words) {
    std::istringstream file(slurp(kConf));
    std::string found;
    for (std::string line; std::getline(file, line);) {
        found += line.rfind(words, 0) == 0 ? line.substr(words.size()) : "";
    }
    return found;
}

TEST_F(Dhcp, FileIsWhatTheDaemonTakesOrStaysAsItWas) {
    const std::string check =
        "dhcpd -t -4 -q -cf " + std::string(kConf) + " >/tmp/check 2>&1 || { cat /tmp/check; false; }";
    // Members of the entry that differ, the code, and the ranges of the file or words of the log.
    for (const Json::Value& row : golden("dhcp_entries")) {
        SCOPED_TRACE(row);
        put(kConf, "old");
        const LogTail log;
        EXPECT_EQ(service_of(row[0])->gen_dhcpserver_conf(), row[1].asInt());
        EXPECT_FALSE(fs::exists(kConf + std::string(".tmp")));
        if (row[1] == NM_OK || row[1] == NM_ERR_POOL_EMPTY) {
            EXPECT_EQ(values("range 192.168.1."), row[2].asString());
            run(check);
        } else {
            EXPECT_EQ(slurp(kConf), "old");
            EXPECT_TRUE(log.has(row[2].asString()));
        }
    }
    const std::string hostile = host("11", "a\\nb\\r}{;\\u0000\\\"\xff;") + "," + host("20", "\\\"};x");
    EXPECT_EQ(service(hosts(hostile))->gen_dhcpserver_conf(), NM_OK);
    EXPECT_EQ(values("range 192.168.1."), "10 192.168.1.10;12 192.168.1.19;");
    run(check);
}

TEST_F(Dhcp, FileHoldsTheseLines) {
    const auto server =
        service(hosts(host("15")) +
                ",'DNS_SERVERS':['9.9.9.9','1.1.1.1'],'PRIMARY_DNS':'1.1.1.1','SECONDARY_DNS':''");
    server->update_option_router("192.168.1.254");
    put(kConf + std::string(".tmp"), std::string(4096, '}'));  // what a killed call left
    ASSERT_EQ(server->gen_dhcpserver_conf(), NM_OK);
    EXPECT_EQ(slurp(kConf), slurp(NM_TEST_DIR "/golden/dhcpd.conf"));
    ASSERT_EQ(service(pool("1", "1.1"))->gen_dhcpserver_conf(), NM_ERR_POOL_EMPTY);
    EXPECT_TRUE(slurp(kConf).find(quoted("{\ninterface 'lan0';\n}\n")) != std::string::npos);
    ASSERT_EQ(service("")->gen_dhcpserver_conf(), NM_OK);
    EXPECT_EQ(values("option domain-name-servers "), "192.168.1.1;") << "its own address when none is named";
}

TEST_F(Dhcp, FullDiskLeavesTheOldFile) {
    const auto server = service("");
    run("mount -t tmpfs -o size=8k none /etc/networkmanagement/dhcp");
    put(kConf, "old");
    EXPECT_NE(std::system("cat /dev/zero >/etc/networkmanagement/dhcp/fill 2>/dev/null"), 0);
    EXPECT_EQ(server->gen_dhcpserver_conf(), NM_ERR_WRITE);
    EXPECT_TRUE(slurp(kConf) == "old" && !fs::exists(kConf + std::string(".tmp")));
    run("mount -o remount,ro /etc/networkmanagement/dhcp");
    EXPECT_EQ(server->gen_dhcpserver_conf(), NM_ERR_OPEN);
    run("umount /etc/networkmanagement/dhcp");
}

TEST_F(Dhcp, OutsideOfItsPoolTheServerIsNotStarted) {
    fs::remove(kConf);
    const auto server = service("");
    server->update_option_router("192.168.2.1");
    EXPECT_EQ(server->add_service(OPT_DHCP_CHECK), NM_OK);
    EXPECT_FALSE(fs::exists(kConf) || fs::exists(kLeases));
}

TEST_F(Dhcp, RelayEnvironment) {
    for (const Json::Value& row : golden("dhcp_relays")) {  // servers, code, the file or words of the log
        put(kRelay, "old");
        const LogTail log;
        Json::Value patch;
        patch["RELAY_SERVERS"] = row[0];
        EXPECT_EQ(service_of(patch, "RELAY")->gen_dhcrelay_env_conf(), row[1].asInt());
        EXPECT_EQ(slurp(kRelay), row[1] == NM_OK ? row[2].asString() : "old") << row;
        EXPECT_TRUE(row[1] == NM_OK || log.has(row[2].asString())) << row;
    }
    EXPECT_FALSE(fs::exists("/tmp/broken"));
}

std::string ends(long from_now) {
    const time_t end = time(nullptr) + from_now;
    char text[64];
    strftime(text, sizeof(text), "  ends %w %Y/%m/%d %H:%M:%S;\n", gmtime(&end));
    return text;
}
std::string lease(const std::string& body, const std::string& ip = "10.0.0.5") {
    return "lease " + ip + " {\n" + body + "}\n";
}

TEST_F(Dhcp, LeaseFile) {
    const std::string active = "  binding state active;\n";
    const std::string valid = ends(90061 + 30) + active;
    const std::string span = "1D 1:1:";
    const auto named = [](const std::string& name) { return "  client-hostname \"" + name + "\";\n"; };
    const std::vector<std::pair<std::string, std::string>> rows{
        {"", ""},
        {"# comment\n}\n}\n", ""},
        {lease(valid + "  hardware ethernet 02:00:00:00:00:01;\n  uid \"\\001\";\n" + named("nas")),
         "10.0.0.5=02:00:00:00:00:01/nas/" + span},
        {lease(ends(3700) + active), "10.0.0.5=//1:1:"},
        {lease(ends(-5) + active), ""},
        {lease(valid + named("a")) + lease(valid + named("b")), "10.0.0.5=/b/" + span},
        {lease(valid + named("a")) + lease(ends(-5) + active), "10.0.0.5=/a/" + span},
        {lease(valid) + lease(ends(50) + "  binding state free;\n"), ""},
        {lease(valid) + lease(ends(50) + "  binding state free;\n") + lease(valid + named("c")),
         "10.0.0.5=/c/" + span},
        {lease(ends(90091) + "  binding state free;\n  next binding state active;\n"), "10.0.0.5=//" + span},
        {lease("  ends never;\n" + active), ""},
        {lease("  ends epoch 1893456000; # Tue Jan  1 00:00:00 2030\n" + active), ""},
        {lease("  ends 5 99999999999/1/1 1:2:3;\n" + active) + lease("  ends\n" + active), ""},
        {lease(valid + named("x } lease 9.9.9.9 { binding state free;   ends 1 2/3/4 5:6:7;")),
         "10.0.0.5=/x } lease 9.9.9.9 { binding state free;   ends 1 2/3/4 5:6:7;/" + span},
        {lease(named("binding state active;") + ends(50)), ""},
        {lease(valid + named("\\\"\xff\xfe\x01\\303")), "10.0.0.5=/\\\"\xff\xfe\x01\\303/" + span},
        {lease(valid + "  client-hostname \"\n  hardware ethernet \n"), "10.0.0.5=//" + span},
        {"lease {\n" + valid + "}\nlease x", ""},
        {"lease 10.0.0.5 {\n" + valid, ""},
    };
    for (const auto& [text, expected] : rows) {
        put(kLeases, text);
        std::map<std::string, std::map<std::string, std::string>> leases;
        ASSERT_EQ(get_dhcpserver_lease("lan0", leases), NM_OK);
        std::string found;
        for (auto& [ip, one] : leases) {
            const std::string expires = one["EXPIRES"];
            found += ip + "=" + one["MAC"] + "/" + one["DEVICE_NAME"] + "/" +
                     expires.substr(0, expires.rfind(':') + 1);
        }
        EXPECT_EQ(found, expected) << text;
    }
}

TEST_F(Dhcp, ReservationsReadBack) {
    for (const Json::Value& row : golden("reservations")) {  // the file, what is read
        put(kConf, row[0].asString());
        Json::Value out;
        ASSERT_EQ(get_reserved_ip("lan0", out), NM_OK);
        EXPECT_EQ(out["RESERVATION"], row[1]) << row;
    }
    ASSERT_EQ(service(hosts(host("11", "a\\nb\\t}{;\\\"\\\\;")))->gen_dhcpserver_conf(), NM_OK);
    Json::Value out;
    ASSERT_EQ(get_reserved_ip("lan0", out), NM_OK);
    ASSERT_EQ(out["RESERVATION"].size(), 1U);
    EXPECT_EQ(out["RESERVATION"][0]["DEVICE_NAME"].asString(), "a b }{;\"\\;");
}

TEST_F(Dhcp, ClientTable) {
    const auto server = service(hosts(host("15")));
    ASSERT_EQ(server->gen_dhcpserver_conf(), NM_OK);
    std::string text;
    for (int i = 0; i < 10000; ++i) {
        text += lease(ends(600) + "  binding state active;\n",
                      "10.0." + std::to_string(i / 250) + "." + std::to_string(i % 250));
    }
    put(kLeases, text);
    std::string out(1 << 22, '\0');
    ASSERT_EQ(server->get_dhcp_client_table(out.data(), out.size()), NM_OK);
    out.resize(out.find('\0'));
    EXPECT_TRUE(json(out)["LEASE"].size() == 10000 && json(out)["RESERVATION"].size() == 1);
    EXPECT_TRUE(json(out)["LEASE"][0]["ALIVE"].isInt() && out.back() == '\n');

    put(kLeases, "");
    const std::string empty_list =
        R"({"LEASE":"","RESERVATION":[{"ALIVE":0,"DEVICE_NAME":"tv",)"
        R"("EXPIRES":"Reservation","IP4_ADDR":"192.168.1.15","MAC":"00:11:22:33:44:55"}]})"
        "\n";
    const size_t length = empty_list.size();
    std::string buffer(length + 2, 'x');
    EXPECT_EQ(server->get_dhcp_client_table(buffer.data(), length), NM_ERR_BUFFER);
    EXPECT_EQ(server->get_dhcp_client_table(buffer.data(), size_t{1} << 32), NM_ERR_BUFFER);
    EXPECT_EQ(buffer, std::string(length + 2, 'x'));
    EXPECT_EQ(server->get_dhcp_client_table(buffer.data(), length + 1), NM_OK);
    EXPECT_EQ(buffer, empty_list + "xx") << "no terminator";
    EXPECT_EQ(server->get_dhcp_client_table(nullptr, 9), NM_ERR_NULL_ARG);
    EXPECT_EQ(server->get_dhcp_client_table(buffer.data(), 0), NM_ERR_BUFFER);
    EXPECT_EQ(service("", "DISABLED")->get_dhcp_client_table(buffer.data(), 9), NM_ERR_BAD_TYPE);
    fs::remove(kLeases);
    EXPECT_EQ(server->get_dhcp_client_table(buffer.data(), 9), NM_ERR_NOT_FOUND);
    EXPECT_TRUE(is_lock_free("dhcpservice"));
}

TEST_F(Dhcp, Targets) {
    service("", "DISABLED");
    put("/tmp/other.json", quoted("{'DHCP_SERVICE':{'lo':{'SERVICE':{}},'lan0':{}}}"));
    const std::string stored = "'path':'" + std::string(kDhcpServicePath) + "'";
    const auto member = [](const std::string& key, int act, const std::string& path) {
        return "'" + key + "':{'act':" + std::to_string(act) + ",'ops':511," + path + "}";
    };
    const std::vector<std::pair<std::string, int>> rows{
        {"{" + member("lan0", 1, stored) + "}", 0},
        {"{" + member("lan0", 3, stored) + "}", 0},
        {"{" + member("lan0", 2, "'path':'/absent'") + "}", 0},
        {"{" + member("lan0", 7, stored) + "}", NM_ERR_BAD_ACT},
        {"{" + member("lan0", 1, "'path':'/tmp/other.json'") + "}", NM_ERR_NO_SECTION},
        {"{" + member("lo", 1, "'path':'/tmp/other.json'") + "}", NM_ERR_BAD_FORMAT},
        {"{" + member("lan0", 1, "'path':'/absent'") + "}", NM_ERR_NOT_FOUND},
        {"{" + member("lan0", 1, "'path':7") + "}", NM_ERR_BAD_FORMAT},
        {"{" + member("lan0", 1, "'path':''") + "}", NM_ERR_NULL_ARG},
        {"{" + member("lan0", 7, stored) + "," + member("lan1", 2, stored) + "}", 0},
        {"{" + member("lan1", 1, stored) + "}", NM_ERR_NO_IFACE},
        {"{" + member("far", 2, stored) + "}", 0},
        {"{" + member("far", 3, stored) + "}", NM_ERR_NO_IFACE},
    };
    for (const auto& [request, code] : rows) {
        EXPECT_EQ(Setup_dhcpservice(quoted(request).data()), code) << request;
        EXPECT_TRUE(is_lock_free("dhcpservice"));
    }
}

TEST_F(Dhcp, DocumentsAreWrittenIfTheyGainKeys) {
    Json::Value document = json("{'DHCP_SERVICE':{'a':{'OWN':[1]}}}");
    ASSERT_EQ(migrate_dhcp_service(document, "/tmp/old.json"), NM_OK);
    EXPECT_EQ(json(slurp("/tmp/old.json")), document);
    fs::remove("/tmp/old.json");
    EXPECT_EQ(migrate_dhcp_service(document, "/tmp/old.json"), NM_OK);
    EXPECT_FALSE(fs::exists("/tmp/old.json")) << "nothing is written for a document of this format";
    document = json("{'DHCP_SERVICE':[]}");
    EXPECT_EQ(migrate_dhcp_service(document, "/tmp/old.json"), NM_ERR_BAD_FORMAT);
}

TEST_F(Dhcp, RemovalOfServerFiles) {
    put(kConf, "");
    put(kRelay, "");
    EXPECT_EQ(remove_dhcpserver_conf(), NM_OK);
    EXPECT_TRUE(!fs::exists(kConf) && fs::exists(kRelay));
}

}  // namespace
