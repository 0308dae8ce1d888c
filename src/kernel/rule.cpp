// Single rules, by libnl's rule objects.
#include "kernel/rule.h"

#include <linux/fib_rules.h>
#include <linux/rtnetlink.h>
#include <netlink/errno.h>

#include <cstdio>
#include <utility>

#include "kernel/marks.h"
#include "kernel/policy_netlink.h"
#include "log.h"
#include "result_codes.h"

namespace {

/// The rule as libnl takes it; null if memory runs out. A mark of zero need not be sent: a mask alone means
/// mark 0. A rule is deleted whatever its source.
nm::RtnlRule make_rule(const nm::NewRule& wanted, RT_ID table) {
    nm::RtnlRule rule(rtnl_rule_alloc());
    const nm::NlAddr dst = nm::raw_address(wanted.family, nullptr);
    const bool by_source = wanted.by_source && table != 0;
    const nm::NlAddr src = by_source ? nm::raw_address(wanted.family, wanted.addr) : nullptr;
    if (rule == nullptr || dst == nullptr || (by_source && src == nullptr)) {
        return nullptr;
    }
    rtnl_rule_set_family(rule.get(), wanted.family);
    rtnl_rule_set_prio(rule.get(), wanted.priority);
    rtnl_rule_set_action(rule.get(), FR_ACT_TO_TBL);
    if (table != 0) {
        rtnl_rule_set_table(rule.get(), table);
    }
    if (wanted.mark != 0) {
        rtnl_rule_set_mark(rule.get(), wanted.mark);
    }
    if (wanted.mask != 0) {
        rtnl_rule_set_mask(rule.get(), wanted.mask);
    }
    (void)rtnl_rule_set_dst(rule.get(), dst.get());  // fails on another family only, as does the source
    if (src != nullptr && wanted.prefix != 0) {
        nl_addr_set_prefixlen(src.get(), wanted.prefix);
    }
    if (src != nullptr) {
        (void)rtnl_rule_set_src(rule.get(), src.get());
    }
    return rule;
}

/// The one way of a rule to the kernel.
int __set_rule(const nm::NewRule& wanted, RT_ID table) {
    const nm::RtnlRule rule = make_rule(wanted, table);
    nm::NlSocket socket;
    int ret = nm::open_policy_socket(__func__, "socket/rule/dstaddr", rule != nullptr, socket);
    if (ret != NM_OK) {
        return ret;
    }
    // A name that is too long would be left out, and the rule would serve all packets.
    int error = wanted.oif != nullptr ? rtnl_rule_set_oif(rule.get(), wanted.oif) : 0;
    if (error == 0) {
        const auto request = table != 0 ? rtnl_rule_add : rtnl_rule_delete;
        error = request(socket.get(), rule.get(), 0);
    }
    if (error == 0) {
        return NM_OK;
    }
    ret = table != 0 ? NM_ERR_NL_RULE_ADD : NM_ERR_NL_RULE_DELETE;
    fprintf(stderr, "%s IPv%hhu rule priority %u: %s route in table %hhu: %s\n",
            table != 0 ? "Add" : "Delete", nm::family_version(wanted.family), wanted.priority, wanted.kind,
            static_cast<unsigned char>(table), nl_geterror(error));
    return ret;
}

/// The request to add the rule, as a fact.
nm::PolicyFact wanted_fact(const nm::NewRule& wanted, RT_ID table) {
    const nm::RtnlRule rule = make_rule(wanted, table);
    nl_msg* request = nullptr;
    if (rule == nullptr || (wanted.oif != nullptr && rtnl_rule_set_oif(rule.get(), wanted.oif) != 0) ||
        rtnl_rule_build_add_request(rule.get(), 0, &request) < 0) {
        return {};
    }
    const nm::NlMessage owner(request);
    return nm::fact_of(nlmsg_hdr(request));
}

/// Marked uplinks leave packets alone that a mark assigns to an uplink.
unsigned int unassigned_mask(int mark) {
    return mark != 0 ? nm::kEgressPort.mask : 0;
}

/// Whether a purge takes the rules of this table.
bool in_purge_range(RT_ID table) {
    return table >= 255 && table <= 65534;
}

/// The request for the rules that lead to a table, or to those of a purge.
struct RuleDump {
    RuleDump(unsigned char family, RT_ID id) : body{}, table(id) { body.family = family; }
    nm::DumpRequest request() const {
        const auto is_wanted = [id = table](const nlmsghdr* message) {
            const RT_ID present = nm::table_of(message);
            return id != 0 ? present == id : in_purge_range(present);
        };
        return {RTM_GETRULE, &body, sizeof(body), is_wanted};
    }

    fib_rule_hdr body;
    RT_ID table;
};

}  // namespace

nm::NewRule nm::source_rule(unsigned int priority, unsigned char family, const void* addr,
                            unsigned char prefix, int mark) {
    return {priority, family, "source", 0, unassigned_mask(mark), true, addr, prefix};
}

nm::NewRule nm::oif_rule(unsigned int priority, unsigned char family, const char* name, int mark) {
    // The kernel takes an empty name for a device that is not there yet: a rule that serves nobody.
    const bool is_named = name != nullptr && *name != '\0';
    return {is_named ? priority : 0, family, "oif", 0, unassigned_mask(mark), false, nullptr, 0, name};
}

nm::NewRule nm::dnat_rule(unsigned int priority, unsigned char family, int port) {
    return {priority, family, "dnat", static_cast<unsigned int>(port) + kDnatReply, kDnatReplyMask};
}

nm::NewRule nm::lan_to_wan_rule(unsigned int priority, unsigned char family, int port) {
    return {priority, family, "lan to wan", static_cast<unsigned int>(port) + kLanToWan, kLanToWanMask};
}

int nm::set_rule(const NewRule& rule, RT_ID table) {
    const unsigned int bits = family_bits(rule.family);
    return rule.priority == 0 || bits == 0 || rule.prefix > bits ? NM_ERR_BAD_FORMAT
                                                                 : __set_rule(rule, table);
}

bool nm::has_only_rules(RT_ID table, unsigned char family, const std::vector<NewRule>& rules) {
    PolicyFacts present;
    if (read_policy_facts(RuleDump(family, table).request(), present) != 0) {
        return false;
    }
    PolicyFacts wanted;
    for (const NewRule& rule : rules) {
        wanted.push_back(wanted_fact(rule, table));
    }
    return is_same(std::move(wanted), std::move(present));
}

int set_rule_by_src(unsigned int priority, unsigned char family, void* addr, unsigned char prefix,
                    RT_ID table, int mark) {
    return nm::set_rule(nm::source_rule(priority, family, addr, prefix, mark), table);
}

int set_rule_by_oif(unsigned int priority, unsigned char family, const char* name, RT_ID table, int mark) {
    return nm::set_rule(nm::oif_rule(priority, family, name, mark), table);
}

int set_rule_dnat(unsigned int priority, unsigned char family, int port, RT_ID table) {
    return nm::set_rule(nm::dnat_rule(priority, family, port), table);
}

int set_rule_lan2wan(unsigned int priority, unsigned char family, int port, RT_ID table) {
    return nm::set_rule(nm::lan_to_wan_rule(priority, family, port), table);
}

int set_rule_table(unsigned int priority, RT_ID table) {
    const int ip4 = nm::set_rule({priority, AF_INET, "table"}, table);
    const int ip6 = nm::set_rule({priority, AF_INET6, "table"}, table);
    return ip4 != NM_OK ? ip4 : ip6;
}

int del_rules_by_rt(unsigned char family, RT_ID table) {
    if (nm::family_bits(family) == 0) {
        return NM_ERR_BAD_FORMAT;
    }
    nm::NlSocket socket;
    nm::NlObjects rules;
    const int ret = nm::read_policy(__func__, "rule", RuleDump(family, table).request(), socket, rules);
    if (ret != NM_OK) {
        return ret;
    }
    for (const auto& object : rules) {
        auto* rule = reinterpret_cast<rtnl_rule*>(object.get());
        const int error = rtnl_rule_delete(socket.get(), rule, 0);
        // Another daemon may have been faster.
        if (error != 0 && error != -NLE_OBJ_NOTFOUND) {
            NM_LOG(Error) << "Delete IPv" << static_cast<int>(nm::family_version(family)) << " rule priority "
                          << rtnl_rule_get_prio(rule) << " in table " << rtnl_rule_get_table(rule)
                          << " failed: " << nl_geterror(error);
        }
    }
    return NM_OK;
}
