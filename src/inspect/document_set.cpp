// The reading of documents, and places in them.
#include "inspect/document_set.h"

#include <sys/stat.h>

#include <algorithm>
#include <cerrno>
#include <cstring>

#include "control/migrate_documents.h"
#include "utils/file_io.h"
#include "utils/files.h"
#include "utils/json_text.h"

namespace nm {

namespace {

constexpr const char* kStore = "/etc/networkmanagement/";

/// What a word names: the document, and the file if it is not the stored one.
struct Named {
    std::string document;
    std::string file;
};

std::string base_name(const std::string& path) {
    return path.substr(path.rfind('/') + 1);
}

Named read_word(const std::string& word) {
    const size_t sign = word.find('=');
    if (sign != std::string::npos && word.find('/') > sign) {
        return {word.substr(0, sign), word.substr(sign + 1)};
    }
    const std::string base = base_name(word);
    const bool is_file = word.find_first_of("/.") != std::string::npos;
    return {base.substr(0, base.find('.')), is_file ? word : ""};
}

/// The place of the name that stands before a member's value; the value's own if there is none.
size_t name_before(const std::string& text, size_t value) {
    constexpr const char* kBlanks = " \t\r\n";
    size_t at = value == 0 ? std::string::npos : text.find_last_not_of(kBlanks, value - 1);
    if (at == std::string::npos || at == 0 || text[at] != ':') {
        return value;
    }
    at = text.find_last_not_of(kBlanks, at - 1);
    if (at == std::string::npos || at == 0 || text[at] != '"') {
        return value;
    }
    for (size_t open = text.rfind('"', at - 1); open != std::string::npos && open > 0;
         open = text.rfind('"', open - 1)) {
        const size_t before = text.find_last_not_of('\\', open - 1);
        const size_t escapes = open - 1 - (before == std::string::npos ? -1 : before);
        if (escapes % 2 == 0) {
            return open;
        }
    }
    return value;
}

const Json::Value* child_of(const Json::Value& value, const std::string& token) {
    if (value.isObject()) {
        return value.find(token.data(), token.data() + token.size());
    }
    constexpr size_t kDigits = 9;
    const bool is_index = value.isArray() && !token.empty() && token.size() <= kDigits &&
                          token.find_first_not_of("0123456789") == std::string::npos;
    const Json::ArrayIndex index = is_index ? static_cast<Json::ArrayIndex>(std::stoul(token)) : 0;
    return is_index && index < value.size() ? &value[index] : nullptr;
}

/// Why a file that is there is not read; empty for one that can be. A pipe is what a shell gives for <(...).
std::string unreadable_kind(const struct stat& file) {
    constexpr off_t kLargest = 64L << 20;
    if (!S_ISREG(file.st_mode) && !S_ISFIFO(file.st_mode)) {
        return "it is not a file";
    }
    return file.st_size > kLargest ? "it is larger than 64 MiB" : "";
}

}  // namespace

DocumentSet::DocumentSet(const std::vector<std::string>& words) {
    for (const std::string& name : migrated_documents()) {
        CheckedDocument document;
        document.name = name;
        document.path = kStore + name + ".json";
        document.is_asked = words.empty();
        documents_.push_back(document);
    }
    for (const std::string& word : words) {
        take_word(word);
    }
    for (CheckedDocument& document : documents_) {
        if (document.state != DocumentState::Unknown) {
            read(document);
        }
    }
}

void DocumentSet::take_word(const std::string& word) {
    const Named named = read_word(word);
    const auto known =
        std::find_if(documents_.begin(), documents_.end(), [&named](const CheckedDocument& document) {
            return document.name == named.document && document.state != DocumentState::Unknown;
        });
    if (known == documents_.end()) {
        CheckedDocument document;
        document.name = named.document;
        document.path = named.file.empty() ? word : named.file;
        document.state = DocumentState::Unknown;
        document.reason = "no document has this name";
        document.is_asked = true;
        documents_.push_back(document);
        return;
    }
    known->is_asked = true;
    known->path = named.file.empty() ? known->path : named.file;
}

void DocumentSet::read(CheckedDocument& document) {
    struct stat file {};
    const int reason = stat(document.path.c_str(), &file) == 0 ? 0 : errno;
    // A file that is not there is fine if nobody has named it.
    const bool is_stored = document.path == kStore + document.name + ".json";
    if (reason == ENOENT && is_stored) {
        return;
    }
    document.state = DocumentState::Unreadable;
    document.reason = reason != 0 ? strerror(reason) : unreadable_kind(file);
    if (!document.reason.empty()) {
        return;
    }
    errno = 0;
    const std::optional<std::string> text = read_file(document.path);
    document.reason = text ? "" : strerror(errno);
    document.state = text ? DocumentState::Checked : DocumentState::Unreadable;
    document.text = text.value_or("");
}

const CheckedDocument* DocumentSet::find(const std::string& name) const {
    const auto found =
        std::find_if(documents_.begin(), documents_.end(),
                     [&name](const CheckedDocument& document) { return document.name == name; });
    return found != documents_.end() ? &*found : nullptr;
}

const Json::Value& DocumentSet::root(const std::string& name) const {
    const CheckedDocument* const document = find(name);
    return document != nullptr ? document->root : Json::Value::nullSingleton();
}

LineIndex::LineIndex(const std::string& text) : text_(text), begins_{0} {
    for (size_t end = text.find('\n'); end != std::string::npos; end = text.find('\n', end + 1)) {
        begins_.push_back(end + 1);
    }
}

/// Bytes that go on with a character of UTF-8 are 10xxxxxx.
TextPosition LineIndex::position(size_t offset) const {
    const size_t place = std::min(offset, text_.size());
    const auto next = std::upper_bound(begins_.begin(), begins_.end(), place);
    const size_t begin = *(next - 1);
    const auto first = text_.begin() + static_cast<std::ptrdiff_t>(begin);
    const auto last = text_.begin() + static_cast<std::ptrdiff_t>(place);
    const auto characters =
        std::count_if(first, last, [](char c) { return (static_cast<unsigned char>(c) & 0xc0) != 0x80; });
    return {static_cast<size_t>(next - begins_.begin()), static_cast<size_t>(characters) + 1};
}

std::vector<std::string> pointer_tokens(const std::string& pointer) {
    std::vector<std::string> tokens;
    for (const char c : pointer) {
        if (c == '/') {
            tokens.emplace_back();
        } else if (!tokens.empty()) {
            std::string& token = tokens.back();
            const bool is_escaped = !token.empty() && token.back() == '~' && (c == '0' || c == '1');
            is_escaped ? void(token.back() = c == '0' ? '\x7f' : '/') : token.push_back(c);
        }
    }
    for (std::string& token : tokens) {
        std::replace(token.begin(), token.end(), '\x7f', '~');
    }
    return tokens;
}

size_t offset_of(const std::string& text, const Json::Value& root, const std::string& pointer) {
    const Json::Value* value = &root;
    for (const std::string& token : pointer_tokens(pointer)) {
        const Json::Value* const child = child_of(*value, token);
        if (child == nullptr) {
            break;
        }
        value = child;
    }
    const auto offset = static_cast<size_t>(std::max<ptrdiff_t>(value->getOffsetStart(), 0));
    return value->isObject() || value->isArray() ? name_before(text, offset) : offset;
}

}  // namespace nm
