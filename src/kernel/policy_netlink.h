// What requests about routes and about rules share: the address families, raw addresses as libnl takes them,
// and the way to the kernel with the texts that tell where it ended.
#pragma once

#include "kernel/netlink.h"
#include "kernel/route_table.h"

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

/// A rule's or route's table, as its message tells it.
RT_ID table_of(const nlmsghdr* message);

/// Stores a connected socket and the routes or rules that `request` asks for; `name` says which of them. Not
/// by a libnl cache, which keeps one of several that differ in their next hops alone. 0; NM_ERR_NOMEM and
/// NM_ERR_NL_CONNECT, reported on standard error in the name of `function`.
int read_policy(const char* function, const char* name, const DumpRequest& request, NlSocket& socket,
                NlObjects& objects);

}  // namespace nm
