// The writing of documents, in one step each.
#include "config/document_file.h"

#include <fcntl.h>
#include <sys/stat.h>
#include <unistd.h>

#include <cstdio>

#include "log.h"
#include "peers/bus/service_bus.h"
#include "result_codes.h"
#include "utils/call_notes.h"
#include "utils/file_io.h"
#include "utils/files.h"
#include "utils/handles.h"
#include "utils/json_text.h"

namespace {

/// A document that only some may read, since it holds passwords, stays so while it is replaced: the new file
/// has its access before it has content. What a killed writer left may have another.
void make_as_private(const std::string& path, const std::string& beside) {
    (void)unlink(beside.c_str());  // It need not be there.
    struct stat present = {};
    if (stat(path.c_str(), &present) != 0) {
        return;
    }
    const auto file =
        nm::FileDescriptor::open(beside.c_str(), O_WRONLY | O_CREAT | O_EXCL, S_IRUSR | S_IWUSR);
    if (!file || !nm::take_over_access(file.get(), present)) {
        NM_LOG(Error) << "Cannot set the mode of " << beside;
    }
}

/// The `.tmp` file next to `path`, complete and on the disk. The lock of writeValue() hides its failures, so
/// the file itself is asked: a cut-off text must never be renamed over a good document.
int write_beside(const std::string& path, const std::string& beside, const std::string& text) {
    NM_LOG(Debug) << "Saving " << beside;
    make_as_private(path, beside);
    if (writeValue(beside, text, true) != NM_OK || nm::sync_to_disk(beside, text.size()) != NM_OK) {
        NM_LOG(Error) << "Save JSON into file failed.";
        return NM_ERR_WRITE;
    }
    NM_LOG(Debug) << "JSON Length: " << text.size();
    if (rename(beside.c_str(), path.c_str()) != 0) {
        NM_LOG(Error) << "Move file " << beside << " to " << path << " failed";
        return NM_ERR_WRITE;
    }
    return NM_OK;
}

}  // namespace

namespace nm {

int replace_document(const std::string& path, const Json::Value& value) {
    const Step step("document", "store", path);
    const std::string text = write_compact_json(value);
    if (text.empty()) {
        NM_LOG(Error) << "JSON dump to buffer failed";
        return NM_ERR_WRITE;
    }
    return write_beside(path, path + ".tmp", text);
}

int edit_document(const std::string& path, const std::function<int(Json::Value& document)>& edit) {
    sync_file(path);
    const LockGuard lock(path);
    if (lock.handle() < 0) {
        return lock.handle();
    }
    Json::Value document;
    if (is_file_exists(path) && !parse_json(read_file(path).value_or(""), document)) {
        NM_LOG(Error) << path << " is not JSON";
        return NM_ERR_PARSE;
    }
    const Json::Value before = document;
    const int ret = edit(document);
    if (ret < 0 || document == before) {
        return ret;
    }
    const int written = replace_document(path, document);
    if (written == NM_OK) {
        sync_file(path);
    }
    return written;
}

}  // namespace nm
