// The commands of the peer daemons.
#include "peers/unix/peer_commands.h"

#include <array>
#include <cstdio>

#include "log.h"
#include "result_codes.h"
#include "utils/json_field.h"
#include "utils/json_text.h"

namespace {

/// Command formats by kind; kind 0 is the one of `slaacrrd`.
constexpr std::array unix_cli_cmd{
    "{  \"is_debug\": false, \t\"prefixlen\": null, \t\"command\": \"%s\", \t\"dns\": [], "
    "\t\"address\": null, \t\"interface\": \"%s\"     }",
};
constexpr std::size_t kCommandSize = 1024;

/// A command: who serves it and how it is called there.
struct PeerCommand {
    UNIX_CLI_TYPE peer;
    const char* name;
};

constexpr PeerCommand kUpdateNcsi{UNIX_CLI_NCSID, "update"};
constexpr PeerCommand kRemoveNcsi{UNIX_CLI_NCSID, "remove"};
constexpr PeerCommand kReconfigNcsid{UNIX_CLI_NCSID, "reconfig"};
constexpr PeerCommand kRefreshNcsid{UNIX_CLI_NCSID, "refresh"};
constexpr PeerCommand kShowNcsid{UNIX_CLI_NCSID, "show"};
constexpr PeerCommand kRefreshAllIpinfo{UNIX_CLI_WANIPD, "refresh_all"};
constexpr PeerCommand kUpdateIpinfo{UNIX_CLI_WANIPD, "update"};
constexpr PeerCommand kRemoveIpinfo{UNIX_CLI_WANIPD, "remove"};
constexpr PeerCommand kShowIpinfo{UNIX_CLI_WANIPD, "show"};

/// The uplink that a command is about; empty for commands about all of them.
struct Uplink {
    std::string interface;
    uint8_t id = 0;
    std::string path;
};

std::string write_command(const std::string& command, const Uplink& uplink) {
    Json::Value root;
    root["is_debug"] = false;
    root["command"] = command;
    root["id"] = uplink.id;
    root["interface"] = uplink.interface;
    root["path"] = uplink.path;
    return nm::write_compact_json(root);
}

int ask(UNIX_CLI_TYPE peer, const std::string& command, const Uplink& uplink, std::string& output) {
    const bool wants_answer = output != kNoResponse;
    const int ret = nm::send_command(peer, write_command(command, uplink), output);
    if (ret != NM_OK) {
        return ret;
    }
    if (!wants_answer) {
        NM_LOG(Debug) << "no output data need to be parsed; return.";
        return NM_OK;
    }
    Json::Value reply;
    int peer_ret = NM_OK;
    if (!nm::parse_json(output, reply) || !nm::json_integer(reply, "ret", NM_OK, peer_ret)) {
        NM_LOG(Error) << "\nparse output_str to output_json failed;\noutput_str =\n" << output;
        return NM_ERR_PARSE;
    }
    return peer_ret;
}

int run(const PeerCommand& command, const Uplink& uplink, std::string& reply) {
    NM_LOG(Debug) << "Enter";
    return NM_EXIT(ask(command.peer, command.name, uplink, reply));
}

int run_unanswered(const PeerCommand& command, const Uplink& uplink) {
    std::string reply = kNoResponse;
    return run(command, uplink, reply);
}

int show_ipinfo(const std::string& path, Json::Value& ipinfo) {
    std::string reply;
    const int ret = run(kShowIpinfo, {"", 0, path}, reply);
    if (ret != NM_OK) {
        NM_LOG(Error) << "get_ipinfo failed!";
        return ret;
    }
    NM_LOG(Debug) << "\n[ALL] ipinfo\n" << reply;
    return nm::parse_json(reply, ipinfo) ? NM_OK : NM_ERR_PARSE;
}

}  // namespace

std::string create_json_slaacrrd_cmd(std::string command, std::string interface) {
    char text[kCommandSize];
    const int length = snprintf(text, sizeof(text), unix_cli_cmd[0], nm::json_field(command).c_str(),
                                nm::json_field(interface).c_str());
    // A command that is cut is not JSON any more.
    if (length < 0 || static_cast<std::size_t>(length) >= sizeof(text)) {
        NM_LOG(Error) << "snprintf fail. Ret: " << NM_ERR_CLI_FORMAT;
        return "";
    }
    return text;
}

std::string create_json_wanipd_cmd(std::string command, std::string interface, uint8_t id, std::string path) {
    return write_command(command, {interface, id, path});
}

std::string create_json_ncsid_cmd(std::string command, std::string interface, uint8_t id, std::string path) {
    return write_command(command, {interface, id, path});
}

int ncsid_cli(std::string& output, std::string command, std::string interface, uint8_t id, std::string path) {
    return ask(UNIX_CLI_NCSID, command, {interface, id, path}, output);
}

int wanipd_cli(std::string& output, std::string command, std::string interface, uint8_t id,
               std::string path) {
    return ask(UNIX_CLI_WANIPD, command, {interface, id, path}, output);
}

int update_ncsi(std::string interface, uint8_t id, std::string path) {
    return run_unanswered(kUpdateNcsi, {interface, id, path});
}

int remove_ncsi(std::string& reply, std::string interface, std::string path, uint8_t id) {
    return run(kRemoveNcsi, {interface, id, path}, reply);
}

int reconfig_ncsid(std::string& reply, std::string path) {
    return run(kReconfigNcsid, {"", 0, path}, reply);
}

int refresh_ncsid(std::string& reply, std::string path) {
    return run(kRefreshNcsid, {"", 0, path}, reply);
}

int get_ncsid_stat(std::string& reply) {
    return run(kShowNcsid, {}, reply);
}

int update_ipinfo(uint8_t id, std::string interface, std::string path) {
    return run_unanswered(kUpdateIpinfo, {interface, id, path});
}

int remove_ipinfo(uint8_t id, std::string interface, std::string path, std::string& reply) {
    return run(kRemoveIpinfo, {interface, id, path}, reply);
}

int refresh_all_ipinfo(std::string path, std::string& reply) {
    return run(kRefreshAllIpinfo, {"", 0, path}, reply);
}

int get_ipinfo(std::string path) {
    Json::Value ipinfo;
    return show_ipinfo(path, ipinfo);
}

int get_ipinfo(Json::Value& ipinfo) {
    return show_ipinfo("", ipinfo);
}

namespace nm {

int send_command(UNIX_CLI_TYPE peer, std::string command, std::string& output) {
    if (command.empty()) {
        NM_LOG(Error) << "Create json cmd fail!";
        return NM_ERR_CLI_EMPTY;
    }
    const int ret = deploy_unix_cli(peer, command, output, false);
    if (ret != NM_OK) {
        NM_LOG(Error) << "Deploy " << unix_cli_type.at(peer).label << " CLI fail!";
    }
    return ret;
}

}  // namespace nm
