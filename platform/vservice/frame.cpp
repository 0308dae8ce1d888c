// Encoding and decoding of the bus's frames. No input or output happens here.
#include "frame.h"

#include <algorithm>

namespace vservice {

namespace {

bool is_method_character(char c) {
    return (c >= 'a' && c <= 'z') || (c >= 'A' && c <= 'Z') || (c >= '0' && c <= '9') || c == '_' ||
           c == '.' || c == '-';
}

}  // namespace

void append_frame(std::string& out, std::string_view text) {
    for (int shift = 24; shift >= 0; shift -= 8) {
        out.push_back(static_cast<char>((text.size() >> shift) & 0xff));
    }
    out.append(text);
}

bool is_method_name(std::string_view name) {
    return !name.empty() && name.size() <= kMaxMethod &&
           std::all_of(name.begin(), name.end(), is_method_character);
}

std::size_t FrameDecoder::wanted() const {
    if (header_size_ < kHeaderSize) {
        return kHeaderSize - header_size_;
    }
    return failed() ? 0 : length_ - text_.size();
}

std::size_t FrameDecoder::feed(std::string_view bytes) {
    std::size_t taken = 0;
    while (taken < bytes.size() && wanted() > 0) {
        const std::string_view piece = bytes.substr(taken, wanted());
        if (header_size_ < kHeaderSize) {
            feed_header(piece);
        } else {
            text_.append(piece);
        }
        taken += piece.size();
    }
    return taken;
}

void FrameDecoder::feed_header(std::string_view bytes) {
    for (const char byte : bytes) {
        length_ = length_ << 8 | static_cast<unsigned char>(byte);
    }
    header_size_ += bytes.size();
}

}  // namespace vservice
