#!/bin/bash
# What a stock kernel lacks and rule sets use: the target VTARGET of our own, and the matches of xtables-addons.
set -euo pipefail
. "$(dirname "$0")/../support/tap.sh"

# marks COMMAND ADDRESS BEFORE AFTER: a packet that comes to the chain with one mark leaves it with the other.
marks() {
    printf '%s\n' '*mangle' '-F OUTPUT' "-A OUTPUT -j MARK --set-mark $3" '-A OUTPUT -j TRIED' \
        "-A OUTPUT -m mark --mark $4 -j ACCEPT" '-A OUTPUT -j DROP' COMMIT | "$1-restore" -n
    ping -q -c 1 -W 1 "$2"
}
saved() {
    "$1-save" -t mangle | sed '/^#/d; s/\[.*//'
}

for row in iptables,127.0.0.1 ip6tables,::1; do
    command=${row%,*}
    while read -r options before after expected; do
        # Behind the tried rule stands one that shows whether it returned.
        printf '*mangle\n:TRIED -\n-A TRIED -j VTARGET --set-xmark %s\n-A TRIED -j MARK --or-mark 0x10000000\nCOMMIT\n' \
            "${options/,/ --}" | "$command-restore"
        check "$command $options makes $after of $before" marks "$command" "${row#*,}" "$before" "$after"
        all=$(saved "$command")
        check "it is saved so" grep -qxe "-A TRIED -j VTARGET --set-xmark $expected" <<<"$all"
        "$command-restore" <<<"$all"
        same "and restored" "$all" "$(saved "$command")"
    done <<'CASES'
2048/3072,return   0xefffffff 0xeffffbff 0x800/0xc00 --return
1280/960,return    0x00000c00 0x00000d00 0x500/0x3c0 --return
0xc0/960           0x0ffffc3f 0x1ffffcff 0xc0/0x3c0
CASES
    "$command" -t mangle -F
done
check "a legacy table takes no return, which it could not carry out" bash -c 'rule="-t mangle -A OUTPUT -j VTARGET --set-xmark 5"
    iptables-legacy $rule && ! iptables-legacy $rule --return'
iptables -A OUTPUT -m condition --condition swdev1_ncsi -j DROP
check "a condition begins lowered" ping -q -c 1 -W 1 127.0.0.1
echo 1 >/proc/net/nf_condition/swdev1_ncsi
check "raised it matches" bash -c "! ping -q -c 1 -W 1 127.0.0.1"
check "the match on IP options" iptables -I OUTPUT -m ipv4options --flags 1,2,3,4,7,8,9 -j DROP
finish
