#!/bin/bash
# Generated packets over the demo's site, each explained first and then really sent: it has to come out of the device, and
# with the addresses and ports, that was said, or not at all. Where lots are drawn, both uplinks are right. Prints
# what differs, then the counts. On scripts/vm with the real netfilter target, in the sandbox with a stand-in.
#
# usage: tests/soak/explain.sh [COUNT [SEED]]     (120, 1)
set -euo pipefail
source "$(dirname "$(readlink -f "${BASH_SOURCE[0]}")")/../support/flow_world.sh"
RANDOM=${2:-1}

any() {
    local words=("$@")
    echo "${words[RANDOM % $#]}"
}

# A packet to a host behind the same port does not need the device.
is_inside() {
    [[ $place == [56] && $destination == "10.0.$((place * 10 - 30)).2" ]]
}

# Sets place, source, destination, protocol and port.
generate() {
    local net
    place=$(any - 1 1 2 5 5 5 6 6 6)
    port=$(any 22 53 80 443 8080)
    destination=$(any "$SITE_HOST" "$SITE_STEERED" "$SITE_CLOSED" "$SITE_BRANCH" 10.0.20.2 10.0.30.2 10.0.20.1 198.51.100.2 172.16.0.1)
    protocol=$(any 6 6 17 17 1)
    case $place in
        -) source=$(any 198.51.100.2 192.0.2.130 10.0.20.1) && destination=$(any "$SITE_HOST" "$SITE_BRANCH" 10.0.20.2 10.0.30.1 10.0.30.2) ;;
        1) source=$(any "$SITE_HOST" 203.0.113.77) && destination=$(any 198.51.100.2 198.51.100.2 10.0.20.2 10.0.30.2) && port=$(any 80 8080 8081) ;;
        2) source=$SITE_HOST && destination=$(any 192.0.2.130 192.0.2.130 10.0.30.2) && port=$(any 53 5353) ;;
        *) net=$((place * 10 - 30)) && source=$(any "10.0.$net.2" "10.0.$net.2" "10.0.$net.66" 10.0.99.9) ;;
    esac
    if ((RANDOM % 6 == 0)) && [[ $place == [56] ]]; then
        source=2001:db8:$place::2
        destination=$(any 2001:db8:ffff::9 "2001:db8:$((11 - place))::2" "2001:db8:$place::1")
        [[ $protocol != 1 ]] || protocol=58
    fi
}

explain() {
    local words=("$source" "$destination" "$protocol") way=()
    [[ $protocol == 1 || $protocol == 58 ]] || words+=("$sport" "$port")
    [[ $place == - ]] || way=(--in "swdev$place")
    nm_bin --json explain "${words[@]}" "${way[@]}" >"$scratch/way" 2>"$scratch/stderr" || true
}

# is_as_told: the packet has been seen where it was said, or anywhere that the lots allow. What is delivered is answered, but
# for a false source, whose answer goes elsewhere.
is_as_told() {
    local seen said
    seen=$(what_left "$protocol" "$sport")
    said=$(told "$scratch/way" "$sport")
    if [[ $(jq .is_random "$scratch/way") == true && $seen == swdev[12]* && $said == swdev[12]* ]]; then
        seen=${seen#* * }
        said=${said#* * }
    fi
    [[ $seen == "$said" ]] && { [[ $(jq -r .verdict "$scratch/way") != delivered || $source == 10.0.99.9 ]] || is_answered "$protocol" "$sport" || [[ $place == - ]]; }
}

make_site
for ((i = 1; i <= ${1:-120}; i++)); do
    case $((i % 40)) in
        1) site_uplinks 1 2 ;;
        15) site_uplinks 1 ;;
        28) site_uplinks 2 ;;
    esac
    generate
    while is_inside; do generate; done
    sport=$((20000 + i))
    explain
    really "$place" "$source" "$destination" "$protocol" "$sport" "$port" || true
    what="$i $place $source $destination $protocol $sport $port"
    check "$what" eventually 5 is_as_told >>"$scratch/results"
    if ! grep -qxF "ok $what" "$scratch/results"; then
        echo "differs: $what: seen: $(what_left "$protocol" "$sport" | xargs), said: $(jq -c '[.verdict, .why, .uplink.cable, .left]' "$scratch/way") $(cat "$scratch/stderr")"
    fi
    jq -r '"\(.verdict) \(.dropped_by // "") \(.is_random)\(if .translation != [] then " translated" else "" end)"' "$scratch/way" >>"$scratch/verdicts" || true
done
sort "$scratch/verdicts" | uniq -c
echo "$((i - 1)) packets: $(grep -c '^ok' "$scratch/results" || true) as explained, $(grep -c '^not ok' "$scratch/results" || true) not"
