// From the request to the first packet through a static uplink, against the same end state by `ip -batch` and
// `ipset restore`, as ratios of one run. A packet counts when it arrives beyond the uplink's gateway, so it
// has used the uplink's own table. Its world comes from uplink_setup.sh, run by scripts/bench.
//
// usage: bench_uplink_setup LABEL ROUNDS SET_UP UNDO BARE_SET_UP BARE_UNDO     (commands of the shell)
#include <arpa/inet.h>
#include <fcntl.h>
#include <sched.h>
#include <spawn.h>
#include <sys/socket.h>
#include <sys/wait.h>
#include <unistd.h>

#include <algorithm>
#include <atomic>
#include <cerrno>
#include <chrono>
#include <cstdio>
#include <cstdlib>
#include <string>
#include <thread>
#include <vector>

namespace {

using Clock = std::chrono::steady_clock;

constexpr const char* kSource = "10.1.0.2";
constexpr const char* kFarHost = "203.0.113.9";
constexpr const char* kFarNamespace = "/run/netns/isp";
constexpr in_port_t kPort = 9999;

void check(bool done, const std::string& what) {
    if (!done) {
        perror(what.c_str());
        exit(1);
    }
}

double milliseconds(Clock::time_point since) {
    return std::chrono::duration<double, std::milli>(Clock::now() - since).count();
}

sockaddr_in address(const char* ip, in_port_t port) {
    sockaddr_in result{};
    result.sin_family = AF_INET;
    result.sin_port = htons(port);
    check(inet_pton(AF_INET, ip, &result.sin_addr) == 1, ip);
    return result;
}

int bound_socket(const char* ip, in_port_t port) {
    const int fd = socket(AF_INET, SOCK_DGRAM | SOCK_CLOEXEC, 0);
    const sockaddr_in own = address(ip, port);
    if (bind(fd, reinterpret_cast<const sockaddr*>(&own), sizeof(own)) == 0) {
        return fd;
    }
    close(fd);
    return -1;
}

/// A socket of the far host. A thread is in the namespace that it has entered until it ends.
int far_socket() {
    int fd = -1;
    std::thread([&fd] {
        const int far = open(kFarNamespace, O_RDONLY | O_CLOEXEC);
        check(far >= 0 && setns(far, CLONE_NEWNET) == 0, kFarNamespace);
        fd = bound_socket(kFarHost, kPort);
        close(far);
    }).join();
    check(fd >= 0, "the far host's socket");
    return fd;
}

/// Tries again and again to send from the uplink's address, which is not there before the set-up.
void send_until(const std::atomic<bool>& arrived) {
    const sockaddr_in to = address(kFarHost, kPort);
    while (!arrived) {
        const int fd = bound_socket(kSource, 0);
        if (fd >= 0) {
            // A failure is a try before the routes were there.
            (void)sendto(fd, "x", 1, 0, reinterpret_cast<const sockaddr*>(&to), sizeof(to));
            close(fd);
        }
        usleep(300);
    }
}

void run(const std::string& command) {
    check(system(command.c_str()) == 0, command);
}

/// The end of a command interrupts the wait of whichever thread may be asked.
void await_packet(int fd) {
    char packet[16];
    ssize_t length = 0;
    do {
        length = recv(fd, packet, sizeof(packet), 0);
    } while (length < 0 && errno == EINTR);
    check(length > 0, "the first packet");
}

void drain(int fd) {
    char rest[16];
    while (recv(fd, rest, sizeof(rest), MSG_DONTWAIT) > 0) {
    }
}

struct Times {
    std::vector<double> packet;
    std::vector<double> request;
};

/// One set-up: when the first packet arrived, and when the command was done.
void measure(int far, const std::string& set_up, const std::string& undo, Times& times) {
    drain(far);
    std::atomic<bool> arrived{false};
    double first_packet = 0;
    const auto start = Clock::now();
    std::thread sender([&arrived] { send_until(arrived); });
    std::thread receiver([&] {
        await_packet(far);
        first_packet = milliseconds(start);
        arrived = true;
    });
    run(set_up);
    times.request.push_back(milliseconds(start));
    receiver.join();
    sender.join();
    times.packet.push_back(first_packet);
    run(undo);
}

double median(std::vector<double> values) {
    std::sort(values.begin(), values.end());
    return values[values.size() / 2];
}

}  // namespace

int main(int argc, char** argv) {
    if (argc != 7 || access("/run/network/.sandbox", F_OK) != 0) {
        fprintf(stderr, "uplink_setup: run it by scripts/bench\n");
        return 2;
    }
    const int far = far_socket();
    const timeval patience{20, 0};
    check(setsockopt(far, SOL_SOCKET, SO_RCVTIMEO, &patience, sizeof(patience)) == 0, "the patience");
    Times ours;
    Times bare;
    for (int round = 0; round < atoi(argv[2]); ++round) {
        measure(far, argv[3], argv[4], ours);
        measure(far, argv[5], argv[6], bare);
    }
    printf("%-22s %9.1f %9.1f %9.2f %9.1f %9.1f %9.2f\n", argv[1], median(ours.packet), median(bare.packet),
           median(ours.packet) / median(bare.packet), median(ours.request), median(bare.request),
           median(ours.request) / median(bare.request));
    return 0;
}
