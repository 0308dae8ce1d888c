// The one way in which a factory turns a constructor that throws into a result code.
#pragma once

#include <json/value.h>

#include <string>
#include <utility>

#include "log.h"
#include "result_codes.h"

namespace nm {

/// The port that a name of the form "PORT1.100", a port with a VLAN, stands for.
inline std::string port_without_vlan(std::string port) {
    const size_t point = port.find('.');
    if (point != std::string::npos) {
        NM_LOG(Debug) << "PORT: " << port.substr(0, point) << "'s VLAN: " << port.substr(point + 1);
        port.erase(point);
    }
    return port;
}

/// Logs why a constructor threw `code`; `word` is the family's own ("wan", "lan", ...).
inline void log_construction_failure(int code, const std::string& word, const std::string& name,
                                     const std::string& path) {
    if (code == NM_ERR_NULL_ARG) {
        NM_LOG(Error) << word << " is NULL";
    }
    if (code == NM_ERR_NO_SECTION) {
        NM_LOG(Error) << "Cannot find [" << name << "]'s configuration.";
    }
    if (code == NM_ERR_NOT_FOUND) {
        NM_LOG(Error) << "File loading failed; path:" << path;
    }
}

/// Builds one object into `*out`, which must be null on entry and stays null on failure; the caller owns it.
/// 0; NM_ERR_NULL_ARG for a null `out`; NM_ERR_NOT_NULL; the code that the constructor threw;
/// NM_ERR_BAD_FORMAT if the document holds a value of a kind that cannot be read where a text is expected.
template <class T>
int build(T** out, const std::string& word, const std::string& name, const std::string& path,
          Json::Value cfg) {
    if (out == nullptr) {
        log_construction_failure(NM_ERR_NULL_ARG, word, name, path);
        return NM_ERR_NULL_ARG;
    }
    if (*out != nullptr) {
        NM_LOG(Error) << word << " is not NULL";
        return NM_ERR_NOT_NULL;
    }
    try {
        *out = new T(name, path, std::move(cfg));
        return NM_OK;
    } catch (int code) {
        log_construction_failure(code, word, name, path);
        return code;
    } catch (const Json::Exception& error) {
        NM_LOG(Error) << "[" << name << "] in " << path << " is not valid format: " << error.what();
        return NM_ERR_BAD_FORMAT;
    }
}

}  // namespace nm
