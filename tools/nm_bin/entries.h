// The library's exported entries as commands.
#pragma once

#include <string>
#include <string_view>
#include <vector>

namespace nm_bin {

using Arguments = std::vector<std::string>;

/// An entry of the library. `arguments` are the words behind its name as the usage shows them; each has a
/// kind of its own, which says how a word is checked.
struct Entry {
    std::string_view name;
    std::string_view arguments;
    int (*run)(Arguments& words);
    std::string_view help;
};

const std::vector<Entry>& entries();

/// The entry of this name, null if there is none.
const Entry* find_entry(const std::string& name);

/// Checks the words against the entry's arguments and puts the text of a request in the place of what names
/// it: a file, standard input. Empty, or what is wrong.
std::string take_arguments(const Entry& entry, Arguments& words);

/// Applies the document at the first path in place of the one at the second, where it then lies with what the
/// apply has noted in it. Without that file nothing has been applied before.
int apply_firewall_document(Arguments& words);
int apply_policy_document(Arguments& words);
int apply_segment_document(Arguments& words);
int apply_dnat_document(Arguments& words);
int apply_static_route_document(Arguments& words);
int apply_static_route6_document(Arguments& words);

}  // namespace nm_bin
