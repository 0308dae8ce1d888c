// Single rules, by libnl's rule objects.
#include "kernel/rule.h"

#include <linux/fib_rules.h>
#include <linux/rtnetlink.h>
#include <netlink/errno.h>

#include <cstdio>

#include "kernel/marks.h"
#include "kernel/policy_netlink.h"
#include "log.h"
#include "result_codes.h"

namespace {

/// What a rule goes by, for messages.
const char* rule_kind(const nl_addr* src, const char* oif, unsigned int mask) {
    if (src != nullptr) {
        return "source";
    }
    if (oif != nullptr) {
        return "oif";
    }
    if (mask == nm::kDnatReplyMask) {
        return "dnat";
    }
    return mask == nm::kLanToWanMask ? "lan to wan" : "table";
}

/// The one way of a rule to the kernel. A mark of zero need not be sent: a mask alone means mark 0.
int __set_rule(unsigned int priority, unsigned char family, nl_addr* src, const char* oif, RT_ID table,
               unsigned int mark, unsigned int mask) {
    if (priority == 0 || nm::family_bits(family) == 0) {
        return NM_ERR_BAD_FORMAT;
    }
    const nm::RtnlRule rule(rtnl_rule_alloc());
    const nm::NlAddr dst = nm::raw_address(family, nullptr);
    nm::NlSocket socket;
    const bool allocated = rule != nullptr && dst != nullptr;
    int ret = nm::open_policy_socket(__func__, "socket/rule/dstaddr", allocated, socket);
    if (ret != NM_OK) {
        return ret;
    }
    rtnl_rule_set_family(rule.get(), family);
    rtnl_rule_set_prio(rule.get(), priority);
    rtnl_rule_set_action(rule.get(), FR_ACT_TO_TBL);
    if (table != 0) {
        rtnl_rule_set_table(rule.get(), table);
    }
    if (mark != 0) {
        rtnl_rule_set_mark(rule.get(), mark);
    }
    if (mask != 0) {
        rtnl_rule_set_mask(rule.get(), mask);
    }
    (void)rtnl_rule_set_dst(rule.get(), dst.get());  // fails on another family only, as does the source
    if (src != nullptr) {
        (void)rtnl_rule_set_src(rule.get(), src);
    }
    // A name that is too long would be left out, and the rule would serve all packets.
    int error = oif != nullptr ? rtnl_rule_set_oif(rule.get(), oif) : 0;
    if (error == 0) {
        const auto request = table != 0 ? rtnl_rule_add : rtnl_rule_delete;
        error = request(socket.get(), rule.get(), 0);
    }
    if (error == 0) {
        return NM_OK;
    }
    ret = table != 0 ? NM_ERR_NL_RULE_ADD : NM_ERR_NL_RULE_DELETE;
    fprintf(stderr, "%s IPv%hhu rule priority %u: %s route in table %hhu: %s\n",
            table != 0 ? "Add" : "Delete", nm::family_version(family), priority, rule_kind(src, oif, mask),
            static_cast<unsigned char>(table), nl_geterror(error));
    return ret;
}

/// Marked uplinks leave packets alone that a mark assigns to an uplink.
unsigned int unassigned_mask(int mark) {
    return mark != 0 ? nm::kEgressPort.mask : 0;
}

/// Whether a purge takes the rules of this table.
bool in_purge_range(RT_ID table) {
    return table >= 255 && table <= 65534;
}

}  // namespace

int set_rule_by_src(unsigned int priority, unsigned char family, void* addr, unsigned char prefix,
                    RT_ID table, int mark) {
    const unsigned int bits = nm::family_bits(family);
    if (priority == 0 || bits == 0 || prefix > bits) {
        return NM_ERR_BAD_FORMAT;
    }
    nm::NlAddr src;
    if (table != 0) {
        src = nm::raw_address(family, addr);
        if (src == nullptr) {
            return NM_ERR_NOMEM;
        }
    }
    if (src != nullptr && prefix != 0) {
        nl_addr_set_prefixlen(src.get(), prefix);
    }
    return __set_rule(priority, family, src.get(), nullptr, table, 0, unassigned_mask(mark));
}

int set_rule_by_oif(unsigned int priority, unsigned char family, const char* name, RT_ID table, int mark) {
    // The kernel takes an empty name for a device that is not there yet: a rule that serves nobody.
    if (name == nullptr || *name == '\0') {
        return NM_ERR_BAD_FORMAT;
    }
    return __set_rule(priority, family, nullptr, name, table, 0, unassigned_mask(mark));
}

int set_rule_dnat(unsigned int priority, unsigned char family, int port, RT_ID table) {
    const unsigned int mark = static_cast<unsigned int>(port) + nm::kDnatReply;
    return __set_rule(priority, family, nullptr, nullptr, table, mark, nm::kDnatReplyMask);
}

int set_rule_lan2wan(unsigned int priority, unsigned char family, int port, RT_ID table) {
    const unsigned int mark = static_cast<unsigned int>(port) + nm::kLanToWan;
    return __set_rule(priority, family, nullptr, nullptr, table, mark, nm::kLanToWanMask);
}

int set_rule_table(unsigned int priority, RT_ID table) {
    const int ip4 = __set_rule(priority, AF_INET, nullptr, nullptr, table, 0, 0);
    const int ip6 = __set_rule(priority, AF_INET6, nullptr, nullptr, table, 0, 0);
    return ip4 != NM_OK ? ip4 : ip6;
}

int del_rules_by_rt(unsigned char family, RT_ID table) {
    if (nm::family_bits(family) == 0) {
        return NM_ERR_BAD_FORMAT;
    }
    fib_rule_hdr body{};
    body.family = family;
    const auto is_wanted = [=](const nlmsghdr* message) {
        const RT_ID present = nm::table_of(message);
        return table != 0 ? present == table : in_purge_range(present);
    };
    nm::NlSocket socket;
    nm::NlObjects rules;
    const int ret =
        nm::read_policy(__func__, "rule", {RTM_GETRULE, &body, sizeof(body), is_wanted}, socket, rules);
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
