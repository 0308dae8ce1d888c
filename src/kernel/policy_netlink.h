// What requests about routes and about rules share: the address families, raw addresses as libnl takes them,
// and the way to the kernel with the texts that tell where it ended.
#pragma once

#include <memory>
#include <vector>

#include "kernel/netlink.h"

namespace nm {

/// 32 for AF_INET, 128 for AF_INET6, 0 for what is neither.
unsigned int family_bits(unsigned char family);

/// 4 or 6, for messages.
unsigned char family_version(unsigned char family);

/// A libnl address of the family with the full prefix length; without `bytes` an empty one, which stands for
/// all destinations. Null if memory runs out.
NlAddr raw_address(unsigned char family, const void* bytes);

/// Stores a connected socket. 0; NM_ERR_NOMEM with "<function>: Cannot allocate memory for <needed> object"
/// on standard error, also when `allocated` says that another of the objects is missing; NM_ERR_NL_CONNECT.
int open_policy_socket(const char* function, const char* needed, bool allocated, NlSocket& socket);

/// What is dumped: "route" or "rule", and the message that asks for it.
struct PolicyTable {
    const char* name;
    int request;
};

struct NlObjectDeleter {
    void operator()(nl_object* object) const { nl_object_put(object); }
};
using PolicyObjects = std::vector<std::unique_ptr<nl_object, NlObjectDeleter>>;

/// Stores a connected socket and all routes or rules of the family. Not by a libnl cache, which keeps one of
/// several that differ in their next hops alone. 0; NM_ERR_BAD_FORMAT for another family; NM_ERR_NOMEM and
/// NM_ERR_NL_CONNECT, told on standard error in the name of `function`.
int read_policy(const char* function, const PolicyTable& table, unsigned char family, NlSocket& socket,
                PolicyObjects& objects);

}  // namespace nm
