#!/bin/bash
# Firewall, policy and steering documents in the kernel: every golden script loads, an apply that fails at any line
# leaves all rules, sets and maps as they were, and ten thousand rules are one script.
set -euo pipefail
source "$(dirname "$0")/../support/world.sh"

GOLDEN=$(dirname "$(readlink -f "$0")")/../policy/firewall/golden
readonly GOLDEN OLD=$scratch/old NEW=$scratch/new MAP=/var/run/network/dnsmasq.d/ipset.conf
readonly RULES=10000

# State of the kernel's rules and sets, of the map and of the applied document.
state() {
    iptables-save | sed '/^#/d; s/\[.*//'
    ipset list -name | sort
    cat "$MAP" "$OLD".*
}

# apply CHAIN FILTER: a document by a jq filter; $code, $said on standard error.
apply() {
    jq -n "$2" >"$NEW"
    code=$(nm_bin "Apply_$1" "$NEW" "$OLD.$1" 2>"$scratch/said" | tail -n 1) || true
    code=${code%% *}
    said=$(grep '^nm_bin' "$scratch/said") || said=""
}

sets_of() {
    grep -oP '(?<=--match-set )\S+' "$1" | sort -u
}

# load SCRIPT: with the chains and sets that it takes for given.
load() {
    local name
    while read -r name; do
        iptables -t mangle -N "$name" 2>/dev/null || true
    done < <(awk '/^-N/ {made[$2]} /^-[AF]/ && !($2 in made) {print $2}' "$1" | sort -u)
    while read -r name; do
        ipset -exist create "$name" hash:net
    done < <(sets_of "$1")
    iptables-restore -n <"$1" 2>&1
}

loads_goldens() {
    local case name script=$scratch/script
    for case in "$GOLDEN"/*/; do
        sed -n '/^\*mangle/,/^COMMIT/p' "$case/expected.txt" >"$script"
        case $case in
            */firewall_icmp_port/)
                check "a port of ICMP is refused" grep -q "^Error occurred at line: 3$" < <(load "$script") ;;
            *) same "$(basename "$case") loads, as many rules as it writes" \
                "$(load "$script")$(grep -c '^-A' "$script")" \
                "$(iptables-save -t mangle | grep -cE "^-A ($(awk '/^-A/ {print $2}' "$script" | sort -u | paste -sd'|')) ")" ;;
        esac
        iptables -t mangle -F
        nm-base-rules
        while read -r name; do
            eventually 10 ipset destroy "$name" 2>/dev/null
        done < <(sets_of "$script")
    done
}

refuses_whole() {
    local chain bad words
    state >"$scratch/before"
    while IFS=$'\t' read -r chain bad words; do
        apply "$chain" "$bad"
        same "$bad is refused" "-1011 nm_bin: $words failed." "$code $said"
        check "and changes nothing" diff "$scratch/before" <(state)
    done
}

nm-base-rules
cp "$GOLDEN/device_info.json" "$DEVICE_INFO"
loads_goldens
iptables -t mangle -N FOREIGN
iptables -t mangle -A FOREIGN -s 10.0.0.1 -j FIREWALL
ipset -exist create seg-here hash:net
apply firewall '{RULES: {SITE: [{ACTION: "DENY", DST_HOSTNAME: "a.example"}, {ACTION: "ALLOW", SRC_SEG: "here"}],
    new: [{ACTION: "DENY", DST_PORT: "80"}]}, SEGMENT_DEPLOYED: {SITE: "new", PORT3: "new"}}'
same "a document is applied" 0 "$code"
state >"$scratch/before"
apply firewall "$(cat "$NEW")"
check "and again to the same end" diff "$scratch/before" <(state)
apply policy '{}'
same "classes without a rule are the default" 0xc0/0x3c0 "$(iptables-save -t mangle | grep -oP '^-A POLICY.*xmark \K\S+')"
refuses_whole <<'CASES'
firewall	{RULES: {SITE: [{ACTION: "DENY", SRC_IP: "300.0.0.1"}]}}	FIREWALL flush old rules
firewall	{RULES: {SITE: [{ACTION: "DENY"}, {ACTION: "DENY", DST_IP: "-j"}]}}	FIREWALL SITE rule1
firewall	{RULES: {SITE: [{ACTION: "DENY", DST_PORT: "99999"}]}}	FIREWALL flush old rules
firewall	{RULES: {SITE: ([range(5) | {ACTION: "DENY"}] + [{ACTION: "DENY", PROTOCOL: "%n"}])}}	FIREWALL SITE rule2
firewall	{RULES: {x: [range(5) | {ACTION: "DENY"}], y: [{ACTION: "DENY", CLIENT_OS: ("a" * 40)}]}}	FIREWALL x rule3
firewall	{RULES: {SITE: [{ACTION: "DENY", DST_HOSTNAME: "b.example"}, {ACTION: "DENY", DST_IP: ("a" * 65536)}]}}	FIREWALL SITE rule1
firewall	{RULES: {SITE: [{ACTION: "DENY", DST_IP: "x -j ACCEPT"}]}}	FIREWALL SITE rule1
firewall	{RULES: {("a" * 40): [{ACTION: "DENY"}]}}	FIREWALL flush old rules
policy	{RULES: {SITE: [{GROUP: 1}, {GROUP: 2, SRC_IP: "x"}]}}	POLICY SITE rule1
policy	{RULES: {SITE: [{GROUP: 2}, {STEERING: "DIRECT", INTERFACE: "PORT1", SRC_IP: "x"}]}}	STEER SITE rule1
CASES
jq -n "{RULES: {SITE: [range($RULES) | {ACTION: \"ALLOW\", SRC_IP: \"10.1.\(. / 250 | floor).\(. % 250)\", DST_SEG: \"here\"}]}}" \
    >"$NEW"
real=$(readlink -f /usr/sbin/iptables-restore)
rm /usr/sbin/iptables-restore
printf '#!/bin/bash\necho run >>%q\nexec -a iptables-restore %q "$@"\n' "$scratch/runs" "$real" >/usr/sbin/iptables-restore
chmod +x /usr/sbin/iptables-restore
: >"$MAIN_LOG"
: >/run/network/.boot_fin
files=$(find /tmp -not -path "$scratch*" | sort)
same "$RULES rules are applied" "0 NM_OK success" "$(nm_bin Apply_firewall "$NEW" "$OLD.firewall" 2>"$scratch/stderr" | tail -n 1)"
same "and are there" "$RULES" "$(iptables-save -t mangle | grep -c '^-A FIREWALL ')"
same "by one script" run "$(cat "$scratch/runs")"
same "that asked for its set once" 1 "$(grep -c '>>> cmd: /sbin/ipset list seg-here' "$MAIN_LOG")"
same "and left no file" "$files" "$(find /tmp -not -path "$scratch*" | sort)"
finish
