// Foreign bytes as a key=value file, which lies in memory. What was read must read back after it was written.
#include <sys/mman.h>
#include <unistd.h>

#include <cstdint>
#include <cstdlib>

#include "config/nmconfig.h"

extern "C" int LLVMFuzzerTestOneInput(const uint8_t* bytes, size_t size) {
    static const int file = memfd_create("conf", 0);
    static const std::string path = "/proc/self/fd/" + std::to_string(file);
    if (ftruncate(file, 0) != 0 || pwrite(file, bytes, size, 0) != static_cast<ssize_t>(size)) {
        abort();
    }
    std::unordered_map<std::string, std::string> read;
    std::unordered_map<std::string, std::string> again;
    const bool is_whole = ini_conf_read(path, read) == 0 && ini_conf_write(path, read) == 0 &&
                          ini_conf_read(path, again) == 0 && again == read;
    return is_whole ? 0 : (abort(), 0);
}
