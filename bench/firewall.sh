#!/bin/bash
# Firewall documents of 100, 1,000 and 10,000 rules, from the stored document to loaded rules, against the same text
# through the restore command alone. A kernel without the target VTARGET loads the stock MARK in its place, both ways.
# Ratios of one run count; on a busy machine those of processor time.
set -euo pipefail

[[ -e /run/network/.sandbox ]] || {
    echo "firewall: not in the sandbox; run scripts/bench" >&2
    exit 2
}

readonly COUNTS=(100 1000 10000) ROUNDS=5 NEW=/run/new.json OLD=/run/old.json SCRIPT=/run/script
BUILD=$(readlink -f "${NM_BUILD_DIR:-build}")
export PATH=$BUILD/bin:$PATH
RESTORE=$(readlink -f /usr/sbin/iptables-restore)
readonly RESTORE

# Addresses, ranges of ports, two protocols at once, a segment: what an operator's list is made of.
store_document() {
    jq -nc --argjson n "$1" '{RULES: {SITE: [range($n) | {ACTION: (if . % 2 == 0 then "ALLOW" else "DENY" end),
        SRC_IP: "10.\(. / 62500 | floor).\(. / 250 | floor % 250).\(. % 250)"} + [{}, {DST_SEG: "here"},
        {PROTOCOL: "TCP", DST_PORT: "8000-\(8000 + . % 1000)"}, {PROTOCOL: "UDP", DST_PORT: "53,123"}][. % 4]]}}' >"$NEW"
}

# What stands where the restore command was, and is given the script: a command of the shell.
stand_in() {
    rm -f /usr/sbin/iptables-restore
    printf '#!/bin/bash\n%s\n' "$1" >/usr/sbin/iptables-restore
    chmod +x /usr/sbin/iptables-restore
}

readonly bare="exec bash -c 'exec -a iptables-restore $RESTORE -n'"
readonly by_library="exec nm_bin Apply_firewall $NEW $OLD >/dev/null 2>&1"
printf '{}' >/etc/networkmanagement/device_info.json
nm-base-rules
ipset create seg-here hash:net
rewrite="cat"
iptables -t mangle -A FIREWALL -j VTARGET --set-xmark 1/1 2>/dev/null ||
    rewrite="sed -E 's/VTARGET(.*)--return/MARK\\1/'"
echo "Medians of $ROUNDS rounds in ms; peak memory in KiB, of all commands that are run."
printf '%8s %9s %9s %6s %9s %9s %6s %9s %9s\n' rules ours bare ratio "our CPU" "its CPU" ratio "our peak" "its peak"
declare -A took
for count in "${COUNTS[@]}"; do
    store_document "$count"
    stand_in "$rewrite >$SCRIPT"
    sh -c "$by_library"
    stand_in "$rewrite | exec -a iptables-restore $RESTORE -n"
    took[$count]=$(bench_compare_commands "$ROUNDS" "$by_library" "$bare <$SCRIPT")
    printf '%8s %s\n' "$count" "${took[$count]}"
done
stand_in "cat >/dev/null"
line=$(bench_compare_commands "$ROUNDS" "$by_library" "cat $SCRIPT >/dev/null")
echo "Without the restore command, ${COUNTS[-1]} rules: $(awk '{print $1 " ms, CPU " $4 " ms, " $7 " KiB"}' <<<"$line")"
awk -v few="${took[1000]}" -v many="${took[10000]}" 'BEGIN {split(few, a); split(many, b)
    printf "Growth exponents of the CPU time from 1,000 to 10,000 rules: ours %.2f, bare %.2f\n",
        log(b[4] / a[4]) / log(10), log(b[5] / a[5]) / log(10)}'
