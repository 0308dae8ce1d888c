// The serving side of the bus: one thread hears all callers, and each whole request gets a thread of its own,
// in a fixed number of places. So neither stalled callers nor a crowd of them hold up the others or use the
// process up.
#include <fcntl.h>
#include <poll.h>
#include <sys/eventfd.h>
#include <sys/file.h>
#include <sys/socket.h>
#include <sys/stat.h>

#include <cerrno>
#include <cstdio>
#include <list>
#include <map>
#include <memory>
#include <string>
#include <thread>
#include <vector>

#include "caller.h"
#include "channel.h"
#include "frame.h"
#include "io.h"
#include "vservice.h"

using namespace vservice;

struct vs_server {
    Descriptor claim;  ///< Lock file, held for life: it tells a socket that is served from a left-over one.
    Descriptor listener;
    Descriptor stop;    ///< Event that is readable from the stop on.
    Descriptor places;  ///< Semaphore of the connections that may still be taken.
    std::string socket_path;
    std::map<std::string, vs_method> methods;
};

namespace {

constexpr std::uint64_t kPlaces = 64;
constexpr std::size_t kWaiting = 128;  ///< Callers that are heard at a time; one more displaces the oldest.
constexpr std::chrono::seconds kCallerPatience{10};
constexpr int kBacklog = 128;

int claim_name(const std::string& service, vs_server& server) {
    if (mkdir(kSocketDirectory, 0755) != 0 && errno != EEXIST) {
        return -errno;
    }
    const std::string path = std::string(kSocketDirectory) + "/" + service + ".lock";
    server.claim = Descriptor(open(path.c_str(), O_RDWR | O_CREAT | O_CLOEXEC | O_NOFOLLOW, 0600));
    if (!server.claim) {
        return -errno;
    }
    if (flock(server.claim.get(), LOCK_EX | LOCK_NB) != 0) {
        return errno == EWOULDBLOCK ? -EADDRINUSE : -errno;
    }
    return 0;
}

// The socket gets its real name only when it listens and is closed to others: whoever sees the name can
// call, and a socket that an earlier server left behind is replaced in one move.
int listen_as(const std::string& service, const sockaddr_un& address, vs_server& server) {
    sockaddr_un unpublished;
    (void)make_address(service + ".new", unpublished);  // shorter than the published one, so it fits
    unlink(unpublished.sun_path);
    server.listener = Descriptor(socket(AF_UNIX, SOCK_STREAM | SOCK_CLOEXEC | SOCK_NONBLOCK, 0));
    const int fd = server.listener.get();
    if (fd < 0 || bind(fd, reinterpret_cast<sockaddr*>(&unpublished), sizeof unpublished) != 0 ||
        chmod(unpublished.sun_path, 0600) != 0 || listen(fd, kBacklog) != 0 ||
        rename(unpublished.sun_path, address.sun_path) != 0) {
        return -errno;
    }
    server.socket_path = address.sun_path;
    return 0;
}

int set_up(const std::string& service, vs_server& server) {
    sockaddr_un address;
    if (!is_service_name(service)) {
        return -EINVAL;
    }
    if (const int result = make_address(service + ".sock", address); result != 0) {
        return result;
    }
    server.stop = Descriptor(eventfd(0, EFD_CLOEXEC | EFD_NONBLOCK));
    server.places = Descriptor(eventfd(kPlaces, EFD_CLOEXEC | EFD_SEMAPHORE));
    if (!server.stop || !server.places) {
        return -errno;
    }
    const int result = claim_name(service, server);
    return result != 0 ? result : listen_as(service, address, server);
}

void take_place(const vs_server& server) {
    eventfd_t taken = 0;
    while (eventfd_read(server.places.get(), &taken) != 0 && errno == EINTR) {
    }
}

void give_places(const vs_server& server, std::uint64_t count) {
    eventfd_write(server.places.get(), count);
}

int answer_unknown(vs_io& io, const std::string& method) {
    io.text = "{\"error\":-1,\"data\":\"unknown method " + method + "\"}";
    return vs_reply(&io);
}

int serve(const vs_server& server, Caller caller) {
    const std::string method = caller.take_method();
    Descriptor connection = caller.take_connection();
    auto io = std::make_unique<vs_io>(vs_io{caller.take_body(), connection.get()});
    const auto row = server.methods.find(method);
    if (row == server.methods.end()) {
        return answer_unknown(*io, method);
    }
    return row->second(io.release(), connection.release());
}

// Gives the caller a thread. Without one, or without memory, the connection just closes.
void dispatch(const vs_server& server, Caller caller) {
    take_place(server);
    try {
        std::thread([&server, caller = std::move(caller)]() mutable {
            (void)without_exceptions([&] { return serve(server, std::move(caller)); });
            give_places(server, 1);
        }).detach();
    } catch (const std::exception&) {
        give_places(server, 1);
    }
}

bool is_passing(int error) {
    return error == EAGAIN || error == EINTR || error == ECONNABORTED;
}

bool is_shortage(int error) {
    return error == EMFILE || error == ENFILE || error == ENOBUFS || error == ENOMEM;
}

/// Those who wait: for the rest of their request, or with a whole one for a place.
class WaitingRoom {
public:
    explicit WaitingRoom(const vs_server& server) : server_(server) {}

    /// 0 after a stop; a negative errno.
    int open_until_stop() {
        int result = 0;
        while (result == 0 && (result = watch()) == 0 && watched_[kStop].revents == 0) {
            hear();
            result = watched_[kListener].revents != 0 ? admit() : 0;
            while (!whole_.empty() && has_place()) {
                send_in();
            }
        }
        return result;
    }

    /// Whoever has sent a whole request until now still gets a place, also those that stand at the door.
    void send_in_the_last() {
        pollfd door{server_.listener.get(), POLLIN, 0};
        while (poll(&door, 1, 0) == 1 && admit() == 0) {
        }
        for (auto caller = callers_.begin(); caller != callers_.end();) {
            sort_in(caller++);
        }
        while (!whole_.empty()) {
            send_in();
        }
    }

private:
    enum { kStop, kListener, kPlace, kCallers };

    int watch() {
        const auto events_if = [](bool wanted) { return static_cast<short>(wanted ? POLLIN : 0); };
        watched_ = {{server_.stop.get(), POLLIN, 0},
                    {server_.listener.get(), events_if(whole_.size() < kWaiting), 0},
                    {server_.places.get(), events_if(!whole_.empty()), 0}};
        for (const Caller& caller : callers_) {
            watched_.push_back({caller.fd(), POLLIN, 0});
        }
        // All have the same time, so that of the oldest is over first.
        const int limit = callers_.empty() ? -1 : callers_.front().deadline().remaining_ms();
        while (poll(watched_.data(), watched_.size(), limit) < 0) {
            if (errno != EINTR) {
                return -errno;
            }
        }
        return 0;
    }

    void hear() {
        std::size_t row = kCallers;
        for (auto caller = callers_.begin(); caller != callers_.end();) {
            const auto current = caller++;
            const bool is_due = watched_[row++].revents != 0 || current->deadline().remaining_ms() == 0;
            is_due ? sort_in(current) : void();
        }
    }

    void sort_in(std::list<Caller>::iterator caller) {
        switch (caller->receive()) {
            case Caller::State::Waiting:
                return;
            case Caller::State::Complete:
                return whole_.splice(whole_.end(), callers_, caller);
            case Caller::State::Gone:
                callers_.erase(caller);
        }
    }

    int admit() {
        Descriptor connection(accept4(server_.listener.get(), nullptr, nullptr, SOCK_CLOEXEC));
        if (!connection) {
            return refuse(errno);
        }
        if (peer_is_root(connection.get())) {
            callers_.emplace_back(std::move(connection), Deadline(kCallerPatience));
            sort_in(std::prev(callers_.end()));
        }
        if (callers_.size() > kWaiting) {
            callers_.pop_front();
        }
        return 0;
    }

    int refuse(int error) {
        if (is_shortage(error)) {
            // The caller stays in the queue, so the listener would wake us again at once.
            callers_.empty() ? std::this_thread::sleep_for(std::chrono::milliseconds(50))
                             : callers_.pop_front();
            return 0;
        }
        return is_passing(error) ? 0 : -error;
    }

    bool has_place() const {
        pollfd place{server_.places.get(), POLLIN, 0};
        return poll(&place, 1, 0) == 1;
    }

    void send_in() {
        dispatch(server_, std::move(whole_.front()));
        whole_.pop_front();
    }

    const vs_server& server_;
    std::list<Caller> callers_;
    std::list<Caller> whole_;
    std::vector<pollfd> watched_;
};

// From the first step on nobody can connect any more, so that what has come in before the second is all.
int open_and_close(vs_server& server) {
    WaitingRoom room(server);
    const int result = room.open_until_stop();
    unlink(std::exchange(server.socket_path, "").c_str());
    room.send_in_the_last();
    return result;
}

// A thread gives its place back as its last act, so all places together mean that no thread is left.
void wait_for_requests(const vs_server& server) {
    for (std::uint64_t place = 0; place < kPlaces; ++place) {
        take_place(server);
    }
    give_places(server, kPlaces);
}

int reply(vs_io& io) {
    if (io.reply_socket < 0) {
        return -ENOTCONN;
    }
    if (io.text.size() > kMaxText) {
        return -EMSGSIZE;
    }
    std::string frame;
    append_frame(frame, io.text);
    return send_all(std::exchange(io.reply_socket, -1), frame, Deadline(kCallerPatience));
}

}  // namespace

int vs_reply(vs_io* io) {
    if (io == nullptr) {
        return -EINVAL;
    }
    return without_exceptions([&] { return reply(*io); });
}

vs_server* vs_server_create(const char* service) {
    std::unique_ptr<vs_server> server(new (std::nothrow) vs_server);
    const int result = without_exceptions([&] {
        return service == nullptr ? -EINVAL : server == nullptr ? -ENOMEM : set_up(service, *server);
    });
    if (result == 0) {
        return server.release();
    }
    server.reset();
    errno = -result;
    return nullptr;
}

int vs_server_add_method(vs_server* server, const char* name, vs_method method) {
    if (server == nullptr || name == nullptr || method == nullptr || !is_method_name(name)) {
        return -EINVAL;
    }
    return without_exceptions([&] { return server->methods.emplace(name, method).second ? 0 : -EEXIST; });
}

int vs_server_run(vs_server* server) {
    if (server == nullptr) {
        return -EINVAL;
    }
    const int result = without_exceptions([&] { return open_and_close(*server); });
    server->listener = Descriptor();
    wait_for_requests(*server);
    return result;
}

void vs_server_stop(vs_server* server) {
    const int saved_errno = errno;
    if (server != nullptr) {
        eventfd_write(server->stop.get(), 1);
    }
    errno = saved_errno;
}

void vs_server_free(vs_server* server) {
    if (server != nullptr && !server->socket_path.empty()) {
        unlink(server->socket_path.c_str());
    }
    delete server;
}
