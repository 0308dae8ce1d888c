// Frames of the service bus: a text behind its length in four bytes, big-endian. A request is two frames,
// the method's name and the body; a reply is one.
#pragma once

#include <cstddef>
#include <string>
#include <string_view>
#include <utility>

namespace vservice {

constexpr std::size_t kHeaderSize = 4;
constexpr std::size_t kMaxText = std::size_t{16} << 20;
constexpr std::size_t kMaxMethod = 255;

/// Appends `text`, at most kMaxText bytes, to `out` as one frame.
void append_frame(std::string& out, std::string_view text);

/// True for 1 to kMaxMethod letters, digits and `_ . -`: the only names that may stand in a method frame,
/// so that a name can be put into a reply or a log as it is.
bool is_method_name(std::string_view name);

/// Puts one frame together from bytes as they arrive. Memory follows the bytes received, never the length
/// that the header announces.
class FrameDecoder {
public:
    explicit FrameDecoder(std::size_t limit) : limit_(limit) {}

    /// Takes bytes up to the end of the frame and returns how many; 0 once complete or failed.
    std::size_t feed(std::string_view bytes);

    /// Bytes that surely belong to this frame; 0 once it is complete or failed.
    std::size_t wanted() const;

    bool complete() const { return header_size_ == kHeaderSize && !failed() && text_.size() == length_; }
    /// The announced length is over the limit.
    bool failed() const { return length_ > limit_; }
    std::string take_text() { return std::move(text_); }

private:
    void feed_header(std::string_view bytes);

    std::size_t limit_;
    std::size_t header_size_ = 0;
    std::size_t length_ = 0;
    std::string text_;
};

}  // namespace vservice
