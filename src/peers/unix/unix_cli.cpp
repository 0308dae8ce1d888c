// One-shot clients of the peer daemons.
#include "peers/unix/unix_cli.h"

#include <fcntl.h>
#include <poll.h>
#include <sys/socket.h>
#include <sys/time.h>
#include <unistd.h>

#include <cerrno>
#include <chrono>
#include <cstdio>
#include <memory>
#include <system_error>
#include <utility>

#include "log.h"
#include "result_codes.h"
#include "utils/call_notes.h"
#include "utils/call_stand_in.h"
#include "utils/handles.h"
#include "utils/json_text.h"
#include "utils/locks.h"

const std::array<unix_cli_row, 3> unix_cli_type{{
    unix_cli_row{"/var/run/network/slaacrrd.sock", "slaacrrd_cli.pyc", "SLAACRRD"},
    unix_cli_row{"/var/run/network/wanipd.sock", "wanipd_cli", "WANIPD"},
    unix_cli_row{"/var/run/network/ncsid.sock", "ncsid_cli", "NCSID"},
}};

namespace {

constexpr int kLimitSeconds = 5;
constexpr std::chrono::seconds kReplyTime{60};
constexpr std::size_t kReplySize = std::size_t{16} << 20;
constexpr std::size_t kPiece = 1024;

std::string describe(int error) {
    return std::generic_category().message(error);
}

std::string text_of(const char* argument) {
    if (argument == nullptr) {
        throw NM_ERR_NULL_ARG;
    }
    return argument;
}

/// Waits until a connection that could not be made at once stands. poll() takes descriptors of any number,
/// which select() does not.
int await_connection(int fd) {
    pollfd wanted{fd, POLLOUT, 0};
    const int ready = poll(&wanted, 1, kLimitSeconds * 1000);
    if (ready < 0 && errno != EINTR) {
        NM_LOG(Error) << "Error Connection! err: " << describe(errno);
        return NM_ERR_NL_CONNECT;
    }
    if (ready < 1) {
        NM_LOG(Error) << "Connection timeout!";
        return NM_ERR_NL_CONNECT;
    }
    int error = 0;
    socklen_t size = sizeof(error);
    if (getsockopt(fd, SOL_SOCKET, SO_ERROR, &error, &size) != 0) {
        NM_LOG(Error) << "Error in getsockopt() " << describe(errno);
        return NM_ERR_NL_CONNECT;
    }
    if (error != 0) {
        NM_LOG(Error) << "Error in delayed connection() " << describe(error);
        return NM_ERR_NL_CONNECT;
    }
    NM_LOG(Debug) << "Connection success!";
    return NM_OK;
}

/// Descriptor 0 means that there is no socket; it is somebody else's.
int connect_socket(int fd, const sockaddr_un& address) {
    if (fd <= 0) {
        NM_LOG(Error) << "Error Connection! err: " << describe(EBADF);
        return NM_ERR_NL_CONNECT;
    }
    if (connect(fd, reinterpret_cast<const sockaddr*>(&address), sizeof(address)) == 0) {
        return NM_OK;
    }
    if (errno != EINPROGRESS) {
        NM_LOG(Error) << "Error Connection! err: " << describe(errno);
        return NM_ERR_NL_CONNECT;
    }
    NM_LOG(Debug) << "Connection could not be completed immediately!";
    return await_connection(fd);
}

/// The limits of send and receive have no effect on a socket that does not block.
bool set_blocking(int fd) {
    const int flags = fcntl(fd, F_GETFL);
    return flags >= 0 && fcntl(fd, F_SETFL, flags & ~O_NONBLOCK) == 0;
}

/// False also for "no socket": descriptor 0 is somebody else's.
bool set_time_limit(int fd, int option) {
    const timeval limit{kLimitSeconds, 0};
    return fd > 0 && setsockopt(fd, SOL_SOCKET, option, &limit, sizeof(limit)) == 0;
}

int send_all(int fd, const std::string& message) {
    std::size_t sent = 0;
    while (sent < message.size()) {
        // Without the flag a peer that has gone ends this process by a signal.
        const ssize_t count = send(fd, message.data() + sent, message.size() - sent, MSG_NOSIGNAL);
        if (count < 0 && errno == EINTR) {
            continue;
        }
        if (count <= 0) {
            NM_LOG(Error) << "send() fail, err: " << describe(errno);
            return NM_ERR_SEND;
        }
        sent += static_cast<std::size_t>(count);
    }
    return NM_OK;
}

int read_all(int fd, std::string& reply) {
    const auto deadline = std::chrono::steady_clock::now() + kReplyTime;
    char piece[kPiece];
    while (reply.size() <= kReplySize && std::chrono::steady_clock::now() < deadline) {
        const ssize_t count = read(fd, piece, sizeof(piece));
        if (count == 0) {
            return NM_OK;
        }
        if (count < 0 && errno != EINTR) {
            NM_LOG(Error) << "read() fail, err: " << describe(errno);
            return NM_ERR_RECEIVE;
        }
        reply.append(piece, count > 0 ? static_cast<std::size_t>(count) : 0);
    }
    NM_LOG(Error) << "Endless reply, given up after " << reply.size() << " bytes.";
    return NM_ERR_RECEIVE;
}

int parse_reply(const std::string& text, Json::Value& reply) {
    if (nm::parse_json(text, reply)) {
        return NM_OK;
    }
    NM_LOG(Error) << "Json parse fail.";
    return NM_ERR_PARSE;
}

int exchange(unix_cli& cli, const std::string& command, std::string& output) {
    int ret = cli.init();
    if (ret != NM_OK) {
        NM_LOG(Error) << "Init unix cli fail!";
        return ret;
    }
    ret = cli.send_to_server(command);
    if (ret != NM_OK) {
        NM_LOG(Error) << "Send to server fail!";
        return ret;
    }
    ret = cli.read_from_server(output);
    if (ret != NM_OK) {
        NM_LOG(Error) << "Receive from server fail!";
    }
    return ret;
}

}  // namespace

unix_cli::unix_cli(std::string&& lock, std::string&& socket_path)
    : socket_path_(std::move(socket_path)), lock_path_(std::move(lock)) {
    address_.sun_family = AF_UNIX;
    if (snprintf(address_.sun_path, sizeof(address_.sun_path), "%s", socket_path_.c_str()) < 0) {
        throw NM_ERR_CLI_FORMAT;
    }
    lock_fd_ = lock_ex(lock_path_.c_str());
    if (lock_fd_ < 0) {
        throw static_cast<int>(lock_fd_);
    }
}

unix_cli::unix_cli(char* lock, char* socket_path) : unix_cli(text_of(lock), text_of(socket_path)) {
}

unix_cli::unix_cli(std::string& lock, std::string& socket_path)
    : unix_cli(std::string(lock), std::string(socket_path)) {
}

unix_cli::~unix_cli() {
    if (done() != NM_OK) {
        NM_LOG(Error) << "done() fail...";
    }
}

int unix_cli::init() {
    int ret = create_sock();
    if (ret != NM_OK) {
        NM_LOG(Error) << "create_sock() fail. Ret: " << ret;
        return ret;
    }
    ret = connect_to_server();
    if (ret != NM_OK) {
        NM_LOG(Error) << "connect_to_server() fail. Ret: " << ret;
    }
    return ret;
}

int unix_cli::create_sock() {
    close_socket();
    nm::FileDescriptor socket(::socket(AF_UNIX, SOCK_STREAM | SOCK_NONBLOCK | SOCK_CLOEXEC, 0));
    if (socket.get() == 0) {
        // The caller has closed its standard input; 0 stands for "none" here.
        socket = nm::FileDescriptor(fcntl(socket.get(), F_DUPFD_CLOEXEC, 1));
    }
    if (!socket) {
        NM_LOG(Error) << "Socket open failed. err: " << describe(errno);
        return NM_ERR_SOCKET;
    }
    sock_fd_ = socket.release();
    return NM_OK;
}

int unix_cli::connect_to_server() {
    int ret = connect_socket(sock_fd_, address_);
    if (ret == NM_OK && !set_blocking(sock_fd_)) {
        NM_LOG(Error) << "Error Connection! err: " << describe(errno);
        ret = NM_ERR_NL_CONNECT;
    }
    if (ret != NM_OK) {
        close_socket();
    }
    return ret;
}

int unix_cli::send_to_server(const std::string& message) {
    if (debug_ != 0) {
        NM_LOG(Debug) << "To " << socket_path_ << ": " << message;
    }
    return set_time_limit(sock_fd_, SO_SNDTIMEO) ? send_all(sock_fd_, message) : NM_ERR_SEND;
}

int unix_cli::send_to_server(const Json::Value& message) {
    const std::string text = nm::write_compact_json(message);
    if (text.empty()) {
        NM_LOG(Error) << "Json fast write fail.";
        return NM_ERR_CLI_SERIALISE;
    }
    return send_to_server(text);
}

int unix_cli::read_from_server(std::string& output) {
    if (output == kNoResponse) {
        NM_LOG(Debug) << "Need not to read from server; return.";
        return NM_OK;
    }
    std::string reply;
    const int ret = set_time_limit(sock_fd_, SO_RCVTIMEO) ? read_all(sock_fd_, reply) : NM_ERR_RECEIVE;
    if (debug_ != 0) {
        NM_LOG(Debug) << "From " << socket_path_ << ": " << reply;
    }
    if (ret == NM_OK) {
        output = std::move(reply);
    }
    return ret;
}

int unix_cli::read_from_server(Json::Value& output) {
    std::string text;
    const int ret = read_from_server(text);
    if (ret != NM_OK) {
        return ret;
    }
    Json::Value reply;
    const int parsed = parse_reply(text, reply);
    if (parsed == NM_OK) {
        output = std::move(reply);
    }
    return parsed;
}

int unix_cli::done() {
    close_socket();
    if (lock_fd_ < 0) {
        return NM_OK;
    }
    const int ret = unlock_ex(std::exchange(lock_fd_, -1), lock_path_.c_str(), false);
    if (ret != NM_OK) {
        NM_LOG(Error) << "UNLOCK_EX fail: " << ret;
    }
    return ret;
}

void unix_cli::set_debug_mode(bool debug) {
    debug_ = debug ? 1 : 0;
}

void unix_cli::close_socket() {
    if (sock_fd_ <= 0) {
        return;
    }
    NM_LOG(Debug) << "Close sock_fd: " << sock_fd_;
    (void)close(std::exchange(sock_fd_, 0));  // nothing that was sent can be lost here: the peer has it
}

int create_unix_cli(unix_cli** cli, char* lock, char* socket_path, bool debug) {
    if (cli == nullptr) {
        NM_LOG(Error) << "Cli is Null pointer.";
        return NM_ERR_NULL_ARG;
    }
    if (*cli != nullptr) {
        NM_LOG(Error) << "Cli is not NULL";
        return NM_ERR_NOT_NULL;
    }
    try {
        *cli = new unix_cli(lock, socket_path);
    } catch (int error) {
        NM_LOG(Error) << "Create unix cli error: " << error;
        return error;
    }
    (*cli)->set_debug_mode(debug);
    return NM_OK;
}

int deploy_unix_cli(const UNIX_CLI_TYPE& type, std::string& command, std::string& output, bool debug) {
    NM_LOG(Debug) << "Enter";
    if (static_cast<std::size_t>(type) >= unix_cli_type.size()) {
        NM_LOG(Error) << "No such peer: " << type;
        return NM_EXIT(NM_ERR_BAD_TYPE);
    }
    const unix_cli_row& peer = unix_cli_type[type];
    if (const nm::CallStandIn& answer = nm::call_stand_in()) {
        return NM_EXIT(answer({"socket", peer.socket_path, "", command}, output) ? NM_OK : NM_ERR_NL_CONNECT);
    }
    const nm::Step step("socket", peer.label, peer.socket_path);
    std::string lock = peer.lock;
    std::string socket_path = peer.socket_path;
    unix_cli* created = nullptr;
    const int ret = create_unix_cli(&created, lock.data(), socket_path.data(), debug);
    const std::unique_ptr<unix_cli> cli(created);
    if (ret != NM_OK) {
        NM_LOG(Error) << "New cli fail!";
        return NM_EXIT(ret);
    }
    return NM_EXIT(step.result(exchange(*cli, command, output)));
}

int get_retcode(const std::string& reply, bool debug) {
    if (debug) {
        NM_LOG(Debug) << "reply: " << reply;
    }
    Json::Value root;
    int retcode = 0;
    if (!nm::parse_json(reply, root) || !nm::json_integer(root, "retcode", 0, retcode)) {
        NM_LOG(Error) << "Json parse fail.";
        return NM_ERR_PARSE;
    }
    return retcode > 0 ? NM_ERR_CLI_RETCODE : retcode;
}
