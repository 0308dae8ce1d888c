#!/bin/bash
# Keeps a compressed copy of a full log as FILE.<time>.gz beside it; the writer then empties the log itself.
# The oldest copies beyond a handful are removed, because the log partition is small. The writer waits, and every
# thread of a daemon with it, so this starts as few programs as it can.
#
# usage: log_compress.sh FILE
set -euo pipefail
shopt -s nullglob

readonly KEEP=5

[[ $# == 1 && -f $1 ]] || {
    echo "usage: log_compress.sh FILE (a regular file)" >&2
    exit 2
}
log=$1

# The copy appears under its final name only when it is whole; several processes may roll over at once. The name
# carries the time in microseconds and the process, so that names sort by age and do not meet.
printf -v stamp '%(%Y%m%d%H%M%S)T%s.%s' -1 "${EPOCHREALTIME#*[.,]}" "$$"
unfinished=$log.$stamp
# As gzip names its output itself, it also gives it the owner and the mode of the log before it has content. That the
# log grows meanwhile is no fault.
if ! gzip -k -S ".$stamp" -- "$log" 2>/dev/null; then
    rm -f -- "$unfinished"
    echo "log_compress.sh: cannot keep $log" >&2
    exit 1
fi
mv -n -- "$unfinished" "$log.$stamp.gz"

copies=("$log".*.gz)
surplus=$((${#copies[@]} - KEEP))
((surplus <= 0)) || rm -f -- "${copies[@]:0:surplus}"
