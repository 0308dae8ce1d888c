// The buffer calls of the bus.
#include "io.h"

#include <algorithm>
#include <cstdarg>
#include <cstdio>
#include <new>

#include "vservice.h"

using vservice::without_exceptions;

namespace {

int append_formatted(std::string& text, const char* format, va_list arguments) {
    va_list measured;
    va_copy(measured, arguments);
    const int length = std::vsnprintf(nullptr, 0, format, measured);
    va_end(measured);
    if (length < 0) {
        return -1;
    }
    const std::size_t old_size = text.size();
    const auto added = static_cast<std::size_t>(length);
    text.resize(old_size + added);
    // A string has room for its terminator, so the one that vsnprintf writes falls on it.
    std::vsnprintf(text.data() + old_size, added + 1, format, arguments);
    return length;
}

int resize(std::string& text, std::size_t size) {
    if (size == 0) {
        std::string().swap(text);
        return 0;
    }
    text.resize(std::min(text.size(), size));
    text.reserve(size);
    return 0;
}

int minus_one_on_failure(int result) {
    return result < 0 ? -1 : result;
}

}  // namespace

vs_io* vs_io_create(void) {
    return new (std::nothrow) vs_io;
}

void vs_io_free(vs_io* io) {
    delete io;
}

int vs_io_printf(vs_io* io, const char* format, ...) {
    if (io == nullptr || format == nullptr) {
        return -1;
    }
    va_list arguments;
    va_start(arguments, format);
    const int result = without_exceptions([&] { return append_formatted(io->text, format, arguments); });
    va_end(arguments);
    return minus_one_on_failure(result);
}

int vs_io_realloc(vs_io* io, size_t size) {
    if (io == nullptr) {
        return -1;
    }
    return minus_one_on_failure(without_exceptions([&] { return resize(io->text, size); }));
}

int vs_io_write(vs_io* io, const char* text, size_t length) {
    if (io == nullptr || (text == nullptr && length > 0)) {
        return -1;
    }
    if (length == 0) {
        return 0;
    }
    return minus_one_on_failure(without_exceptions([&] { return io->text.append(text, length), 0; }));
}

size_t vs_io_read(vs_io* io, char** text) {
    const size_t length = io == nullptr ? 0 : io->text.size();
    if (text != nullptr) {
        *text = length == 0 ? nullptr : io->text.data();
    }
    return length;
}
