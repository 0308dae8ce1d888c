// What every rehearsal does: it takes from the device what a copy needs, plays apart from it, and brings a
// report back.
#pragma once

#include <json/value.h>

#include <functional>
#include <string>

#include "inspect/rehearsal_calls.h"
#include "inspect/rehearsal_place.h"
#include "inspect/world.h"
#include "utils/secrets.h"

namespace nm {

/// What is taken of the device before the copy is made.
struct Original {
    WorldSource source;
    RouteDumps dumps;
    Things units;
    DeviceFacts facts;
    SharedSettings settings;
};

/// What is played, in the child, until its report is there; `output` is the descriptor that gets what is
/// printed.
using Play = std::function<Json::Value(const Original& original, int output)>;

/// Takes the original, and plays in a child process. 0, with what the play reports; NM_ERR_NOMEM;
/// NM_ERR_SERVICE with the `reason` in the report, and nothing else.
int play_apart(const Play& play, Json::Value& report);

/// For the play: what the request returns, with its targets and the errors that it logs.
Json::Value answer_to(const std::function<int()>& request);

/// For the play: the world as it is when nothing moves any more. The kernel finishes some of a change in the
/// background, as it does on the device: carriers and addresses of their own that follow.
World look_when_settled();

/// What the copy has otherwise than the device, as a list of changes; `copy` is how it was before the play.
Json::Value unlike_device(const Original& original, World copy);

/// What the request and its commands have printed. They share the descriptor's place in it, which stays.
std::string printed_text(int output);

/// From now on the secrets of the documents are masked, of the stored ones and of those in force.
void learn_documents(secret_words& secrets);

/// Masks the secrets in lines of files, in a list of changes.
void mask_options(Json::Value& changes);

}  // namespace nm
