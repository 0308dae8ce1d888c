// Entries run for people: what a request leaves out is warned of, what fails is explained.
#pragma once

#include <string>

#include "nm_bin/console.h"
#include "nm_bin/entries.h"

namespace nm_bin {

/// Checks the words, runs the entry and prints its result; the exit status.
int run_entry(const Entry& entry, Arguments words, const Options& options);

}  // namespace nm_bin
