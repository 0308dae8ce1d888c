// Name servers by owner, the configured ones and the sets of host names.
#include "networkinterface.h"
#include "sandbox_fixture.h"
#include "utils/handles.h"

using namespace fixture;
using namespace std::string_literals;

namespace {

using Texts = std::vector<std::string>;

std::string line(const std::string& server, const std::string& owner) {
    return "nameserver " + server + " #ID=" + owner + "\n";
}

const std::string kFile = nm::kNameServersPath;

TEST(NameServers, OwnersKeepOutOfEachOther) {
    const std::string others = line("1.1.1.1", "wan2") + line("1.1.1.1", "xwan") + line("2001:db8::1", "wan");
    const std::string all = line("1.1.1.1", "wan") + others + line("2.2.2.2", "wan");
    const std::string odd = "#" + line("1.1.1.1", "wan") + line(std::string(5000, '9'), "wan");
    const auto insert = [&](const Texts& servers, const std::string& owner, const std::string& after,
                            int expected = 0) {
        put(kFile, all + "\n# foreign");
        EXPECT_EQ(insert_dns_server(servers, owner), expected);
        EXPECT_EQ(slurp(kFile), after);
        EXPECT_TRUE(is_lock_free("dnsresolvlock") && !fs::exists(kFile + ".tmp"));
    };
    insert({"2.2.2.2", "1.1.1.1"}, "wan",
           line("2.2.2.2", "wan") + line("1.1.1.1", "wan") + others + "# foreign\n");
    insert({"1.1.1.1"}, "an", line("1.1.1.1", "an") + all + "# foreign\n");
    insert({"3.3.3.3", "3.3.3.3", "3.3.3", "x", "", "3.3.3.4\0\nnameserver 6.6.6.6"s}, "global",
           line("3.3.3.3", "global") + all + "# foreign\n");
    insert({"3.3.3.3"}, "wan\nnameserver 6.6.6.6", all + "\n# foreign", NM_ERR_BAD_FORMAT);
    const auto remove = [&](const std::string& owner, unsigned char family, const std::string& after) {
        put(kFile, "# foreign\n\n" + all + odd);
        EXPECT_EQ(remove_dns_server(owner, family), 0);
        EXPECT_EQ(slurp(kFile), after);
    };
    remove("wan", 2, others + odd);
    remove("xwan", 10, all + odd);
    remove("an", 2, all + odd);
    remove("wan", 7, all + odd);
    fs::remove(kFile);
    const LogTail log;
    EXPECT_EQ(remove_dns_server("wan", 2), NM_ERR_OPEN);
    EXPECT_EQ(insert_dns_server({"1.1.1.1"}, "wan"), NM_ERR_OPEN);
    EXPECT_TRUE(log.has("read " + kFile + " file failed") && log.has("open " + kFile + " file failed."));
}

TEST(Dns, ServesTheDocument) {
    const Scratch dir;
    const std::string saved = line("8.8.8.8", "global") + line("2001:db8::8", "global");
    const std::string wan = line("1.1.1.1", "wan");
    const std::string fresh =
        line("2001:db8::9", "global") + line("9.9.9.9", "global") + line("9.9.9.8", "global");
    const std::string document = R"({"SERVICES":{"DNS_INFO":{"DNS4":"9.9.9.9","DNS6":"9.9.9.7","DNS_SERVERS":
        ["9.9.9.8","2001:db8::9",7,{},"x","9.9.9.9"]}}})";
    const File stored(
        kDeviceInfoPath,
        R"({"SERVICES":{"DNS_INFO":{"DNS4":"8.8.8.8","DNS6":"2001:db8::8","DNS_SERVERS":{}}}})");
    const std::string path = dir / "new.json";
    const auto setup = [&](const std::string& text, uint32_t act, uint32_t opt, const std::string& after,
                           int expected = 0) {
        put(kFile, saved + wan);
        put(path, text);
        EXPECT_EQ(_setup_dns(act, opt, path), expected) << text << act;
        EXPECT_EQ(slurp(kFile), after) << text << act;
    };
    setup(document, 1, 0, fresh + saved + wan);
    setup(document, 2, 0, wan);
    setup(document, 3, ~6U, saved + wan);
    setup(document, 3, 4, fresh + wan);
    setup(document, 4, 6, saved + wan, NM_ERR_BAD_ACT);
    setup("no JSON", 1, 0, saved + wan);
    setup("{}", 1, 0, saved + wan, NM_ERR_NO_KEY);
    setup(R"({"SERVICES":{"DNS_INFO":{}}})", 3, 6, saved + wan, NM_ERR_NO_SUBKEY);
    setup(R"({"SERVICES":{"DNS_INFO":{"DNS4":["9.9.9.9"]}}})", 1, 0, saved + wan);
    const std::string swapped = line("2001:db8::8", "global") + line("8.8.8.8", "global");
    EXPECT_EQ(bootup_dns(), 0);
    EXPECT_EQ(slurp(kFile), swapped + wan);
    EXPECT_EQ(_reset_dns(0, kDeviceInfoPath), 0);
    EXPECT_EQ(slurp(kFile), swapped);
    fs::remove(kFile);
    put(path, document);
    EXPECT_EQ(_setup_dns(3, 2, path), 0) << "the stored servers are back, in a new file";
    EXPECT_EQ(slurp(kFile), swapped);
}

TEST(HostnameIpset, HoldsOnlyLinesThatDnsmasqReads) {
    using Map = std::unordered_map<std::string, std::string>;
    const std::string dir = "/var/run/network/dnsmasq.d/";
    const Map good{{"a.example", "HOSTNAME0"}, {"b.example", "HOSTNAME1"}};
    Map map = good;
    map.insert({{"x\nserver=6.6.6.6", "S"}, {"x/y", "S"}, {"\"", "S"}, {"", "S"}, {"x", "S conf-file=/x"}});
    const nm::LockGuard held("ipset.conf");  // by the caller, who would wait for itself
    EXPECT_EQ(write_hostname_ipset_map(map), 0);
    const std::string text = slurp(dir + "ipset.conf");
    EXPECT_EQ(std::count(text.begin(), text.end(), '\n'), 2) << text;
    EXPECT_EQ(read_hostname_ipset_map(map), 0);
    EXPECT_EQ(map, good);
    put(dir + "ipset.conf", "ipset=/a\n# ipset=/b/S\nipset=/c/S/T\nipset =/d/S\nipset=//e//S");
    EXPECT_EQ(read_hostname_ipset_map(map), 0);
    EXPECT_EQ(map, (Map{{"c", "S"}, {"e", "S"}}));
    run("ipset create 'a;$(b)' hash:net && ipset add 'a;$(b)' 192.0.2.0/24");
    EXPECT_EQ(dnsmasq_add_ipset("c.example", "a;$(b)"), 0);
    EXPECT_EQ(slurp(dir + "a;$(b)"), "ipset=/c.example/a;$(b)");
    EXPECT_EQ(exec("ipset list 'a;$(b)' | grep -c 192.0.2"), "0\n");
    for (const auto& [name, set] :
         {std::pair("a\nb", "S"), std::pair("a", "../S"), std::pair("a", ""), std::pair("a", "-q")}) {
        EXPECT_EQ(dnsmasq_add_ipset(name, set), -1) << name << " in " << set;
    }
}

}  // namespace
