// A caller whose request is on its way. The bus hears all of them from one thread, so that those that stall
// take up nobody's place.
#pragma once

#include <string>
#include <utility>

#include "channel.h"
#include "frame.h"

namespace vservice {

class Caller {
public:
    Caller(Descriptor connection, const Deadline& deadline)
        : connection_(std::move(connection)), deadline_(deadline) {}

    enum class State { Waiting, Complete, Gone };

    /// Takes what has arrived, without waiting for more. Gone are callers that hung up, send garbage or
    /// announce too much, and those whose time is over.
    State receive();

    int fd() const { return connection_.get(); }
    const Deadline& deadline() const { return deadline_; }

    /// What a complete request consists of; once only.
    Descriptor take_connection() { return std::move(connection_); }
    std::string take_method() { return std::move(method_); }
    std::string take_body() { return frame_.take_text(); }

private:
    /// Goes on to the body once the method is known; false for a frame that cannot be.
    bool is_sound();

    Descriptor connection_;
    Deadline deadline_;
    std::string method_;
    FrameDecoder frame_{kMaxMethod};
};

}  // namespace vservice
