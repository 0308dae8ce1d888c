#!/bin/bash
# Boots a site again and again, and cuts its power at random moments of stores, bring-ups and boots. Each boot has a
# network, a /run and a systemd of its own; what is stored stays, as on a disk. Not part of scripts/test: a boot takes
# seconds.
#
# usage: tests/soak/boots.sh [--vm] [BOOTS [CUTS]]        (20 and 100)
# Exits 1 if a boot was not as it must be, or a document neither the old nor the new one.
#   --vm  in scripts/vm --debian: a kernel, a disk and a Debian of its own, and VLANs and IPv6 in the site; slower
set -euo pipefail

SOURCE_DIR=$(cd "$(dirname "$(readlink -f "$0")")/../.." && pwd -P)
SELF=$(readlink -f "$0")
place=sandbox
[[ ${1:-} != --vm ]] || { place=machine && shift; }
readonly SOURCE_DIR SELF BOOTS=${1:-20} CUTS=${2:-100}
readonly DEVICE_INFO=/etc/networkmanagement/device_info.json STORES=/var/lib/site-stores
[[ ${1:-} != power_machine ]] || exec "$SOURCE_DIR/scripts/vm" --debian "$DISK" -t 600 "${@:2}"
[[ $place == machine || -e /run/vm || -e /run/network/.sandbox ]] || exec "$SOURCE_DIR/scripts/sandbox" "$SELF" "$@"
source "$SOURCE_DIR/scripts/lib/site"

# ---- Within one boot.

# What the journal has of the boot, in the order in which it must be.
order() {
    journalctl -q -b -o cat --no-pager _PID=1 | sed -nE 's/^(Finished|Starting|Reached target) (nm-base-rules|nm-bringup|nm-boot-finish|networkinterface)\..*/\1 \2/p' |
        grep -v 'Starting nm-base' | paste -sd,
}

seconds_of() {
    systemctl show -p "$2" --value "$1" | awk '{printf "%.2f", $1 / 1e6}'
}

report() {
    if [[ -e /run/vm ]]; then site_machine_report; else site_report; fi
}

works() {
    local more=""
    [[ ! -e /run/vm ]] || more=$'\nfar4, by DHCP, asks the internet: one of both\nfar4, of the delegated prefix, reaches by IPv6: 1 from 2001:db8:100:1:'
    site_uplinks 1 2
    [[ $(report | sed -E '/^far4.*asks the internet/s/far[12]$/one of both/') == "far5 asks the internet, often: far1 far2
far5 asks for the appliance by name: Address: 10.0.20.1
far6 asks what is steered to uplink 2: far2
far6 asks what is closed: nothing
far1 asks the forward: far5
far6 reaches the branch: 1$more" ]]
}

# What the booted device has otherwise than its documents describe. A sandbox's kernel lacks a match of the balancing.
drifted() {
    local found status=0
    [[ -e /run/vm ]] || return 0
    found=$(nm_bin drift --json) || status=$?
    [[ $status == 0 ]] || echo "failed: drift ($status): $(jq -c '[.unread, (.findings // .)]' <<<"$found" | head -c 3000)"
}

# A line on a boot that is done: its order, its failed units, whether the site works, how long it took.
inspect() {
    local order failed
    order=$(order)
    failed=$(systemctl list-units --failed --plain --no-legend | awk '{print $1}' | paste -sd,)
    [[ $order == "Finished nm-base-rules,Starting nm-bringup,Finished nm-bringup,Starting nm-boot-finish,Finished nm-boot-finish,Reached target networkinterface" ]] ||
        echo "wrong order: $order"
    [[ -z $failed ]] || echo "failed: $failed"
    works || { echo "the site does not work:" && report; }
    drifted
    echo "booted $(seconds_of nm-boot-finish ActiveEnterTimestampMonotonic) $(seconds_of systemd-journald.service ActiveEnterTimestampMonotonic)"
}

# Which of the two documents is stored.
stored() {
    local n
    for n in 0 1; do
        ! cmp -s <(jq -cS . "$DEVICE_INFO") <(jq -cS . "$STORES/$n.json") || { echo "document $n" && return; }
    done
    echo "neither document ($(wc -c <"$DEVICE_INFO") bytes: $(diff <(jq -S . "$DEVICE_INFO" 2>&1) <(jq -S . "$STORES/0.json") | head -n 5 | xargs))"
}

# The boots of a machine keep what is stored on its disk, so that the next one has to say which it is.
inspect_cut() {
    echo "$(stored) is stored; the next boot:"
    inspect
}

is_back() {
    [[ $(systemctl is-active "$1") == active && $(systemctl show -p NRestarts --value "$1") == "$2" ]]
}

# A daemon's unit that takes ever more memory is ended and comes back, and takes nothing from the others.
outgrow() {
    local group tries=0
    group=/sys/fs/cgroup$(systemctl show -p ControlGroup --value "$1")
    # shellcheck disable=SC2016  # the inner shell's own
    bash -c 'echo $$ >"$1/cgroup.procs" && hog=x && while :; do hog+=$hog; done' - "$group" 2>/dev/null || true
    until is_back "$1" 1; do
        ((++tries < 300)) || { echo "failed: $1 is not back: $(systemctl show -p Result -p NRestarts -p ActiveState "$1" | xargs)" && return; }
        sleep 0.2
    done
    journalctl -q -b -o cat _PID=1 | grep -qE "^$1.service: (A process of this unit has been killed by the OOM killer|Failed with result 'oom-kill')" ||
        echo "failed: $1 was not held to its memory"
}

# The machine has booted once, without documents; from now on it boots the site.
furnish() {
    outgrow ncaas
    outgrow nm-serviced
    is_back dnsmasqmgr 0 || echo "failed: dnsmasqmgr did not stay"
    site_machine
    store_both
}

store_both() {
    mkdir -p "$STORES"
    cp "$DEVICE_INFO" "$STORES/0.json"
    jq '.WAN_PORT.PORT1.MTU = "1400"' "$DEVICE_INFO" >"$STORES/1.json"
}

# Stores one of two documents after the other, and brings the device up, until the power goes.
work_on() {
    local n
    for ((n = 0;; n++)); do
        vsh ncaas.write_json "$(jq -nc --arg path "$DEVICE_INFO" --slurpfile data "$STORES/$((n % 2)).json" '{path: $path, data: $data[0]}')" >/dev/null
        [[ $((n % 5)) != 4 ]] || systemctl restart nm-bringup || true
    done
}

# ---- Around them.

case ${1:-} in
    inspect | inspect_cut | work_on | furnish) "$1" && exit ;;
    power) site_power "${@:2}" ;;
esac

# boots COUNT [HOW]: whole boots, each inspected.
boots() {
    local n
    for ((n = 1; n <= $1; n++)); do
        echo "boot $n: $("$SELF" "$power" "$SELF" "${2:-inspect}" 2>"$errors" || echo "status $?: $(tail -n 1 "$errors")")"
    done
}

# cut_power SECONDS SIGNAL: a boot that is killed, with all its processes at once, somewhere before so many seconds. The
# signal is for who runs it.
cut_power() {
    local machine after=$((RANDOM % $1)).$((RANDOM % 10))
    "$SELF" "$power" "$SELF" work_on >/dev/null 2>&1 &
    machine=$!
    sleep "$after"
    kill "-$2" "$machine"
    wait "$machine" 2>/dev/null || true
    echo "cut after $after s"
}

cuts() {
    local n
    for ((n = 1; n <= CUTS; n++)); do
        cut_power 15 KILL
        while pgrep -x ncaas >/dev/null; do sleep 0.02; done  # the last processes die after the first
        echo "$(stored) is stored"
        ((n % 10 != 0)) || boots 1
    done
}

# cuts_of_machine SECONDS: each somewhere before so many.
cuts_of_machine() {
    local n
    for ((n = 1; n <= CUTS; n++)); do
        cut_power "$1" TERM
        ((n % 5 != 0)) || boots 1 inspect_cut
    done
}

# all_well FILE: nothing that was printed is a complaint.
all_well() {
    ! grep -qE '(^|: )(wrong order|failed|the site does not work|neither document|status [0-9]+)( |:|$)' "$1"
}

if [[ $place == machine ]]; then
    DISK=$(mktemp -u)
    export DISK
    errors=$DISK.errors power=power_machine
    trap 'rm -f "$DISK"{,.boots,.errors}' EXIT
    "$SOURCE_DIR/scripts/vm" --prepare --debian "$DISK"
    { "$SELF" power_machine "$SELF" furnish && boots "$BOOTS"; } | tee "$DISK.boots"
    cuts_of_machine "$(awk '$1 == "booted" || $3 == "booted" {took = $(NF - 1)} END {print int(took * 1.5) + 20}' "$DISK.boots")" |
        tee -a "$DISK.boots"
    all_well "$DISK.boots"
    exit
fi
errors=/srv/boot.errors power=power
site_furnish
store_both
{ boots "$BOOTS" && cuts; } | tee /srv/boots
all_well /srv/boots
