// /etc/hosts: which lines come, go and stay, what dnsmasq is told, and that no failure, kill or neighbour
// costs a line.
#include <signal.h>
#include <sys/mount.h>
#include <sys/stat.h>
#include <sys/wait.h>

#include <future>

#include "fake_service.h"
#include "networkinterface.h"
#include "sandbox_fixture.h"
#include "services/files/line_file.h"
#include "utils/handles.h"

using namespace fixture;
using namespace std::string_literals;

namespace {

const std::string kHosts = "/etc/hosts";
const std::string kForeign = "127.0.0.1\tlocalhost #swdev1\n# note\xff\r\n \t\n";
const std::string kOwn = "192.0.2.1  box  box  #swdev1\n";
const std::string kLonger = "192.0.2.10  box  box  #swdev10\n";
const std::string kOwn6 = "2001:db8::1  box  box  #swdev1\n";

using Operation = std::function<int()>;

class Hosts : public testing::Test {
protected:
    void SetUp() override { ASSERT_EQ(sethostname("box", 3), 0); }
};

const Operation kAdd = [] { return Add_hosts("192.0.2.1"s.data(), "swdev1"s.data()); };
const Operation kDel = [] { return Del_hosts("swdev1"s.data()); };

/// What an operation makes of the file, which keeps its access; neither the lock nor anything else is left.
void expect_edit(const std::string& before, const std::string& after, const Operation& operation,
                 int expected = 0) {
    put(kHosts, before);
    ASSERT_TRUE(chmod(kHosts.c_str(), 0640) == 0 && chown(kHosts.c_str(), 1, 2) == 0);
    EXPECT_EQ(operation(), expected) << after;
    EXPECT_EQ(slurp(kHosts), after);
    struct stat now = {};
    ASSERT_EQ(stat(kHosts.c_str(), &now), 0);
    EXPECT_TRUE((now.st_mode & ALLPERMS) == 0640 && now.st_uid == 1 && now.st_gid == 2) << after;
    EXPECT_TRUE(!fs::exists(kHosts + ".tmp") && is_lock_free("hostslock")) << after;
}

TEST_F(Hosts, ChangeOnlyInTheLinesMeant) {
    const LogTail log;  // which moves when the boot is over
    expect_edit("", kOwn, kAdd);
    const File booted("/var/run/network/.boot_fin");
    EXPECT_FALSE(log.has("restart dnsmasq failed, ret: "));
    expect_edit("", kOwn, [] { return add_hosts("192.0.2.1", "swdev1"); });
    EXPECT_TRUE(log.has("restart dnsmasq failed, ret: "));
    const FakeService manager("DnsmasqMgr", {{"Restart", R"({"error":0,"data":""})"}});
    const std::string pair = "192.0.2.2  portal\n";
    const std::string longer_pair = "192.0.2.2  portal2\n";
    const std::string odd = kLonger + "x  box  box  #swdev2\n\n192.0.2.1 a b #swdev2\nlast";
    const std::string foreign4 = "192.0.2.9 a b # swdev1\n";
    const std::string twice = "  # --\n192.0.2.5 nas  # mine\n  # --\n192.0.2.5 nas  # mine\n";
    const Operation add_pair = [] { return add_ip_hostname("192.0.2.2", "portal"); };
    const Operation del_pair = [] { return del_ip_hostname("192.0.2.2", "portal"); };
    FakeService::take_calls();
    expect_edit("\n" + kForeign + "\n\nlast", kForeign + "last\n" + kOwn, kAdd);
    expect_edit(kOwn, kOwn + kOwn, kAdd);
    expect_edit(kForeign, kForeign + kOwn6, [] { return add_hosts("2001:db8::1", "swdev1"); });
    expect_edit(kOwn + "\n" + kForeign + kLonger + kOwn6, "\n" + kForeign + kOwn6, kDel);
    expect_edit(kOwn + kOwn6, kOwn, [] { return del_hosts("swdev1", 10); });
    expect_edit("192.0.2.1  old  old  #swdev1\n\n" + foreign4 + kForeign, kOwn + foreign4 + kForeign,
                write_hosts);
    expect_edit(pair + longer_pair + "\n" + kForeign, longer_pair + kForeign + pair, add_pair);
    expect_edit("1" + pair + longer_pair + "\n" + kForeign, "\n" + kForeign, del_pair);
    expect_edit(odd, odd, del_pair);
    expect_edit(kOwn + twice + kLonger + kOwn, kOwn + twice + kLonger, drop_repeated_hosts);
    EXPECT_EQ(FakeService::take_calls(), std::vector(10, "DnsmasqMgr.Restart "s));
    expect_edit(odd, odd, [] { return del_hosts("swdev2", 2) + del_hosts("swdev10", 7); });
    for (const std::string& hostile : {"6.6.6.6\n6.6.6.6"s, "192.0.2.3 bank.example"s, "a\0b"s, "a#"s}) {
        expect_edit(
            odd, odd, [&] { return add_hosts(hostile, "swdev1"); }, NM_ERR_BAD_FORMAT);
        expect_edit(
            odd, odd, [&] { return del_ip_hostname("192.0.2.3", hostile); }, NM_ERR_BAD_FORMAT);
    }
    expect_edit(
        odd, odd, [] { return add_hosts("192.0.2.3", "swdev1\n6.6.6.6"); }, NM_ERR_BAD_FORMAT);
    expect_edit(
        odd, odd, [] { return Add_hosts(nullptr, "swdev1"s.data()); }, NM_ERR_EMPTY);
    expect_edit(
        odd, odd, [] { return Del_hosts(nullptr); }, NM_ERR_EMPTY);
    for (const std::string name : {"", "a b", "a#b"}) {
        ASSERT_EQ(sethostname(name.data(), name.size()), 0);
        expect_edit(odd, odd, [] { return add_hosts("192.0.2.3", "swdev1") + write_hosts(); });
    }
    EXPECT_TRUE(FakeService::take_calls().empty());
    ASSERT_EQ(sethostname("$(x);`id`", 9), 0);
    expect_edit("", "192.0.2.3  $(x);`id`  $(x);`id`  #a'$(c)\n",
                [] { return add_hosts("192.0.2.3", "a'$(c)"); });
}

/// Without room, what is written beside fails, and what shrinks in place does not.
TEST(FullDisk, LeavesTheOldFilesWhole) {
    const std::string servers = "nameserver 192.0.2.53 #ID=global";
    for (const std::string dir : {"/etc", "/run/network"}) {
        ASSERT_EQ(mount("small", dir.c_str(), "tmpfs", 0, "size=16k"), 0);
        put(dir + "/hosts", kOwn);
        put(dir + "/resolv.dnsmasq", servers);
        std::ofstream(dir + "/filler") << std::string(16384, 'x');
        const bool etc = dir == "/etc";
        EXPECT_EQ(etc ? kAdd() : insert_dns_server({"192.0.2.54"}, "global"), NM_ERR_WRITE);
        EXPECT_EQ(slurp(dir + "/hosts") + slurp(dir + "/resolv.dnsmasq"), kOwn + servers);
        EXPECT_EQ(etc ? kDel() : remove_dns_server("global", 2), 0);
        EXPECT_EQ(slurp(dir + "/hosts") + slurp(dir + "/resolv.dnsmasq"), etc ? servers : kOwn);
        EXPECT_FALSE(fs::exists(dir + "/hosts.tmp") || fs::exists(dir + "/resolv.dnsmasq.tmp"));
        fs::remove(dir + "/hosts");
        EXPECT_TRUE(!etc || kAdd() == NM_ERR_OPEN);
        ASSERT_EQ(umount(dir.c_str()), 0);
    }
}

TEST_F(Hosts, FiftyProcessesLoseNoLine) {
    put(kHosts, kForeign);
    std::set<std::string> expected{"127.0.0.1\tlocalhost #swdev1", "# note\xff\r", " \t"};
    std::vector<pid_t> children;
    for (int child = 10; child < 60; ++child) {
        const std::string ifname = "if" + std::to_string(child);
        expected.insert("192.0.2.9  box  box  #" + ifname);
        children.push_back(fork());
        int failures = 0;
        for (int left = children.back() == 0 ? 3 : 0; left > 0 && failures < 9; left -= failures == 0) {
            const int ret = left == 2 ? del_hosts(ifname, 2) : add_hosts("192.0.2.9", ifname);
            failures = ret == NM_ERR_LOCK ? failures + 1 : 0;
        }
        children.back() == 0 ? _exit(failures) : void();
    }
    for (const pid_t child : children) {
        int status = -1;
        ASSERT_TRUE(waitpid(child, &status, 0) == child && status == 0) << status;
    }
    const std::vector<std::string> lines = nm::split_lines(slurp(kHosts));
    EXPECT_EQ(lines.size(), expected.size());
    EXPECT_EQ(std::set<std::string>(lines.begin(), lines.end()), expected);
}

TEST_F(Hosts, KillLeavesTheOldFileOrTheNew) {
    std::string many;
    for (int line = 0; line < 5000; ++line) {
        many += "10.0.0.1 host" + std::to_string(line) + "\n";
    }
    put(kHosts, many);
    for (unsigned round = 0; round < 5; ++round) {
        const pid_t child = fork();
        while (child == 0) {
            (void)(del_hosts("swdev1", 2) + add_hosts("192.0.2.1", "swdev1"));
        }
        std::string seen;
        for (unsigned moment = 0; moment < 100 + round; ++moment) {
            seen = slurp(kHosts);  // what is there at any moment is what a kill at it leaves
            ASSERT_TRUE(seen == many || seen == many + kOwn) << round << ": " << seen.size();
        }
        kill(child, SIGKILL);
        ASSERT_EQ(waitpid(child, nullptr, 0), child);
        seen = slurp(kHosts);
        ASSERT_TRUE(seen == many || seen == many + kOwn) << round << ": " << seen.size();
    }
    expect_edit(many + kOwn, many, kDel);
}

}  // namespace
