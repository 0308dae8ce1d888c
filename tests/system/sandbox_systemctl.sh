#!/bin/bash
# The stand-in for systemctl: hostile text in units, the life of a service, and exit codes.
set -euo pipefail
cd "$(dirname "$0")/../.."
[[ -e /run/network/.sandbox ]] || exec scripts/sandbox --no-install "$PWD/tests/system/${0##*/}"
# shellcheck source=tests/support/tap.sh
. tests/support/tap.sh
cd "$(mktemp -d)"

unit() {
    { echo "[Service]"; cat; } >"/etc/systemd/system/$1.service"
}

# Name of the case ~ arguments of ExecStart ~ lines that arrive at the program.
printf '%s\n' '# V=c' V=z 'V="a b"' 'V[0]=a' ';V=d' 'W=$(touch evil)`id`;=' >settings
while IFS='~' read -r name arguments expected; do
    unit 'case@' <<EOT
Type=oneshot
Environment="TWO=one 'two three'" HOST=;touch\ evil;
EnvironmentFile=$PWD/settings
EnvironmentFile=-$PWD/absent
ExecStart=/bin/sh -c 'printf "%%s\\\\n" "\$\$@" >$PWD/seen' - $arguments
EOT
    systemctl start case@sw-dev1.100
    same "arguments: $name" "$(printf '%b' "$expected")" "$(cat seen)"
done <<'EOT'
words and quotes~a	b "c 'd'" e"f g"h~a\nb\nc 'd'\nef gh
the instance~%i %I %p 100%%~sw-dev1.100\nsw/dev1.100\ncase\n100%
a variable as a word is cut, within a word it is not~$TWO x${TWO}y~one\ntwo three\nxone 'two three'y
shell text is text~$(touch\ evil) `touch\ evil` ; | & > $$HOME~$(touch evil)\n`touch evil`\n;\n|\n&\n>\n$HOME
values of the environment are text~${HOST} ${W} ${V}~;touch evil;\n$(touch evil)`id`;=\na b
EOT
check "none of it was run" test ! -e evil
rm settings
same "an environment file that must be there is missing" 1 "$(systemctl start case@a 2>/dev/null || echo $?)"

main_pid() {
    systemctl status "$1" | awk '/Main PID/ {print $3}'
}
readonly STOP="ExecStop=/bin/sh -c 'echo \${MAINPID} >$PWD/stopped'"
unit simple <<<$'ExecStart=/bin/sleep 1000\n'"$STOP"
unit forking <<<$'Type=forking\nExecStart=/bin/sh -c "setsid sleep 1000 & echo $$! >/run/pid"\nPIDFile=/run/pid\n'"$STOP"
for type in simple forking; do
    systemctl start $type
    pid=$(main_pid $type)
    check "$type: the daemon is found" grep -qx sleep "/proc/$pid/comm"
    systemctl start $type
    same "$type: a second start changes nothing" "$pid" "$(main_pid $type)"
    systemctl restart $type
    same "$type: a restart ends the former process" "$pid" "$(cat stopped /proc/"$pid"/comm 2>/dev/null)"
    pid=$(main_pid $type)
    systemctl stop $type
    same "$type: a stop ends the process" "$pid" "$(cat stopped /proc/"$pid"/comm 2>/dev/null)"
    systemctl start $type
    kill "$(main_pid $type)"
    check "$type: one that died is not active" eventually 5 bash -c "! systemctl -q is-active $type"
done
unit failing <<<$'ExecStartPre=-/bin/false\nExecStartPre=/bin/false\nExecStart=/bin/touch /run/evil'
same "a failing preparation ends the start" 1 "$({ systemctl start failing || echo $?; ls /run/evil; } 2>/dev/null)"
same "units that are not there" "4 5 5 5 1 3" "$(for verb in status start stop restart enable is-active; do
    systemctl $verb nope 2>/dev/null || echo $?
done | xargs)"

finish
