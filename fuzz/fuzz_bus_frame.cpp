// Foreign bytes through the bus's frame decoder. The first byte sets the size of the pieces in which the
// rest arrives; a frame that comes out whole must encode to the bytes that went in.
#include <cstdint>
#include <cstdlib>

#include "frame.h"

extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t* bytes, std::size_t size) {
    if (size == 0) {
        return 0;
    }
    const std::string_view input(reinterpret_cast<const char*>(bytes) + 1, size - 1);
    const std::size_t piece = bytes[0] + std::size_t{1};
    vservice::FrameDecoder decoder(vservice::kMaxMethod * 16);
    std::size_t taken = 0;
    while (taken < input.size() && decoder.wanted() > 0) {
        taken += decoder.feed(input.substr(taken, piece));
    }
    if (decoder.complete()) {
        std::string encoded;
        const std::string text = decoder.take_text();
        vservice::append_frame(encoded, text);
        if (encoded != input.substr(0, taken) ||
            (vservice::is_method_name(text) && text.find('"') != text.npos)) {
            std::abort();
        }
    }
    return 0;
}
