// Calls to peers, over the bus and on unix sockets, against the least that such a call can be: connect, send,
// read to the end, on a socket of the same kind. And changes of the hosts file against a bare replacement of
// the same text. Ratios of one run. Run it by scripts/bench, in the sandbox.
#include <fcntl.h>
#include <networkinterface.h>
#include <signal.h>
#include <sys/socket.h>
#include <sys/un.h>
#include <unistd.h>
#include <vservice.h>

#include <algorithm>
#include <chrono>
#include <cstdio>
#include <cstdlib>
#include <fstream>
#include <functional>
#include <iterator>
#include <string>
#include <vector>

namespace {

constexpr int kCalls = 1000;
constexpr int kChanges = 50;
constexpr int kRounds = 5;
constexpr const char* kPeerPath = "/var/run/network/ncsid.sock";
constexpr const char* kHosts = "/etc/hosts";
const std::string kRequest = R"({"command":"show","id":1,"interface":"swdev1","is_debug":false,"path":""})";
const std::string kReply = R"({"data":{"ret":0},"error":0,"ret":0})";

void check(bool done, const char* what) {
    if (!done) {
        perror(what);
        exit(1);
    }
}

double seconds(int count, const std::function<bool()>& work) {
    const auto start = std::chrono::steady_clock::now();
    for (int done = 0; done < count; ++done) {
        check(work(), "a call");
    }
    return std::chrono::duration<double>(std::chrono::steady_clock::now() - start).count();
}

sockaddr_un peer_address() {
    sockaddr_un address{AF_UNIX, {}};
    std::string(kPeerPath).copy(address.sun_path, sizeof(address.sun_path));
    return address;
}

/// Another process for each server, as it is in life.
pid_t serve(void (*server)()) {
    const pid_t child = fork();
    if (child == 0) {
        server();
        _exit(0);
    }
    return child;
}

int answer(vs_io* io, int socket) {
    (void)(vs_io_realloc(io, 0) == 0 && vs_io_write(io, kReply.data(), kReply.size()) == 0 && vs_reply(io));
    vs_io_free(io);
    return close(socket);
}

void serve_bus() {
    vs_server* const server = vs_server_create("bench");
    check(server != nullptr && vs_server_add_method(server, "Ask", answer) == 0, "the bus");
    vs_server_run(server);
}

void serve_peer() {
    const int listener = socket(AF_UNIX, SOCK_STREAM | SOCK_CLOEXEC, 0);
    const sockaddr_un address = peer_address();
    check(bind(listener, reinterpret_cast<const sockaddr*>(&address), sizeof(address)) == 0 &&
              listen(listener, 16) == 0,
          kPeerPath);
    char request[1024];
    for (int client; (client = accept(listener, nullptr, nullptr)) >= 0; close(client)) {
        (void)(recv(client, request, sizeof(request), 0) > 0 &&
               send(client, kReply.data(), kReply.size(), 0) > 0);
    }
}

bool call_bare() {
    const int fd = socket(AF_UNIX, SOCK_STREAM | SOCK_CLOEXEC, 0);
    const sockaddr_un address = peer_address();
    char reply[1024];
    bool done = connect(fd, reinterpret_cast<const sockaddr*>(&address), sizeof(address)) == 0 &&
                send(fd, kRequest.data(), kRequest.size(), 0) > 0 && read(fd, reply, sizeof(reply)) > 0;
    done = done && read(fd, reply, sizeof(reply)) == 0;
    close(fd);
    return done;
}

bool call_bus() {
    std::string request = kRequest;
    std::string reply;
    return vservice_call("bench", "Ask", request, reply, false) == 0;
}

bool call_peer() {
    std::string reply;
    return ncsid_cli(reply, "show", "swdev1", 1, "") == 0;
}

bool change_hosts() {
    return add_ip_hostname("10.0.0.1", "portal") == 0 && del_ip_hostname("10.0.0.1", "portal") == 0;
}

bool replace_bare() {
    const std::string beside = std::string(kHosts) + ".bare";
    for (int change = 0; change < 2; ++change) {
        std::ifstream file(kHosts);
        const std::string text{std::istreambuf_iterator<char>(file), {}};
        const int fd = open(beside.c_str(), O_WRONLY | O_CREAT | O_TRUNC | O_CLOEXEC, 0644);
        const bool written = write(fd, text.data(), text.size()) == static_cast<ssize_t>(text.size()) &&
                             fsync(fd) == 0 && close(fd) == 0;
        if (!written || rename(beside.c_str(), kHosts) != 0) {
            return false;
        }
    }
    return true;
}

double median(std::vector<double> values) {
    std::sort(values.begin(), values.end());
    return values[values.size() / 2];
}

/// One row: ours and the bare way in turn, so that a machine that slows down slows both.
void compare(const std::string& name, int count, int per_work, bool (*ours)(), bool (*bare)()) {
    std::vector<double> rates;
    std::vector<double> ratios;
    for (int round = 0; round < kRounds; ++round) {
        const double bare_seconds = seconds(count, bare);
        const double our_seconds = seconds(count, ours);
        rates.push_back(count * per_work / our_seconds);
        ratios.push_back(our_seconds / bare_seconds);
    }
    printf("%-34s %10.0f %10.2f\n", name.c_str(), median(rates), median(ratios));
}

void fill_hosts(int lines) {
    std::ofstream file(kHosts);
    for (int line = 0; line < lines; ++line) {
        file << "192.0.2." << line % 250 + 1 << "  host" << line << "\n";
    }
}

}  // namespace

int main() {
    if (access("/run/network/.sandbox", F_OK) != 0) {
        fprintf(stderr, "peer_calls: not in the sandbox; run scripts/bench\n");
        return 2;
    }
    check(setvbuf(stdout, nullptr, _IOLBF, 0) == 0, "line buffering");
    const pid_t servers[] = {serve(serve_bus), serve(serve_peer)};
    while (access(kPeerPath, F_OK) != 0 || access("/var/run/vservice/bench.sock", F_OK) != 0) {
        usleep(10000);
    }
    printf("Medians of %d rounds; time of ours to that of the bare way.\n", kRounds);
    printf("%-34s %10s %10s\n", "", "a second", "ratio");
    compare("calls over the bus", kCalls, 1, call_bus, call_bare);
    compare("calls to a unix-socket peer", kCalls, 1, call_peer, call_bare);
    for (const int lines : {10, 1000, 10000}) {
        fill_hosts(lines);
        compare("hosts changes, " + std::to_string(lines) + " lines", kChanges, 2, change_hosts,
                replace_bare);
    }
    for (const pid_t server : servers) {
        kill(server, SIGTERM);
    }
    return 0;
}
