// The frame of every setup call, written once: an entry that shields the caller, a request layer that parses
// and loops over the targets, and a target layer that builds one object, locks it, runs one operation and
// destroys it. A family of ports, information objects or services is a row for each layer.
#pragma once

#include <json/value.h>

#include <cstdint>
#include <functional>
#include <memory>
#include <new>
#include <string>
#include <utility>
#include <vector>

#include "config/actions.h"
#include "config/nmconfig.h"
#include "kernel/utils/handles.h"
#include "log.h"
#include "result_codes.h"

namespace nm {

/// One target of a request: its key, the action, the mask of what changed, and where the new state stands.
struct Target {
    std::string name;
    uint32_t act;
    uint32_t opt;
    std::string path;
    Json::Value cfg;
};

/// The code for an exception on its way out of the library: nothing but codes may cross its border, and a
/// target that throws must not keep the later ones of the same request from being worked.
int code_of_current_exception();

template <class Work>
int shielded(Work&& work) {
    try {
        return work();
    } catch (...) {
        return code_of_current_exception();
    }
}

/// How a family's objects are made, locked and operated.
template <class T>
struct Family {
    const char* class_name;
    int (*create)(T** out, std::string name, std::string path, Json::Value cfg);
    std::string (*lock_name)(T& target, const std::string& name);
    int (T::*add)(uint32_t opt);
    int (T::*del)(uint32_t opt);
    int (T::*alt)(uint32_t opt);
    const char* stored_path = kDeviceInfoPath;
    /// The code with which `create` says that there is nothing to operate on any more, so that a delete is
    /// done; NM_OK if the family has none.
    int gone = NM_OK;
};

template <class T>
int dispatch(const Family<T>& family, T& target, uint32_t act, uint32_t opt) {
    switch (act) {
        case ACT_ADD:
            return (target.*family.add)(opt);
        case ACT_DEL:
            return (target.*family.del)(opt);
        case ACT_ALT:
            return (target.*family.alt)(opt);
        default:
            NM_LOG(Error) << "Unknown act: " << act;
            return NM_ERR_BAD_ACT;
    }
}

template <class T>
int operate_locked(const Family<T>& family, T& instance, const Target& target) {
    const LockGuard lock(family.lock_name(instance, target.name));
    if (!lock.held()) {
        return NM_ERR_LOCK;
    }
    return dispatch(family, instance, target.act, target.opt);
}

/// Whether a failed creation leaves nothing to do for the target.
inline bool is_gone(int code_of_family, int code, const Target& target) {
    if (target.act != ACT_DEL || code != code_of_family) {
        return false;
    }
    NM_LOG(Info) << "Skip [" << target.name << "].";
    return true;
}

/// The target layer. A delete works on the stored state: the port no longer stands in the new document.
template <class T>
int run_target(const Family<T>& family, Target target) {
    NM_LOG(Debug) << "Enter";
    NM_LOG(Trace) << "name: " << target.name << ", act: " << target.act << ", opt: " << target.opt
                  << ", path: " << target.path;
    return NM_EXIT(shielded([&] {
        if (target.act == ACT_DEL) {
            target.path = family.stored_path;
            target.cfg = Json::Value();
        }
        T* created = nullptr;
        const int ret = family.create(&created, target.name, target.path, target.cfg);
        const std::unique_ptr<T> instance(created);
        if (ret != NM_OK) {
            NM_LOG(Error) << "Create " << family.class_name << " instance failed, ret=" << ret;
            return is_gone(family.gone, ret, target) ? NM_OK : ret;
        }
        return operate_locked(family, *instance, target);
    }));
}

using TargetFunction = int (*)(std::string name, uint32_t act, uint32_t opt, std::string path,
                               Json::Value cfg);
using FollowUp = int (*)(std::string path);

/// What a family's request layer calls: the target layer for each member, then, if a port came, went or
/// changed its rates, the work that depends on the set of uplinks.
struct RequestFamily {
    TargetFunction target;
    std::vector<FollowUp> follow_ups;
};

/// The request layer. The document is the `path` of the first member; the result is that of the last member.
/// NM_ERR_NULL_ARG for a null text; NM_ERR_PARSE; NM_ERR_BAD_FORMAT for a root or member of the wrong form;
/// the code of loading the document.
int run_request(const char* json, const RequestFamily& family);

/// The target layer of a family of services, which reads its document itself.
using SectionTarget = int (*)(std::string name, uint32_t act, uint32_t opt, std::string path);

/// The request layer of services: each member has a `path` of its own, and no document is loaded. The result
/// is that of the last member. NM_ERR_NULL_ARG; NM_ERR_PARSE; NM_ERR_BAD_FORMAT.
int run_section_request(const char* json, SectionTarget target);

/// The entry layer: sets up the log and keeps exceptions inside. `signature` is the entry's
/// __PRETTY_FUNCTION__.
int run_entry(const char* signature, const std::function<int()>& request);

}  // namespace nm
