// The target layer of every setup call, written once: builds one object, locks it, runs one operation and
// destroys it. It stands in this layer because interfaces alter each other: a trunk's first member makes the
// bridge set itself up, in the same way and under the same lock as a request for the bridge.
#pragma once

#include <json/value.h>

#include <cstdint>
#include <memory>
#include <string>
#include <utility>

#include "config/actions.h"
#include "config/nmconfig.h"
#include "log.h"
#include "result_codes.h"
#include "utils/call_notes.h"
#include "utils/handles.h"

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
    /// What a delete builds the object from: the port no longer stands in the new document. Null for a family
    /// whose target function chooses itself.
    const char* stored_path = kDeviceInfoPath;
    /// The code with which `create` says that there is nothing to operate on any more, so that a delete is
    /// done; NM_OK if the family has none.
    int gone = NM_OK;
};

/// What an action does to an object, for whoever times it.
inline const char* word_of_act(uint32_t act) {
    constexpr const char* kWords[] = {"other", "add", "delete", "alter"};
    return kWords[act <= ACT_ALT ? act : 0];
}

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
int create_instance(const Family<T>& family, Target& target, T** created) {
    const Step step("operation", "create", family.class_name);
    return step.result(family.create(created, target.name, target.path, std::move(target.cfg)));
}

template <class T>
int operate_locked(const Family<T>& family, T& instance, const Target& target) {
    const LockGuard lock(family.lock_name(instance, target.name));
    if (!lock.held()) {
        return NM_ERR_LOCK;
    }
    const Step step("operation", word_of_act(target.act), family.class_name);
    return step.result(dispatch(family, instance, target.act, target.opt));
}

/// Whether a failed creation leaves nothing to do for the target.
inline bool is_gone(int code_of_family, int code, const Target& target) {
    if (target.act != ACT_DEL || code != code_of_family) {
        return false;
    }
    NM_LOG(Info) << "Skip [" << target.name << "].";
    return true;
}

/// The target layer of one family.
template <class T>
int run_target(const Family<T>& family, Target target) {
    NM_LOG(Debug) << "Enter";
    NM_LOG(Trace) << "name: " << target.name << ", act: " << target.act << ", opt: " << target.opt
                  << ", path: " << target.path;
    return NM_EXIT(shielded([&] {
        if (target.act == ACT_DEL && family.stored_path != nullptr) {
            target.path = family.stored_path;
            target.cfg = Json::Value();
        }
        T* created = nullptr;
        const int ret = create_instance(family, target, &created);
        const std::unique_ptr<T> instance(created);
        if (ret != NM_OK) {
            NM_LOG(Error) << "Create " << family.class_name << " instance failed, ret=" << ret;
            return is_gone(family.gone, ret, target) ? NM_OK : ret;
        }
        return operate_locked(family, *instance, target);
    }));
}

}  // namespace nm
