// The name servers' file and its edits.
#include "services/dns/name_servers.h"

#include <errno.h>
#include <fcntl.h>
#include <string.h>
#include <sys/socket.h>
#include <unistd.h>

#include <algorithm>
#include <sstream>

#include "log.h"
#include "result_codes.h"
#include "services/files/line_file.h"
#include "utils/file_io.h"
#include "utils/handles.h"
#include "utils/ip_text.h"

namespace {

const std::string kServerPrefix = "nameserver ";
const std::string kOwnerPrefix = " #ID=";

std::string server_line(const std::string& server, const std::string& id) {
    return kServerPrefix + server + kOwnerPrefix + id;
}

bool ends_with(const std::string& text, const std::string& end) {
    return text.size() >= end.size() && text.compare(text.size() - end.size(), end.size(), end) == 0;
}

/// The address in a line that begins as a name server's does, empty for any other line.
std::string address_of(const std::string& line) {
    std::string address;
    if (line.compare(0, kServerPrefix.size(), kServerPrefix) == 0) {
        std::istringstream(line.substr(kServerPrefix.size())) >> address;
    }
    return address;
}

bool is_of_family(const std::string& address, unsigned char family) {
    return (family == AF_INET && is_valid_ip(address.c_str())) ||
           (family == AF_INET6 && is_valid_ip6(address.c_str()));
}

std::string new_lines(const std::vector<std::string>& servers, const std::string& id) {
    std::string text;
    for (const std::string& server : servers) {
        if (!nm::is_one_word(server) || check_ip_correctness(server) != NM_OK) {
            continue;
        }
        const std::string line = server_line(server, id) + "\n";
        if (text.find(line) != std::string::npos) {
            NM_LOG(Debug) << "skip duplicate nameserver: " << server;
            continue;
        }
        NM_LOG(Debug) << "Add nameserver: " << server;
        text += line;
    }
    return text;
}

int insert_locked(const std::vector<std::string>& servers, const std::string& id) {
    std::string text;
    int ret = nm::read_text(nm::kNameServersPath, text);
    if (ret == NM_OK) {
        ret = nm::replace_text(nm::kNameServersPath, nm::text_with_servers(text, servers, id));
    }
    if (ret == NM_OK) {
        NM_LOG(Debug) << "Add GLOBAL DNS server success.";
    }
    return ret;
}

/// The text is no longer than the old one, a missing last line end aside. So it goes over the old text before
/// the rest is cut off, and not into an emptied file that a full disk would leave empty.
int write_in_place(const std::string& path, const std::string& text) {
    const auto file = nm::FileDescriptor::open(path.c_str(), O_WRONLY);
    if (!file) {
        NM_LOG(Error) << "open to write " << path << " file failed";
        return NM_ERR_OPEN;
    }
    if (!nm::write_all(file.get(), text) || ftruncate(file.get(), static_cast<off_t>(text.size())) != 0) {
        const int reason = errno;
        NM_LOG(Error) << "Write file " << path << " failed: " << strerror(reason);
        return NM_ERR_WRITE;
    }
    return NM_OK;
}

int remove_locked(const std::string& id, unsigned char family) {
    const std::optional<std::string> text = nm::read_file(nm::kNameServersPath);
    if (!text) {
        NM_LOG(Error) << "open to read " << nm::kNameServersPath << " file failed";
        return NM_ERR_OPEN;
    }
    const int ret = write_in_place(nm::kNameServersPath, nm::text_without_servers(*text, id, family));
    if (ret == NM_OK) {
        NM_LOG(Debug) << "Remove DNS server success.";
    }
    return ret;
}

}  // namespace

namespace nm {

std::string text_with_servers(const std::string& text, const std::vector<std::string>& servers,
                              const std::string& id) {
    return new_lines(servers, id) + keep_lines(text, [&](const std::string& line) {
               const bool replaced = std::any_of(servers.begin(), servers.end(), [&](const auto& server) {
                   return line == server_line(server, id);
               });
               if (replaced) {
                   NM_LOG(Debug) << "skip duplicate line: " << line;
               }
               return !replaced && !line.empty();
           });
}

std::string text_without_servers(const std::string& text, const std::string& id, unsigned char family) {
    return keep_lines(text, [&](const std::string& line) {
        if (line.find(kServerPrefix) == std::string::npos) {
            return false;
        }
        const std::string address = ends_with(line, kOwnerPrefix + id) ? address_of(line) : "";
        const bool removed = is_of_family(address, family);
        if (removed) {
            NM_LOG(Debug) << "Remove " << address;
        }
        return !removed;
    });
}

}  // namespace nm

int insert_dns_server(std::vector<std::string> servers, std::string id) {
    NM_LOG(Debug) << "Enter";
    if (servers.empty()) {
        return NM_EXIT(NM_OK);
    }
    if (!nm::is_one_word(id)) {
        NM_LOG(Error) << "Bad owner of name servers: " << id;
        return NM_EXIT(NM_ERR_BAD_FORMAT);
    }
    const nm::LockGuard lock(nm::kNameServersLock);
    return NM_EXIT(lock.handle() < 0 ? lock.handle() : insert_locked(servers, id));
}

int remove_dns_server(std::string id, unsigned char family) {
    NM_LOG(Debug) << "Enter";
    const nm::LockGuard lock(nm::kNameServersLock);
    return NM_EXIT(lock.handle() < 0 ? lock.handle() : remove_locked(id, family));
}
