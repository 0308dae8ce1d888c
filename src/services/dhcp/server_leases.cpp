// The reader of the server's lease file.
#include "services/dhcp/server_leases.h"

#include <algorithm>
#include <array>
#include <cctype>
#include <cstdlib>
#include <utility>
#include <vector>

#include "log.h"
#include "result_codes.h"
#include "services/dhcp/dhcp_files.h"
#include "services/files/line_file.h"
#include "utils/containers.h"
#include "utils/file_io.h"
#include "utils/files.h"

namespace {

using Lease = std::map<std::string, std::string>;
using Leases = std::map<std::string, Lease>;

/// What one block has said so far.
struct Block {
    Lease lease;
    std::string date;
    std::string clock;
    bool active = false;
};

constexpr std::size_t kMaxDigits = 9;  // any more might not fit an int

bool is_number(const std::string& text) {
    return !text.empty() && text.size() <= kMaxDigits &&
           std::all_of(text.begin(), text.end(), [](unsigned char c) { return std::isdigit(c) != 0; });
}

bool three_numbers(const std::string& text, char separator, std::array<int, 3>& numbers) {
    std::vector<std::string> pieces;
    split_into_vector(text, separator, pieces);
    if (pieces.size() != numbers.size() || !std::all_of(pieces.begin(), pieces.end(), is_number)) {
        return false;
    }
    std::transform(pieces.begin(), pieces.end(), numbers.begin(),
                   [](const std::string& piece) { return std::atoi(piece.c_str()); });
    return true;
}

/// The text behind `words` without its last `cut` characters; false if `words` is not there.
bool behind(const std::string& line, const std::string& words, std::size_t cut, std::string& text) {
    const std::size_t found = line.find(words);
    if (found == std::string::npos) {
        return false;
    }
    text = line.substr(found + words.size());
    text.resize(text.size() - std::min(cut, text.size()));
    return true;
}

void read_end(const std::string& line, Block& block) {
    std::vector<std::string> words;
    split_into_vector(line, ' ', words);
    if (words.size() < 2) {
        return;
    }
    block.clock = words.back().substr(0, words.back().size() - 1);
    block.date = words[words.size() - 2];
}

/// The values of one line. What is in quotes is a client's own text, which may look like any statement, so
/// that only what stands before the first quotation mark tells what a line is.
void read_line(const std::string& line, const std::string& head, Block& block) {
    std::string text;
    if (head.find('{') != std::string::npos && behind(head, "lease ", 2, text)) {
        block.lease["IP4_ADDR"] = text;
    }
    if (behind(head, "  hardware ethernet ", 1, text)) {
        block.lease["MAC"] = text;
    }
    if (head.find(" client-hostname \"") != std::string::npos &&
        behind(line, " client-hostname \"", 2, text)) {
        block.lease["DEVICE_NAME"] = text;
    }
    if (head.find("  ends") != std::string::npos) {
        read_end(head, block);
    }
    block.active = block.active || head.find("binding state active;") != std::string::npos;
}

std::string expires_text(const tm& remaining) {
    const std::string days = remaining.tm_yday > 0 ? std::to_string(remaining.tm_yday) + "D " : "";
    return days + std::to_string(remaining.tm_hour) + ":" + std::to_string(remaining.tm_min) + ":" +
           std::to_string(remaining.tm_sec);
}

void end_block(Block block, Leases& leases) {
    const std::string address = block.lease["IP4_ADDR"];
    if (address.empty()) {
        return;
    }
    if (!block.active) {
        leases.erase(address);
        return;
    }
    tm remaining = {};
    if (get_difftime(block.date, block.clock, remaining) == 0) {
        block.lease["EXPIRES"] = expires_text(remaining);
        block.lease.emplace("DEVICE_NAME", "");
        leases[address] = std::move(block.lease);
    }
}

}  // namespace

int get_dhcpserver_lease(std::string ifname, Leases& leases) {
    if (ifname.empty()) {
        NM_LOG(Error) << "ifname is empty.";
        return NM_ERR_NO_IFACE;
    }
    const std::string path = nm::dhcp_lease_file(ifname);
    const auto text = is_file_exists(path) ? nm::read_file(path) : std::nullopt;
    if (!text) {
        NM_LOG(Error) << path << " doesn't exist.";
        return NM_ERR_NOT_FOUND;
    }
    Block block;
    for (const std::string& line : nm::split_lines(*text)) {
        const std::size_t quote = line.find('"');
        const std::string head = quote == std::string::npos ? line : line.substr(0, quote + 1);
        read_line(line, head, block);
        if (head.find('}') != std::string::npos) {
            end_block(std::exchange(block, {}), leases);
        }
    }
    return NM_OK;
}

int get_difftime(std::string date, std::string clock, tm& out) {
    const time_t now = time(nullptr);
    tm present = {};
    tm end = {};
    if (gmtime_r(&now, &present) == nullptr || date_to_timeStruct(date, end) != 0 ||
        clock_to_timeStruct(clock, end) != 0) {
        NM_LOG(Debug) << "no end of time: " << date << " " << clock;
        return -1;
    }
    const time_t remaining = mktime(&end) - mktime(&present);
    if (remaining < 0) {
        NM_LOG(Debug) << "time expired.";
        return -1;
    }
    tm span = {};
    if (gmtime_r(&remaining, &span) == nullptr) {
        return -1;
    }
    out.tm_yday = span.tm_yday;
    out.tm_hour = span.tm_hour;
    out.tm_min = span.tm_min;
    out.tm_sec = span.tm_sec;
    return 0;
}

int date_to_timeStruct(std::string date, tm& out) {
    std::array<int, 3> numbers{};
    if (!three_numbers(date, '/', numbers)) {
        return -1;
    }
    out.tm_year = numbers[0] - 1900;
    out.tm_mon = numbers[1] - 1;
    out.tm_mday = numbers[2];
    return 0;
}

int clock_to_timeStruct(std::string clock, tm& out) {
    std::array<int, 3> numbers{};
    if (!three_numbers(clock, ':', numbers)) {
        return -1;
    }
    out.tm_hour = numbers[0];
    out.tm_min = numbers[1];
    out.tm_sec = numbers[2];
    return 0;
}
