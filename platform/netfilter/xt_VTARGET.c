// The netfilter target VTARGET: sets some bits of a packet's mark and, with --return, leaves the chain. Rules
// that each give a verdict or a class need no second rule with the same matches to end the search.
#include <linux/module.h>
#include <linux/netfilter/x_tables.h>
#include <linux/skbuff.h>

#include "xt_VTARGET.h"

MODULE_LICENSE("GPL");
MODULE_DESCRIPTION("Xtables: set bits of the packet mark and return from the chain");
MODULE_ALIAS("ipt_VTARGET");
MODULE_ALIAS("ip6t_VTARGET");

static unsigned int vtarget(struct sk_buff* skb, const struct xt_action_param* par) {
    const struct xt_vtarget_info* info = par->targinfo;

    skb->mark = (skb->mark & ~info->mask) | (info->mark & info->mask);
    return (info->flags & XT_VTARGET_RETURN) != 0 ? XT_RETURN : XT_CONTINUE;
}

// Of a target's verdicts, a table of nf_tables takes XT_RETURN for its own "return", which has the same number. The
// legacy tables let none but their built-in target return: there the packet would be lost. What a later version may
// ask for must not be taken for something else.
static int vtarget_check(const struct xt_tgchk_param* par) {
    const struct xt_vtarget_info* info = par->targinfo;

    if ((info->flags & ~XT_VTARGET_RETURN) != 0) {
        return -EINVAL;
    }
    if ((info->flags & XT_VTARGET_RETURN) != 0 && !par->nft_compat) {
        pr_info_ratelimited("VTARGET: --return needs iptables on nf_tables\n");
        return -EOPNOTSUPP;
    }
    return 0;
}

static struct xt_target vtarget_reg __read_mostly = {
    .name = "VTARGET",
    .revision = 0,
    .family = NFPROTO_UNSPEC,
    .target = vtarget,
    .checkentry = vtarget_check,
    .targetsize = sizeof(struct xt_vtarget_info),
    .me = THIS_MODULE,
};

static int __init vtarget_init(void) {
    return xt_register_target(&vtarget_reg);
}

static void __exit vtarget_exit(void) {
    xt_unregister_target(&vtarget_reg);
}

module_init(vtarget_init);
module_exit(vtarget_exit);
