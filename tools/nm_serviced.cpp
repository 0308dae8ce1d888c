// nm_serviced: serves the library's methods on the service bus until it has to stop.
#include <malloc.h>
#include <networkinterface.h>
#include <service_notify.h>
#include <stop_signals.h>
#include <vservice.h>

#include <algorithm>
#include <cerrno>
#include <chrono>
#include <condition_variable>
#include <cstdlib>
#include <cstring>
#include <iostream>
#include <memory>
#include <mutex>
#include <string>
#include <thread>

namespace {

constexpr const char* kService = "networkmanagement";
constexpr const char* kAlive = "alive";  // the daemon's own method, which its watchdog calls
constexpr char kUsage[] =
    "usage: nm_serviced [--methods | --arguments | --help | --version]\n"
    "\n"
    "Serves the network configuration library on the service bus as `networkmanagement` until SIGTERM.\n"
    "\n"
    "  --methods    print the table of all methods\n"
    "  --arguments  print each method with the names of its arguments, one a line\n";

int fail(const std::string& what, int error) {
    std::cerr << "nm_serviced: " << what << ": " << std::strerror(error) << '\n';
    return 1;
}

// ---- Signs of life for the manager of services.

/// How long the manager waits for a sign of life; 0 if it does not.
std::chrono::microseconds watchdog_patience() {
    const char* const text = std::getenv("WATCHDOG_USEC");
    return std::chrono::microseconds(text != nullptr ? std::strtoll(text, nullptr, 10) : 0);
}

int answer_alive(vs_io* io, int socket) {
    vs_reply_free(io, socket, NM_OK, Json::Value(), "1.1");
    return NM_OK;
}

/// Whether a request gets through the listener, a thread and back.
bool is_alive(int patience) {
    const std::unique_ptr<vs_io, void (*)(vs_io*)> io(vs_io_create(), vs_io_free);
    return io != nullptr && vs_call(kService, kAlive, io.get(), patience, -1) == 0;
}

/// Calls the daemon as its callers do, three times within the manager's patience, and reports each answer.
class Watchdog {
public:
    explicit Watchdog(std::chrono::microseconds patience) {
        if (patience.count() > 0) {
            thread_ = std::thread([this, patience] { watch(patience / 3); });
        }
    }
    ~Watchdog() {
        {
            const std::lock_guard guard(mutex_);
            ended_ = true;
        }
        end_.notify_one();
        if (thread_.joinable()) {
            thread_.join();
        }
    }
    Watchdog(const Watchdog&) = delete;
    Watchdog& operator=(const Watchdog&) = delete;

private:
    void watch(std::chrono::microseconds interval) {
        using std::chrono::seconds;
        const auto limit = std::max(std::chrono::duration_cast<seconds>(interval), seconds(1));
        std::unique_lock guard(mutex_);
        while (!end_.wait_for(guard, interval, [this] { return ended_; })) {
            guard.unlock();
            if (is_alive(static_cast<int>(limit.count()))) {
                notify_manager("WATCHDOG=1");
            }
            guard.lock();
        }
    }

    std::mutex mutex_;
    std::condition_variable end_;
    bool ended_ = false;
    std::thread thread_;
};

// ---- Serving, and what is printed.

/// A long request or reply goes back to the system when it is done. By default the allocator takes the first
/// ones as a sign that more will come, and keeps that much for each thread from then on.
void keep_memory_small() {
    constexpr int kLongText = 128 << 10;
    (void)mallopt(M_MMAP_THRESHOLD, kLongText);
}

int serve() {
    keep_memory_small();
    vs_server* const server = vs_server_create(kService);
    if (server == nullptr) {
        return fail("cannot listen", errno);
    }
    for (const vs_api_method& method : vs_api_methods()) {
        vs_server_add_method(server, method.name, method.handler);
    }
    vs_server_add_method(server, kAlive, answer_alive);
    stop_on_signals(server);
    int result = 0;
    {
        const Watchdog watchdog(watchdog_patience());
        notify_manager("READY=1");
        result = vs_server_run(server);
        notify_manager("STOPPING=1");
    }
    stop_on_signals(nullptr);
    vs_server_free(server);
    return result == 0 ? 0 : fail("cannot serve", -result);
}

int print_methods() {
    std::cout << "| Method | Arguments | Reply `data` | Codes besides those of all methods | Log |\n"
                 "|---|---|---|---|---|\n";
    for (const vs_api_method& method : vs_api_methods()) {
        std::cout << "| `" << method.name << "` | " << method.arguments << " | " << method.reply << " | "
                  << method.codes << " | " << method.log << " |\n";
    }
    return 0;
}

int print_arguments() {
    for (const vs_api_method& method : vs_api_methods()) {
        std::cout << method.name << ' ' << method.arguments << '\n';
    }
    return 0;
}

}  // namespace

int main(int argc, char** argv) {
    const std::string choice = argc == 2 ? argv[1] : "";
    if (argc == 1) {
        return serve();
    }
    if (choice == "--methods") {
        return print_methods();
    }
    if (choice == "--arguments") {
        return print_arguments();
    }
    if (choice == "--version") {
        std::cout << "nm_serviced " NM_VERSION "\n";
        return 0;
    }
    (choice == "--help" ? std::cout : std::cerr) << kUsage;
    return choice == "--help" ? 0 : 2;
}
