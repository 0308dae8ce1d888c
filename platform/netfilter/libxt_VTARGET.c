// How iptables and ip6tables read and print the target VTARGET.
#include <stdio.h>
#include <xtables.h>

#include "xt_VTARGET.h"

enum { O_SET_XMARK, O_RETURN };

static const struct xt_option_entry options[] = {
    {.name = "set-xmark", .id = O_SET_XMARK, .type = XTTYPE_MARKMASK32, .flags = XTOPT_MAND},
    {.name = "return", .id = O_RETURN, .type = XTTYPE_NONE},
    XTOPT_TABLEEND,
};

static void help(void) {
    puts(
        "VTARGET target options:\n"
        "  --set-xmark value[/mask]  Set the bits of mask to those of value\n"
        "  --return                  Return from the chain");
}

static void parse(struct xt_option_call* call) {
    struct xt_vtarget_info* info = call->data;

    xtables_option_parse(call);
    if (call->entry->id == O_RETURN) {
        info->flags |= XT_VTARGET_RETURN;
        return;
    }
    info->mark = call->val.mark;
    info->mask = call->val.mask;
}

static void print_options(const struct xt_vtarget_info* info, const char* dashes) {
    printf(" %sset-xmark 0x%x/0x%x", dashes, info->mark, info->mask);
    if ((info->flags & XT_VTARGET_RETURN) != 0) {
        printf(" %sreturn", dashes);
    }
}

static void print(const void* ip, const struct xt_entry_target* target, int numeric) {
    (void)ip;
    (void)numeric;
    printf(" VTARGET");
    print_options((const void*)target->data, "");
}

static void save(const void* ip, const struct xt_entry_target* target) {
    (void)ip;
    print_options((const void*)target->data, "--");
}

static struct xtables_target vtarget = {
    .name = "VTARGET",
    .revision = 0,
    .family = NFPROTO_UNSPEC,
    .version = XTABLES_VERSION,
    .size = XT_ALIGN(sizeof(struct xt_vtarget_info)),
    .userspacesize = XT_ALIGN(sizeof(struct xt_vtarget_info)),
    .help = help,
    .x6_parse = parse,
    .print = print,
    .save = save,
    .x6_options = options,
};

__attribute__((constructor)) static void vtarget_register(void) {
    xtables_register_target(&vtarget);
}
