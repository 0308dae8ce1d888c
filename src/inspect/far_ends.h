// The far ends of the cables of a copy: they send what comes to the device, take what it sends, and answer
// when it asks for the link address of a neighbour.
#pragma once

#include <cstdint>
#include <string>
#include <vector>

#include "utils/handles.h"

namespace nm {

/// What came out of a device, from its IP header on.
struct Arrival {
    uint32_t cable;  ///< index of the device
    std::string packet;
};

class FarEnds {
public:
    /// Throws std::runtime_error if there are none.
    FarEnds();

    int fd() const { return socket_.get(); }

    /// Sends an IP packet to the link address `to` of a device, tagged as its VLANs have it.
    void send(uint32_t cable, const std::vector<uint32_t>& tags, const std::string& to,
              const std::string& packet);

    /// Answers who is asked for, and returns what else has come.
    std::vector<Arrival> receive();

private:
    struct Frame;
    bool receive_frame(Frame& frame);
    void answer_arp(const Frame& frame);
    void answer_solicitation(const Frame& frame);
    void reply(const Frame& frame, const std::string& link_address, const std::string& payload);
    std::string link_address(int index) const;
    uint32_t cable_of(int index) const;
    int index_of(uint32_t cable) const;

    FileDescriptor socket_;
};

}  // namespace nm
