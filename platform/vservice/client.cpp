// The calling side of the bus.
#include "channel.h"
#include "frame.h"
#include "io.h"
#include "vservice.h"

namespace {

using namespace vservice;

int call(const std::string& service, const std::string& method, vs_io& io, const Deadline& deadline) {
    if (!is_method_name(method)) {
        return -EINVAL;
    }
    if (io.text.size() > kMaxText) {
        return -EMSGSIZE;
    }
    Descriptor connection;
    if (const int result = connect_service(service, deadline, connection); result != 0) {
        return result;
    }
    std::string request;
    append_frame(request, method);
    append_frame(request, io.text);
    if (const int result = send_all(connection.get(), request, deadline); result != 0) {
        return result;
    }
    return receive_frame(connection.get(), kMaxText, deadline, io.text);
}

}  // namespace

int vs_call(const char* service, const char* method, vs_io* io, int timeout_seconds, int /*flags*/) {
    if (service == nullptr || method == nullptr || io == nullptr || timeout_seconds <= 0) {
        return -EINVAL;
    }
    const Deadline deadline{std::chrono::seconds(timeout_seconds)};
    return without_exceptions([&] { return call(service, method, *io, deadline); });
}
