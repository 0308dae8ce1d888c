#!/bin/bash
# nm_bin in the hands of people: failures that are explained by their cause, changes of stored documents that are
# made whole or not at all, and what is shown of them.
set -euo pipefail
source "$(dirname "${BASH_SOURCE[0]}")/../support/world.sh"

readonly SECRET=geheim-7 UNDO=/etc/networkmanagement/nm_bin.undo LOCKS=/var/lock/network

make_world() {
    local n
    : >/run/network/.boot_fin
    nm-base-rules
    printf 'model=VM\ndevid=1\n' >/etc/networkmanagement/ncaas.conf
    for n in 1 2; do
        ip link add "swdev$n" type veth peer name "far$n"
        ip link set "swdev$n" up
        ip link set "far$n" up
    done
    jq -n --arg secret "$SECRET" '{
        WAN_PORT: {PORT1: {DEV_TYPE: "virtio", INTERFACE: "swdev1", MTU: "1500"},
                   PORT3: {DEV_TYPE: "virtio", INTERFACE: $secret, MTU: "1500"}},
        WAN_IFACE_INFO: {swdev1: {IP4_TYPE: "DISABLED", IP6_TYPE: "DISABLED", USERNAME: "me", PASSWORD: $secret}},
        LAN_PORT: {PORT4: {DEV_TYPE: "virtio", INTERFACE: "lan0"}}}' >"$DEVICE_INFO"
}

# says NAME STATUS PATTERN COMMAND [ARG]...: the exit status and, among all that is printed, a line like this; of the
# secret nothing.
says() {
    local status=0 output
    output=$("${@:4}" 2>&1) || status=$?
    same "$1: exit status" "$2" "$status"
    check "$1: what is said" grep -qE -- "$3" <<<"$output"
    [[ $output != *"$SECRET"* ]] || failed "$1: a secret is printed" "$output"
}

# of PORT OPS ACT: a member of a request.
of() {
    echo "\"$1\":{\"ops\":$2,\"act\":$3,\"path\":\"$DEVICE_INFO\"}"
}

# without DIRECTORY COMMAND [ARG]...: the command while the directory is missing.
without() {
    local status=0
    mv -T "$1" "$scratch/away"
    "${@:2}" || status=$?
    rm -rf "$1"
    mv -T "$scratch/away" "$1"
    return "$status"
}

# stand_in DOES: a service ncaas that has been killed ("bind"), or hangs up on its callers ("listen").
stand_in() {
    rm -f /run/vservice/ncaas.sock "$scratch/there"
    python3 -c 'import socket, sys
service = socket.socket(socket.AF_UNIX)
service.bind("/run/vservice/ncaas.sock")
if sys.argv[1] == "listen":
    service.listen()
open(sys.argv[2], "w")
while sys.argv[1] == "listen":
    service.accept()[0].close()' "$1" "$scratch/there" &
    daemons+=("$!")
    eventually 20 test -e "$scratch/there"
}

check_causes() {
    local words unprivileged=(setpriv --reuid 65534 --regid 65534 --clear-groups)
    says "no permission" 77 '^try: only root' "${unprivileged[@]}" nm_bin Setup_wanif "{$(of PORT1 4 3)}"
    for words in "set PORT1 mtu 1400" "service add Camera TCP 554" migrate setup_all_iface_by_config "boot begin"; do
        # shellcheck disable=SC2086  # the words of a command
        says "no permission to $words" 77 '^try: only root' "${unprivileged[@]}" nm_bin $words
    done
    says "no directory of locks" 72 '^try: the directory /var/lock/network is missing' \
        without /run/lock/network nm_bin Setup_wanif "{$(of PORT1 4 3)}"
    says "another directory" 72 '^try: the directory /etc/networkmanagement is missing' \
        without /etc/networkmanagement nm_bin Setup_wanif "{$(of PORT1 4 3)}"
    says "a service that is down" 69 '^try: the service ncaas does not run' nm_bin Setup_lanif "{$(of PORT4 4 3)}"
    stand_in bind
    says "a service that was killed" 69 '^try: the service ncaas does not run' nm_bin Setup_lanif "{$(of PORT4 4 3)}"
    stand_in listen
    says "a service that fails" 69 '^try: the service ncaas runs but did not answer' nm_bin Setup_lanif "{$(of PORT4 4 3)}"
    kill "${daemons[-1]}"
    rm /run/vservice/ncaas.sock
    says "which an addition needs, too" 69 '^try: the service ncaas does not run' nm_bin add wan PORT9
    says "and a bring-up" 69 '^try: the service ncaas does not run' nm_bin setup_all_iface_by_config
    same "the step that needs it, for machines" "get_model -1602 the service ncaas does not run; start it true" "$(
        nm_bin --json setup_all_iface_by_config 2>/dev/null | jq -r 'select(.step == "get_model") |
        "\(.step) \(.code) \(.try) \(.errors | length > 0)"')"
    says "an error of the log, the secret masked" 1 '^error: \*\*\* does not exist' nm_bin Setup_wanif "{$(of PORT3 4 1)}"
    says "and its code" 1 '^failed: -1002 NM_ERR_NO_IFACE' nm_bin Setup_wanif "{$(of PORT3 4 1)}"
    says "each target's result" 1 '^  PORT1 0 NM_OK' nm_bin Setup_wanif "{$(of PORT1 4 3),$(of PORT3 4 1)}"
    says "the first target's failure" 1 '^failed: PORT1: -1001' nm_bin Setup_wanif "{$(of PORT1 4 9),$(of PORT3 4 1)}"
    says "one result a target for machines" 1 '"target":"PORT3"' nm_bin Setup_wanif "{$(of PORT1 4 3),$(of PORT3 4 1)}" --json
    says "no ops" 0 '^warning: PORT1 has no ops' nm_bin Setup_wanif "{\"PORT1\":{\"act\":3,\"path\":\"$DEVICE_INFO\"}}"
    says "a target that names nothing" 1 '^warning: PORT9 names nothing' nm_bin Setup_wanif "{$(of PORT9 4 3)}"
    says "no target" 1 '^warning: the request names no target' nm_bin Setup_wanif '{}'
    says "a code" 0 '^  try: +wait until' nm_bin codes -1015 --text
    says "an unknown code" 2 'no such code' nm_bin codes -1
}

# The documents of the world as they are, one that is to take the place of a stored one, and what cannot be read.
check_documents() {
    local words unprivileged=(setpriv --reuid 65534 --regid 65534 --clear-groups)
    says "no fault" 0 '^0 errors, 0 warnings in [0-9]+ document' nm_bin check --text
    sed 's/"MTU": "1500"/"MTU": "15"/; s/"me"/["me"]/' "$DEVICE_INFO" >"$scratch/device_info.json"
    chmod 600 "$DEVICE_INFO" "$MAIN_LOG"
    says "a file to be stored" 1 "^$scratch/device_info.json:[0-9]+:[0-9]+: error: /WAN_PORT/PORT1/MTU: \"15\" is not valid" \
        nm_bin check --text "$scratch/device_info.json"
    says "what would be right" 1 '^    right: largest packet in bytes, from 68' nm_bin check --text "$scratch/device_info.json"
    says "for editors" 1 '"pointer" : "/WAN_IFACE_INFO/swdev1/USERNAME"' nm_bin check "device_info=$scratch/device_info.json"
    says "what may not be read" 2 '^nm_bin: .*/device_info.json is not checked: Permission denied' \
        "${unprivileged[@]}" nm_bin check --text
    for words in list show diff log; do
        says "what may not be read by $words" 77 '^try: only root reads /(etc|var)/' "${unprivileged[@]}" nm_bin "$words"
    done
    says "an unknown document" 2 'no document has this name' nm_bin check --text nonsense
}

# A terminal, without which nobody watches.
on_terminal() {
    TERM=xterm script -qec "$1" /dev/null
}

# hold NAME: somebody else has the lock, until $holder is killed.
hold() {
    flock --no-fork "$LOCKS/$1.lck" sleep 120 &
    holder=$!
    eventually 5 bash -c "! flock --nonblock $LOCKS/$1.lck true"
}

# ended STATUS FILE: what a command has left that ran beside.
ended() {
    cat "$2"
    return "$1"
}

# A wait that ends, and two at the same time that do not: of a bring-up, and of a request that fails otherwise, too.
check_wait() {
    local status=0 run
    hold swdev1
    on_terminal "nm_bin Setup_wanif '{$(of PORT1 4 3)}'" >"$scratch/shown" &
    run=$!
    check "a wait is shown" eventually 20 grep -qE \
        'PORT1: waiting [0-9]+ s of at most 10 for the lock of swdev1, held by sleep \(process [0-9]+\)' "$scratch/shown"
    kill "$holder"
    wait "$run" || status=$?
    says "and ends with the lock" 0 '0 NM_OK success' ended "$status" "$scratch/shown"

    serve ncaas ncaas
    cp "$DEVICE_INFO" "$scratch/sound"
    jq '{WAN_PORT: {PORT1: .WAN_PORT.PORT1, PORT2: (.WAN_PORT.PORT1 * {INTERFACE: "swdev2"})}}' "$scratch/sound" >"$DEVICE_INFO"
    hold swdev1
    on_terminal "nm_bin setup_all_iface_by_config" >"$scratch/shown" &
    run=$!
    same "a target's failure is not explained by another's" "failed: PORT1: -1015" \
        "$(nm_bin Setup_wanif "{$(of PORT1 4 3),$(of PORT2 4 9)}" 2>&1 | grep -B 1 '^try: the lock' | grep -o '^failed: [^ ]* -[0-9]*')"
    status=0
    wait "$run" || status=$?
    says "a step that waits is shown" 75 'setup_wanif PORT1: waiting [0-9]+ s of at most 10' ended "$status" "$scratch/shown"
    says "and why it failed" 75 '^try: the lock /var/lock/network/swdev1.lck is held by sleep' ended "$status" "$scratch/shown"
    kill "$holder"
    cp "$scratch/sound" "$DEVICE_INFO"
    says "an error of a step, the secret masked" 1 '^error: \*\*\* does not exist' nm_bin setup_all_iface_by_config
}

stored() {
    jq -r "$1" "$DEVICE_INFO"
}

# state: the MTU in force and the whole stored document.
state() {
    echo "$(cat /sys/class/net/swdev1/mtu) $(sha256sum <"$DEVICE_INFO")"
}

# A deletion that touches two documents, the second of which cannot be written.
check_two_documents() {
    local documents=("$DEVICE_INFO" /etc/networkmanagement/dhcp_service.json) before
    ip link add lan9 up type veth peer name far3
    ip link set far3 up
    chmod 644 "$DEVICE_INFO"
    nm_bin add lan lan9 ipv4 static address 10.9.0.1/24 >/dev/null 2>&1
    mkdir -p "${documents[1]}.tmp/obstacle"
    says "an addition that is not stored" 1 '^The stored documents are as they were' nm_bin add dhcp lan9 dhcp-start 10.9.0.2 dhcp-end 10.9.0.9
    check "leaves no empty document" test ! -e "${documents[1]}"
    rm -r "${documents[1]}.tmp"
    nm_bin add dhcp lan9 dhcp-start 10.9.0.2 dhcp-end 10.9.0.9 >/dev/null
    same "an edit without a password keeps the mode" "644 600" "$(stat -c %a "${documents[@]}" | xargs)"
    before=$(sha256sum "${documents[@]}")
    mkdir -p "$DEVICE_INFO.tmp/obstacle"
    says "a deletion that is not stored" 1 '^The stored documents are as they were' nm_bin delete lan9
    rm -r "$DEVICE_INFO.tmp"
    same "leaves both documents" "$before" "$(sha256sum "${documents[@]}")"
    same "and what they describe" "10.9.0.1/24 active" \
        "$(ip -4 -br addr show lan9 | awk '{print $3}') $(systemctl is-active nm-dhcpd@lan9)"
    nm_bin delete lan9 >/dev/null 2>&1
    nm_bin set PORT1 username you >/dev/null
    same "one beside a password as well" 644 "$(stat -c %a "$DEVICE_INFO")"
    nm_bin set PORT1 password "$SECRET" >/dev/null
    same "one with a password closes the document" 640 "$(stat -c %a "$DEVICE_INFO")"
}

# Files that somebody has damaged end no command.
check_damage() {
    local row
    for row in '{' '{"changes":"x"}' '{"changes":[{"entry":{}}]}' '{"changes":[{"entry":"Setup_wanif","key":"PORT1","ops":"4"}]}'; do
        echo "$row" >"$UNDO"
        says "undo by $row" 1 "$UNDO is damaged" nm_bin undo
    done
    cp "$DEVICE_INFO" "$scratch/sound"
    echo '{"WAN_PORT":"x"}' >"$DEVICE_INFO"
    says "a section that is not an object" 1 "$DEVICE_INFO or one of its sections is not an object; nm_bin check shows where" nm_bin add wan PORT9
    echo '[]' >"$DEVICE_INFO"
    says "a boot without a device" 0 '^0 NM_OK' nm_bin boot finish
    cp "$scratch/sound" "$DEVICE_INFO"
}

check_edits() {
    local before pid pids=()
    says "set" 0 '^0 NM_OK' nm_bin set PORT1 mtu 1400
    same "is in force and stored" "1400 1400" "$(cat /sys/class/net/swdev1/mtu) $(stored .WAN_PORT.PORT1.MTU)"
    before=$(state)
    says "undo" 0 '^0 NM_OK' nm_bin undo
    same "takes both back" "1500 1500" "$(cat /sys/class/net/swdev1/mtu) $(stored .WAN_PORT.PORT1.MTU)"
    nm_bin undo >/dev/null
    same "undone itself" "$before" "$(state)"
    while IFS='|' read -r status pattern words; do
        read -ra words <<<"$words"
        says "set ${words[*]}" "$status" "$pattern" nm_bin set "${words[@]}"
        same "set ${words[*]}: nothing has changed" "$before" "$(state)"
    done <<'END'
2|mtu is 68..65535, not 10|PORT1 mtu 10
2|no member mtux; there are .*mtu|PORT1 mtux 10
2|PORT9 is not in the stored documents; there are PORT1|PORT9 mtu 1400
2|is given when the entry is added|PORT1 interface swdev2
2|ipv4 STATIC needs address|PORT1 ipv4 static
2|gateway 192.0.3.1 is not in the network|PORT1 ipv4 static address 192.0.2.2/24 gateway 192.0.3.1
2|password has no value|PORT1 mtu 1400 password
0|Nothing to change|PORT1 mtu 1400
1|^failed: .*-1009|PORT1 mtu 1300 ipv4 static address 224.0.0.1/24
END
    nm_bin set PORT1 password - <<<"other-$SECRET" >/dev/null
    same "a password comes from the input" "other-$SECRET" "$(stored .WAN_IFACE_INFO.swdev1.PASSWORD)"
    says "a rehearsal masks" 0 '\*\*\*' nm_bin set PORT1 password "new-$SECRET" --dry-run
    same "only root reads what undoes it" 600 "$(stat -c %a "$UNDO")"
    for pid in prio:7 line-rate:1G mtu:1450; do
        nm_bin set PORT1 "${pid%:*}" "${pid#*:}" >/dev/null &
        pids+=($!)
    done
    wait "${pids[@]}"
    same "editors at the same time lose nothing" "7 1000000000 1450" \
        "$(stored '.WAN_PORT.PORT1 | "\(.PRIO) \(.ISP_BW) \(.MTU)"')"
    hold swdev1
    nm_bin set PORT1 prio 8 >/dev/null &
    pid=$!
    eventually 20 grep -q nanosleep "/proc/$pid/wchan"
    jq '.WAN_PORT.PORT1.ISP_BW = "2000000000"' "$DEVICE_INFO" >"$scratch/other" && cp "$scratch/other" "$DEVICE_INFO"
    kill "$holder"
    wait "$pid"
    same "what another writes during an edit stays" "8 2000000000" "$(stored '.WAN_PORT.PORT1 | "\(.PRIO) \(.ISP_BW)"')"
    jq '.WAN_PORT.PORT1.MTU = "1499"' "$DEVICE_INFO" >"$scratch/other" && cp "$scratch/other" "$DEVICE_INFO"
    says "undo of what another has changed" 1 'has been changed since' nm_bin undo
    nm_bin add wan PORT2 interface swdev2 mtu 1480 ipv4 static address 192.0.2.2/24 >/dev/null 2>&1
    same "an added uplink is in force" "1480 192.0.2.2" \
        "$(cat /sys/class/net/swdev2/mtu) $(ip -4 -j addr show swdev2 | jq -r '.[0].addr_info[0].local')"
    nm_bin delete PORT2 >/dev/null 2>&1
    same "and a deleted one is gone" "null null " "$(stored '.WAN_PORT.PORT2, .WAN_IFACE_INFO.swdev2' | xargs) $(
        ip -4 -br addr show swdev2 | awk '{print $3}')"
    nm_bin undo >/dev/null 2>&1
    same "until that is undone" "192.0.2.2/24" "$(ip -4 -br addr show swdev2 | awk '{print $3}')"
    check_two_documents
    says "an entry is added once" 2 'PORT2 is there already' nm_bin add wan PORT2
    nm_bin add dhcp lan0 dhcp-start 10.9.0.2 dhcp-end 10.9.0.9 --dry-run >"$scratch/dhcp"
    same "a DHCP service has a document of its own" '"10.9.0.2"' "$(jq '.[] | select(.key == "START_IP").after' "$scratch/dhcp")"
}

check_views() {
    same "a list for machines" '["PORT1","wan","swdev1","up"]' \
        "$(nm_bin list | jq -c '.[0] | [.name, .kind, .interface, .link]')"
    check "a list for people" grep -qE '^PORT1 +wan +swdev1 +up +1450' <<<"$(nm_bin list --text)"
    check "colours on a terminal" grep -q $'\033\[2m.*name' <<<"$(on_terminal 'nm_bin list')"
    check "none where NO_COLOR asks for none" grep -qv $'\033' <<<"$(NO_COLOR=1 on_terminal 'nm_bin list')"
    says "what is stored, masked" 0 '^swdev1 +password +\*\*\*' nm_bin show PORT1 --text
    nm_bin Setup_wanif "{$(of PORT1 4 3)}" >/dev/null  # as the log may just have been rolled over
    check "the log of a port" grep -q 'swdev1' <<<"$(nm_bin log -n 5 PORT1)"
    same "and of no other" "" "$(nm_bin log -n 100 PORT1 | grep -vE 'PORT1|swdev1' || true)"
    timeout 3 nm_bin log -f -n 0 swdev9 >"$scratch/followed" || true &
    sleep 0.5
    echo "ERROR about swdev9" >>"$MAIN_LOG"
    check "the log is followed" eventually 2 grep -q 'about swdev9' "$scratch/followed"
}

# typed COMPLETION LINE: the arguments that a shell makes of a line when TAB and Enter follow it.
typed() {
    printf '%s\n' "source /usr/share/bash-completion/completions/$1" 'shown() { printf "<%s>" "$@" >../words; }' \
        "complete -F _$1 shown" >../setup
    printf '%s\t\n' "shown $2" exit | TERM=dumb script -qec 'bash --noprofile --rcfile ../setup -i' /dev/null >/dev/null
    cat ../words
}

# Who may put a file somewhere runs nothing by its name.
check_file_names() {
    local completion line
    mkdir "$scratch/names" && cd "$scratch/names"
    : >'$(touch ran) x'
    while read -r completion line; do
        same "$completion: $line and TAB" "<${line// /><}\$(touch ran) x>" "$(typed "$completion" "$line")"
    done <<'END'
nm_bin check ./
nm_bin Apply_dnat ./
nm_bin status --picture ./
nm_bin Setup_wanif @./
vsh ncaas.read_json @./
END
    same "and nothing has run" '$(touch ran) x' "$(ls)"
    cd - >/dev/null
}

# completes EXPECTED WORD...: what the last word is completed to.
completes() {
    local COMP_WORDS=(nm_bin "${@:2}") COMP_CWORD=$(($# - 1)) COMPREPLY=()
    _nm_bin
    same "completion of ${*:2}" "$1" "${COMPREPLY[*]}"
}

check_completion() {
    # shellcheck source=/dev/null
    source /usr/share/bash-completion/completions/nm_bin
    completes "PORT1 PORT2 PORT3 PORT4" set PORT
    completes "mtu" set PORT1 mt
    completes "DHCP DISABLED PPPOE STATIC" set PORT1 ipv4 ""
    completes "dhcp lan private rglink vlan wan" add ""
    completes "-1051 -1052 -1053" codes -105
    completes "undo" un
    completes "Apply_segment" Apply_se
    completes "Setup_wanif" --json Setup_wanif
    completes "--json" --j
    completes "/etc/hosts" Apply_firewall /etc/hosts
    completes "/etc/hosts" --json Apply_policy new.json /etc/hosts
    completes "@/etc/hosts" Setup_wanif @/etc/hosts
    completes "/etc/hosts" trace --out /etc/hosts
    completes "--out" trace --ou
    completes "Lease_event" trace Lease_
    completes "mtu" trace set PORT1 mt
    jq '.WAN_PORT["ODD$(reboot);x"] = {} | .WAN_PORT["C1\u009b2J"] = {} | .WAN_PORT.PORT8 = "none"' "$DEVICE_INFO" >"$scratch/other" && cp "$scratch/other" "$DEVICE_INFO"
    completes 'ODD\$\(reboot\)\;x' set ODD
    same "a table moves no cursor" 'C1?2J' "$(nm_bin list --text | grep -ao '^C1[^ ]*')"
    says "an entry that is not an object" 1 'PORT8 is not in the stored documents' nm_bin show PORT8
}

rendered() {
    MANWIDTH=200 man -l "$1" | col -b
}

# missing FILE: the words of standard input, extended expressions, that the text lacks.
missing() {
    local word
    while read -r word; do
        grep -qE -- "(^|[^A-Za-z0-9_-])$word" "$1" || echo "$word"
    done
}

# Every program that is installed has a page, and the pages name what the program's own tables hold.
check_pages() {
    local program page pages=(/usr/share/man/man7/networkinterface.7)
    if ! command -v man >/dev/null; then
        skip "manual pages" "man is not installed"
        return 0
    fi
    while read -r program; do
        page=$(find /usr/share/man/man[18] -name "${program##*/}.[18]")
        check "${program##*/} has a page" test -n "$page"
        pages+=("$page")
    done < <(sed -n 's|^\(/usr/s\?bin/.*\)|\1|p' "${NM_BUILD_DIR:-build}/install_manifest.txt")
    for page in "${pages[@]}"; do
        same "${page##*/} renders without warnings" "" "$(MANWIDTH=80 man --warnings -l "$page" 2>&1 >/dev/null)"
    done
    rendered /usr/share/man/man8/nm_bin.8 >"$scratch/commands"
    rendered /usr/share/man/man7/networkinterface.7 >"$scratch/format"
    same "nm_bin(8) names every command" "" \
        "$(nm_bin --help | sed -n '/^commands:/,/^$/s/^  \([A-Za-z]\w*\).*/\1/p' | missing "$scratch/commands")"
    same "networkinterface(7) has every code" "" \
        "$(nm_bin codes | jq -r '.[] | "\(.code) +\(.name)"' | missing "$scratch/format")"
    same "and every member" "" "$(for page in PORT1 swdev1 PORT4; do nm_bin show "$page"; done |
        jq -r '.[].member | "[A-Z0-9_]+ \\(\(.)\\)"' | sort -u | missing "$scratch/format")"
}

make_world
check_causes
check_documents
check_wait
check_edits
check_damage
check_views
check_completion
check_file_names
check_pages
finish
