// Making changes: request, store, keep what undoes them.
#include "nm_bin/apply_edit.h"

#include <fcntl.h>
#include <json/writer.h>
#include <networkinterface.h>
#include <sys/stat.h>
#include <unistd.h>

#include <algorithm>
#include <iostream>

#include "nm_bin/explain.h"
#include "nm_bin/secrets.h"
#include "nm_bin/watch.h"

namespace nm_bin {

namespace {

constexpr const char* kLockName = "nm_bin.edit";
constexpr const char* kUndoPath = "/etc/networkmanagement/nm_bin.undo";
constexpr const char* kRunningPath = "/var/run/network/device_info.curr";

/// The lock that keeps editors apart for the whole of an edit, not just for a write.
class EditLock {
public:
    EditLock() : handle_(lock_ex(kLockName)) {}
    EditLock(const EditLock&) = delete;
    EditLock& operator=(const EditLock&) = delete;
    ~EditLock() {
        if (handle_ >= 0) {
            (void)unlock_ex(handle_, kLockName, false);
        }
    }
    int code() const { return std::min(handle_, 0); }

private:
    int handle_;
};

/// The library builds the old state from the stored document, so the new one lies elsewhere until it is in
/// force.
std::string staged_path(const std::string& path) {
    return "/var/run/network/" + path.substr(path.rfind('/') + 1) + ".edit";
}

unsigned act_of(const Change& change) {
    if (change.before.isNull()) {
        return ACT_ADD;
    }
    return change.after.isNull() ? ACT_DEL : ACT_ALT;
}

bool holds(const std::string& path, const Json::Value& document) {
    const std::optional<Json::Value> written = read_document(path);
    return written && Json::FastWriter().write(*written) == Json::FastWriter().write(document);
}

/// A document in a file of root's alone, since it may hold passwords. The library's write keeps the mode, and
/// tells nothing of a failure, so what was written is read again.
int write_privately(const std::string& path, Json::Value document) {
    (void)unlink(path.c_str());  // it need not be there
    const int fd = open(path.c_str(), O_WRONLY | O_CREAT | O_EXCL | O_CLOEXEC, S_IRUSR | S_IWUSR);
    if (fd < 0) {
        return NM_ERR_WRITE;
    }
    (void)close(fd);
    const int code = json_mem_to_file(path, document, true);
    return code != NM_OK || holds(path, document) ? code : NM_ERR_WRITE;
}

/// An object, whose sections that people edit are objects as well.
bool is_sound(const std::string& path, const Json::Value& document) {
    return document.isObject() &&
           std::all_of(families().begin(), families().end(), [&](const Family& family) {
               const Json::Value section = document.get(std::string(family.section), Json::Value());
               return family.document != path || section.isNull() || section.isObject();
           });
}

/// The document without its stored form's loss: one that cannot be read is never replaced.
int load(const std::string& path, Json::Value& document) {
    struct stat file {};
    if (stat(path.c_str(), &file) != 0 || file.st_size == 0) {
        document = Json::Value(Json::objectValue);
        return NM_OK;
    }
    const int code = json_file_to_mem(path, document);
    if (code < 0) {
        return code;
    }
    learn_secrets(document);
    return is_sound(path, document) ? NM_OK : NM_ERR_BAD_FORMAT;
}

int load_all(Documents& documents, std::string& complaint) {
    for (const Family& family : families()) {
        const std::string path(family.document);
        const int code = documents.count(path) != 0 ? NM_OK : load(path, documents[path]);
        if (code == NM_ERR_BAD_FORMAT) {
            complaint = path + " or one of its sections is not an object; nm_bin check shows where";
        }
        if (code < 0) {
            return code;
        }
    }
    return NM_OK;
}

/// Deletions first, what lies on devices before these; then the rest, devices first.
void put_in_order(std::vector<Change>& changes) {
    const auto rank = [](const Change& change) {
        const int place = static_cast<int>(change.place.family->id);
        return change.after.isNull() ? -1 - place : 1 + place;
    };
    std::stable_sort(changes.begin(), changes.end(),
                     [rank](const Change& a, const Change& b) { return rank(a) < rank(b); });
}

std::vector<std::string> documents_of(const std::vector<Change>& changes) {
    std::vector<std::string> paths;
    for (const Change& change : changes) {
        const std::string path(change.place.family->document);
        if (std::find(paths.begin(), paths.end(), path) == paths.end()) {
            paths.push_back(path);
        }
    }
    return paths;
}

int stage(const Documents& documents, const std::vector<Change>& changes) {
    for (const std::string& path : documents_of(changes)) {
        Json::Value document = documents.at(path);
        apply_changes(changes, path, document);
        const int code = write_privately(staged_path(path), document);
        if (code < 0) {
            return code;
        }
    }
    return NM_OK;
}

int request(const Place& place, unsigned act, unsigned ops, const std::string& path) {
    Json::Value request;
    Json::Value& member = request[place.key];
    member["act"] = act;
    member["ops"] = ops;
    member["path"] = path;
    Arguments words{Json::FastWriter().write(request)};
    return find_entry(std::string(place.family->entry))->run(words);
}

/// Requests one change after the other until one fails; `done` counts those that have been tried.
int request_all(const std::vector<Change>& changes, size_t& done) {
    for (const Change& change : changes) {
        ++done;
        const std::string path = staged_path(std::string(change.place.family->document));
        const int code = request(change.place, act_of(change), change.ops, path);
        if (code < 0) {
            return code;
        }
    }
    return NM_OK;
}

/// What cannot be put back in words; empty if it could. The library deletes what is stored, so nothing takes
/// an addition down.
std::string put_back(const Change& change) {
    const Place& place = change.place;
    const unsigned act = act_of(change);
    if (act == ACT_ADD) {
        return "what has been set up of " + place.key + " stays until the next boot";
    }
    const std::string path(place.family->document);
    const int code = act == ACT_DEL ? request(place, ACT_ADD, place.family->add_ops, path)
                                    : request(place, ACT_ALT, change.ops, path);
    return code < 0 ? "the old state of " + place.key + " could not be put back" : "";
}

/// Puts back what has been changed, the failed one too, since nothing says how far it came. Not watched: the
/// results that count are those of the edit.
void put_back(const std::vector<Change>& changes, size_t done) {
    nm_watch_calls(nullptr);
    for (size_t i = done; i-- > 0;) {
        const std::string left = put_back(changes[i]);
        if (!left.empty()) {
            std::cerr << "nm_bin: " << left << "\n";
        }
    }
}

/// Whether the document of that path gets a secret which it has not had at that place.
bool brings_secret(const std::string& path, const std::vector<Change>& changes) {
    return std::any_of(changes.begin(), changes.end(), [&path](const Change& change) {
        const bool is_here = change.place.family->document == path && !change.after.isNull();
        const std::vector<std::string> keys =
            is_here ? change.after.getMemberNames() : std::vector<std::string>();
        return std::any_of(keys.begin(), keys.end(), [&change](const std::string& key) {
            return is_secret_key(key) && change.before.get(key, Json::Value()) != change.after[key];
        });
    });
}

/// A document that is not there yet may come to hold passwords: it is root's alone from the beginning. One
/// that is there is no longer for everybody when it gets one; its group is the administrator's choice.
/// Whether the file was made here.
bool protect(const std::string& path, bool gets_secret) {
    const int fd = open(path.c_str(), O_WRONLY | O_CREAT | O_EXCL | O_CLOEXEC, S_IRUSR | S_IWUSR);
    if (fd >= 0) {
        (void)close(fd);
    }
    struct stat file {};
    if (gets_secret && stat(path.c_str(), &file) == 0) {
        (void)chmod(path.c_str(), file.st_mode & ALLPERMS & ~S_IRWXO);  // where this fails, so does the write
    }
    return fd >= 0;
}

void remove_empty(const std::string& path) {
    struct stat file {};
    if (stat(path.c_str(), &file) == 0 && file.st_size == 0) {
        (void)unlink(path.c_str());  // an empty document counts as none
    }
}

int store_in(const std::string& path, const std::vector<Change>& changes) {
    Json::Value document;
    const int code = load(path, document);  // anew: others than editors may have written meanwhile
    if (code < 0) {
        return code;
    }
    const Json::Value before = document;
    apply_changes(changes, path, document);
    if (document == before) {
        return NM_OK;
    }
    const bool is_new = protect(path, brings_secret(path, changes));
    const int written = json_mem_to_file(path, document, false);
    const int result = written != NM_OK || holds(path, document) ? written : NM_ERR_WRITE;
    if (result != NM_OK && is_new) {
        remove_empty(path);
    }
    return result;
}

/// Takes out of a document what a store has put into it; what it never reached, or others have put back
/// since, stays.
int take_back(const std::string& path, const std::vector<Change>& changes) {
    Documents stored;
    const int code = load(path, stored[path]);
    if (code < 0) {
        return code;
    }
    std::vector<Change> back;
    for (const Change& change : changes) {
        if (entry_at(stored, change.place).isNull() == change.after.isNull()) {
            back.push_back({change.place, change.after, change.before, change.ops});
        }
    }
    return store_in(path, back);
}

/// The copy of what is in force follows, where there is one.
void note_running(const std::vector<Change>& changes) {
    std::optional<Json::Value> running = read_document(kRunningPath);
    if (running && is_sound(kDeviceInfoPath, *running) && !running->empty()) {
        apply_changes(changes, kDeviceInfoPath, *running);
        (void)protect(kRunningPath, brings_secret(kDeviceInfoPath, changes));  // it is there
        (void)json_mem_to_file(kRunningPath, *running, true);  // logged; the change itself is made
    }
}

/// In all documents or in none. Those from which a failed store could not be taken back are added to `mixed`.
int store(const std::vector<Change>& changes, std::vector<std::string>& mixed) {
    const std::vector<std::string> paths = documents_of(changes);
    size_t tried = 0;
    int code = NM_OK;
    while (tried < paths.size() && code == NM_OK) {
        code = store_in(paths[tried++], changes);
    }
    if (code == NM_OK) {
        note_running(changes);
        return NM_OK;
    }
    std::copy_if(paths.begin(), paths.begin() + static_cast<std::ptrdiff_t>(tried), std::back_inserter(mixed),
                 [&](const std::string& path) { return take_back(path, changes) != NM_OK; });
    return code;
}

void keep_for_undo(const std::vector<Change>& changes) {
    Json::Value record;
    Json::Value& rows = record["changes"] = Json::Value(Json::arrayValue);
    for (const Change& change : changes) {
        Json::Value& row = rows.append(Json::objectValue);
        row["entry"] = std::string(change.place.family->entry);
        row["key"] = change.place.key;
        row["ops"] = change.ops;
        row["before"] = change.before;
        row["after"] = change.after;
    }
    if (write_privately(kUndoPath, record) != NM_OK) {
        std::cerr << "nm_bin: " << kUndoPath << " could not be written: this change cannot be undone\n";
    }
}

/// The new state comes into force, then into the documents.
int carry_out(const Documents& documents, const std::vector<Change>& changes,
              std::vector<std::string>& mixed) {
    int code = stage(documents, changes);
    if (code < 0) {
        return code;
    }
    size_t done = 0;
    code = request_all(changes, done);
    const bool is_untouched = code == NM_ERR_LOCK && done == 1;
    code = code < 0 ? code : store(changes, mixed);
    if (code < 0 && !is_untouched) {
        put_back(changes, done);
    }
    if (code < 0) {
        return code;
    }
    keep_for_undo(changes);
    return NM_OK;
}

void remove_staged(const std::vector<Change>& changes) {
    for (const std::string& path : documents_of(changes)) {
        (void)unlink(staged_path(path).c_str());  // it may never have been written
    }
}

/// Which state is stored after a failure.
void report_stored(const std::vector<std::string>& mixed) {
    for (const std::string& path : mixed) {
        std::cerr << "nm_bin: " << path << " may hold the new state: the old one could not be written back\n";
    }
    if (mixed.empty()) {
        std::cerr << "The stored documents are as they were.\n";
    }
}

int finish(const Outcome& outcome, const std::vector<Change>& changes, const std::vector<std::string>& mixed,
           const Options& options) {
    if (!options.json && !changes.empty() && !outcome.has_failed()) {
        print_changes(changes, options);
    }
    print_result(outcome, options);
    const int status = explain(outcome);
    if (status != kExitOk) {
        report_stored(mixed);
    }
    return status;
}

std::string with_mask(const std::string& key, const Json::Value& value) {
    std::string text =
        value.isConvertibleTo(Json::stringValue) ? value.asString() : Json::FastWriter().write(value);
    text.erase(text.find_last_not_of('\n') + 1);
    return is_secret_key(key) && !text.empty() ? kMask : text;
}

void add_rows(const Change& change, Table& table) {
    std::vector<std::string> keys =
        change.before.isNull() ? change.after.getMemberNames() : change.before.getMemberNames();
    for (const std::string& key : change.after.isNull() ? keys : change.after.getMemberNames()) {
        if (std::find(keys.begin(), keys.end(), key) == keys.end()) {
            keys.push_back(key);
        }
    }
    for (const std::string& key : keys) {
        const Json::Value before = change.before.isObject() ? change.before[key] : Json::Value();
        const Json::Value after = change.after.isObject() ? change.after[key] : Json::Value();
        if (before != after) {
            table.add({std::string(change.place.family->section), change.place.key, key,
                       with_mask(key, before), with_mask(key, after)});
        }
    }
}

}  // namespace

void print_changes(const std::vector<Change>& changes, const Options& options) {
    Table table({"section", "target", "key", "before", "after"});
    for (const Change& change : changes) {
        add_rows(change, table);
    }
    table.print(options);
}

int edit_documents(const Plan& plan, const Options& options) {
    if (const std::optional<Cause> obstacle = find_obstacle()) {
        return explain_obstacle(*obstacle);
    }
    INITIALIZE_LOG("MAIN");
    std::string complaint;
    std::vector<Change> changes;
    std::vector<std::string> mixed;
    bool is_requested = false;
    const Outcome outcome = watch_call([&] {
        const EditLock lock;
        Documents documents;
        int code = lock.code() < 0 ? lock.code() : load_all(documents, complaint);
        code = code < 0 ? code : plan(documents, changes, complaint);
        is_requested = code == NM_OK && complaint.empty() && !changes.empty() && !options.dry_run;
        if (!is_requested) {
            return code;
        }
        put_in_order(changes);
        const int result = carry_out(documents, changes, mixed);
        remove_staged(changes);
        return result;
    });
    if (!complaint.empty()) {
        return outcome.has_failed() ? failure(complaint) : usage_error(complaint);
    }
    if (options.dry_run && !outcome.has_failed()) {
        print_changes(changes, options);
        return kExitOk;
    }
    if (!is_requested && !outcome.has_failed()) {
        std::cerr << "Nothing to change.\n";
    }
    return finish(outcome, changes, mixed, options);
}

namespace {

/// A change as keep_for_undo() writes it, turned round; nothing if the row is something else.
std::optional<Change> read_row(const Json::Value& row) {
    const auto is_entry = [](const Json::Value& value) { return value.isNull() || value.isObject(); };
    const bool is_change = row.isObject() && row["entry"].isString() && row["key"].isString() &&
                           row["ops"].isUInt() && is_entry(row["before"]) && is_entry(row["after"]);
    const Family* const family = is_change ? family_of_entry(row["entry"].asString()) : nullptr;
    if (family == nullptr) {
        return std::nullopt;
    }
    return Change{{family, row["key"].asString()}, row["after"], row["before"], row["ops"].asUInt()};
}

}  // namespace

int plan_undo(const Documents& documents, std::vector<Change>& changes, std::string& complaint) {
    const Json::Value record = read_document(kUndoPath).value_or(Json::Value());
    const Json::Value rows = record.isObject() ? record.get("changes", Json::arrayValue) : Json::Value();
    bool is_damaged = !rows.isArray();
    for (size_t i = 0; !is_damaged && i < rows.size(); ++i) {
        const std::optional<Change> change = read_row(rows[static_cast<Json::ArrayIndex>(i)]);
        is_damaged = !change;
        if (change && entry_at(documents, change->place) != change->before) {
            complaint = change->place.key + " has been changed since: there is nothing to undo";
        }
        if (change) {
            changes.push_back(*change);
        }
    }
    if (is_damaged) {
        complaint = std::string(kUndoPath) + " is damaged: the last change cannot be undone; remove the file";
    } else if (changes.empty()) {
        complaint = "there is nothing to undo";
    }
    return complaint.empty() ? NM_OK : NM_ERR_BAD_VALUE;
}

}  // namespace nm_bin
