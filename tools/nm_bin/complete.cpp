// What the shell completes words to.
#include <networkinterface.h>

#include <iostream>
#include <set>

#include "nm_bin/commands.h"
#include "nm_bin/places.h"

namespace nm_bin {

namespace {

using Words = std::set<std::string>;

Words command_names() {
    Words names;
    for (const Command& command : commands()) {
        names.emplace(command.name);
    }
    for (const Entry& entry : entries()) {
        names.emplace(entry.name);
    }
    return names;
}

/// The commands that another one is about.
Words names_for(bool (*is_taken)(const std::string& name)) {
    Words names;
    for (const std::string& name : command_names()) {
        if (is_taken(name)) {
            names.insert(name);
        }
    }
    return names;
}

Words stored_names() {
    const std::vector<std::string> names = target_names(read_documents());
    return {names.begin(), names.end()};
}

Words choices(const Member& member) {
    Words words;
    if (member.kind == ValueKind::Choice) {
        std::vector<std::string> list;
        split_into_vector(std::string(member.range), '|', list);
        words.insert(list.begin(), list.end());
    } else if (!member.fallback.empty() &&
               member.fallback.find_first_not_of("0123456789.") == std::string::npos) {
        words.emplace(member.fallback);
    }
    return words;
}

/// The members that entries of these families have, or the values of one of them.
Words member_words(const std::vector<const Family*>& owners, const Arguments& words, size_t first) {
    const bool is_value = (words.size() - first) % 2 == 0;
    Words result;
    for (const Family* const family : owners) {
        for (const Member& member : members()) {
            const bool is_fixed_here = member.is_fixed && words[0] == "set";
            if (!has_member(*family, member) || is_fixed_here) {
                continue;
            }
            if (!is_value) {
                result.emplace(member.name);
            } else if (member.name == words[words.size() - 2]) {
                result.merge(choices(member));
            }
        }
    }
    return result;
}

Words set_words(const Arguments& words) {
    if (words.size() == 2) {
        return stored_names();
    }
    const Documents documents = read_documents();
    std::vector<const Family*> owners;
    for (const Place& place : find_places(documents, words[1])) {
        owners.push_back(place.family);
    }
    return member_words(owners, words, 2);
}

Words kinds() {
    Words words;
    for (const Family& family : families()) {
        words.emplace(family.kind);
    }
    return words;
}

Words add_words(const Arguments& words) {
    if (words.size() == 2) {
        return kinds();
    }
    if (words.size() == 3) {
        return words[1] == "dhcp" ? stored_names() : Words{"PORT"};
    }
    std::vector<const Family*> owners;
    for (const Family& family : families()) {
        if (family.kind == words[1]) {
            owners.push_back(&family);
        }
    }
    return member_words(owners, words, 3);
}

Words code_words() {
    Words words;
    for (const ResultCode& row : kResultCodes) {
        words.emplace(std::to_string(row.code));
        words.emplace(row.name);
    }
    return words;
}

Words delete_words(const Arguments& words) {
    Words names = stored_names();
    if (words.size() == 2) {
        names.merge(kinds());
    }
    return names;
}

Words document_words(const Arguments&) {
    const std::vector<std::string> names = migrated_documents();
    return {names.begin(), names.end()};
}

Words name_words(const Arguments& words) {
    return words.size() == 2 ? stored_names() : Words();
}

Words device_words(const Arguments& words) {
    return words[words.size() - 2] == "--in" ? stored_names() : Words();
}

/// What follows a command; commands that are not here take files or nothing.
struct Follower {
    std::string_view command;
    Words (*words)(const Arguments& words);
};

constexpr Follower kFollowers[] = {
    {"set", set_words},          {"add", add_words},
    {"delete", delete_words},    {"show", name_words},
    {"log", name_words},         {"codes", [](const Arguments&) { return code_words(); }},
    {"check", document_words},   {"migrate", document_words},
    {"changes", document_words}, {"explain", device_words},
};

Words options_of(const std::string& command) {
    Words words{"--json", "--help"};
    if (command.empty()) {
        words.merge(Words{"--text", "--version"});
    }
    for (const Command& row : commands()) {
        if (row.name == command) {
            words.merge(
                Words{"--text", "--dry-run", "--follow", "--lines", "--watch", "--picture", "--out", "--in"});
        }
    }
    return words;
}

/// Behind `plan` and `trace` the words are those of the command that they are about.
Words candidates(Arguments words) {
    const std::string about = words.size() > 1 && (words[0] == "plan" || words[0] == "trace") ? words[0] : "";
    const bool is_option = words.back().rfind('-', 0) == 0;
    if (!about.empty() && words.size() == 2 && !is_option) {
        return names_for(about == "plan" ? is_rehearsed : is_traced);
    }
    words.erase(words.begin(), words.begin() + (!about.empty() && words.size() > 2 ? 1 : 0));
    if (words.back().rfind('-', 0) == 0 && words[0] != "codes") {
        return options_of(words.size() == 1 ? "" : words[0]);
    }
    if (words.size() == 1) {
        return command_names();
    }
    for (const Follower& follower : kFollowers) {
        if (follower.command == words[0]) {
            return follower.words(words);
        }
    }
    return {};
}

}  // namespace

int complete(const Arguments& words, const Options& /*options*/) {
    for (const std::string& candidate : candidates(words.empty() ? Arguments{""} : words)) {
        const std::string& begun = words.empty() ? "" : words.back();
        if (candidate.rfind(begun, 0) == 0) {
            std::cout << candidate << "\n";
        }
    }
    return kExitOk;
}

}  // namespace nm_bin
