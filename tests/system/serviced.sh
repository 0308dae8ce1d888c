#!/bin/bash
# The service daemon: its unit, who may call, readiness and signs of life, what a stop and a kill leave, and that
# its documentation and completion say what it serves.
set -euo pipefail
source "$(dirname "${BASH_SOURCE[0]}")/../support/world.sh"

readonly SERVICE=networkmanagement ROUTES=/etc/networkmanagement/static_route.json
readonly FIREWALL=/etc/networkmanagement/firewall.json RESTORE=/sbin/iptables-restore
readonly CURRENT=/run/network/static_route.curr SOCKET=/run/vservice/$SERVICE.sock
daemon=none

ask() {
    vsh "$SERVICE.$1" "${@:2}" 2>&1
}

# start [NAME=VALUE]...: the daemon as a child of the test.
start() {
    rm -f "$SOCKET"  # that of one that was killed
    env "$@" nm_serviced 2>>"$scratch/stderr" &
    daemon=$!
    daemons+=("$daemon")
    eventually 20 test -S "$SOCKET"
}

# ended NAME: the daemon was told to stop and ends well.
ended() {
    local status=0
    wait "$daemon" || status=$?
    same "$1" 0 "$status"
}

is_refused() {
    [[ $(ask Get_lanif_list) == *"No such file"* ]]
}

store_routes() {
    jq -n --arg network "$1" '{STATIC_ROUTE: [{ACTION: "ENABLE", IP: $network, NETMASK: "24",
        NEXTHOP_ADDRESS: "10.1.0.9", METRIC: "0"}]}' >"$scratch/routes"
    mv "$scratch/routes" "$ROUTES"
}

check_papers() {
    local docs=$support_dir/../../docs/bus-methods.md
    same "the documented methods are those that are served" "$(nm_serviced --methods)" "$(sed -n '/^| Method/,$p' "$docs")"
    # shellcheck source=tools/completion/vsh
    source "$support_dir/../../tools/completion/vsh"
    COMP_WORDS=(vsh "$SERVICE.Setup_s") COMP_CWORD=1 && _vsh
    same "completion knows the methods" "$SERVICE.Setup_segment $SERVICE.Setup_static_route" "${COMPREPLY[*]:0:2}"
    COMP_WORDS=(vsh "$SERVICE.RenewDHCPClientIP" "") COMP_CWORD=2 && _vsh
    same "and their arguments" "'{\"portname\": \"\",\"ifname\": \"\"}'" "${COMPREPLY[*]}"
}

# Only systemd's own log has fields; the datagrams of others are looked at by the handlers' tests.
check_journal() {
    [[ -S /run/systemd/journal/socket ]] || return 0
    ask FB_log '{"level": "err", "cat_id": "C5", "msg_id": 17, "args": ["a b"]}' >/dev/null
    has_event() {
        journalctl -t event -o json --no-pager | jq -r '[.PRIORITY, .SYSLOG_FACILITY, .EVENT_CLASS, .EVENT_NUMBER,
            .EVENT_VALUE1] | join(" ")' | grep -qx '3 3 C5 17 a b'
    }
    check "an event reaches the journal with its fields" eventually 10 has_event
}

check_unit() {
    systemctl start nm-serviced
    [[ -d /run/systemd/system ]] || eventually 10 test -S "$SOCKET"  # the stand-in awaits no readiness
    same "started, it answers" '{"data":{"lan":["lo"]},"error":0,"meta":{"version":"1.1"}}' "$(ask Get_lanif_list)"
    store_routes 10.9.0.0
    same "and sets up" '{"data":"","error":0,"meta":{"version":"1.1"}}' "$(ask Setup_static_route)"
    check "the kernel has the route" grep -q '^10.9.0.0/24 via 10.1.0.9' <(ip route show table 1)
    check "the copy is what was stored" cmp "$ROUTES" "$CURRENT"
    check "another user is refused" eval "! setpriv --reuid 65534 --clear-groups vsh $SERVICE.Get_lanif_list"
    same "a second daemon is refused" "1 nm_serviced: cannot listen: Address already in use" \
        "$(status=0; text=$(nm_serviced 2>&1) || status=$?; echo "$status $text")"
    check_journal
    systemctl stop nm-serviced
    check "a stopped daemon leaves no socket" test ! -e "$SOCKET"
}

# What the manager of services hears of a life of two seconds.
check_notification() {
    perl -MSocket -e 'socket(S, PF_UNIX, SOCK_DGRAM, 0); bind(S, sockaddr_un($ARGV[0])) or die; $| = 1;
        while (defined recv(S, $b, 99, 0)) { print "$b\n" }' "$scratch/notify" >>"$scratch/notified" &
    daemons+=("$!")
    eventually 10 test -S "$scratch/notify"
    start NOTIFY_SOCKET="$scratch/notify" WATCHDOG_USEC=1500000
    check "it is ready" eventually 10 grep -qx READY=1 "$scratch/notified"
    check "it is alive" eventually 10 grep -qx WATCHDOG=1 "$scratch/notified"
    kill -STOP "$daemon"
    : >"$scratch/notified"
    sleep 2
    same "frozen, it says nothing" "" "$(<"$scratch/notified")"
    kill -CONT "$daemon"
    kill "$daemon"
    ended "it stops"
    check "and says so" eventually 5 grep -qx STOPPING=1 "$scratch/notified"
}

# A request that takes a while is finished, and nobody is let in meanwhile.
check_stop() {
    start
    mv /usr/sbin/firewall.sh{,.real}
    printf '#!/bin/sh\ntouch /run/slow; sleep 2\n' >/usr/sbin/firewall.sh
    chmod 755 /usr/sbin/firewall.sh
    store_routes 10.8.0.0
    ask Setup_static_route >"$scratch/answer" &
    local caller=$!
    eventually 10 test -e /run/slow
    kill "$daemon"
    check "who comes after the stop is refused" eventually 5 is_refused
    check "while the request runs on" kill -0 "$daemon"
    wait "$caller"
    same "which is answered" '{"data":"","error":0,"meta":{"version":"1.1"}}' "$(<"$scratch/answer")"
    ended "the daemon ends well"
    mv /usr/sbin/firewall.sh{.real,}
}

# A few hundred requests to each method, of every kind: each has its one reply, and nothing stays open.
check_callers() {
    start
    check "every caller has a reply of its own" bus_storm each 200 "$daemon"
    kill "$daemon"
    ended "and the daemon outlives them"
}

# Killed in the middle of applies: stored document and copy are whole, and the next daemon goes on with them.
check_kill() {
    local n caller wrong=0
    for n in 1 2 3 4 5 6 7 8 9 10; do
        start
        store_routes "10.$((n % 2 + 8)).0.0"
        (for _ in 1 2 3 4 5 6 7 8; do ask Setup_static_route; done) >/dev/null 2>&1 &
        caller=$!
        sleep "0.0$n"
        kill -KILL "$daemon"
        wait "$daemon" 2>/dev/null || true
        wait "$caller" || true
        jq -e '.STATIC_ROUTE | length == 1' "$ROUTES" "$CURRENT" >/dev/null || wrong=$((wrong + 1))
    done
    same "ten kills leave whole documents" 0 "$wrong"
    start
    same "and a daemon that answers" '"error":0' "$(ask Setup_static_route | grep -o '"error":0')"
    check "with the routes of the document" grep -q '^10.8.0.0/24' <(ip route show table 1)
    kill "$daemon"
    wait "$daemon" || true
}

store_firewall() {
    jq -n --arg address "$1" '{RULES: {SITE: [{ACTION: "DENY", DST_IP: $address}]}}' >"$scratch/firewall"
    mv "$scratch/firewall" "$FIREWALL"
}

# What is in force and what is kept, as the addresses of the one rule each.
firewall() {
    echo "$(iptables-save -t mangle | sed -n 's|^-A FIREWALL -d \([0-9.]*\)/32.*|\1|p' | uniq)" \
        "$(jq -r '.RULES.SITE[].DST_IP' "$FIREWALL" /run/network/firewall.curr | xargs)"
}

# pause_restore before|after|never: where loading a rule set stops for good.
pause_restore() {
    local pause='touch /run/paused; exec sleep 60'
    local real='/usr/sbin/stock/iptables-restore "$@"'
    local -A lines=([before]="$pause" [after]="$real; $pause" [never]="exec $real")
    rm -f /run/paused
    printf '#!/bin/sh\n%s\n' "${lines[$1]}" >"$RESTORE.new"
    chmod 755 "$RESTORE.new"
    mv "$RESTORE.new" "$RESTORE"
}

answers() {
    [[ $(ask Get_lanif_list) == *'"error":0'* ]]
}

# Killed while a rule set is loaded: the rules are the old or the new ones, the documents whole, and the daemon that the
# manager of services starts in its place brings all of them together again.
check_kill_in_restore() {
    local pause caller
    local -A rules=([before]=10.0.0.1 [after]=10.0.0.2)
    iptables -t mangle -N FIREWALL
    install -D "$support_dir/../../scripts/lib/stock-netfilter" /usr/sbin/stock/iptables-restore
    systemctl start nm-serviced
    for pause in before after; do
        eventually 20 answers
        pause_restore never
        store_firewall 10.0.0.1
        ask Setup_firewall >/dev/null
        store_firewall 10.0.0.2
        pause_restore "$pause"
        ask Setup_firewall >/dev/null &
        caller=$!
        eventually 20 test -e /run/paused
        kill -KILL "$(pidof nm_serviced)"
        wait "$caller" || true
        same "killed $pause a rule set is in force" "${rules[$pause]} 10.0.0.2 10.0.0.1" "$(firewall)"
        pause_restore never
        [[ -d /run/systemd/system ]] || systemctl start nm-serviced  # the stand-in starts nothing again
        check "the daemon is started again" eventually 20 answers
        same "and applies the document" '"error":0' "$(ask Setup_firewall | grep -o '"error":0')"
        same "which is in force and kept" "10.0.0.2 10.0.0.2 10.0.0.2" "$(firewall)"
    done
    systemctl stop nm-serviced
}

: >/run/network/.boot_fin
echo '{"LAN_IFACE_INFO":{"lo":{}}}' >"$DEVICE_INFO"
ip link add swdev1 up type veth peer name far
ip link set far up
ip addr add 10.1.0.1/24 dev swdev1
check_papers
check_unit
check_notification
check_stop
check_callers
check_kill
check_kill_in_restore
finish
