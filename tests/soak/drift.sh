#!/bin/bash
# Each planted change of tests/system/drift.sh by itself, with the class that is found, and no drift when it is taken back.
# Prints what is wrong, then the counts.
#
# usage: tests/soak/drift.sh
set -euo pipefail
source "$(dirname "$(readlink -f "${BASH_SOURCE[0]}")")/../support/drift_world.sh"

make_site_with_secret
seconds=0
while IFS='|' read -r -u 3 change undo expected; do
    eval "$change" || failed "planted: $change"
    begun=${EPOCHREALTIME/./}
    look
    seconds=$((seconds + ${EPOCHREALTIME/./} - begun))
    same "$change" "$(tr ';' '\n' <<<"$expected" | sort)" "$(found)"
    same "$change: what is not known" "$UNREAD" "$(unread)"
    repair ${undo:+"$undo"}
    check "$change, taken back" eventually 5 is_without_drift
done 3<<<"$CHANGES"
echo "# $(wc -l <<<"$CHANGES") looks, $((seconds / 1000000)) s"
finish
