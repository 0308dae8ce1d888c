#!/bin/bash
# Keeps a compressed copy of a full log as FILE.<time>.gz beside it; the writer then empties the log itself.
# The oldest copies beyond a handful are removed, because the log partition is small.
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

# The copy appears under its final name only when it is whole; several processes may roll over at once.
# The name carries nanoseconds, so that names sort by age and do not meet.
unfinished=$(mktemp "$log.XXXXXX")
trap 'rm -f "$unfinished"' EXIT
# Others write on: what comes after this moment stays for the next file.
head -c "$(stat -Lc %s -- "$log")" -- "$log" | gzip >"$unfinished"
chmod --reference="$log" "$unfinished"
mv -n -- "$unfinished" "$log.$(date +%Y%m%d%H%M%S%N).gz"

copies=("$log".*.gz)
for ((i = 0; i < ${#copies[@]} - KEEP; i++)); do
    rm -f -- "${copies[i]}"
done
