// The reader of the host blocks in the server's generated file.
#include "services/dhcp/server_reservations.h"

#include <algorithm>
#include <array>
#include <utility>

#include "log.h"
#include "result_codes.h"
#include "services/dhcp/dhcp_files.h"
#include "services/files/line_file.h"
#include "utils/file_io.h"
#include "utils/files.h"
#include "utils/json_text.h"

namespace {

/// A statement of a host block: how its line begins, and how much of it is not the value.
struct Statement {
    const char* key;
    std::string words;
    std::size_t before;
    std::size_t behind;
};

const std::array<Statement, 3>& statements() {
    static const std::array<Statement, 3> table{{
        {"DEVICE_NAME", "#dev_name", 11, 2},
        {"MAC", "hardware ethernet", 18, 1},
        {"IP4_ADDR", "fixed-address", 14, 1},
    }};
    return table;
}

bool begins_with(const std::string& line, const std::string& words) {
    return line.compare(0, words.size(), words) == 0;
}

bool is_block_start(const std::string& line) {
    return begins_with(line, "host") && line.back() == '{';
}

/// Bytes are compared, not characters: a device's name may be of any encoding or none.
bool is_statement(const std::string& line, const Statement& statement) {
    return begins_with(line, statement.words) && line.size() > statement.words.size() && line.back() == ';';
}

std::string value_of(const std::string& line, const Statement& statement) {
    const std::size_t around = statement.before + statement.behind;
    return line.size() > around ? line.substr(statement.before, line.size() - around) : "";
}

/// Takes one line of a block into its record; false for a key that the record has already.
bool take_statement(const std::string& line, Json::Value& record) {
    const auto& table = statements();
    const auto* const found = std::find_if(table.begin(), table.end(), [&line](const Statement& statement) {
        return is_statement(line, statement);
    });
    if (found == table.end()) {
        return true;
    }
    if (record.isMember(found->key)) {
        return false;
    }
    record[found->key] = value_of(line, *found);
    return true;
}

void append_complete(Json::Value record, Json::Value& out) {
    if (record.size() < statements().size()) {
        return;
    }
    record["EXPIRES"] = "Reservation";
    record["ALIVE"] = 0;
    out["RESERVATION"].append(std::move(record));
}

void read_blocks(const std::string& text, Json::Value& out) {
    Json::Value record;
    bool inside = false;
    for (const std::string& line : nm::split_lines(text)) {
        if (!inside) {
            inside = is_block_start(line);
            record = Json::Value(Json::objectValue);
            continue;
        }
        if (line == "}") {
            append_complete(record, out);
        }
        inside = line != "}" && take_statement(line, record);
    }
}

}  // namespace

int get_reserved_ip(std::string ifname, Json::Value& out) {
    if (ifname.empty()) {
        NM_LOG(Error) << "ifname is empty.";
        return NM_ERR_NO_IFACE;
    }
    const std::string path = nm::dhcp_server_conf(ifname);
    const auto text = is_file_exists(path) ? nm::read_file(path) : std::nullopt;
    if (!text) {
        NM_LOG(Error) << path << " doesn't exist.";
        return NM_ERR_NOT_FOUND;
    }
    read_blocks(*text, out);
    if (out.empty()) {
        out["RESERVATION"] = "";
    }
    return NM_OK;
}

std::string nm::reservation_field(const Json::Value& reservation, const std::string& key) {
    return json_scalar(json_member(reservation, key));
}
