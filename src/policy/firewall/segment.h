// Segments: named sets of networks, the ipsets "seg-<key up to its first dash>", that firewall rules match
// on.
#pragma once

#include <json/value.h>

#include <string>

#pragma GCC visibility push(default)

/// Makes the ipsets those of `new_config`, an object of lists of networks by key: sets of added keys are
/// created, those of removed keys destroyed with the rules that name them, all others emptied and filled
/// anew. If anything failed, the sets of `old_config` are set up again, each with the last network of its
/// list alone, and the firewall is applied again for the rules that went. Always 0, with `error` as it was:
/// what failed is in the log.
int setup_firewall_segment(Json::Value& old_config, Json::Value& new_config, std::string& error);

#pragma GCC visibility pop
