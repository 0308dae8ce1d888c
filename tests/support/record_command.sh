# shellcheck shell=bash
# Stand-ins that record how they were called, laid over real commands within the sandbox. Sourced.
# A journal has one JSON object a line: {"argv": [...], "stdin": "text", or null where none was given}.

# record_command PATH JOURNAL [STATUS [OUTPUT]]: from now on PATH prints OUTPUT and exits with STATUS.
record_command() {
    local path=$1 journal=$2 status=${3:-0} output=${4:-} own_stdin
    [[ -e /run/network/.sandbox ]] || {
        echo "record_command: not in the sandbox, leaving $path alone" >&2
        return 1
    }
    own_stdin=$(readlink "/proc/$BASHPID/fd/0" || true)
    mkdir -p "$(dirname "$path")"
    # Commands like iptables are links to one program for many names, which must stay whole.
    rm -f "$path"
    {
        echo '#!/bin/bash'
        declare -p journal status output own_stdin | sed 's/^declare --/readonly/'
        cat <<'STANDIN'
# What the caller merely passed on from the test is not meant for this command, and reading it could hang.
input=(--argjson stdin null)
if [[ $(readlink "/proc/$$/fd/0") != "$own_stdin" && -r /dev/stdin ]]; then
    input=(--rawfile stdin /dev/stdin)
fi
line=$(jq -cn "${input[@]}" '{argv: $ARGS.positional, stdin: $stdin}' --args -- "$0" "$@")
{
    flock 9
    printf '%s\n' "$line" >&9
} 9>>"$journal"
printf '%s' "$output"
exit "$status"
STANDIN
    } >"$path"
    chmod 755 "$path"
}

# recorded_calls JOURNAL: the calls, one a line, as a shell would take them.
recorded_calls() {
    [[ ! -e $1 ]] || jq -r '.argv | map(if test("^[A-Za-z0-9_./:@%+=,-]+$") then . else @sh end) | join(" ")' "$1"
}
