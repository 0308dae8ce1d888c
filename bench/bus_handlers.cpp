// Requests to a running nm_serviced: what a round trip costs against a bare one on the same bus and on a bare
// unix socket, how many a second are answered, and what the daemon weighs after all of them.
//
// usage: bench_bus_handlers PID
#include <sys/socket.h>
#include <unistd.h>
#include <vservice.h>

#include <algorithm>
#include <chrono>
#include <cstdio>
#include <cstdlib>
#include <fstream>
#include <functional>
#include <string>
#include <thread>
#include <vector>

namespace {

using Clock = std::chrono::steady_clock;

double microseconds_since(Clock::time_point start) {
    return std::chrono::duration<double, std::micro>(Clock::now() - start).count();
}

void ask(const char* method, const char* request) {
    vs_io* const io = vs_io_create();
    vs_io_printf(io, "%s", request);
    if (vs_call("networkmanagement", method, io, 30, -1) != 0) {
        std::fprintf(stderr, "%s failed\n", method);
        std::exit(1);
    }
    vs_io_free(io);
}

double median(int count, const std::function<void()>& call) {
    std::vector<double> times;
    for (int i = 0; i < count; ++i) {
        const Clock::time_point start = Clock::now();
        call();
        times.push_back(microseconds_since(start));
    }
    std::nth_element(times.begin(), times.begin() + count / 2, times.end());
    return times[static_cast<std::size_t>(count) / 2];
}

double per_second(int clients, int requests) {
    const Clock::time_point start = Clock::now();
    std::vector<std::thread> threads;
    for (int i = 0; i < clients; ++i) {
        threads.emplace_back([=] {
            for (int n = 0; n < requests / clients; ++n) {
                ask("Get_lanif_list", "");
            }
        });
    }
    for (std::thread& thread : threads) {
        thread.join();
    }
    return requests / (microseconds_since(start) / 1e6);
}

std::string memory_of(const std::string& pid) {
    std::ifstream status("/proc/" + pid + "/status");
    for (std::string line; std::getline(status, line);) {
        if (line.rfind("VmRSS:", 0) == 0) {
            return line.substr(line.find_first_not_of(" \t", 6));
        }
    }
    return "gone";
}

}  // namespace

int main(int argc, char** argv) {
    if (argc != 2) {
        return 2;
    }
    int ends[2];
    if (socketpair(AF_UNIX, SOCK_STREAM, 0, ends) != 0) {
        return 1;
    }
    std::thread echo([end = ends[1]] {
        char byte;
        while (read(end, &byte, 1) == 1 && write(end, &byte, 1) == 1) {
        }
    });
    const double bare = median(5000, [&] {
        char byte = 'x';
        (void)!(write(ends[0], &byte, 1) == 1 && read(ends[0], &byte, 1) == 1);
    });
    close(ends[0]);
    echo.join();
    const double bus = median(5000, [] { ask("no_such_method", ""); });
    std::printf("round trip, median: bare unix socket %.0f us, bare request on the bus %.0f us\n", bare, bus);
    for (const auto& [method, request] : {std::pair("Get_lanif_list", ""),
                                          {"Get_ifname_by_portname", R"({"portname":"PORT1"})"},
                                          {"Get_available_wan_info", "{}"},
                                          {"Get_wan_rxtx_stats", ""}}) {
        const double one = median(3000, [method = method, request = request] { ask(method, request); });
        std::printf("%-24s %6.0f us, %5.2f of the bus, %6.1f of the socket\n", method, one, one / bus,
                    one / bare);
    }
    std::printf("memory: %s at first, ", memory_of(argv[1]).c_str());
    for (const int clients : {1, 8, 64}) {
        std::printf("%d clients %.0f/s, ", clients, per_second(clients, 25600));
    }
    (void)per_second(8, 23200);
    std::printf("%s after 115,000 requests\n", memory_of(argv[1]).c_str());
    return 0;
}
