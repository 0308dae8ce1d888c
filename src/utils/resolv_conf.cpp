// The resolver's configuration.
#include "utils/resolv_conf.h"

#include <optional>
#include <string_view>

#include "log.h"
#include "result_codes.h"
#include "utils/containers.h"
#include "utils/file_io.h"
#include "utils/files.h"

int resolv_conf_dns_to_vector(std::vector<std::string>& servers) {
    constexpr std::string_view kKeyword = "nameserver ";
    constexpr const char* kPath = "/etc/resolv.conf";
    const std::optional<std::string> text = nm::read_file(kPath);
    if (!text) {
        NM_LOG(Error) << "Cannot open " << kPath;
        return NM_ERR_OPEN;
    }
    std::vector<std::string> lines;
    split_into_vector(*text, '\n', lines);
    for (const std::string& line : lines) {
        std::vector<std::string> words;
        if (line.compare(0, kKeyword.size(), kKeyword) == 0) {
            split_into_vector(line.substr(kKeyword.size()), ' ', words);
        }
        if (!words.empty()) {
            servers.push_back(words.front());
        }
    }
    return NM_OK;
}
