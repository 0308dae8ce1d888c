#!/bin/bash
# The DHCP server and relay of a LAN with real daemons and clients: who gets which address, what survives a
# restart and what an alteration, a server behind the uplink, and what is left when something fails.
set -euo pipefail

source "$(dirname "${BASH_SOURCE[0]}")/../support/world.sh"

: >/run/network/.boot_fin
readonly STORED=/etc/networkmanagement/dhcp_service.json
readonly DIR=/etc/networkmanagement/dhcp LEASES=/var/lib/dhcpd/dhcpd_lan0.leases
readonly TV=02:00:00:00:00:aa

lan() {
    ip netns add "$2"
    ip link add "$1" up type veth peer name eth0 netns "$2"
    ip addr add "$3" dev "$1"
    ip -n "$2" link set eth0 up
}
lan lan0 clients 192.168.1.1/24
lan lan1 relayed 10.5.0.1/24
lan up0 isp 192.0.2.1/24
ip -n isp addr add 192.0.2.2/24 dev eth0
ip -n isp route add 10.5.0.0/24 via 192.0.2.1

# entry FILE IFNAME JQ: puts the interface's entry into a document; JQ changes a plain server.
entry() {
    jq -n --arg ifname "$2" "{DHCP_SERVICE: {(\$ifname): ({SERVICE: \"SERVER\", START_IP: \"192.168.1.1\",
        END_IP: \"192.168.1.6\", LEASE_TIME: \"600\", RESERVED_IP: [{DEVICE_NAME: \"TV \\\"};\\n#\",
        IP4_ADDR: \"192.168.1.3\", MAC: \"$TV\"}]} | $3)}}" >"$1"
}

# dhcp IFNAME ACT PATH
dhcp() {
    : >"$MAIN_LOG"
    result=$(nm_bin Setup_dhcpservice "{\"$1\":{\"act\":$2,\"ops\":511,\"path\":\"$3\"}}") || true
    result=${result%% *}
}

active() {
    systemctl --quiet is-active "$1"
}

# The unit is not about to be started by itself, as systemd does with one that has failed.
not_waiting() {
    [[ $(systemctl is-active "$1") != activating ]]
}

# address MAC [NETNS]: the address that a client of this MAC gets, "none" within a quarter of a minute.
address() {
    local netns=${2:-clients}
    ip -n "$netns" link set eth0 address "$1"
    echo "timeout 15; send host-name \"pc-${1: -2}\";" >"$scratch/dhclient.conf"
    rm -f "$scratch/client.leases"
    timeout 20 ip netns exec "$netns" dhclient -4 -1 -v -cf "$scratch/dhclient.conf" -lf "$scratch/client.leases" \
        -pf "$scratch/dhclient.pid" -sf /bin/true eth0 >"$scratch/dhclient.log" 2>&1 || true
    sed -n 's/^bound to \([0-9.]*\) .*/\1/p' "$scratch/dhclient.log" | grep . || echo none
    [[ ! -s $scratch/dhclient.pid ]] || kill "$(<"$scratch/dhclient.pid")" 2>/dev/null || true
}

table() {
    nm_bin Get_dhcp_client_table "$1" | head -n 1 | jq -c "$2"
}

entry "$STORED" lan0 .
dhcp lan0 1 "$STORED"
same "the server starts" "0 yes" "$result $(active nm-dhcpd@lan0 && echo yes)"
taken=$(for n in 1 2 3 4; do address "02:00:00:00:00:0$n"; done | sort | xargs)
same "the pool is handed out around router and reservation" \
    "192.168.1.2 192.168.1.4 192.168.1.5 192.168.1.6" "$taken"
same "the reserved client gets its address" 192.168.1.3 "$(address $TV)"
same "the table shows leases and reservations" \
    '[4,["pc-01","pc-02","pc-03","pc-04"],true,["192.168.1.3","TV \"}; #"]]' "$(table lan0 '[(.LEASE | length),
        ([.LEASE[].DEVICE_NAME] | sort), (.LEASE | all(.EXPIRES | test("^0:(9:|10:0$)"))),
        (.RESERVATION[0] | [.IP4_ADDR, .DEVICE_NAME])]')"

build dhcp_restart networkinterface jsoncpp
same "a restart succeeds" 0 "$("$scratch/dhcp_restart" lan0 192.168.1.254)"
same "and keeps the leases" "4 true" "$(table lan0 '.LEASE | length') $(active nm-dhcpd@lan0 && echo true)"
same "a known one gets its address again, with the new router" "yes 192.168.1.254" \
    "$(grep -qwF "$(address 02:00:00:00:00:02)" <<<"$taken" && echo yes) $(
        sed -n 's/.*option routers \(.*\);/\1/p' "$scratch/client.leases" | tail -n 1)"

entry "$scratch/new.json" lan0 '.START_IP = "192.168.1.100" | .END_IP = "192.168.1.101" | .RESERVED_IP = []'
dhcp lan0 3 "$scratch/new.json"
same "an alteration discards the leases" '0 ["",""]' "$result $(table lan0 '[.LEASE, .RESERVATION]')"
same "and serves the new pool" 192.168.1.100 "$(address 02:00:00:00:00:05 | sed 's/101$/100/')"
dhcp lan0 2 /absent
same "a delete leaves nothing" "0 no " \
    "$result $(active nm-dhcpd@lan0 || echo no) $(find "$DIR" /var/lib/dhcpd -type f)"

dhcp lan0 1 "$STORED"
kill -KILL "$(<"/run/nm-dhcpd_lan0.pid")"
dhcp lan0 2 "$STORED"
same "a server that was killed is deleted as well" "0 " "$result $(find "$DIR" /var/lib/dhcpd -type f)"

mkdir "$LEASES"
dhcp lan0 1 "$STORED"
same "a server that dies at once is a failure" "-1011 no" "$result $(active nm-dhcpd@lan0 || echo no)"
logged "and is logged" "Start service 'nm-dhcpd@lan0' failed, ret=1"
check "it is not started again and again" not_waiting nm-dhcpd@lan0
dhcp lan0 2 "$STORED"
rmdir "$LEASES"
printf '[Service]\nType=oneshot\nExecStart=/bin/sh -c "echo >>%s/tries; exit 1"\n' "$scratch" \
    >/etc/systemd/system/nm-dhcpd@.service
systemctl daemon-reload
dhcp lan0 1 "$STORED"
same "a unit that fails is started five times" "-1011 5" "$result $(wc -l <"$scratch/tries")"
rm /etc/systemd/system/nm-dhcpd@.service
systemctl daemon-reload
dhcp lan0 2 "$STORED"

flock -o /var/lock/network/dhcpservice.lck sleep 60 &
daemons+=("$!")
eventually 5 bash -c '! flock -n /var/lock/network/dhcpservice.lck true'
"$scratch/dhcp_restart" lan0 192.168.1.254 >"$scratch/restarted" &
nm_bin Get_dhcp_client_table lan0 >"$scratch/table" &
dhcp lan0 1 "$STORED"
eventually 5 grep -q . "$scratch/table" && eventually 5 grep -q . "$scratch/restarted"
same "under a held lock nothing is done" "-1015 -1015 -1015 no no" \
    "$result $(<"$scratch/restarted") $(cut -d ' ' -f 1 "$scratch/table") $(active nm-dhcpd@lan0 || echo no) $([[ -e $DIR/dhcpd_lan0.conf ]] || echo no)"
kill "${daemons[-1]}"
eventually 5 flock -n /var/lock/network/dhcpservice.lck true

# The relay: a server in another namespace, one that is not there, and one without a route.
printf '%s\n' 'subnet 192.0.2.0 netmask 255.255.255.0 {}' \
    'subnet 10.5.0.0 netmask 255.255.255.0 { range 10.5.0.77; }' >"$scratch/isp.conf"
: >"$scratch/isp.leases"
ip netns exec isp dhcpd -4 -f -q --no-pid -cf "$scratch/isp.conf" -lf "$scratch/isp.leases" eth0 \
    >"$scratch/isp.log" 2>&1 &
daemons+=("$!")
entry "$STORED" lan1 '.SERVICE = "RELAY" | .RELAY_SERVERS = ["192.0.2.2", "192.0.2.3", "10.99.0.9"]'
dhcp lan1 1 "$STORED"
same "the relay starts" "0 yes" "$result $(active nm-dhcrelay@lan1 && echo yes)"
same "it knows all servers and their one uplink" "-id lan1 -iu up0 192.0.2.2 192.0.2.3 10.99.0.9" \
    "$(tr '\0' ' ' <"/proc/$(</run/nm-dhcrelay_lan1.pid)/cmdline" | sed 's/.*\(-id\)/\1/; s/ $//')"
same "a client gets its lease through the relay" 10.5.0.77 "$(address 02:00:00:00:00:06 relayed)"
dhcp lan1 2 "$STORED"
same "a delete stops the relay" "0 no " "$result $(active nm-dhcrelay@lan1 || echo no) $(find "$DIR" -type f)"
finish
