// What requests about routes and about rules share: the address families, raw addresses as libnl takes them,
// and the way to the kernel with the texts that tell where it ended.
#pragma once

#include <map>
#include <string>
#include <vector>

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

/// All that a message says of a route or a rule, by the numbers of its attributes: the same for a request and
/// for the kernel's answer about what came of it. A request that could not be made says nothing, and is like
/// nothing that the kernel has.
using PolicyFact = std::map<int, std::string>;
using PolicyFacts = std::vector<PolicyFact>;

/// The fact that the request will make.
PolicyFact fact_of(const nlmsghdr* request);

/// Stores a fact for each rule, or for each next hop of the routes, that is there now. 0 or a libnl error.
int read_policy_facts(const DumpRequest& request, PolicyFacts& facts);

/// Whether a route leads out of the device.
bool leads_out_of(const PolicyFact& route, unsigned int ifindex);

/// Whether both have the same facts, each as often, in whatever order.
bool is_same(PolicyFacts one, PolicyFacts other);

}  // namespace nm
