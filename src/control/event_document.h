// The document by which an event of a port is worked.
#pragma once

#include <json/value.h>

#include <string>

namespace nm {

struct EventDocument {
    std::string path;
    Json::Value root;
};

/// The document that knows the port `ifname` as the reporter of an event does, with the type `type` under the
/// key `type_key`: the stored one, or that at `other`, which the reporter was started for, if the caller of
/// its setup stores afterwards. 0; NM_ERR_BAD_TYPE if neither does; the code of reading the stored one.
int find_event_document(const std::string& ifname, const char* type_key, const std::string& type,
                        const std::string& other, EventDocument& document);

}  // namespace nm
