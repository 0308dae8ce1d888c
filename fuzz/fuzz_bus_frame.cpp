// Foreign bytes through the bus's frame decoder. The first byte sets the size of the pieces in which the
// rest arrives; a frame that comes out whole must encode to the bytes that went in.

#include "frame.h"
#include "target.h"

bool holds(const std::string& input) {
    const std::string_view bytes = std::string_view(input).substr(input.empty() ? 0 : 1);
    const std::size_t piece = input.empty() ? 1 : static_cast<unsigned char>(input[0]) + std::size_t{1};
    vservice::FrameDecoder decoder(vservice::kMaxMethod * 16);
    std::size_t taken = 0;
    while (taken < bytes.size() && decoder.wanted() > 0) {
        taken += decoder.feed(bytes.substr(taken, piece));
    }
    if (!decoder.complete()) {
        return true;
    }
    std::string encoded;
    const std::string text = decoder.take_text();
    vservice::append_frame(encoded, text);
    return encoded == bytes.substr(0, taken) &&
           (!vservice::is_method_name(text) || text.find('"') == text.npos);
}
