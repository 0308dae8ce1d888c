// The DHCP server's file with many reservations, and the client table with many leases, in this process. The
// file is held against a bare replacement of the same text and against the daemon's own check of it; the
// table against reading its two files line by line. Medians and ratios of one run. Run it by scripts/bench,
// in the sandbox.
#include <fcntl.h>
#include <networkinterface.h>
#include <unistd.h>

#include <algorithm>
#include <chrono>
#include <cstdio>
#include <cstdlib>
#include <ctime>
#include <fstream>
#include <functional>
#include <iterator>
#include <memory>
#include <string>
#include <vector>

namespace {

constexpr int kRounds = 11;
constexpr const char* kServerFile = "/etc/networkmanagement/dhcp/dhcpd_lan0.conf";
constexpr const char* kLeaseFile = "/var/lib/dhcpd/dhcpd_lan0.leases";
constexpr const char* kDocument = "/run/bench.json";

void check(bool done, const std::string& what) {
    if (!done) {
        fprintf(stderr, "dhcp_tables: %s failed\n", what.c_str());
        exit(1);
    }
}

/// Milliseconds; the median of all rounds.
double median(const std::function<bool()>& work) {
    std::vector<double> times;
    for (int round = 0; round < kRounds; ++round) {
        const auto start = std::chrono::steady_clock::now();
        check(work(), "a round");
        times.push_back(
            std::chrono::duration<double, std::milli>(std::chrono::steady_clock::now() - start).count());
    }
    std::sort(times.begin(), times.end());
    return times[times.size() / 2];
}

/// Host `number` of 10.50.0.0/16, from 10.50.1.0 on.
std::string address(int number) {
    return "10.50." + std::to_string(1 + number / 256) + "." + std::to_string(number % 256);
}

/// Four decimal digits, which are as good as hexadecimal ones.
std::string mac(int number) {
    std::string digits = std::to_string(10000 + number % 10000);
    return "02:00:00:00:" + digits.substr(1, 2) + ":" + digits.substr(3);
}

/// Every other address of the pool's beginning is kept for somebody, so that the pool falls into as many
/// ranges.
void store_document(int reservations) {
    std::ofstream file(kDocument);
    file << R"({"DHCP_SERVICE":{"lan0":{"SERVICE":"SERVER","START_IP":"10.50.1.0","END_IP":"10.50.99.255",)"
         << R"("LEASE_TIME":"86400","RESERVED_IP":[)";
    for (int number = 0; number < reservations; ++number) {
        file << (number > 0 ? "," : "") << R"({"DEVICE_NAME":"device )" << number << R"(","IP4_ADDR":")"
             << address(2 * number) << R"(","MAC":")" << mac(number) << "\"}";
    }
    file << "]}}}";
}

/// What the daemon writes of a lease.
void store_leases(int leases) {
    const time_t end = time(nullptr) + 3600;
    char ends[32];
    (void)strftime(ends, sizeof(ends), "%w %Y/%m/%d %H:%M:%S", gmtime(&end));
    std::ofstream file(kLeaseFile);
    for (int number = 0; number < leases; ++number) {
        file << "lease " << address(number) << " {\n  starts " << ends << ";\n  ends " << ends << ";\n  cltt "
             << ends
             << ";\n  binding state active;\n  next binding state free;\n  rewind binding state free;\n"
             << "  hardware ethernet " << mac(number) << ";\n  uid \"\\001" << number
             << "\";\n  client-hostname \"device" << number << "\";\n}\n";
    }
}

std::unique_ptr<DhcpService> service() {
    DhcpService* created = nullptr;
    check(create_DHCP_SERVICE(&created, "lan0", kDocument) == 0, "the service");
    return std::unique_ptr<DhcpService>(created);
}

bool replace_bare() {
    const std::string beside = std::string(kServerFile) + ".bare";
    std::ifstream file(kServerFile);
    const std::string text{std::istreambuf_iterator<char>(file), {}};
    const int fd = open(beside.c_str(), O_WRONLY | O_CREAT | O_TRUNC | O_CLOEXEC, 0644);
    return write(fd, text.data(), text.size()) == static_cast<ssize_t>(text.size()) && fsync(fd) == 0 &&
           close(fd) == 0 && rename(beside.c_str(), kServerFile) == 0;
}

bool read_bare() {
    size_t lines = 0;
    for (const char* path : {kServerFile, kLeaseFile}) {
        std::ifstream file(path);
        for (std::string line; std::getline(file, line);) {
            ++lines;
        }
    }
    return lines > 0;
}

void print(const std::string& name, double ours, double bare, const char* against) {
    printf("%-38s %9.2f %9.2f %8.2f  %s\n", name.c_str(), ours, bare, ours / bare, against);
}

void measure_server_file(int reservations) {
    store_document(reservations);
    const double load = median([] { return service() != nullptr; });
    const std::unique_ptr<DhcpService> server = service();
    const double checked = median([&] { return server->check_dhcpserver_jsonformat() == 0; });
    const double generated = median([&] { return server->gen_dhcpserver_conf() == 0; });
    const double bare = median(replace_bare);
    const double daemon =
        median([] { return system(("dhcpd -t -q -cf " + std::string(kServerFile) + " lan0").c_str()) == 0; });
    const std::string all = std::to_string(reservations) + " reservations: ";
    print(all + "load", load, daemon, "dhcpd -t on the file");
    print(all + "check", checked, daemon, "dhcpd -t on the file");
    print(all + "check, write", generated, bare, "a bare replacement");
    print(all + "check, write", generated, daemon, "dhcpd -t on the file");
}

void measure_table(int leases) {
    store_leases(leases);
    const std::unique_ptr<DhcpService> server = service();
    std::vector<char> table(size_t{4} << 20);
    const double ours = median([&] {
        std::fill(table.begin(), table.end(), '\0');
        return server->get_dhcp_client_table(table.data(), table.size()) == 0;
    });
    const std::string text = table.data();
    check(text.find("\"device" + std::to_string(leases - 1) + "\"") != std::string::npos, "the last lease");
    print(std::to_string(leases) + " leases: table", ours, median(read_bare), "reading line by line");
}

}  // namespace

int main() {
    if (access("/run/network/.sandbox", F_OK) != 0) {
        fprintf(stderr, "dhcp_tables: not in the sandbox; run scripts/bench\n");
        return 2;
    }
    check(system("ip link add lan0 type bridge && ip addr add 10.50.0.1/16 dev lan0") == 0, "the device");
    check(setvbuf(stdout, nullptr, _IOLBF, 0) == 0, "line buffering");
    printf("Medians of %d rounds, in ms.\n%-38s %9s %9s %8s\n", kRounds, "", "ours", "bare", "ratio");
    for (const int reservations : {100, 1000, 10000}) {
        measure_server_file(reservations);
    }
    store_document(10);
    check(service()->gen_dhcpserver_conf() == 0, "the server's file");
    for (const int leases : {100, 1000, 10000}) {
        measure_table(leases);
    }
    return 0;
}
