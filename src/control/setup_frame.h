// The frame of every setup call, written once: an entry that shields the caller, a request layer that parses
// and loops over the targets, and a target layer (interfaces/common/target.h) that works one of them. A
// family of ports, information objects or services is a row for each layer.
#pragma once

#include <json/value.h>

#include <cstdint>
#include <functional>
#include <string>
#include <vector>

#include "interfaces/common/target.h"

namespace nm {

using TargetFunction = int (*)(std::string name, uint32_t act, uint32_t opt, std::string path,
                               Json::Value cfg);
using FollowUp = int (*)(std::string path);

/// What a family's request layer calls: the target layer for each member, then, if a port came, went or
/// changed its rates, the work that depends on the set of uplinks.
struct RequestFamily {
    TargetFunction target;
    std::vector<FollowUp> follow_ups;
};

/// The request layer. The document is the `path` of the first member; the result is that of the last member.
/// NM_ERR_NULL_ARG for a null text; NM_ERR_PARSE; NM_ERR_BAD_FORMAT for a root or member of the wrong form;
/// the code of loading the document.
int run_request(const char* json, const RequestFamily& family);

/// The request as an object. NM_ERR_NULL_ARG for a null text; NM_ERR_PARSE; NM_ERR_BAD_FORMAT.
int parse_request(const char* json, Json::Value& root);

/// What one member of a request for a section says; 0 and an empty path for what it leaves out.
struct SectionMember {
    std::string name;
    uint32_t act = 0;
    uint32_t ops = 0;
    std::string path;
};

/// NM_ERR_BAD_FORMAT, logged, for a member of the wrong form.
int read_section_member(Json::Value::const_iterator entry, SectionMember& member);

/// The target layer of a family of services, which reads its document itself.
using SectionTarget = int (*)(std::string name, uint32_t act, uint32_t opt, std::string path);

/// The request layer of services: each member has a `path` of its own, and no document is loaded. The result
/// is that of the last member. NM_ERR_NULL_ARG; NM_ERR_PARSE; NM_ERR_BAD_FORMAT.
int run_section_request(const char* json, SectionTarget target);

/// The entry layer: sets up the log and keeps exceptions inside. `signature` is the entry's
/// __PRETTY_FUNCTION__, `category` that of its log: "MAIN", or "API" for entries that only read.
int run_entry(const char* signature, const std::function<int()>& request, const char* category = "MAIN");

}  // namespace nm
