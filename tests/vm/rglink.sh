#!/bin/bash
# A PPPoE session of an RGLink against a real server: the set-up, and a change of the device's MTU, which ends the
# session before the MTU is set and dials it again.
set -euo pipefail
source "$(dirname "$0")/../support/world.sh"
source "$support_dir/uplink_world.sh"

kind=RGLINK
readonly SECRET=c4n4ry-$RANDOM$RANDOM

pppoe_server() {
    echo "\"link\" * \"$SECRET\" *" >/etc/ppp/chap-secrets
    printf '%s\n' require-chap 'ms-dns 198.51.100.53' >/etc/ppp/pppoe-server-options
    ip netns exec isp1 pppoe-server -I far -L 198.51.100.1 -R 198.51.100.100 -F >/dev/null 2>&1 &
    daemons+=("$!")
}

session() {
    ip -j addr show ppp-swdev1 2>/dev/null | jq -r '.[].addr_info[] | select(.local) | .local'
}

# The session is there, and so is all that follows from it.
is_settled() {
    [[ -n $(session) ]] && ipset save | grep -qF "$(session),ppp-swdev1" && is_quiet
}

# What the health manager was told since the last time. That there is no address may be said twice: by the set-up
# that ends a session, and by the event of its end.
domain_link() {
    calls | sed -n 's/^nm-hmgr\.//p' | jq -Rr 'split(" ") | .[0] + " " + (.[1] | fromjson | .ip4_addr // "")' |
        sed "s/ $(session)\$/ session/; s/ *\$//" | uniq | paste -sd,
}

client() {
    ps -C pppd -o pid=,args= | awk '/swdev1/ {print $1}'
}

is_new() {
    [[ -n $before && -n $(client) && $(client) != "$before" ]]
}

make_uplinks
nm-base-rules
pppoe_server
document "$DEVICE_INFO" 'infos.swdev1 += {IP4_TYPE: "PPPOE", USERNAME: "link", PASSWORD: "'"$SECRET"'"}'
cp "$DEVICE_INFO" "$NEW"
same "it is dialled" "0 NM_OK success" "$(run 1 7)"
check "the session is up" eventually 90 is_settled
same "the health manager follows" "AddDomainLink,UpdateRGLinkInfo session" "$(domain_link)"
same "its rules have no guard, and none is of NAT" "177: from $(session),178: from all oif ppp-swdev1,180: from all fwmark 0x2001/0x200f" \
    "$(ip rule show table 267 | sed 's/\t/ /; s/ lookup.*//' | paste -sd,)"
check "packets pass by it" ping -c 1 -W 5 -I "$(session)" 198.51.100.1

before=$(client)
jq '.RGLINK_PORT.PORT1.MTU = "1400"' "$DEVICE_INFO" >"$NEW"
: >"$MAIN_LOG"
same "the MTU changes" "0 NM_OK success" \
    "$(nm_bin Setup_rglinkif "{\"PORT1\":{\"ops\":4,\"act\":3,\"path\":\"$NEW\"}}" 2>>"$scratch/stderr")"
same "the device has it" 1400 "$(</sys/class/net/swdev1/mtu)"
check "the session was ended before the MTU was set, and dialled after it" eval \
    '[[ $(grep -oE "PPPoE MTU is changed|PPPoE config for swdev1|ifname \[swdev1\]|Set MTU|do nm_add_pppoe_and_run" "$MAIN_LOG" |
        paste -sd,) == "PPPoE MTU is changed,PPPoE config for swdev1,ifname [swdev1],Set MTU,do nm_add_pppoe_and_run" ]]'
cp "$NEW" "$DEVICE_INFO"
check "the session is up again" eventually 90 is_settled
check "it is a new one" is_new
same "the health manager follows again" "UpdateRGLinkInfo,UpdateRGLinkInfo session" "$(domain_link)"
check "packets pass by it again" ping -c 1 -W 5 -I "$(session)" 198.51.100.1

same "it is deleted" "0 NM_OK success" "$(run 2 7)"
check "its end is worked" eventually 60 is_quiet
same "nothing is left of it" "" \
    "$(uplink 1; ipset save | grep ppp-; ls -d /sys/class/net/ppp-* 2>/dev/null; find /etc/vpppoe -type f ! -name '*.env')"
same "the password is in no log" "" "$(grep -rlF "$SECRET" /var/log/network 2>/dev/null)"
finish
