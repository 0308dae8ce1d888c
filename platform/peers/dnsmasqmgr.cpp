// DnsmasqMgr: runs the dnsmasq that answers this device's and its clients' name queries. Callers on the bus
// have it start anew, and tell it the addresses on which it is to listen.
#include <arpa/inet.h>
#include <signal.h>
#include <unistd.h>

#include <array>
#include <iostream>
#include <set>
#include <sstream>
#include <thread>

#include "name_daemon.h"
#include "service.h"
#include "store.h"

namespace {

using namespace peers;

NameDaemon name_daemon;
std::mutex listen_file;

// The one spelling of an address, so that it can be found again, and nothing that dnsmasq would read as
// more than an address.
std::string requested_address(const Json::Value& request) {
    if (!request.isObject() || !request["addr"].isString()) {
        throw Refusal("the request names no addr");
    }
    const std::string text = request["addr"].asString();
    for (const int family : {AF_INET, AF_INET6}) {
        std::array<unsigned char, sizeof(in6_addr)> address;
        char spelled[INET6_ADDRSTRLEN];
        if (text.find('\0') == text.npos && inet_pton(family, text.c_str(), address.data()) == 1) {
            return inet_ntop(family, address.data(), spelled, sizeof(spelled));
        }
    }
    throw Refusal("not an address: " + text);
}

std::set<std::string> lines_of(const std::string& text) {
    std::set<std::string> lines;
    std::istringstream stream(text);
    for (std::string line; std::getline(stream, line);) {
        lines.insert(line);
    }
    return lines;
}

// Whether the file had to be changed.
bool edit_addresses(const std::string& address, bool add) {
    const std::lock_guard lock(listen_file);
    const std::string line = "listen-address=" + address;
    std::set<std::string> lines = lines_of(read_file(kListenPath));
    const bool changed = add ? lines.insert(line).second : lines.erase(line) > 0;
    std::string text;
    for (const std::string& each : lines) {
        text += each + '\n';
    }
    if (changed) {
        replace_file(kListenPath, text);
    }
    return changed;
}

template <bool add>
Json::Value edit_addr(const Json::Value& request) {
    if (edit_addresses(requested_address(request), add)) {
        name_daemon.restart();
    }
    return "";
}

Json::Value restart(const Json::Value&) {
    name_daemon.restart();
    return "";
}

const std::vector<Method> kMethods{
    {"Restart", serve<restart>},
    {"Add_addr", serve<edit_addr<true>>},
    {"Del_addr", serve<edit_addr<false>>},
};

// The addresses outlive this process, not the boot: those that set up interfaces tell them anew.
void start_dnsmasq() {
    try {
        if (access(kListenPath, F_OK) != 0) {
            replace_file(kListenPath, "");
        }
        name_daemon.restart();
    } catch (const Refusal& failure) {
        std::cerr << std::string("dnsmasqmgr: ") + failure.what() + '\n';
    }
}

}  // namespace

int main(int argc, char**) {
    if (argc != 1) {
        std::cerr << "usage: dnsmasqmgr\n";
        return 2;
    }
    sigset_t child;
    sigemptyset(&child);
    sigaddset(&child, SIGCHLD);
    sigprocmask(SIG_BLOCK, &child, nullptr);
    std::thread supervisor([] { name_daemon.supervise(); });
    const int status = run_service("DnsmasqMgr", kMethods, start_dnsmasq);
    name_daemon.stop();
    supervisor.join();
    return status;
}
