// status: the state of the device on one screen.
#include <json/writer.h>
#include <networkinterface.h>
#include <unistd.h>

#include <array>
#include <chrono>
#include <cstdio>
#include <fstream>
#include <iostream>
#include <thread>

#include "nm_bin/commands.h"

namespace nm_bin {

namespace {

/// A number with the unit that makes it short: "1.4 G".
std::string short_number(double number) {
    constexpr std::array kUnits{"", " k", " M", " G", " T", " P"};
    constexpr double kStep = 1000;
    size_t unit = 0;
    for (; number >= kStep && unit + 1 < kUnits.size(); ++unit) {
        number /= kStep;
    }
    std::array<char, 32> text{};
    (void)snprintf(text.data(), text.size(), unit == 0 ? "%.0f%s" : "%.1f%s", number, kUnits[unit]);
    return text.data();
}

/// "10.0.0.1/24", or the type where there is no address.
std::string address_of(const Json::Value& family) {
    const std::string address = text_of(family, "address");
    if (address.empty()) {
        const std::string type = text_of(family, "type");
        return type == "DISABLED" ? "-" : "(" + type + ")";
    }
    return address + "/" + std::to_string(family["prefix_bits"].asUInt());
}

std::string short_bytes(const Json::Value& bytes) {
    const std::string text = short_number(bytes.asDouble());
    return text + (text.find(' ') == std::string::npos ? " B" : "B");
}

std::string state_of(const std::string& word) {
    const bool is_good = word == "up" || word == "alive";
    const bool is_bad = word == "down" || word == "dead" || word == "absent";
    return tint(is_good ? Tint::Good : is_bad ? Tint::Bad : Tint::Faint, word, STDOUT_FILENO);
}

void print_title(const std::string& title) {
    std::cout << "\n" << tint(Tint::Faint, title, STDOUT_FILENO) << "\n";
}

void print_table(const std::string& title, const Table& table) {
    if (!table.empty()) {
        print_title(title);
        Options options;
        options.text = true;
        table.print(options);
    }
}

void print_ports(const Json::Value& ports) {
    Table table({"port", "kind", "interface", "mtu", "speed", "link"});
    for (const Json::Value& port : ports) {
        const bool has_speed = port.isMember("speed_mbit_per_s");
        table.add(
            {text_of(port, "port"), text_of(port, "kind"), text_of(port, "interface"),
             std::to_string(port["mtu_bytes"].asInt()),
             has_speed ? port["speed_mbit_per_s"].asString() + " Mbit/s " + text_of(port, "duplex") : "-",
             state_of(text_of(port, "link"))});
    }
    print_table("Ports", table);
}

void print_uplinks(const Json::Value& uplinks) {
    Table table(
        {"uplink", "interface", "ipv4", "gateway", "ipv6", "weight", "received", "sent", "link", "health"});
    for (const Json::Value& uplink : uplinks) {
        const Json::Value& traffic = uplink["traffic"];
        table.add({text_of(uplink, "port"), text_of(uplink, "traffic_interface"), address_of(uplink["ip4"]),
                   text_of(uplink["ip4"], "gateway"), address_of(uplink["ip6"]),
                   short_number(uplink["weight_percent"].asDouble()) + " %",
                   short_bytes(traffic["received_bytes"]), short_bytes(traffic["sent_bytes"]),
                   uplink["up"].asBool() ? "up  " : "down", state_of(text_of(uplink, "health"))});
    }
    print_table("Uplinks", table);
}

void print_lans(const Json::Value& lans) {
    Table table({"lan", "ipv4", "ipv6", "dhcp", "clients", "received", "sent", "link"});
    Table clients({"client", "lan", "mac", "name", "expires"});
    for (const Json::Value& lan : lans) {
        table.add({text_of(lan, "interface"), address_of(lan["ip4"]), address_of(lan["ip6"]),
                   text_of(lan, "dhcp"), std::to_string(lan["clients"].size()),
                   short_bytes(lan["traffic"]["received_bytes"]), short_bytes(lan["traffic"]["sent_bytes"]),
                   state_of(text_of(lan, "link"))});
        for (const Json::Value& client : lan["clients"]) {
            clients.add({text_of(client, "address"), text_of(lan, "interface"), text_of(client, "mac"),
                         text_of(client, "name"), client["expires_in_s"].asString() + " s"});
        }
    }
    print_table("LANs", table);
    print_table("Clients", clients);
}

void print_policy(const Json::Value& report) {
    Table table({"chain", "rules", "packets", "bytes"});
    for (const Json::Value& chain : report["policy"]) {
        table.add({text_of(chain, "place") + " " + text_of(chain, "chain"), chain["rules"].asString(),
                   short_number(chain["packets"].asDouble()), short_bytes(chain["bytes"])});
    }
    print_table("Packet policy", table);
    if (report.isMember("denied_packets")) {
        std::cout << "denied: " << count_of(report["denied_packets"].asUInt64(), "packet") << "\n";
    }
}

void print_names(const Json::Value& names) {
    Table table({"name server", "of"});
    for (const Json::Value& server : names["servers"]) {
        table.add({text_of(server, "address"), text_of(server, "owner")});
    }
    print_table("Names", table);
}

void print_units(const Json::Value& units) {
    size_t active = 0;
    std::string failed;
    for (const Json::Value& unit : units) {
        active += unit["state"] == "active" ? 1 : 0;
        failed += unit["state"] == "failed" ? " " + text_of(unit, "unit") : "";
    }
    print_title("Units");
    std::cout << active
              << " active, failed:" << (failed.empty() ? " none" : tint(Tint::Bad, failed, STDOUT_FILENO))
              << "\n";
}

void print_results(const Json::Value& results) {
    Table table({"time", "request", "code", "result"});
    for (const Json::Value& result : results) {
        const bool has_failed = result["code"].asInt() < 0;
        table.add({text_of(result, "time"), text_of(result, "entry"), result["code"].asString(),
                   tint(has_failed ? Tint::Bad : Tint::Good, text_of(result, "name"), STDOUT_FILENO)});
    }
    print_table("Last results", table);
}

void print_screen(const Json::Value& report) {
    std::cout << text_of(report, "host") << "  " << text_of(report, "time") << "  "
              << (report["booted"].asBool() ? "booted" : "not booted yet") << "\n";
    print_ports(report["ports"]);
    print_uplinks(report["uplinks"]);
    print_lans(report["lans"]);
    print_names(report["names"]);
    print_policy(report);
    print_units(report["units"]);
    print_results(report["results"]);
}

std::string compact_json(const Json::Value& report) {
    Json::StreamWriterBuilder builder;
    builder["indentation"] = "";
    return Json::writeString(builder, report);
}

int look(Json::Value& report) {
    return report_status(report) < 0 ? kExitUsage : kExitOk;
}

/// Until a signal ends the process.
int watch_status(const Options& options) {
    constexpr std::chrono::seconds kInterval(2);
    const bool is_terminal = isatty(STDOUT_FILENO) == 1;
    while (std::cout) {
        Json::Value report;
        (void)look(report);  // the screen shows what is missing
        if (wants_json(options)) {
            std::cout << compact_json(report) << std::endl;
        } else {
            std::cout << (is_terminal ? "\033[H\033[2J" : "");
            print_screen(report);
            std::cout << std::flush;
            print_unread(report);
        }
        std::this_thread::sleep_for(kInterval);
    }
    return kExitFailed;
}

int write_picture(const std::string& path) {
    Json::Value report;
    const int status = look(report);
    std::ofstream file(path, std::ios::binary);
    file << draw_status(report) << std::flush;
    print_unread(report);
    return file ? status : failure("cannot write " + path);
}

}  // namespace

int status(const Arguments& /*words*/, const Options& options) {
    if (!options.picture.empty()) {
        return options.watch ? usage_error("status takes --watch or --picture")
                             : write_picture(options.picture);
    }
    if (options.watch) {
        return watch_status(options);
    }
    Json::Value report;
    const int status = look(report);
    if (wants_json(options)) {
        std::cout << Json::writeString(Json::StreamWriterBuilder(), report) << "\n";
    } else {
        print_screen(report);
        print_unread(report);
    }
    return status;
}

}  // namespace nm_bin
