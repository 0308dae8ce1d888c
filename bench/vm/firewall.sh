#!/bin/bash
# Firewall documents of 100, 1,000 and 10,000 rules, from the stored document to loaded rules, against the same text
# through the restore command alone. Times of one run in the machine of scripts/vm, whose processor is emulated and
# whose kernel has the target VTARGET: ratios and growth count.
set -euo pipefail

[[ -e /run/network/.sandbox ]] || {
    echo "firewall: not in the test machine; run scripts/bench" >&2
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

# What stands where the restore command was: it takes the script, or passes over it.
stand_in() {
    rm -f /usr/sbin/iptables-restore
    printf '#!/bin/sh\ncat >%s\n' "$1" >/usr/sbin/iptables-restore
    chmod +x /usr/sbin/iptables-restore
}

by_library="exec nm_bin Apply_firewall $NEW $OLD >/dev/null 2>&1"
touch /run/network/.boot_fin
echo '{}' >/etc/networkmanagement/device_info.json
nm-base-rules
ipset create seg-here hash:net
echo "Medians of $ROUNDS rounds, ms; peak memory in KiB with all commands run."
printf '%8s %9s %9s %6s %9s %9s\n' rules ours bare ratio "our peak" "its peak"
declare -A took
for count in "${COUNTS[@]}"; do
    store_document "$count"
    stand_in "$SCRIPT"
    sh -c "$by_library"
    ln -sf "$RESTORE" /usr/sbin/iptables-restore
    line=$(bench_compare_commands "$ROUNDS" "$by_library" "exec iptables-restore -n <$SCRIPT")
    took[$count]=$line
    printf '%8s %s\n' "$count" "$line"
done
stand_in /dev/null
line=$(bench_compare_commands "$ROUNDS" "$by_library" "cat $SCRIPT >/dev/null")
echo "Without the restore command, ${COUNTS[-1]} rules: $(awk '{print $1 " ms, " $4 " KiB"}' <<<"$line")"
awk -v few="${took[1000]}" -v many="${took[10000]}" 'BEGIN {split(few, a); split(many, b)
    printf "Growth exponent from 1,000 to 10,000 rules: ours %.2f, bare %.2f\n", log(b[1] / a[1]) / log(10),
        log(b[2] / a[2]) / log(10)}'
