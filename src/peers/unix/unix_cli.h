// One-shot clients of the peer daemons, which listen on unix stream sockets: connect, write one JSON command,
// read until the peer closes. A lock per peer lets one client at a time through, on the whole machine.
#pragma once

#include <json/value.h>
#include <sys/un.h>

#include <array>
#include <cstdint>
#include <string>

#pragma GCC visibility push(default)

/// The peers, by their place in unix_cli_type.
enum UNIX_CLI_TYPE {
    UNIX_CLI_SLAACRRD = 0,
    UNIX_CLI_WANIPD = 1,
    UNIX_CLI_NCSID = 2,
};

/// Where a peer listens, the name of the lock that its clients share, and how log lines call it.
struct unix_cli_row {
    const char* socket_path;
    const char* lock;
    const char* label;
};

extern const std::array<unix_cli_row, 3> unix_cli_type;

/// The reply text of a caller that wants none: the command is sent and the connection closed.
inline constexpr const char* kNoResponse = "no response";

/// A client lives for one exchange: construct, init(), send, read, destroy. It holds the peer's lock from
/// construction to done().
class unix_cli {
public:
    /// Copy the names and take the lock, for which they wait up to ten seconds. Throw the code as an int:
    /// that of lock_ex(), NM_ERR_CLI_FORMAT, NM_ERR_NULL_ARG. A socket path beyond 107 bytes is cut there.
    unix_cli(char* lock, char* socket_path);
    unix_cli(std::string& lock, std::string& socket_path);
    unix_cli(const unix_cli&) = delete;
    unix_cli& operator=(const unix_cli&) = delete;
    ~unix_cli();

    /// create_sock() and connect_to_server().
    int init();

    /// Opens the socket. 0 or NM_ERR_SOCKET.
    int create_sock();

    /// Connects within 5 seconds. 0, or NM_ERR_NL_CONNECT with the socket closed; also without a socket.
    int connect_to_server();

    /// Send the whole text, or the value as one line of JSON, within 5 seconds for each piece that the
    /// peer takes. 0, NM_ERR_SEND, NM_ERR_CLI_SERIALISE.
    int send_to_server(const std::string& message);
    int send_to_server(const Json::Value& message);

    /// Read until the peer closes. A silence of 5 seconds fails, so does an answer that is not complete
    /// after 60 seconds or 16 MiB: a peer that trickles must not hold the lock for ever. The answer takes
    /// the place of what the output holds, on success only; with kNoResponse in it nothing is read.
    /// 0, NM_ERR_RECEIVE, NM_ERR_PARSE.
    int read_from_server(std::string& output);
    int read_from_server(Json::Value& output);

    /// Closes the socket and gives the lock back; what is gone already is left alone. The unlock's result.
    int done();

    /// Whether the traffic is logged.
    void set_debug_mode(bool debug);

private:
    unix_cli(std::string&& lock, std::string&& socket_path);
    void close_socket();

    int32_t debug_ = 0;
    std::string socket_path_;
    std::string lock_path_;
    sockaddr_un address_{};
    int32_t sock_fd_ = 0;  // 0 is "none": done() runs also for clients that never opened one
    int32_t lock_fd_ = -1;
};

/// Makes a client; the caller deletes it. `*cli` must be null (NM_ERR_NOT_NULL). Codes of the constructor.
int create_unix_cli(unix_cli** cli, char* lock, char* socket_path, bool debug);

/// One whole exchange with a peer; `output` as in unix_cli::read_from_server(). The first failure of
/// create_unix_cli(), init(), send_to_server() and read_from_server(); NM_ERR_BAD_TYPE for no such peer.
int deploy_unix_cli(const UNIX_CLI_TYPE& type, std::string& command, std::string& output, bool debug);

/// `retcode` of a reply, 0 if it has none. NM_ERR_CLI_RETCODE if it is above 0; NM_ERR_PARSE for a reply that
/// is not a JSON object or whose `retcode` is not an integer.
int get_retcode(const std::string& reply, bool debug);

#pragma GCC visibility pop
