#!/bin/bash
# The sandbox itself: what happens inside stays inside, and nothing is left when it ends, however it ends.
# Runs outside the sandbox, and inside one as well.
set -euo pipefail
cd "$(dirname "$0")/../.."
. tests/support/tap.sh
shared=$(mktemp -d)
trap 'rm -rf "$shared"' EXIT

outside() {
    cat /proc/self/mountinfo /proc/sys/kernel/hostname
    ls /sys/class/net
}
before=$(outside)

inside() {
    scripts/sandbox --no-install "$@"
}
same "its own links, host name and processes" "lo UNKNOWN sandbox 1" \
    "$(inside bash -c 'ip -br link | cut -c1-25; cat /proc/sys/kernel/hostname; echo $PPID' | xargs)"
inside bash -c 'echo x >/etc/sandbox_was_here; echo y >scripts/sandbox_was_here; mkdir /run/sandbox_was_here
    : >/tmp/sandbox_was_here; : >/dev/shm/sandbox_was_here; ip link add sandbox_br0 type bridge'
check "the files outside are untouched" bash -c \
    '! ls -d {/etc,scripts,/run,/tmp,/dev/shm}/sandbox_was_here 2>/dev/null | grep .'
check "the kernel's own settings are out of reach, those of the network are not" inside bash -c \
    'cd /proc/sys && ! echo "$(<kernel/panic)" >kernel/panic && echo "$(<net/ipv4/ip_forward)" >net/ipv4/ip_forward'
inside --share "$shared" bash -c "echo kept >'$shared/kept'; echo lost >'$shared.lost'"
same "a shared directory remains" "kept " "$(cat "$shared/kept" "$shared.lost" 2>/dev/null | tr '\n' ' ')"
same "input, arguments, output and status are passed on" $'input\na b\n$(id)\n7' \
    "$(inside bash -c 'cat; printf "%s\n" "$@"; exit 7' - 'a b' '$(id)' <<<input || echo $?)"

fails() {
    local name=$1 expected=$2 status=0 output
    output=$("${@:3}" 2>&1) || status=$?
    same "$name" "$expected 1" "$status $(wc -l <<<"$output")"
}
ln -s /bin/false "$shared/unshare"
fails "refused namespaces" 77 env PATH="$shared:$PATH" scripts/sandbox true
# Wherever the tree lies, the other user has to be able to read the script.
fails "not root" 77 setpriv --reuid 65534 --clear-groups --inh-caps +dac_read_search \
    --ambient-caps +dac_read_search bash scripts/sandbox true

# The same under systemd, whose own boot would empty /tmp and set kernel parameters.
if why=$(inside --systemd true 2>&1); then
    same "units run, and what is shared stays, as do the kernel's settings" "systemd kept Read-only file system" \
        "$(inside --systemd --share "$shared" bash -c "printf '[Service]\nType=oneshot\nExecStart=/bin/cp /proc/1/comm /run/\n' \
            >/run/systemd/system/a.service && systemctl daemon-reload && systemctl start a && cat /run/comm '$shared/kept'
            echo 60 2>&1 >/proc/sys/kernel/panic | sed 's/.*panic: //'" | xargs)"
    same "input, arguments, output and status are passed on under systemd" $'input\na b\n7' \
        "$(inside --systemd bash -c 'cat; printf "%s\n" "$@"; exit 7' - 'a b' <<<input || echo $?)"
else
    skip "units under systemd" "$why"
fi
fails "no systemd" 77 inside bash -c 'rm /lib/systemd/systemd; exec scripts/lib/systemd-world true'
mkdir "$shared/no_mount" && ln -s /bin/false "$shared/no_mount/mount"
fails "refused control groups" 77 inside --share "$shared" bash -c "PATH='$shared/no_mount':\$PATH; touch /usr/bin/systemctl.machine
    chmod +x /usr/bin/systemctl.machine; exec scripts/lib/systemd-world true"

for signal in TERM KILL; do
    sleeper="sleep 1000.$RANDOM$RANDOM"
    inside bash -c "setsid $sleeper & $sleeper" &
    check "the world is up before SIG$signal" eventually 10 pgrep -fx "$sleeper"
    # The subshell that runs the function is the parent of the script.
    kill -s "$signal" "$(cat /proc/$!/task/$!/children 2>/dev/null | grep . || echo $!)"
    wait $! 2>/dev/null || true
    check "nothing lives on after SIG$signal" eventually 10 bash -c "! pgrep -fx '$sleeper'"
done
same "no mount, host name or link is left" "$before" "$(outside)"

finish
