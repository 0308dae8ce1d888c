// Callers of all kinds for a running nm_serviced, which check every reply and what the daemon holds
// afterwards.
//
//     bus_storm each COUNT PID              COUNT requests to each method: none, empty, not JSON, of wrong
//     types, good
//                                           ones, some of 1 MiB, and callers that hang up before the reply
//     bus_storm mixed SECONDS CLIENTS PID   queries and applies by so many clients, each reply checked
//     against its request
//
// Prints a line for each method or second, and at last "wrong N, descriptors N more, memory N kB more"; 1 if
// a reply was wrong or a descriptor stayed open. What is called good is up to the documents; it has to be
// answered alike every time.
#include <control/handlers/vs_api.h>
#include <json/json.h>
#include <sys/socket.h>
#include <sys/un.h>
#include <unistd.h>

#include <array>
#include <atomic>
#include <chrono>
#include <cstdio>
#include <cstring>
#include <filesystem>
#include <fstream>
#include <functional>
#include <map>
#include <mutex>
#include <thread>

namespace {

using Clock = std::chrono::steady_clock;
namespace fs = std::filesystem;

std::atomic<int> wrong{0};
std::string pid;

void complain(const std::string& what) {
    if (++wrong <= 20) {
        std::fprintf(stderr, "wrong: %s\n", what.substr(0, 300).c_str());
    }
}

std::string frame(const std::string& text) {
    const auto size = static_cast<std::uint32_t>(text.size());
    const char head[] = {char(size >> 24), char(size >> 16), char(size >> 8), char(size)};
    return std::string(head, sizeof head) + text;
}

/// All that comes back until the daemon closes the connection; nothing for a caller that hangs up.
std::string exchange(const std::string& method, const std::string& body, bool hangs_up) {
    const int fd = socket(AF_UNIX, SOCK_STREAM | SOCK_CLOEXEC, 0);
    const sockaddr_un address{AF_UNIX, "/var/run/vservice/networkmanagement.sock"};
    const std::string request = frame(method) + frame(body);
    std::string reply;
    if (connect(fd, reinterpret_cast<const sockaddr*>(&address), sizeof address) == 0 &&
        send(fd, request.data(), request.size(), MSG_NOSIGNAL) == ssize_t(request.size()) && !hangs_up) {
        std::array<char, 65536> chunk{};
        for (ssize_t count; (count = recv(fd, chunk.data(), chunk.size(), 0)) > 0;) {
            reply.append(chunk.data(), static_cast<std::size_t>(count));
        }
    }
    close(fd);
    return reply;
}

/// The one reply to a request, an object with a number `error`.
Json::Value ask(const std::string& method, const std::string& body) {
    const std::string reply = exchange(method, body, false);
    Json::Value value;
    const bool whole = reply.size() > 4 && frame(reply.substr(4)) == reply;
    if (!whole || !Json::Reader().parse(reply.substr(4), value) || !value.isObject() ||
        !value["error"].isInt()) {
        complain(method + " " + body.substr(0, 50) + " is answered " + reply);
        return Json::objectValue;
    }
    return value;
}

int descriptors() {
    return int(std::distance(fs::directory_iterator("/proc/" + pid + "/fd"), fs::directory_iterator()));
}

int memory() {
    std::ifstream status("/proc/" + pid + "/status");
    for (std::string line; std::getline(status, line);) {
        if (line.rfind("VmRSS:", 0) == 0) {
            return std::stoi(line.substr(6));
        }
    }
    complain("the daemon is gone");
    return 0;
}

void run_threads(int count, const std::function<void(int number)>& body) {
    std::vector<std::thread> threads;
    for (int number = 0; number < count; ++number) {
        threads.emplace_back(body, number);
    }
    for (std::thread& thread : threads) {
        thread.join();
    }
}

/// Whether the daemon holds no more descriptors than before, once those whom nobody waits for are done.
int descriptors_beyond(int before) {
    for (int tries = 0; tries < 200 && descriptors() > before; ++tries) {
        std::this_thread::sleep_for(std::chrono::milliseconds(50));
    }
    return descriptors() - before;
}

// ---- Each method, each kind of request.

std::string request_of(const vs_api_method& method, bool good) {
    static const std::map<std::string, std::string> values{
        {"portname", "PORT1"},  {"ifname", "swdev1"}, {"carrier", "up"},
        {"comprehensive", "1"}, {"op", "3"},          {"cat_id", "C1"},
        {"msg_id", "1"},        {"level", "5"},       {"local_mgmt", "1"},
        {"dev_id", "1"},        {"force", "1"},       {"path", "/etc/networkmanagement/device_info.json"}};
    Json::Value request(Json::objectValue);
    std::istringstream names(method.arguments);
    for (std::string name; names >> name;) {
        const auto value = values.find(name);
        const bool is_vpn = std::string(method.name) == "Setup_vvpn";
        request[name] = value != values.end() ? value->second : is_vpn ? "local_vbelt" : "device_info";
        if (name == "args" || !good) {
            request[name] = Json::Value(Json::arrayValue);
            good ? Json::Value() : request[name].append(Json::objectValue);
        }
    }
    return Json::FastWriter().write(request);
}

/// The codes that a method answered, by kind of request.
std::string storm(const vs_api_method& method, int count) {
    const std::string mebibyte = "{\"path\":\"" + std::string(1 << 20, 'x') + "\"}";
    const std::string kinds[] = {"", "{}",    "{", request_of(method, false), request_of(method, true),
                                 "", mebibyte};
    constexpr int kHangUp = 5, kLarge = 6, kClients = 4;
    std::mutex mutex;
    std::map<int, int> codes;
    run_threads(kClients, [&](int number) {
        for (int i = number; i < count; i += kClients) {
            const int kind = i % 1000 == 999 ? kLarge : i % 6;
            if (kind == kHangUp) {
                exchange(method.name, kinds[4], true);
                continue;
            }
            const int code = ask(method.name, kinds[kind])["error"].asInt();
            const std::lock_guard guard(mutex);
            if (codes.emplace(kind, code).first->second != code) {
                complain(method.name + (" is answered " + std::to_string(code)) + " to kind " +
                         std::to_string(kind));
            }
        }
    });
    std::string text;
    for (const auto& [kind, code] : codes) {
        text += " " + std::to_string(code);
    }
    return text;
}

void each(int count) {
    std::printf("%-32s %9s %6s %9s  codes: none, {}, not JSON, wrong types, good, 1 MiB\n", "method",
                "seconds", "fds", "memory");
    for (const vs_api_method& method : vs_api_methods()) {
        const Clock::time_point start = Clock::now();
        const std::string codes = storm(method, count);
        const double seconds = std::chrono::duration<double>(Clock::now() - start).count();
        std::printf("%-32s %9.1f %6d %9d %s\n", method.name, seconds, descriptors(), memory(), codes.c_str());
        std::fflush(stdout);
    }
}

// ---- Queries and applies at once.

void expect(const Json::Value& actual, const Json::Value& expected, const std::string& what) {
    if (actual != expected) {
        complain(what + ": " + Json::FastWriter().write(actual));
    }
}

/// Each client has a port and a document of its own, so that a swapped answer cannot pass for its own.
void mix(int number, Clock::time_point end, std::atomic<int>& queries, std::atomic<int>& applies) {
    const std::string own = std::to_string(number + 1), path = "/run/storm/" + own + ".json";
    std::ofstream(path) << "{\"dbversion\":\"" << own << "\"}";
    const char* const methods[] = {"Setup_static_route", "Setup_segment", "Setup_firewall", "Setup_policy"};
    for (int i = number; Clock::now() < end; ++i) {
        if (i % 16 == 0) {
            const std::string method = methods[i / 16 % 4];
            const Json::Value reply = ask(method, "");
            expect(reply["error"], 0, method), expect(reply["data"], "", method), ++applies;
        } else if (i % 2 == 0) {
            expect(
                ask("GetConfigsMetaInfo", "{\"path\":\"" + path + "\"}")["data"][own + ".json"]["dbversion"],
                own, path);
            ++queries;
        } else {
            expect(ask("Get_ifname_by_portname", "{\"portname\":\"PORT" + own + "\"}")["data"], "swdev" + own,
                   own);
            ++queries;
        }
    }
}

void mixed(int seconds, int clients) {
    std::atomic<int> queries{0}, applies{0};
    const Clock::time_point start = Clock::now(), end = start + std::chrono::seconds(seconds);
    fs::create_directories("/run/storm");
    std::thread watcher([&] {
        for (int second = 0; Clock::now() < end; ++second) {
            std::this_thread::sleep_for(std::chrono::seconds(1));
            second % 10 != 9
                ? 0
                : std::printf("%4d s: %d queries, %d applies, %d descriptors, %d kB\n", second + 1,
                              queries.load(), applies.load(), descriptors(), memory());
        }
    });
    run_threads(clients, [&](int number) { mix(number, end, queries, applies); });
    watcher.join();
    std::printf("%d queries, %d applies\n", queries.load(), applies.load());
}

}  // namespace

int main(int argc, char** argv) {
    const std::string mode = argc > 3 ? argv[1] : "";
    const int amount = argc > 3 ? std::atoi(argv[2]) : 0;
    pid = argc > 3 ? argv[argc - 1] : "";
    if (amount <= 0 || (mode != "each" && (mode != "mixed" || argc != 5))) {
        return 2;
    }
    const auto run = [&](int how_much) {
        mode == "each" ? each(how_much) : mixed(how_much, std::atoi(argv[3]));
    };
    const int open_before = descriptors();
    run(std::max(1, amount / 10));  // what grows with the first requests has its size then
    const int memory_before = memory();
    run(amount);
    const int more = descriptors_beyond(open_before);
    std::printf("wrong %d, descriptors %d more, memory %d kB more\n", wrong.load(), more,
                memory() - memory_before);
    return wrong != 0 || more > 0 ? 1 : 0;
}
