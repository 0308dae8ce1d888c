// Foreign bytes as /etc/hosts and as the list of name servers: an edit leaves every line that is not its own.
#include <cstdint>
#include <cstdlib>

#include "services/dns/hosts.h"
#include "services/dns/name_servers.h"
#include "services/files/line_file.h"

extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t* bytes, std::size_t size) {
    const std::string text(reinterpret_cast<const char*>(bytes), size);
    const std::string lines = nm::keep_lines(text, [](const std::string& line) { return !line.empty(); });
    const std::string kept = nm::hosts_without(lines, "if", 2).value_or(lines);
    const std::string others = nm::text_without_servers(nm::text_without_servers(text, "o", 2), "o", 10);
    const bool whole =
        nm::hosts_without(nm::hosts_with(text, "192.0.2.1  a  a  #if"), "if", 2) == kept &&
        nm::split_lines(nm::hosts_renamed(text, "b")).size() == nm::split_lines(lines).size() &&
        nm::text_without_servers(nm::text_with_servers(others, {"192.0.2.1"}, "o"), "o", 2) == others;
    if (!whole) {
        std::abort();
    }
    return 0;
}
