// Request texts through the request layer, with a family that touches nothing: a code comes back whatever the
// text is. The only document there is lies in memory; texts that name another one are not run.
#include <sys/mman.h>
#include <unistd.h>

#include "control/setup_frame.h"
#include "target.h"
#include "utils/json_text.h"

bool holds(const std::string& text) {
    static const nm::RequestFamily family{[](std::string, uint32_t act, uint32_t, std::string, Json::Value) {
                                              return act == 1 ? 0 : NM_ERR_BAD_ACT;
                                          },
                                          {[](std::string) -> int { throw NM_ERR_SERVICE; }}};
    constexpr int kDocument = 99;  // the corpus names it
    static const bool ready =
        dup2(memfd_create("document", 0), kDocument) > 0 && write(kDocument, "{}", 2) == 2;
    Json::Value root;
    const bool is_parsed = nm::parse_json(text.c_str(), root, true) && root.isObject() && !root.empty();
    const std::string path = is_parsed ? nm::json_string_or(*root.begin(), "path", "") : "";
    const bool is_harmless = path.empty() || path == "/proc/self/fd/99" || path == "/no/such";
    return ready && (!is_harmless || nm::run_request(text.c_str(), family) <= 0);
}
