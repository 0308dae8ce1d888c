// Documents that are read again and again in one run, parsed once.
#pragma once

#include <json/value.h>
#include <sys/stat.h>

#include <functional>
#include <map>
#include <string>

namespace nm {

/// While the object lives, what this thread reads by json_file_to_mem() is parsed once for each state of the
/// file: a file that was replaced or written since is read anew. One within another does nothing.
class DocumentScope {
public:
    DocumentScope();
    ~DocumentScope();
    DocumentScope(const DocumentScope&) = delete;
    DocumentScope& operator=(const DocumentScope&) = delete;

    /// The document at `path` by `read`, whose result this is, or as it was read before. `out` is untouched
    /// on failure unless `read` touches it.
    static int read(const std::string& path, Json::Value& out,
                    const std::function<int(const std::string& path, Json::Value& out)>& read);

private:
    struct Document {
        struct stat file;
        Json::Value value;
    };
    std::map<std::string, Document> documents_;
    bool is_outermost_;
};

}  // namespace nm
