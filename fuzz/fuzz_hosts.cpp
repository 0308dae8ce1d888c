// Foreign bytes as /etc/hosts and as the list of name servers: an edit leaves every line that is not its own.

#include "services/dns/hosts.h"
#include "services/dns/name_servers.h"
#include "services/files/line_file.h"
#include "target.h"

bool holds(const std::string& input) {
    const std::string lines = nm::keep_lines(input, [](const std::string& line) { return !line.empty(); });
    const std::string kept = nm::hosts_without(lines, "if", 2).value_or(lines);
    const std::string others = nm::text_without_servers(nm::text_without_servers(input, "o", 2), "o", 10);
    return nm::hosts_without(nm::hosts_with(input, "192.0.2.1  a  a  #if"), "if", 2) == kept &&
           nm::split_lines(nm::hosts_renamed(input, "b")).size() == nm::split_lines(lines).size() &&
           nm::text_without_servers(nm::text_with_servers(others, {"192.0.2.1"}, "o"), "o", 2) == others;
}
