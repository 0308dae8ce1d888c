// nm_bin: the library's exported entries as commands of an operator's shell.
#include <fcntl.h>
#include <getopt.h>
#include <networkinterface.h>
#include <unistd.h>

#include <algorithm>
#include <array>
#include <cstdio>
#include <fstream>
#include <iostream>
#include <iterator>
#include <string>
#include <string_view>
#include <vector>

namespace {

constexpr int kExitOk = 0;
constexpr int kExitFailed = 1;
constexpr int kExitUsage = 2;

using Arguments = std::vector<std::string>;

/// An entry, the words behind its name, and whether the first of them is a request (text, @FILE or -).
struct Command {
    std::string_view name;
    std::string_view arguments;
    size_t count;
    bool takes_request;
    int (*run)(Arguments& words);
    std::string_view help;
};

template <int (*entry)(char*)>
int run_with_text(Arguments& words) {
    return entry(words[0].data());
}

/// The table is as large as the network has clients: the buffer grows until it fits.
int show_dhcp_clients(Arguments& words) {
    constexpr size_t kFirst = size_t{1} << 20;
    constexpr size_t kLast = size_t{1} << 26;
    for (size_t size = kFirst;; size *= 2) {
        std::string table(size, '\0');
        const int code = Get_dhcp_client_table(words[0].data(), table.data(), table.size());
        if (code == NM_ERR_BUFFER && size < kLast) {
            continue;
        }
        std::cout << table.substr(0, table.find('\0'));
        return code;
    }
}

/// What puts one stored document in the place of another, and says what it refused.
using Apply = int (*)(Json::Value& old_config, Json::Value& new_config, std::string& error);

/// Applies the document at the first path in place of the one at the second, where it then lies with what the
/// apply has noted in it. Without that file nothing has been applied before.
template <Apply apply>
int apply_document(Arguments& words) {
    INITIALIZE_LOG("MAIN");
    Json::Value new_config;
    Json::Value old_config;
    int code = json_file_to_mem(words[0], new_config);
    if (code < 0) {
        return code;
    }
    code = json_file_to_mem(words[1], old_config);
    if (code < 0 && code != NM_ERR_NOT_FOUND) {
        return code;
    }
    if (!new_config.isObject() || !(old_config.isObject() || old_config.isNull())) {
        return NM_ERR_BAD_FORMAT;  // A list has no rules, and would take away all that are in force.
    }
    std::string error;
    code = apply(old_config, new_config, error);
    if (!error.empty()) {
        std::cerr << "nm_bin: " << error << "\n";
    }
    return code < 0 ? code : json_mem_to_file(words[1], new_config, false);
}

int apply_firewall(Json::Value& old_config, Json::Value& new_config, std::string& error) {
    return setup_firewall(old_config, new_config, "mangle", "FIREWALL", error);
}

/// Classes first: without them there is no steering, and they do not outlive one that is refused.
int apply_policy(Json::Value& old_config, Json::Value& new_config, std::string& error) {
    int code = setup_firewall_policy(old_config, new_config, error);
    if (code < 0) {
        return code;
    }
    code = setup_firewall(old_config, new_config, "mangle", "STEER", error);
    if (code < 0 && !old_config.isNull()) {
        std::string ignored;
        (void)setup_firewall_policy(new_config, old_config, ignored);  // logged
    }
    return code;
}

int apply_dnat(Json::Value& old_config, Json::Value& new_config, std::string& error) {
    return setup_dnat(old_config["PORT_FORWARDING"], new_config["PORT_FORWARDING"], error, kDeviceInfoPath);
}

/// The tables are written anew, whatever stood in the old document.
template <int (*setup)(Json::Value& config, std::string path)>
int apply_routes(Json::Value& /*old_config*/, Json::Value& new_config, std::string& /*error*/) {
    return setup(new_config, kDeviceInfoPath);
}

constexpr std::array kCommands{
    Command{"Setup_wanif", "REQUEST", 1, true, run_with_text<Setup_wanif>,
            "add, delete or alter WAN ports (MTU, QoS, TCP buffers)"},
    Command{"Setup_waninfo", "REQUEST", 1, true, run_with_text<Setup_waninfo>,
            "add, delete or alter the addressing of WAN interfaces (static, DHCP, PPPoE)"},
    Command{"Setup_privateif", "REQUEST", 1, true, run_with_text<Setup_privateif>,
            "add, delete or alter private ports (as Setup_wanif)"},
    Command{"Setup_privateinfo", "REQUEST", 1, true, run_with_text<Setup_privateinfo>,
            "add, delete or alter the addressing of private interfaces (static)"},
    Command{"Setup_rglinkif", "REQUEST", 1, true, run_with_text<Setup_rglinkif>,
            "add, delete or alter RGLinks (as Setup_wanif)"},
    Command{"Setup_rglinkinfo", "REQUEST", 1, true, run_with_text<Setup_rglinkinfo>,
            "add, delete or alter the addressing of RGLinks (static, DHCP, PPPoE)"},
    Command{"Update_rglink_info", "REQUEST", 1, true, run_with_text<Update_rglink_info>,
            "report the addresses of all RGLinks to the health manager ({\"path\": ...} or {})"},
    Command{"Setup_vlanbr", "REQUEST", 1, true, run_with_text<Setup_vlanbr>,
            "add, delete or alter the bridges of VLAN segments (MTU, spanning tree)"},
    Command{"Setup_lanif", "REQUEST", 1, true, run_with_text<Setup_lanif>,
            "add, delete or alter LAN ports (VLAN devices, members of bridges)"},
    Command{"Setup_laninfo", "REQUEST", 1, true, run_with_text<Setup_laninfo>,
            "add, delete or alter the addressing of LAN interfaces"},
    Command{"Setup_dhcpservice", "REQUEST", 1, true, run_with_text<Setup_dhcpservice>,
            "start, stop or alter the DHCP server or relay of LAN interfaces"},
    Command{"Get_dhcp_client_table", "IFNAME", 1, false, show_dhcp_clients,
            "print an interface's DHCP reservations and leases as a line of JSON"},
    Command{"Add_hosts", "ADDRESS IFNAME", 2, false,
            [](Arguments& words) { return Add_hosts(words[0].data(), words[1].data()); },
            "add the host line of an interface's address"},
    Command{"Del_hosts", "IFNAME", 1, false, run_with_text<Del_hosts>,
            "delete the host lines of an interface's IPv4 addresses"},
    Command{"Lease_event", "IFNAME add|del", 2, false,
            [](Arguments& words) { return Lease_event(words[0].data(), words[1].data()); },
            "work what a DHCP client or PPPoE session reports (called by their hooks)"},
    Command{"Apply_firewall", "NEW OLD", 2, false, apply_document<apply_firewall>,
            "replace the firewall rules of the document OLD by those of NEW, and keep NEW as OLD"},
    Command{"Apply_policy", "NEW OLD", 2, false, apply_document<apply_policy>,
            "the same for QoS classes and steering"},
    Command{"Apply_segment", "NEW OLD", 2, false, apply_document<setup_firewall_segment>,
            "the same for the sets of segments"},
    Command{"Apply_dnat", "NEW OLD", 2, false, apply_document<apply_dnat>,
            "the same for the port forwards of a firewall document"},
    Command{"Apply_static_route", "NEW OLD", 2, false, apply_document<apply_routes<setup_static_route>>,
            "the same for static routes of IPv4"},
    Command{"Apply_static_route6", "NEW OLD", 2, false, apply_document<apply_routes<setup_static_route6>>,
            "the same for static routes of IPv6"},
    Command{"Reload_tcpmss", "REQUEST", 1, true, run_with_text<Reload_tcpmss>,
            "clamp the TCP segment size on the WAN links ({\"path\": ...} or {})"},
    Command{"Reload_dnat", "REQUEST", 1, true, run_with_text<Reload_dnat>,
            "write the stored port forwards anew ({\"path\": ...} or {})"},
    Command{"Reload_static_route", "REQUEST", 1, true, run_with_text<Reload_static_route>,
            "write the stored static routes anew ({\"family\": \"4\" or \"6\", \"path\": ...} or {})"},
};

void print_usage(std::ostream& out) {
    out << "usage: nm_bin [--json] COMMAND ARGUMENT...\n"
           "       nm_bin --help | --version\n"
           "\n"
           "Runs one entry of the network configuration library. The request is given as text, as the name "
           "of a\n"
           "file (@FILE) or on standard input (-), and looks like\n"
           "\n"
           "  {\"PORT1\": {\"ops\": 4, \"act\": 3, \"path\": \"/etc/networkmanagement/device_info.json\"}}\n"
           "\n"
           "act 1 adds, 2 deletes, 3 alters; ops is the mask of what changed; path holds the new state.\n"
           "The result is one line: number, name, meaning. Exit status: 0 success, 1 failure, 2 usage.\n"
           "\n"
           "commands:\n";
    for (const Command& command : kCommands) {
        out << "  " << command.name << " " << command.arguments << "\n      " << command.help << "\n";
    }
    out << "\noptions:\n"
           "  --json     print the result as a JSON object\n"
           "  --help     this text\n"
           "  --version  the version\n";
}

int usage_error(const std::string& message) {
    std::cerr << "nm_bin: " << message << "\nTry 'nm_bin --help'.\n";
    return kExitUsage;
}

std::string read_all(std::istream& in) {
    return {std::istreambuf_iterator<char>(in), std::istreambuf_iterator<char>()};
}

/// The request text that an argument stands for; false if its file cannot be read.
bool read_request(const std::string& argument, std::string& text) {
    if (argument == "-") {
        text = read_all(std::cin);
        return true;
    }
    if (argument.empty() || argument.front() != '@') {
        text = argument;
        return true;
    }
    std::ifstream file(argument.substr(1), std::ios::binary);
    if (!file) {
        return false;
    }
    text = read_all(file);
    return !file.bad();
}

void print_result(int code, bool as_json) {
    const ResultCode result = describe_result(code);
    if (as_json) {
        std::cout << "{\"code\":" << code << ",\"name\":\"" << result.name << "\",\"meaning\":\""
                  << result.meaning << "\"}\n";
        return;
    }
    std::cout << code << " " << result.name << " " << result.meaning << "\n";
}

int run_command(const std::string& name, Arguments words, bool as_json) {
    const auto* const command = std::find_if(kCommands.begin(), kCommands.end(),
                                             [&name](const Command& row) { return row.name == name; });
    if (command == kCommands.end()) {
        return usage_error("unknown command: " + name);
    }
    if (words.size() != command->count) {
        return usage_error(name + " takes " + std::string(command->arguments));
    }
    const std::string given = words[0];
    if (command->takes_request && !read_request(given, words[0])) {
        return usage_error("cannot read " + given.substr(1));
    }
    const int code = command->run(words);
    print_result(code, as_json);
    return code >= 0 ? kExitOk : kExitFailed;
}

/// The library's lock of a port is a descriptor that has to be above 0, and children of the library write to
/// standard error: all three standard descriptors have to be there.
void open_standard_descriptors() {
    int fd = open("/dev/null", O_RDWR);
    while (fd >= 0 && fd <= STDERR_FILENO) {
        fd = open("/dev/null", O_RDWR);
    }
    if (fd > STDERR_FILENO) {
        close(fd);
    }
}

}  // namespace

int main(int argc, char** argv) {
    open_standard_descriptors();
    static const std::array<option, 4> options{
        option{"json", no_argument, nullptr, 'j'},
        option{"help", no_argument, nullptr, 'h'},
        option{"version", no_argument, nullptr, 'v'},
        option{nullptr, 0, nullptr, 0},
    };
    bool as_json = false;
    opterr = 0;
    for (int choice = 0; (choice = getopt_long(argc, argv, "+jhv", options.data(), nullptr)) != -1;) {
        switch (choice) {
            case 'j':
                as_json = true;
                break;
            case 'h':
                print_usage(std::cout);
                return kExitOk;
            case 'v':
                std::cout << "nm_bin " << NM_VERSION << "\n";
                return kExitOk;
            default:
                return usage_error("unknown option: " + std::string(argv[optind - 1]));
        }
    }
    if (optind == argc) {
        return usage_error("no command given");
    }
    return run_command(argv[optind], Arguments(argv + optind + 1, argv + argc), as_json);
}
