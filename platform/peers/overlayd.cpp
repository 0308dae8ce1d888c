// overlayd: stands in for the services of the overlay network, which belong to the appliance. It takes what
// an uplink's setup tells them, answers that all is well, and writes each call into a journal, one line a
// call:
//
//     VelanWmd.Add_monitor_iface {"bandwidth":1000000000,"gateway":"192.0.2.1","id":1,"ifname":"swdev1"}
//     wanipd.update {"command":"update","id":1,"interface":"swdev1","is_debug":false,"path":"..."}
//
// A process of its own serves each service, so that a test can hold one of them up.
#include <fcntl.h>
#include <signal.h>
#include <sys/prctl.h>
#include <sys/socket.h>
#include <sys/un.h>
#include <sys/wait.h>
#include <unistd.h>

#include <algorithm>
#include <array>
#include <cstring>
#include <iostream>
#include <set>
#include <string>
#include <utility>
#include <vector>

#include "service.h"
#include "service_notify.h"
#include "store.h"

namespace {

using peers::Method;

struct Call {
    const char* service;
    const char* method;
};

constexpr std::array kCalls{
    Call{"VelanWsd.service", "Setup_QOS"},
    Call{"VelanWsd.service", "Setup_TUN"},
    Call{"VelanWsd.service", "Setup_TUN6"},
    Call{"VelanWsd.service", "Setup_PRIVATE"},
    Call{"VelanWsd.service", "Setup_RGLINK"},
    Call{"VelanWmd", "Add_monitor_iface"},
    Call{"VelanWmd", "Del_monitor_iface"},
    Call{"VelanWmd", "Reset_iface_bandwidth"},
    Call{"VelanWmd", "Reload_condition"},
    Call{"rmgmtd", "ipsec.edit_local_site"},
    Call{"rmgmtd", "ipsec.edit_local_site_ip6"},
    Call{"rmgmtd", "ipsec.start"},
    Call{"rmgmtd", "ipsec.stop"},
    Call{"nm-hmgr", "AddWan"},
    Call{"nm-hmgr", "RemoveWan"},
    Call{"nm-hmgr", "AddPrivate"},
    Call{"nm-hmgr", "RemovePrivate"},
    Call{"nm-hmgr", "AddDomainLink"},
    Call{"nm-hmgr", "RemoveDomainLink"},
    Call{"nm-hmgr", "UpdateRGLinkInfo"},
    Call{"nm-hmgr", "UpdateLansInfo"},
    Call{"nm-grpc-handler", "DeviceLog"},
};

/// Peers that take one JSON command a connection, on /var/run/network/<name>.sock.
constexpr std::array kSocketPeers{"ncsid", "wanipd"};

int journal = -1;

/// Where a process says by one byte that it can be called.
int readiness = -1;

void report_ready() {
    (void)!write(readiness, "", 1);  // a parent that has ended needs no answer
}

/// One write(2) a line: the processes share the file.
void record(const std::string& call, const Json::Value& request) {
    const std::string line = call + ' ' + peers::to_line(request);
    if (write(journal, line.data(), line.size()) != static_cast<ssize_t>(line.size())) {
        std::cerr << "overlayd: the journal is not complete\n";
    }
}

// ---- Services of the bus.

template <std::size_t row>
Json::Value answer(const Json::Value& request) {
    record(std::string(kCalls[row].service) + '.' + kCalls[row].method, request);
    Json::Value reply;
    reply["error"] = 0;
    reply["result"] = "";
    return reply;
}

template <std::size_t... rows>
std::vector<Method> methods_of(const std::string& service, std::index_sequence<rows...>) {
    std::vector<Method> methods;
    ((service == kCalls[rows].service ? methods.push_back({kCalls[rows].method, peers::serve<answer<rows>>})
                                      : void()),
     ...);
    return methods;
}

int serve_bus(const std::string& name) {
    return peers::run_service(name.c_str(), methods_of(name, std::make_index_sequence<kCalls.size()>()),
                              report_ready);
}

// ---- Peers on sockets of their own.

/// What a client sends up to the end of its line, or until it gives up.
std::string hear(int client) {
    std::string text;
    char piece[1024];
    for (ssize_t got;
         text.find('\n') == std::string::npos && (got = read(client, piece, sizeof(piece))) > 0;) {
        text.append(piece, static_cast<std::size_t>(got));
    }
    return text;
}

void serve_client(const std::string& name, int client) {
    std::string reply = "{\"ret\":0}\n";
    try {
        const Json::Value request = peers::parse_json(hear(client));
        record(name + '.' + request["command"].asString(), request);
    } catch (const std::exception& failure) {
        std::cerr << "overlayd: " << name << ": " << failure.what() << '\n';
        reply = "{\"ret\":-1}\n";
    }
    // A client that wants no answer is gone by now.
    (void)send(client, reply.data(), reply.size(), MSG_NOSIGNAL);
}

int serve_socket(const std::string& name) {
    const std::string path = "/var/run/network/" + name + ".sock";
    sockaddr_un address{AF_UNIX, {}};
    path.copy(address.sun_path, sizeof(address.sun_path) - 1);
    const int listener = socket(AF_UNIX, SOCK_STREAM | SOCK_CLOEXEC, 0);
    unlink(path.c_str());
    if (bind(listener, reinterpret_cast<sockaddr*>(&address), sizeof(address)) != 0 ||
        listen(listener, SOMAXCONN) != 0) {
        std::cerr << "overlayd: cannot listen on " << path << ": " << std::strerror(errno) << '\n';
        return 1;
    }
    report_ready();
    for (int client; (client = accept4(listener, nullptr, nullptr, SOCK_CLOEXEC)) >= 0;) {
        serve_client(name, client);
        close(client);
    }
    return 1;
}

// ---- One process for each.

bool is_socket_peer(const std::string& name) {
    return std::find(kSocketPeers.begin(), kSocketPeers.end(), name) != kSocketPeers.end();
}

std::set<std::string> all_services() {
    std::set<std::string> names(kSocketPeers.begin(), kSocketPeers.end());
    for (const Call& call : kCalls) {
        names.insert(call.service);
    }
    return names;
}

/// Returns when the process can be called or has ended; -1 if there is none.
pid_t start(const std::string& name, const sigset_t& before) {
    int ends[2];
    if (pipe2(ends, O_CLOEXEC) != 0) {
        return -1;
    }
    const pid_t parent = getpid();
    const pid_t child = fork();
    if (child != 0) {
        char byte = 0;
        close(ends[1]);
        const bool is_ready = read(ends[0], &byte, 1) == 1;
        close(ends[0]);
        return is_ready ? child : -1;
    }
    readiness = ends[1];
    unsetenv("NOTIFY_SOCKET");  // the manager hears of all of them at once
    prctl(PR_SET_PDEATHSIG, SIGTERM);
    prctl(PR_SET_NAME, name.c_str());
    sigprocmask(SIG_SETMASK, &before, nullptr);
    if (getppid() != parent) {
        _exit(1);
    }
    _exit(is_socket_peer(name) ? serve_socket(name) : serve_bus(name));
}

/// Starts them in turn until one fails.
std::vector<pid_t> start_all(const std::set<std::string>& names, const sigset_t& before) {
    std::vector<pid_t> children;
    children.reserve(names.size());
    for (const std::string& name : names) {
        const pid_t child = start(name, before);
        if (child < 0) {
            std::cerr << "overlayd: " << name << " is not served\n";
            break;
        }
        children.push_back(child);
    }
    return children;
}

/// Ends with the first of them that ends, or with a signal, and leaves none behind.
int run(const std::set<std::string>& names) {
    sigset_t awaited;
    sigset_t before;
    sigemptyset(&awaited);
    for (const int number : {SIGTERM, SIGINT, SIGCHLD}) {
        sigaddset(&awaited, number);
    }
    sigprocmask(SIG_BLOCK, &awaited, &before);
    struct sigaction ends_only {};  // a process that is held up has not ended
    ends_only.sa_handler = SIG_DFL;
    ends_only.sa_flags = SA_NOCLDSTOP;
    sigaction(SIGCHLD, &ends_only, nullptr);
    const std::vector<pid_t> children = start_all(names, before);
    int number = SIGCHLD;
    if (children.size() == names.size()) {
        notify_manager("READY=1");
        sigwait(&awaited, &number);
    }
    for (const pid_t child : children) {
        kill(child, SIGTERM);
        kill(child, SIGCONT);
    }
    while (wait(nullptr) > 0) {
    }
    return number == SIGCHLD ? 1 : 0;
}

int usage() {
    std::cerr << "usage: overlayd JOURNAL [SERVICE]...\nservices:";
    for (const std::string& name : all_services()) {
        std::cerr << ' ' << name;
    }
    std::cerr << '\n';
    return 2;
}

}  // namespace

int main(int argc, char** argv) {
    std::set<std::string> names(argv + std::min(argc, 2), argv + argc);
    const std::set<std::string> known = all_services();
    if (argc < 2 || !std::includes(known.begin(), known.end(), names.begin(), names.end())) {
        return usage();
    }
    journal = open(argv[1], O_WRONLY | O_CREAT | O_APPEND | O_CLOEXEC, 0600);
    if (journal < 0) {
        std::cerr << "overlayd: cannot write " << argv[1] << ": " << std::strerror(errno) << '\n';
        return 1;
    }
    return run(names.empty() ? known : names);
}
