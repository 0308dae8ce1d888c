// Switches of the netfilter match `condition`.
#include "kernel/condition.h"

#include <fcntl.h>

#include "utils/file_io.h"

namespace nm {

std::string condition_path(const std::string& name) {
    return "/proc/net/nf_condition/" + name;
}

FileDescriptor open_condition(const std::string& name) {
    return FileDescriptor::open(condition_path(name).c_str(), O_WRONLY | O_TRUNC);
}

bool set_condition(FileDescriptor& condition, bool on) {
    return write_all(condition.get(), on ? "1" : "0");
}

}  // namespace nm
