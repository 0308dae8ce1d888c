#!/bin/bash
# The substitute for the appliance's own target and match, where a stock kernel has to do.
set -euo pipefail
source "$(dirname "${BASH_SOURCE[0]}")/../support/world.sh"

tool=$support_dir/../../scripts/lib/stock-netfilter
"$tool" install
printf '*mangle\n-A OUTPUT -p udp%s\n-A OUTPUT -p udp%s\nCOMMIT\n' " -j VTARGET --set-xmark 1280/960 --return" \
    " -m condition ! --condition a -m condition --condition b -j VTARGET --set-xmark 0xc0/960" | iptables-restore
same "both are rewritten" "-j MARK --set-xmark 0x100/0x3c0;-j RETURN;-m set ! --match-set cond-a src -m set \
--match-set cond-b src -j MARK --set-xmark 0xc0/0x3c0" "$(iptables -t mangle -S OUTPUT | sed -n 's/^-A OUTPUT -p udp //p' | paste -sd ';')"
for command in iptables ip6tables; do
    printf '*filter\n-A OUTPUT -m condition --condition up -j DROP\nCOMMIT\n' | "$command-restore"
done
check "a condition begins lowered" bash -c "ping -q -c 1 -W 1 127.0.0.1 && ping -q -c 1 -W 1 ::1"
"$tool" raise up
check "raised it matches both" bash -c "! ping -q -c 1 -W 1 127.0.0.1 && ! ping -q -c 1 -W 1 ::1"
finish
