// The handlers as a caller of the bus sees them: arguments of all kinds, documents that are kept or put back,
// records in the system's log, and what is left behind.
#include <sys/socket.h>
#include <sys/stat.h>
#include <sys/un.h>

#include <atomic>

#include "bus_world.h"
#include "config/nmconfig.h"
#include "conforms.h"
#include "control/handlers/vs_reply.h"
#include "golden.h"
#include "result_codes.h"
#include "stand_in.h"
#include "utils/handles.h"

using namespace fixture;

namespace {

testing::Environment* const served = testing::AddGlobalTestEnvironment(new ServedMethods);

const std::string kStore = "/etc/networkmanagement/", kRun = "/var/run/network/";
const std::string kRestore = "/sbin/iptables-restore";

/// A null asks without a request.
std::string ask_with(const Json::Value& method, const Json::Value& request) {
    return ask(method.asString(), request.isNull() ? "" : nm::write_compact_json(request));
}

struct Handlers : testing::Test {
    const File booted{"/var/run/network/.boot_fin"},
        device{kDeviceInfoPath, golden("handlers_device").toStyledString()};
};

/// Every method, with every kind of request that holds no arguments.
TEST_F(Handlers, RefuseWhatIsNoRequest) {
    const std::string mebibyte(1 << 20, 'x');
    const std::pair<std::string, std::string> requests[] = {
        {"", "-1603 IO Read failed."},
        {"{", "-1032 Json parse failed."},
        {mebibyte, "-1032 Json parse failed."},
        {nested(5000), "-1032 Json parse failed."},
        {"[]", "-1012 root is not valid format"},
        {"'" + mebibyte + "'", "-1012 root is not valid format"},
        {"7", "-1012 root is not valid format"}};
    int methods = 0;
    for (const vs_api_method& method : vs_api_methods()) {
        const std::string name = method.name;
        methods += *method.arguments != '\0';
        for (auto [request, answer] : requests) {
            if (name == "SetupVelanDeamons") {
                answer = request.empty() ? "-1604" : "-1901";
            }
            if (name == "Setup_vvpn" && request.empty()) {
                answer = "-1603 IO read failed.";
            }
            if (*method.reply == '\0') {
                answer = answer.substr(0, 5);
            }
            if (*method.arguments != '\0') {
                EXPECT_EQ(ask(name, request), answer) << name << " " << request.substr(0, 10);
            }
        }
    }
    EXPECT_EQ(methods, 17);
    EXPECT_EQ(call_bus("GetConfigsMetaInfo", "["),
              "{\"data\":\"Json parse failed.\",\"error\":-1032,\"meta\":{\"version\":\"1.0\"}}\n");
}

TEST_F(Handlers, JudgeTheirArguments) {
    const File file(kStore + "vpn.json", "{}");
    const FakeService overlay("VelanWsd.service", {{"Setup_vbelt_server", "{'error':-7}"}});
    const FakeService daemons("das", {{"apply_devid_mgmt", "{\"error\":0}"}});
    fs::create_directories("/tmp/odd");
    for (const std::string type :
         {"device_info", "hw_port_info", "dhcp_service", "firewall", "policy", "segment", "site", "qos",
          "static_route", "static_route6", "servicePort", "system_svc_mgmt"}) {
        EXPECT_THAT(ask("Get_default_config", "{'type':'" + type + "'}"), testing::StartsWith("0 {")) << type;
    }
    fs::remove("/usr/lib/networkmanagement/etc/default_config/site.json");
    ASSERT_EQ(mkfifo("/tmp/odd/pipe.json", 0600), 0);
    for (const Json::Value& row : golden("handler_arguments")) {  // method, request, answer
        EXPECT_EQ(ask_with(row[0], row[1]), row[2].asString()) << row;
    }
}

/// Fails in the way that its argument names.
nm::Answer misbehave(const Json::Value& arguments) {
    const std::string way = arguments["way"].asString();
    way == "memory" ? throw std::bad_alloc()
    : way == "code" ? throw NM_ERR_LOCK
    : way == "odd"  ? throw "words"
                    : 0;
    const std::string text(way == "length" ? std::string::npos : std::size_t{17} << 20, 'x');
    return {way == "logic" ? Json::Value(5)["member"].asInt() : 0, text};
}

/// What a handler throws is answered, and so is an answer that the bus does not take.
TEST_F(Handlers, AnswerWhateverHappensInside) {
    vs_server* const server = vs_server_create("faulty");
    const vs_method method = [](vs_io* io, int socket) {
        return nm::serve(io, socket, {{"Faulty", nullptr, "way", "text", "", "API"}, misbehave});
    };
    ASSERT_EQ(vs_server_add_method(server, "fail", method), 0);
    std::thread serving([server] { vs_server_run(server); });
    const std::pair<std::string, std::string> cases[] = {{"logic", "-1012"},  {"memory", "-1023"},
                                                         {"length", "-1011"}, {"code", "-1015"},
                                                         {"odd", "-1011"},    {"long reply", "-1014"}};
    for (int i = 0; i < 3; ++i) {
        for (const auto& [way, answer] : cases) {
            const std::string reply = call_bus("fail", quoted("{'way':'" + way + "'}"), "faulty");
            EXPECT_THAT(reply, testing::HasSubstr("\"error\":" + answer + ",")) << way;
        }
    }
    vs_server_stop(server);
    serving.join();
    vs_server_free(server);
}

/// Tunnels and balancing: the ports of its own kind alone, and the answer of the service that has the last
/// word.
TEST_F(Handlers, ActOnTheirOwnKindOfPort) {
    Json::Value document;
    for (const std::string kind : {"WAN", "PRIVATE", "RGLINK"}) {
        const std::string ifname = "of_" + kind;
        document[kind + "_PORT"]["PORT3"] =
            json("{'PRIO':'1','TX_RATE':'1000','INTERFACE':'" + ifname + "'}");
        document[kind + "_IFACE_INFO"][ifname] = json("{'ID':'3','IP4_TYPE':'STATIC','IP4_ADDR':'10.3.0.1'}");
    }
    put(kDeviceInfoPath, nm::write_compact_json(document));
    const StandIn dpi("/usr/sbin/network-dpi.sh"), units("/usr/bin/systemctl"), restore(kRestore),
        restore6("/sbin/ip6tables-restore");
    const FakeService ncaas("ncaas", {{"get_devid", R"({"error":0,"data":1})"}});
    const std::string fine = R"({"error":0,"data":{"error":0}})";
    const FakeService tunnels(
        "VelanWsd.service",
        {{"Setup_TUN", fine}, {"Setup_TUN6", fine}, {"Setup_PRIVATE", fine}, {"Setup_RGLINK", fine}});
    const auto expect = [](const std::string& method, const std::string& request, const std::string& answer,
                           const std::string& pattern) {
        FakeService::take_calls();
        EXPECT_EQ(ask(method, request), answer) << method << request;
        std::string text;
        for (const std::string& call : FakeService::take_calls()) {
            text += call.rfind("ncaas", 0) == 0 ? "" : call + " ";
        }
        EXPECT_THAT(text, testing::ContainsRegex(pattern)) << method << request;
    };
    expect("Edit_tunnels", "{'op':'1'}", "0", "^[^ ]*Setup_TUN .*of_WAN.*\"op\":\"0\".*ENABLE");
    expect("Edit_private_tunnels", "{'op':2}", "0",
           "^[^ ]*Setup_PRIVATE .*of_PRIVATE.*\"op\":\"1\".*DISABLE");
    expect("Edit_rglink_tunnels", "{'op':1}", "0", "^[^ ]*Setup_RGLINK .*of_RGLINK.*\"op\":\"0\".*ENABLE");
    expect("Edit_rglink_tunnels", "{'op':'x'}", "0", "^$");
    for (const std::string answer : {"0", "-1605"}) {
        const FakeService service("VelanWmd",
                                  {{"Reload_condition", R"({"error":0,"data":{"error":)" + answer + "}}"}});
        expect("Setup_lan_to_wan_load_balance", "", answer,
               "-F WANLB .*of_WAN_ncsi .*VelanWmd.Reload_condition");
        expect("Setup_site_to_site_load_balance", "", answer,
               "-F S2SLB .*of_PRIVATE .*VelanWmd.Reload_condition");
    }
}

// ---- Reports.

/// Whether the schema refuses the report once any of its records lacks a member that it requires or has one
/// more.
bool is_strict(const std::string& schema, Json::Value data) {
    Json::Value& record = data.isArray() ? data[0] : data.begin()->isObject() ? *data.begin() : data;
    const Json::Value whole = record;
    bool strict = true;
    for (const std::string& member : whole.getMemberNames()) {
        record[member] = Json::nullValue;
        strict = strict && !conforms(schema, data);
        record = whole;
    }
    record["more"] = "";
    return strict && !whole.empty() && !conforms(schema, data);
}

TEST_F(Handlers, ReportByTheirSchemas) {
    const Device wan("swdev3", true), link("swdev5", true, "far5"), lan("swdev7", false, "far7");
    run("ip addr add 10.3.0.1/24 dev swdev3; ip link set lo up");
    const File delegated("/var/run/network/ipv6/swdev3.json", R"({"pdInfo":[{"prefix":"2001:db8::/56"}]})");
    int reports = 0;
    for (const vs_api_method& method : vs_api_methods()) {
        const std::string schema = method.reply;
        if (schema.find(".json`") == std::string::npos) {
            continue;
        }
        for (const char* request : {"{'comprehensive':0}", "{'comprehensive':'1'}"}) {
            Json::Value reply;
            EXPECT_TRUE(nm::parse_json(call_bus(method.name, quoted(request)), reply));
            const std::string name = schema.substr(1, schema.size() - 2);
            EXPECT_TRUE(conforms(name, reply["data"])) << method.name << reply;
            EXPECT_FALSE(reply["data"].empty()) << method.name;
            EXPECT_TRUE(is_strict(name, reply["data"])) << method.name;
        }
        ++reports;
    }
    EXPECT_EQ(reports, 10);
    const Json::Value wans = json(ask("Get_available_wan_info", "{'comprehensive':1}").substr(2));
    EXPECT_EQ(wans[0]["IP4_ADDR"].asString() + wans[0]["IP4_PREFIX"].asString(), "10.3.0.124");
    EXPECT_TRUE(wans[0]["UP"].asBool() && wans[0]["IP4_DNS"].isArray());
    EXPECT_EQ(wans[1]["IFNAME"].asString(), "ppp-swdev4");
    EXPECT_EQ(ask("GetPrefixDelegationStatus", "{}"),
              "0 [{'IFNAME':'swdev3','IP6_TYPE':'DISABLED','PREFIXES':[{'prefix':'2001:db8::/56'}]}]");
    EXPECT_EQ(json(ask("Get_wan_rxtx_stats").substr(2)).getMemberNames(), Calls{"swdev3"})
        << "swdev4 is not there";
}

// ---- Stored documents.

/// A method, its document and its copy, a document that can be applied and one that cannot, and what is
/// answered then.
struct Document {
    std::string method, path, current, good, bad;
    std::string refusal;
};

/// Restoring refuses a script that says so, and the service rates with an odd text.
struct Documents : Handlers {
    static constexpr const char* kJudge = R"(
        script=$(</dev/stdin); line=4; printf '%s' "$script"
        [[ $script != *PORT_FORWARDING* ]] || line=3
        [[ $script != *10.6.6.6* ]] || echo "Error occurred at line: $line" >&2)";
    static constexpr const char* kAlone =
        "mkdir /tmp/turn || printf ' overlaps'; sleep 0.05; rmdir /tmp/turn";
    const StandIn restore{kRestore, 0, kJudge}, ipset{"/sbin/ipset", 0, kAlone},
        iptables{"/sbin/iptables", 0, "case $* in *-6.6.6*) exit 1;; esac"}, sets{"/usr/sbin/firewall.sh"},
        firewall6{"/usr/sbin/firewall6.sh"};
    const FakeService dnsmasq{"DnsmasqMgr", {{"Restart", R"({"error":0})"}}};
    const Device link{"swdev3", true};
    void SetUp() override {
        run("ip addr add 10.3.0.1/24 dev swdev3");
        fs::remove_all("/tmp/stand_in");
    }
    void TearDown() override {
        for (const Document& row : rows) {
            fs::remove(row.path), fs::remove(row.current);
        }
    }
    static std::string rule(const std::string& address) {
        return "{'RULES':{'SITE':[{'ACTION':'DENY','DST_IP':'" + address + "'}]}}";
    }
    const std::string steer =
        "{'RULES':{'SITE':[{'GROUP':2,'STEERING':'DIRECT','INTERFACE':'PORT3','DST_IP':'";
    const std::vector<Document> rows{
        {"Setup_firewall", kStore + "firewall.json", kRun + "firewall.curr", rule("10.0.0.1"),
         rule("10.6.6.6"), "-1011 FIREWALL SITE rule1 failed."},
        {"Setup_policy", kStore + "policy.json", kRun + "policy.curr", steer + "10.0.0.1'}]}}",
         steer + "10.6.6.6'}]}}", "-1011 POLICY SITE rule1 failed."},
        {"Setup_static_route", kStore + "static_route.json", kRun + "static_route.curr",
         "{'STATIC_ROUTE':[{'ACTION':'ENABLE','IP':'10.9.0.0','NETMASK':'24','NEXTHOP_ADDRESS':'10.3.0.9'}]}",
         "{'STATIC_ROUTE':[{'IP':'10.8.0.0','NETMASK':'240','NEXTHOP_ADDRESS':'10.3.0.9','ACTION':'ENABLE'}]"
         "}",
         "-1012 setup_static_route fail. ret = -1012"},
        {"SetupStaticRoute6", kStore + "static_route6.json", kRun + "static_route6.json",
         "{'staticRoute6':[{'enable':true,'destination':'2001:db8::','prefixLength':48}]}",
         "{'staticRoute6':[{'enable':true,'destination':'2001:db8::x','prefixLength':48}]}",
         "-1012 setup_static_route fail. ret = -1012"},
        {"Setup_segment", kStore + "segment.json", kRun + "segment.curr", "{'a':['10.0.0.0/8']}", "", ""}};
};

TEST_F(Documents, AreKeptOrPutBack) {
    for (const auto& [method, path, current, good, bad, refusal] : rows) {
        EXPECT_EQ(ask(method), "-1020 ") << method << ": no document";
        put(path, "{");
        EXPECT_EQ(ask(method), "-1032 ") << method << ": not JSON";
        put(path, "7");
        EXPECT_EQ(ask(method).substr(0, 6), "-1012 ") << method << ": not an object";
        EXPECT_EQ(slurp(path), "7") << method << ": nothing to put back";
        EXPECT_FALSE(fs::exists(current)) << method;
        put(path, quoted(good));
        fs::permissions(path, fs::perms(0600));
        EXPECT_EQ(ask(method), "0 ") << method;
        const std::string kept = slurp(current);
        EXPECT_NE(kept, "") << method;
        EXPECT_EQ(fs::status(current).permissions(), fs::perms(0600)) << method << ": a secret stays one";
        for (const auto& [broken, words] : {std::pair(bad, refusal), {"7", "-1012 "}, {"{", "-1032 "}}) {
            if (broken.empty()) {
                continue;
            }
            put(path, quoted(broken));
            EXPECT_THAT(ask(method), testing::StartsWith(words)) << method;
            EXPECT_EQ(slurp(path), kept) << method;
            EXPECT_EQ(slurp(current), kept) << method;
        }
        put(current, "{");
        put(path, quoted(good));
        EXPECT_EQ(ask(method), "0 ") << method << ": a copy that cannot be read counts as none";
        EXPECT_EQ(slurp(current), kept) << method;
        put(path,
            slurp("/usr/lib/networkmanagement/etc/default_config/" + fs::path(path).filename().string()));
        EXPECT_EQ(ask(method), "0 ") << method << ": the default document";
    }
}

/// What a refused part of a document leaves of the rest.
TEST_F(Documents, GoBackAsFarAsTheyWereRefused) {
    const std::string firewall = kStore + "firewall.json", current = kRun + "firewall.curr";
    const auto forward = [](const std::string& lan) {
        return ",'PORT_FORWARDING':[{'TYPE':'port_forwarding','ACTION':'ENABLE','WAN_PORTNAME':'PORT3',"
               "'TCP_WAN_PORT':'80','LAN_IP':'" +
               lan + "'}]";
    };
    const auto with_rule = [](const std::string& address, const std::string& rest) {
        return quoted("{'RULES':{'SITE':[{'ACTION':'DENY','DST_IP':'" + address + "'}]}" + rest + "}");
    };
    // Forwards without any before, then with some, then a refused rule beside changed switches.
    const std::array<std::string, 4> steps[] = {
        {with_rule("10.0.0.1", forward("10.6.6.6")), "-1011 PORT_FORWARDING rule1 failed.", "10.0.0.1", ""},
        {with_rule("10.0.0.2", forward("10.0.0.8")), "0 ", "10.0.0.2", "10.0.0.8"},
        {with_rule("10.0.0.3", ",'ALG':'0'" + forward("10.6.6.6")), "-1011 PORT_FORWARDING rule1 failed.",
         "10.0.0.3", "10.0.0.8"},
        {with_rule("10.6.6.6", ",'ALG':'0xffff'"), "-1011 FIREWALL SITE rule1 failed.", "10.0.0.3",
         "10.0.0.8"}};
    const StandIn modprobe("/usr/sbin/modprobe");
    for (const auto& [document, answer, rule, lan] : steps) {
        put(firewall, document);
        EXPECT_EQ(ask("Setup_firewall").substr(0, answer.size()), answer) << document;
        const Json::Value kept = json(slurp(current));
        EXPECT_EQ(slurp(firewall) == slurp(current), answer != "0 ") << document;
        EXPECT_EQ(kept["RULES"]["SITE"][0]["DST_IP"].asString(), rule) << document;
        EXPECT_EQ(kept["PORT_FORWARDING"][0]["LAN_IP"].asString(), lan) << document;
        EXPECT_EQ(kept.isMember("PORT_FORWARDING"), !lan.empty()) << document;
    }
    EXPECT_THAT(FakeService::take_text({"modprobe <"}, "; "),
                testing::MatchesRegex("(-r[^;]*; )+([^-;]*; )+(-r[^;]*; )+"))
        << "taken out, loaded, taken out again";
    // A list that is refused in the middle leaves no route that came before.
    const auto& routes = rows[2];
    const std::string other =
        "{'ACTION':'ENABLE','IP':'10.7.0.0','NETMASK':'24','NEXTHOP_ADDRESS':'10.3.0.9'}";
    put(routes.path, quoted(routes.good));
    EXPECT_EQ(ask(routes.method), "0 ");
    put(routes.path, quoted(std::string(routes.bad).insert(routes.bad.find('[') + 1, other + ",")));
    EXPECT_EQ(ask(routes.method), routes.refusal);
    EXPECT_THAT(exec("ip route show table 1"), testing::StartsWith("10.9.0.0/24 via 10.3.0.9 "));
    // Classes that were accepted do not outlive their steering.
    const std::string policy = kStore + "policy.json";
    const auto classes = [](const std::string& group, const std::string& address) {
        return quoted("{'RULES':{'SITE':[{'GROUP':" + group +
                      "},{'STEERING':'DIRECT','INTERFACE':'PORT3','DST_IP':'" + address + "'}]}}");
    };
    put(policy, classes("2", "10.0.0.1"));
    EXPECT_EQ(ask("Setup_policy"), "0 ");
    FakeService::take_calls();
    put(policy, classes("5", "10.6.6.6"));
    EXPECT_EQ(ask("Setup_policy"), "-1011 STEER SITE rule1 failed.");
    EXPECT_EQ(FakeService::take_text({"-F ", "-A POLICY -j VTARGET --set-xmark "}, "; "),
              "POLICY; 0xc0/960; 320/960 --return; STEER; POLICY; 0xc0/960; 128/960 --return; ");
}

TEST_F(Documents, OfRatesAreReadByTheirService) {
    const std::string qos = kStore + "qos.json", current = kRun + "qos.json";
    const std::string base = "/usr/lib/networkmanagement/etc/default_config/qos.json";
    const std::string call = "VelanWsd.service.Setup_QOS {\"conf\":\"" + qos + "\",\"dev\":\"" +
                             kDeviceInfoPath + "\",\"op\":\"2\"}";
    const auto serve = [](const std::string& code) {
        return FakeService("VelanWsd.service",
                           {{"Setup_QOS", "{\"error\":0,\"data\":{\"error\":" + code + "}}"}});
    };
    {
        const auto service = serve("0");
        for (const std::string& path : {base, qos, current}) {
            fs::remove(path);
        }
        EXPECT_EQ(ask("Setup_qos"), "-1020") << "neither a document nor a default one";
        const File standard(base, R"({"DEFAULT_CLASS":"4"})");
        EXPECT_EQ(ask("Setup_qos"), "0");
        EXPECT_EQ(slurp(qos) + slurp(current), "{\"DEFAULT_CLASS\":\"4\"}\n{\"DEFAULT_CLASS\":\"4\"}\n");
        EXPECT_EQ(FakeService::take_calls(), Calls{call});
    }
    const auto service = serve("-7");
    put(qos, R"({"DEFAULT_CLASS":"5"})");
    EXPECT_EQ(ask("Setup_qos"), "-7");
    EXPECT_EQ(slurp(qos) + slurp(current), "{\"DEFAULT_CLASS\":\"4\"}\n{\"DEFAULT_CLASS\":\"4\"}\n");
    EXPECT_EQ(FakeService::take_calls(), (Calls{call, call})) << "the old rates again";
    fs::remove(qos), fs::remove(current);
}

/// A document whose copy cannot be written is in force nevertheless, and the caller learns it.
TEST_F(Documents, WhoseCopyIsLockedAreReported) {
    const nm::FileDescriptor lock(
        open("/var/lock/network/segment.curr.lck", O_RDONLY | O_CREAT | O_CLOEXEC, 0644));
    ASSERT_EQ(flock(lock.get(), LOCK_EX), 0);
    put(kStore + "segment.json", "{}");
    EXPECT_EQ(ask("Setup_segment"), "-1015 ");
    EXPECT_EQ(slurp(kRun + "segment.curr"), "");
    EXPECT_EQ(slurp(kStore + "segment.json"), "{}");
}

/// Requests of one document are worked one after the other, those of others meanwhile.
TEST_F(Documents, WaitForTheirTurn) {
    put(kStore + "segment.json", "{\"a\":[]}");
    std::atomic<int> done{0};
    std::vector<std::thread> callers;
    for (int i = 0; i < 3; ++i) {
        callers.emplace_back([&] { EXPECT_EQ(ask("Setup_segment"), "0 "), ++done; });
    }
    EXPECT_EQ(ask("Get_lanif_list").substr(0, 2), "0 ");
    EXPECT_LT(done, 3) << "a reader does not wait for them";
    for (std::thread& caller : callers) {
        caller.join();
    }
    EXPECT_THAT(StandIn::take(),
                testing::AllOf(testing::HasSubstr("ipset"), testing::Not(testing::HasSubstr("overlaps"))));
}

// ---- Records in the system's log.

TEST_F(Handlers, WriteRecordsToTheSystemLog) {
    const nm::FileDescriptor log(socket(AF_UNIX, SOCK_DGRAM | SOCK_CLOEXEC, 0));
    const sockaddr_un address{AF_UNIX, "/dev/log"};
    ASSERT_EQ(bind(log.get(), reinterpret_cast<const sockaddr*>(&address), sizeof address), 0);
    for (const Json::Value& row : golden("log_records")) {  // method, request, priority, record
        EXPECT_EQ(ask_with(row[0], row[1]).front(), '0') << row;
        char text[1024];
        const ssize_t length = recv(log.get(), text, sizeof text, MSG_DONTWAIT);
        const std::string sent(text, length > 0 ? static_cast<std::size_t>(length) : 0);
        EXPECT_EQ(sent.substr(0, 5), row[2].asString() + "1") << sent;
        const std::size_t at = sent.find("[event");
        EXPECT_EQ(at == std::string::npos ? sent : sent.substr(at), row[3].asString());
    }
    EXPECT_FALSE(fs::exists("/pwned"));
    unlink("/dev/log");
}

}  // namespace
