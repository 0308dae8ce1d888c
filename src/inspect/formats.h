// The forms of texts that the schemas name by `format`, judged by what the setups judge with.
#pragma once

#include <cstdint>
#include <string>

namespace nm {

/// Whether `text` has the form `format` of a schema. A form that is not known here fits any text.
bool has_format(const std::string& format, const std::string& text);

/// The number at the beginning of a text, as atoi(3) reads it; 0 if there is none, and the largest or
/// smallest int for what does not fit.
long leading_number(const std::string& text);

/// An IPv4 address in host order; false for what is not one.
bool read_ip4(const std::string& text, uint32_t& address);

/// "A", "A/LENGTH" or "A/MASK" as restore commands read it, all of one network.
struct Network4 {
    uint32_t first = 0;
    uint32_t last = 0;
};
bool read_network4(const std::string& text, Network4& network);

/// The network of an address with this prefix length, 1 to 32.
Network4 network_of(uint32_t address, int prefix);

inline bool overlap(const Network4& a, const Network4& b) {
    return a.first <= b.last && b.first <= a.last;
}

/// An IPv4 address as text.
std::string show_ip4(uint32_t address);

}  // namespace nm
