// The clients of the peer daemons against peers that misbehave, and what each command puts on the wire.
#include <poll.h>
#include <sys/wait.h>

#include <chrono>
#include <future>

#include "config/peer_updates.h"
#include "peers/unix/unix_cli.h"
#include "sandbox_fixture.h"
#include "scripted_listener.h"

namespace {

using fixture::hear, fixture::Listener, fixture::say;
using testing::AnyOf, testing::Eq;

const std::string kNcsid = "/var/run/network/ncsid.sock";
const std::string kWanipd = "/var/run/network/wanipd.sock";
const std::string kFine = R"({"ret":0})";
const std::string kMegabyte = R"({"ret":0,"pad":")" + std::string(1 << 20, 'x') + "\"}";

Listener::Act answering(const std::string& reply) {
    return [reply](int client) {
        hear(client, "\n");
        say(client, reply);
    };
}

void drip(int client) {
    hear(client, "\n");
    for (const char letter : kFine) {
        say(client, {letter});
        std::this_thread::sleep_for(std::chrono::milliseconds(5));
    }
}

TEST(UnixCli, MisbehavingPeersCostACodeAndNothingElse) {
    struct Case {
        Listener::Act act;
        testing::Matcher<int> code;
        std::string reply;
    };
    const std::map<std::string, Case> cases{
        {"absent", {nullptr, Eq(NM_ERR_NL_CONNECT), ""}},
        {"silent", {[](int client) { hear(client, "never"); }, Eq(NM_ERR_RECEIVE), ""}},
        {"closes unheard", {[](int) {}, AnyOf(NM_ERR_SEND, NM_ERR_RECEIVE), ""}},
        {"closes amid", {answering(R"({"ret":)"), Eq(NM_ERR_PARSE), R"({"ret":)"}},
        {"single bytes", {drip, Eq(0), kFine}},
        {"large", {answering(kMegabyte), Eq(0), kMegabyte}},
        {"endless", {answering(std::string(17 << 20, ' ')), Eq(NM_ERR_RECEIVE), ""}},
        {"no JSON", {answering("ret=0"), Eq(NM_ERR_PARSE), "ret=0"}},
        {"too deep", {answering(fixture::nested(5000)), Eq(NM_ERR_PARSE), fixture::nested(5000)}},
        {"wrong shape", {answering("[0]"), Eq(NM_ERR_PARSE), "[0]"}},
        {"its own code", {answering(R"({"ret":-7})"), Eq(-7), R"({"ret":-7})"}},
    };
    for (const auto& [name, row] : cases) {
        SCOPED_TRACE(name);
        const auto descriptors = fixture::open_descriptors();
        const auto begin = std::chrono::steady_clock::now();
        std::string reply;
        {
            const auto peer = row.act ? std::make_unique<Listener>(row.act, kNcsid) : nullptr;
            EXPECT_THAT(ncsid_cli(reply, "show", "", 0, ""), row.code);
        }
        const std::chrono::duration<double> spent = std::chrono::steady_clock::now() - begin;
        EXPECT_GE(spent.count(), name == "silent" ? 4.9 : 0);
        EXPECT_LT(spent.count(), name == "silent" ? 7 : 3);
        EXPECT_TRUE(reply == row.reply) << reply.substr(0, 100);
        EXPECT_EQ(fixture::open_descriptors(), descriptors);
        EXPECT_TRUE(fixture::is_lock_free("ncsid_cli"));
    }
    EXPECT_EQ(get_retcode(R"({"retcode":2})", false), NM_ERR_CLI_RETCODE);
    EXPECT_EQ(get_retcode(R"({"retcode":-4})", false), -4);
    EXPECT_EQ(get_retcode(R"({"retcode":"2"})", false), NM_ERR_PARSE);
}

TEST(UnixCli, ProcessesTalkToAPeerOneAtATime) {
    bool was_alone = true;
    const Listener* listener = nullptr;
    const auto watch = [&](int client) {
        hear(client, "\n");
        std::this_thread::sleep_for(std::chrono::milliseconds(1200));
        pollfd next{listener->fd, POLLIN, 0};
        was_alone = was_alone && poll(&next, 1, 0) == 0;
        say(client, kFine);
    };
    const Listener peer(watch, kWanipd);
    listener = &peer;
    std::string reply;
    const pid_t child = fork();
    if (child == 0) {
        _exit(refresh_all_ipinfo("/p", reply) == 0 ? 0 : 1);
    }
    EXPECT_EQ(refresh_all_ipinfo("/p", reply), 0);
    int status = -1;
    waitpid(child, &status, 0);
    EXPECT_EQ(status, 0);
    EXPECT_TRUE(was_alone);
}

TEST(UnixCli, AClientOwnsNoMoreThanItOpened) {
    std::string lock = "ncsid_cli";
    std::string path = "/tmp/" + std::string(107 - 5, 's');
    const Listener peer(answering(kFine), path);
    unix_cli* cli = nullptr;
    ASSERT_EQ(create_unix_cli(&cli, lock.data(), (path + "beyond").data(), true), 0);
    const std::unique_ptr<unix_cli> owner(cli);
    EXPECT_EQ(create_unix_cli(&cli, lock.data(), path.data(), true), NM_ERR_NOT_NULL);
    EXPECT_EQ(cli->done() + cli->done(), 0);
    EXPECT_TRUE(fcntl(STDIN_FILENO, F_GETFD) >= 0 && fixture::is_lock_free(lock));
    const int input = dup(STDIN_FILENO);
    const int theirs = socket(AF_UNIX, SOCK_STREAM | SOCK_CLOEXEC, 0);
    dup2(theirs, STDIN_FILENO);
    EXPECT_EQ(cli->connect_to_server(), NM_ERR_NL_CONNECT) << "a socket at standard input is the caller's";
    dup2(input, STDIN_FILENO);
    EXPECT_EQ(close(input) + close(theirs), 0);
    Json::Value reply;
    EXPECT_EQ(cli->init(), 0) << "the path is cut at 107 bytes";
    EXPECT_EQ(cli->send_to_server(Json::Value(1)) + cli->read_from_server(reply), 0);
    EXPECT_EQ(reply, fixture::json(kFine));
    EXPECT_EQ(cli->send_to_server(Json::Value(1)), NM_ERR_SEND) << "the peer has gone";
}

TEST(PeerCommands, EachReachesItsPeer) {
    const std::string doc = "/tmp/devices.json";
    const fixture::File document(doc, R"({
        "WAN_PORT": {"PORT4": {"INTERFACE": "swdev4"}, "PORT14": {"INTERFACE": "swdev14"}},
        "WAN_IFACE_INFO": {"swdev14": {"ID": "9"}, "swdev4": {}}})");
    const std::string odd = "sw\"dev\n,`{";
    std::string none = "no response";
    Json::Value info;
    const std::vector<std::pair<std::function<int()>, std::string>> cases{
        // peer, command, interface, id, path
        {[&] { return update_ncsi(odd, 255, "/p"); }, "ncsid|update|" + odd + "|255|/p"},
        {[&] { return update_ncsi_by_ifname("ppp-swdev4", doc); }, "ncsid|update|ppp-swdev4|4|" + doc},
        {[&] { return update_ncsi_by_id(9, doc); }, "ncsid|update|swdev14|9|" + doc},
        {[&] { return remove_ncsi(none, "swdev4", "/p", 4); }, "ncsid|remove|swdev4|4|/p"},
        {[&] { return reconfig_ncsid(none, "/p"); }, "ncsid|reconfig||0|/p"},
        {[&] { return refresh_ncsid(none, "/p"); }, "ncsid|refresh||0|/p"},
        {[&] { return get_ncsid_stat(none); }, "ncsid|show||0|"},
        {[&] { return refresh_all_ipinfo("/p", none); }, "wanipd|refresh_all||0|/p"},
        {[&] { return update_ipinfo("swdev14", doc); }, "wanipd|update|swdev14|9|" + doc},
        {[&] { return update_ipinfo_by_id(4, doc); }, "wanipd|update|swdev4|4|" + doc},
        {[&] { return remove_ipinfo(4, "swdev4", "/p", none); }, "wanipd|remove|swdev4|4|/p"},
        {[&] { return get_ipinfo(info); }, "wanipd|show||0|"},
    };
    for (const auto& [call, expected] : cases) {
        std::promise<std::string> wire;
        const auto act = [&wire](const std::string& name) {
            return [&wire, name](int client) {
                const Json::Value sent = fixture::json(hear(client, "\n"));
                EXPECT_TRUE(sent["is_debug"].isBool() && sent.size() == 5);
                say(client, R"({"ret":0,"swdev4":"192.0.2.4"})");
                wire.set_value(name + "|" + sent["command"].asString() + "|" + sent["interface"].asString() +
                               "|" + sent["id"].asString() + "|" + sent["path"].asString());
            };
        };
        const Listener ncsid(act("ncsid"), kNcsid);
        const Listener wanipd(act("wanipd"), kWanipd);
        EXPECT_EQ(call(), 0) << expected;
        auto heard = wire.get_future();
        ASSERT_EQ(heard.wait_for(std::chrono::seconds(5)), std::future_status::ready) << expected;
        EXPECT_EQ(heard.get(), expected);
    }
    EXPECT_EQ(info["swdev4"], "192.0.2.4");
    EXPECT_EQ(update_ncsi_by_id(77, doc), NM_ERR_NO_IFACE);
    EXPECT_EQ(fixture::json(create_json_slaacrrd_cmd("stat", odd))["interface"], odd);
    EXPECT_EQ(create_json_slaacrrd_cmd("stat", std::string(1000, 'x')), "");
}

}  // namespace
