# shellcheck shell=bash
# What the system tests share: entering the sandbox, building small helpers against the installed library,
# daemons that end with the test, and one setup call with its result and log. Sourced.
# shellcheck disable=SC2034  # the tests read the variables

support_dir=$(cd "$(dirname "${BASH_SOURCE[0]}")" && pwd -P)
source "$support_dir/tap.sh"

[[ -e /run/network/.sandbox ]] || exec "$support_dir/../../scripts/sandbox" "$(readlink -f "$0")" "$@"

# What is installed comes first; kernel_call is not, nor are the programs of this directory.
PATH=$PATH:$support_dir:$(cd "${NM_BUILD_DIR:-build}/bin" && pwd -P)

readonly DEVICE_INFO=/etc/networkmanagement/device_info.json
readonly MAIN_LOG=/var/log/network/main.log
scratch=$(mktemp -d)
daemons=()
trap 'kill "${daemons[@]}" 2>/dev/null || true' EXIT

# build PROGRAM LIBRARY...: compiles tests/support/PROGRAM.cpp against what is installed, to $scratch/PROGRAM.
build() {
    local program=$1 sanitizers=()
    shift
    # A library that was built with sanitizers loads into programs of the same kind only.
    if [[ $(ldd /usr/sbin/nm_bin) == *libasan* ]]; then
        sanitizers=(-fsanitize=address -fsanitize=undefined)
        export ASAN_OPTIONS=detect_leaks=0  # the leak checker cannot work under a tracer
    fi
    g++ -std=c++17 -Wall -Wextra -Werror "${sanitizers[@]}" -I/usr/include/networkinterface \
        -I/usr/include/jsoncpp -o "$scratch/$program" "$support_dir/$program.cpp" "${@/#/-l}"
}

# plug NAMESPACE DEVICE ADDRESS FAR_ADDRESS [LINK_ARG]...: a cable between the appliance and a namespace, which is made;
# what more the namespace's end needs comes as lines of ip on standard input.
plug() {
    ip netns add "$1"
    ip link add "$2" "${@:5}" type veth peer name far netns "$1"
    ip link set "$2" up
    [[ $3 == - ]] || ip addr add "$3/24" dev "$2"
    { printf '%s\n' "link set lo up" "link set far up" "addr add $4/24 dev far" && cat; } | ip -n "$1" -b -
}

# serve SERVICE COMMAND [ARG]...: starts a daemon of the bus that is ready to answer.
serve() {
    "${@:2}" &
    daemons+=("$!")
    check "$1 serves" eventually 30 test -S "/var/run/vservice/$1.sock"
}

# setup REQUEST: one call with a fresh log; $result is the code, $line the output, $status the exit status.
setup() {
    : >"$MAIN_LOG"
    status=0
    line=$(nm_bin Setup_wanif - <<<"$1" 2>>"$scratch/stderr") || status=$?
    result=${line%% *}
}

# logged NAME PATTERN: the last call wrote an error line like this.
logged() {
    check "$1" grep -qE " ERROR \[.*>>> .*$2" "$MAIN_LOG"
}

# outside: what a rehearsal must leave as it is, besides the state of the network: namespaces, processes, mounts.
outside() {
    readlink /proc/[0-9]*/ns/{net,mnt} 2>/dev/null | sort -u
    cat /proc/self/mountinfo
    ls /tmp /run /run/network
}

is_outside() {
    [[ $(outside) == "$1" ]]
}
