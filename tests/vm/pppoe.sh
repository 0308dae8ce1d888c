#!/bin/bash
# A PPPoE session against a real server: refused, let in, lost and dialled again, stopped.
set -euo pipefail
source "$(dirname "$0")/../support/world.sh"

readonly LOG=/var/log/network/pppoe-swdev1.log
readonly CREDENTIALS=/srv/credentials  # away from the places that are searched
readonly SECRET=c4n4ry-$RANDOM$RANDOM  # in no file of the sources, which may be cloned to such a place
mkdir -p "$CREDENTIALS" /etc/vpppoe/env
echo "$SECRET \"q\\" >"$CREDENTIALS/right"
echo "$SECRET" >"$CREDENTIALS/wrong"
echo 'REDIAL_SECONDS="2"' >/etc/vpppoe/env/swdev1.env

ip netns add isp
ip link add swdev1 type veth peer name acc0 netns isp
ip -n isp link set acc0 up
printf '"us er@isp" * "%s \\"q\\\\" *\n' "$SECRET" >/etc/ppp/chap-secrets
printf '%s\n' require-chap 'ms-dns 198.51.100.53' +ipv6 >/etc/ppp/pppoe-server-options
ip netns exec isp pppoe-server -I acc0 -L 198.51.100.1 -R 198.51.100.100 -F >/dev/null 2>&1 &
daemons+=("$!")

call() {
    same "${*:2}" "$1" "$(pppoe_call "${@:2}" <"${password:-/dev/null}")"
}
is_up() {
    [[ $(pppoe_call is_interface_pppoe_running swdev1) == 0 ]]
}
client() {
    ps -C pppd -o pid=,args= | awk '/swdev1/ {print $1}'
}
is_new() {
    is_up && [[ $(client) != "$before" ]]
}
password=$CREDENTIALS/wrong call 0 nm_add_pppoe_and_run swdev1 "us er@isp"
check "the refusal is told" eventually 60 grep -q "status 19: user name or password refused" "$LOG"
call -2 get_pppoe_status swdev1

password=$CREDENTIALS/right call 0 nm_add_pppoe_and_run swdev1 "us er@isp"
check "a password of quotes and backslashes is let in" eventually 60 is_up
kernel=$(ip -j -4 addr show ppp-swdev1 | jq -r '.[].addr_info[] | select(.local) | .local')
call $'0\nppp-swdev1\n'"$kernel"$'\n198.51.100.1\n198.51.100.53\n198.51.100.53' get_pppoe_status swdev1
same "no default route" "" "$(ip route show default)"
check "packets pass" ping -c 1 -W 5 198.51.100.1
same "no command line shows the password" "" "$(grep -lFf "$CREDENTIALS/wrong" /proc/[0-9]*/cmdline 2>/dev/null)"
same "of all files only the options hold it" /etc/vpppoe/peers/swdev1 \
    "$(grep -rlFf "$CREDENTIALS/wrong" /etc/vpppoe /var/log /run /tmp 2>/dev/null)"

before=$(client)
kill -KILL "$before"
check "a lost session is dialled again" eventually 60 is_new

echo 'STOP_FLAG="1"' >>/etc/vpppoe/env/swdev1.env
kill -TERM "$(client)"
check "the stop flag ends redialling" eventually 20 grep -q "not wanted any more" "$LOG"
call 0 start_interface_pppoe swdev1
check "a start takes the flag back" eventually 60 is_up
call 0 stop_interface_pppoe swdev1
check "stopped at once" test ! -e /sys/class/net/ppp-swdev1
call 0 del_interface_pppoe_cfg swdev1
same "nothing is kept" "" "$(find /etc/vpppoe /run/vpppoe -type f)"

# A WAN port of that type, and then of another one: what the library makes of the session's coming and going.
source "$support_dir/uplink_world.sh"
source "$support_dir/../../scripts/lib/ipv6-world"
sites() {
    calls | sed -n 's/^rmgmtd.ipsec.edit_local_site //p' | jq -r '"\(.op) \(.ip)"' | xargs
}
check "no event is left of before" eventually 60 is_quiet
start_services
ipset create ip6_localip hash:ip family inet6
document "$DEVICE_INFO" '.WAN_IFACE_INFO.swdev1 += {IP4_TYPE: "PPPOE", IP6_TYPE: "PPPOEV6", USERNAME: "us er@isp",
    PASSWORD: "'"$SECRET"' \"q\\"}'
cp "$DEVICE_INFO" "$NEW"
same "a WAN port dials" "0 NM_OK success" "$(run 1 15)"
check "its session is up, and its event worked" eventually 90 eval 'ipset save | grep -q ppp-swdev1 && is_quiet'
kernel=$(ip -j -4 addr show ppp-swdev1 | jq -r '.[].addr_info[] | select(.local) | .local')
# The provider still has the session of the client that was killed, so the device of this one may be any.
device=$(ip -n isp -o -4 addr | sed -n "s|.*: \(ppp[0-9]*\) .* peer $kernel/.*|\1|p")
provider6 9 isp "$device" "$(link_address ppp-swdev1)"
advertise6 9 isp "$device" off
check "an advertisement numbers it" eventually 90 eval 'ip -6 rule | grep -q "from 2001:db8:9:"'
own=$(ip -6 rule | sed -n 's/.*from \(2001:db8:9:[^ ]*\) .*/\1/p')
check "its IPv6 leads to the provider as well" eventually 60 ping -q -c 1 -W 5 -I "$own" "$EVERYWHERE6"
check "the sets know it" eventually 60 eval 'is_quiet && ipset -q test ip6_localip "$own"'
check "its rules and routes lead to the provider" grep -q via <(ip route get 192.0.2.9 from "$kernel")
same "the overlay knows its address" "add $kernel" "$(sites)"
document "$NEW"
same "it becomes a static one" "0 NM_OK success" "$(run 3 5)"
check "the end of the session is worked" eventually 60 is_quiet
same "nothing of the session is left" "" "$(ipset save | grep ppp-; ls -d /sys/class/net/ppp-* 2>/dev/null; ip rule | grep "$kernel" || true
    ip -6 rule | grep 2001; ipset save ip6_localip | grep add; ls /run/network/ipv6; ls /etc/networkmanagement/*.dhcpcd.conf 2>/dev/null || true)"
same "the overlay knows the static address last" "del null add 10.1.0.2" "$(sites)"
same "the password is in no log" "" "$(grep -rlF "$SECRET" /var/log/network 2>/dev/null)"
finish
