// The service bus from both sides: whole calls, peers that misbehave, and what is left afterwards.
#include <arpa/inet.h>
#include <poll.h>
#include <sys/resource.h>
#include <sys/socket.h>
#include <sys/syscall.h>
#include <sys/un.h>
#include <vservice.h>

#include <cerrno>
#include <csignal>
#include <future>
#include <thread>

#include "sandbox_fixture.h"
#include "utils/handles.h"

using namespace std::string_literals;
using namespace std::chrono;
using nm::FileDescriptor;

namespace {

constexpr std::uint32_t kLimit = 16 << 20;

std::string text_of(vs_io* io) {
    char* text = nullptr;
    const std::size_t length = vs_io_read(io, &text);
    EXPECT_EQ(text == nullptr, length == 0);
    return text == nullptr ? "" : std::string(text, length);
}

struct Outcome {
    int result;
    std::string text;
    milliseconds took;
};

Outcome call(const std::string& service, const std::string& method, const std::string& body, int limit = 5) {
    const std::unique_ptr<vs_io, decltype(&vs_io_free)> io(vs_io_create(), vs_io_free);
    EXPECT_EQ(vs_io_write(io.get(), body.data(), body.size()), 0);
    const auto start = steady_clock::now();
    const int result = vs_call(service.c_str(), method.c_str(), io.get(), limit, -1);
    return {result, text_of(io.get()), duration_cast<milliseconds>(steady_clock::now() - start)};
}

/// A text with its length in front, which may announce more than follows.
std::string frame(const std::string& text, std::uint32_t missing = 0) {
    const std::uint32_t length = htonl(static_cast<std::uint32_t>(text.size()) + missing);
    return std::string(reinterpret_cast<const char*>(&length), sizeof length) + text;
}

/// A socket that `attach`, which is bind or connect, has given the address of the service.
FileDescriptor raw_socket(const std::string& service, int (*attach)(int, const sockaddr*, socklen_t)) {
    sockaddr_un address{AF_UNIX, {}};
    ("/var/run/vservice/" + service + ".sock").copy(address.sun_path, sizeof address.sun_path - 1);
    attach == bind ? unlink(address.sun_path) : 0;
    FileDescriptor fd(socket(AF_UNIX, SOCK_STREAM | SOCK_CLOEXEC, 0));
    EXPECT_EQ(attach(fd.get(), reinterpret_cast<sockaddr*>(&address), sizeof address), 0) << service;
    return fd;
}

void send_raw(const FileDescriptor& fd, const std::string& bytes) {
    send(fd.get(), bytes.data(), bytes.size(), MSG_NOSIGNAL);
}

bool is_dropped(const FileDescriptor& fd) {
    pollfd end{fd.get(), POLLRDHUP, 0};
    return poll(&end, 1, 200) == 1;
}

/// Answers every request with its own text; "slow" takes a while, and "silent" gets no answer.
int echo(vs_io* io, int socket) {
    const FileDescriptor connection(socket);
    const std::string text = text_of(io);
    std::this_thread::sleep_for(milliseconds(text == "slow" ? 200 : 0));
    const int result = text == "silent" ? -1 : vs_reply(io);
    EXPECT_EQ(text == "silent" ? -ENOTCONN : vs_reply(io), -ENOTCONN) << "a second reply went out";
    vs_io_free(io);
    return result;
}

struct Service {
    Service() {
        EXPECT_EQ(vs_server_add_method(server, "ipsec.echo", echo), 0);
        result = std::async(std::launch::async, vs_server_run, server);
    }
    ~Service() {
        vs_server_stop(server);
        EXPECT_EQ(result.get(), 0);
        vs_server_free(server);
    }
    vs_server* const server = vs_server_create("unit.test");
    std::future<int> result;
};

TEST(Bus, RoundTripsReturnEveryByteAndLeaveNoDescriptor) {
    const auto descriptors = fixture::open_descriptors();
    std::optional<Service> service(std::in_place);
    const std::string large = fixture::slurp("/proc/self/exe").substr(0, 5 << 20);  // bytes of every kind
    for (const std::string& body : {""s, "{}"s, "a\0b\n"s, large}) {
        const Outcome outcome = call("unit.test", "ipsec.echo", body);
        EXPECT_EQ(outcome.result, 0) << body.size();
        EXPECT_TRUE(outcome.text == body) << body.size();
    }
    for (int i = 0; i < 300; ++i) {  // many times what the server works on at once
        EXPECT_EQ(call("unit.test", "ipsec.echo", "silent").result, -ECONNRESET);
        EXPECT_EQ(call("unit.test", "nope.x", "").text, R"({"error":-1,"data":"unknown method nope.x"})");
        EXPECT_EQ(call("absent", "m", "").result, -ENOENT);
    }
    service.reset();
    EXPECT_EQ(fixture::open_descriptors(), descriptors);
}

TEST(Bus, CallsThatCannotBeServedFailAtOnce) {
    const Service service;
    (void)raw_socket("leftover", bind);
    const struct {
        std::string service, method, body;
        int expected;
    } cases[] = {
        {"leftover", "m", "request", -ECONNREFUSED},
        {"", "m", "request", -EINVAL},
        {"../vservice/unit.test", "ipsec.echo", "request", -EINVAL},
        {std::string(85, 'x'), "m", "request", -ENAMETOOLONG},
        {"unit.test", std::string(256, 'm'), "request", -EINVAL},
        {"unit.test", "ipsec.echo", std::string(kLimit + 1, 'x'), -EMSGSIZE},
    };
    for (const auto& row : cases) {
        const Outcome outcome = call(row.service, row.method, row.body, 60);
        EXPECT_EQ(outcome.result, row.expected) << row.service << '.' << row.method;
        EXPECT_TRUE(outcome.text == row.body) << "a failed call must leave the request";
        EXPECT_LT(outcome.took, milliseconds(500)) << row.service << '.' << row.method;
    }
    EXPECT_EQ(vs_server_create("../x"), nullptr);
    EXPECT_EQ(vs_server_create("unit.test"), nullptr);
}

TEST(Bus, BrokenRepliesEndAtOnceAndDelaysAtTheDeadline) {
    const struct {
        const char* name;
        std::size_t body;
        std::string reply, trickle;
        bool closes;
        int expected;
    } cases[] = {
        {"closes at once", 2, "", "", true, -ECONNRESET},
        {"closes inside the text", 2, frame("abc", 1000), "", true, -ECONNRESET},
        {"announces one byte too many", 2, frame("", kLimit + 1), "", false, -EMSGSIZE},
        {"sends more than its reply", 2, frame("{}") + "trailing", "", false, 0},
        {"never answers", 2, "", "", false, -ETIMEDOUT},
        {"never reads", 4 << 20, "", "", false, -ETIMEDOUT},
        {"trickles", 2, frame("", 20), "x", false, -ETIMEDOUT},
    };
    signal(SIGALRM, [](int) {});
    ualarm(7000, 7000);  // signals must not stretch the waits
    for (const auto& row : cases) {
        const FileDescriptor listener = raw_socket("scripted", bind);
        ASSERT_EQ(listen(listener.get(), 1), 0);
        const auto peer = std::async(std::launch::async, [&] {
            const FileDescriptor connection(accept(listener.get(), nullptr, nullptr));
            char request[64];
            recv(connection.get(), request, sizeof request, 0);
            send_raw(connection, row.reply);
            while (!row.closes && !is_dropped(connection)) {
                send_raw(connection, row.trickle);
            }
        });
        const Outcome outcome = call("scripted", "m", std::string(row.body, 'x'), 1);
        EXPECT_EQ(outcome.result, row.expected) << row.name;
        EXPECT_GE(outcome.took, milliseconds(row.expected == -ETIMEDOUT ? 1000 : 0)) << row.name;
        EXPECT_LT(outcome.took, milliseconds(row.expected == -ETIMEDOUT ? 1400 : 500)) << row.name;
    }
    const FileDescriptor crowded = raw_socket("crowded", bind);
    ASSERT_EQ(listen(crowded.get(), 0), 0);
    const FileDescriptor first = raw_socket("crowded", connect);
    EXPECT_EQ(call("crowded", "m", "", 1).result, -ETIMEDOUT);
    ualarm(0, 0);
}

TEST(Bus, BadCallersAreDroppedAndDelayNobody) {
    const Service service;
    const std::pair<std::string, bool> cases[] = {
        {"", false},
        {"\0\0"s, false},
        {frame("ipsec.echo") + frame("abc", 1000), false},
        {frame("", 256), true},
        {frame("a\"b"), true},
        {frame("ipsec.echo") + frame("", kLimit + 1), true},
    };
    std::vector<FileDescriptor> held;
    for (const auto& [request, dropped] : cases) {
        held.push_back(raw_socket("unit.test", connect));
        send_raw(held.back(), request);
        EXPECT_EQ(is_dropped(held.back()), dropped) << request;
        const Outcome outcome = call("unit.test", "ipsec.echo", request);
        EXPECT_EQ(outcome.text, request);
        EXPECT_LT(outcome.took, milliseconds(200)) << request;
    }
}

/// More idle callers than there are places, and a stop with one request in work, one cut and one to come.
TEST(Bus, IdleCallersTakeUpNoPlaceAndAStopFinishesWhatRuns) {
    const rlimit many{4096, 4096};
    ASSERT_EQ(setrlimit(RLIMIT_NOFILE, &many), 0);
    std::optional<Service> service(std::in_place);
    std::vector<FileDescriptor> idle;
    for (int i = 0; i < 1000; ++i) {
        idle.push_back(raw_socket("unit.test", connect));
        send_raw(idle.back(), i % 2 == 0 ? "" : frame("ipsec.echo"));
    }
    const Outcome outcome = call("unit.test", "ipsec.echo", "text");
    EXPECT_EQ(outcome.text, "text");
    EXPECT_LT(outcome.took, milliseconds(500));
    auto running = std::async([] { return call("unit.test", "ipsec.echo", "slow").text; });
    std::this_thread::sleep_for(milliseconds(100));
    auto stopped = std::async([&] { service.reset(); });
    std::this_thread::sleep_for(milliseconds(30));
    EXPECT_EQ(call("unit.test", "ipsec.echo", "").result, -ENOENT) << "refused while the other one runs";
    EXPECT_EQ(running.get(), "slow");
    stopped.get();
    EXPECT_TRUE(is_dropped(idle.back()));
}

/// Requests that stood in the queue when the stop came are answered; one that had not come whole is dropped.
TEST(Bus, AStopLosesNoRequestThatHadComeInWhole) {
    vs_server* const server = vs_server_create("unit.test");
    ASSERT_EQ(vs_server_add_method(server, "ipsec.echo", echo), 0);
    std::vector<FileDescriptor> callers;
    for (int i = 0; i < 100; ++i) {  // more than there are places
        callers.push_back(raw_socket("unit.test", connect));
        send_raw(callers.back(), frame("ipsec.echo") + frame("text", i == 50 ? 1 : 0));
    }
    vs_server_stop(server);
    EXPECT_EQ(vs_server_run(server), 0);
    for (std::size_t i = 0; i < callers.size(); ++i) {
        char answer[99] = "";
        EXPECT_EQ(recv(callers[i].get(), answer, sizeof answer, MSG_DONTWAIT), i == 50 ? 0 : 8) << i;
    }
    vs_server_free(server);
}

TEST(Bus, OnlyRootIsServedAndBelieved) {
    const fixture::fs::path socket = "/var/run/vservice/unit.test.sock";
    const Service service;
    EXPECT_EQ(status(socket).permissions(), fixture::fs::perms(0600));
    permissions(socket, fixture::fs::perms(0666));  // past the mode, the uid of the caller still counts
    fixture::run("vsh unit.test.ipsec.echo {} >/dev/null");
    fixture::run("! setpriv --reuid 65534 --clear-groups vsh unit.test.ipsec.echo {} 2>/dev/null");
    const FileDescriptor listener = raw_socket("impostor", bind);
    std::thread nobody([&] {  // the kernel remembers who listens
        EXPECT_EQ(syscall(SYS_setresuid, -1, 65534, -1), 0);
        EXPECT_EQ(listen(listener.get(), 5), 0);
    });
    nobody.join();
    EXPECT_EQ(call("impostor", "m", "secret", 1).result, -EPERM);
}

}  // namespace
