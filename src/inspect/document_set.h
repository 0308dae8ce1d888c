// The documents of one check: the stored ones, and files that are to take the place of some of them. They are
// read as files, without locks and without a change of anything.
#pragma once

#include <json/value.h>

#include <cstddef>
#include <map>
#include <string>
#include <vector>

namespace nm {

/// `Unknown` is a file whose name is not one of a document.
enum class DocumentState { Checked, Absent, Unreadable, Unknown };

/// A document as it was read. `is_asked` if findings in it are wanted; `reason` says why it was not read.
struct CheckedDocument {
    std::string name;
    std::string path;
    DocumentState state = DocumentState::Absent;
    std::string reason;
    bool is_asked = false;
    std::string text;
    Json::Value root;
};

/// Line and column (in characters) of a place in a text, both from 1.
struct TextPosition {
    size_t line = 1;
    size_t column = 1;
};

class DocumentSet {
public:
    /// Each word is the name of a stored document ("firewall"), or a file that is to take its place: one
    /// whose base name begins with that name and a dot ("./firewall.json"), or "firewall=FILE". No word
    /// stands for all stored documents.
    explicit DocumentSet(const std::vector<std::string>& words);

    /// The value of a document; null if it is absent or cannot be read.
    const Json::Value& root(const std::string& name) const;

    bool has(const std::string& name) const { return !root(name).isNull(); }

    /// The document of this name, null if there is none.
    const CheckedDocument* find(const std::string& name) const;

    std::vector<CheckedDocument>& all() { return documents_; }
    const std::vector<CheckedDocument>& all() const { return documents_; }

private:
    void take_word(const std::string& word);
    void read(CheckedDocument& document);

    std::vector<CheckedDocument> documents_;
};

/// Where lines of a text begin.
class LineIndex {
public:
    explicit LineIndex(const std::string& text);
    TextPosition position(size_t offset) const;

private:
    const std::string& text_;
    std::vector<size_t> begins_;
};

/// The place of the value that a JSON pointer names in the text that `root` was read from: of a member that
/// is an object or a list, that of its name. A pointer to what is not there has the place of the nearest
/// value above.
size_t offset_of(const std::string& text, const Json::Value& root, const std::string& pointer);

/// The names between the slashes of a JSON pointer.
std::vector<std::string> pointer_tokens(const std::string& pointer);

}  // namespace nm
