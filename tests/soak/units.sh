#!/bin/bash
# The tests of tests/vm that use units, under systemd itself in the machine of scripts/vm; scripts/test runs them under
# the stand-in. Takes half an hour.
#
# usage: tests/soak/units.sh [NAME]...      (names of tests/vm; default: all that use units)
set -euo pipefail

SOURCE_DIR=$(cd "$(dirname "${BASH_SOURCE[0]}")/../.." && pwd -P)
readonly SOURCE_DIR BUILD=${NM_BUILD_DIR:-$SOURCE_DIR/build}
failed=0

[[ $# -gt 0 ]] || mapfile -t names < <(cd "$SOURCE_DIR/tests/vm" && grep -lE 'systemctl|pppoe_call|uplink_world|nm-' ./*.sh | xargs -n 1 basename -s .sh)
[[ $# == 0 ]] || names=("$@")
mkdir -p "$BUILD/results"
for name in "${names[@]}"; do
    begun=$SECONDS result=passed
    "$SOURCE_DIR/scripts/vm" --build "$BUILD" --share "$BUILD/results" -t 1800 -q "-m 1024" \
        "$SOURCE_DIR/scripts/lib/run-test" --systemd "$BUILD" "vm-systemd-$name" "$SOURCE_DIR/tests/vm/$name.sh" \
        >"$BUILD/results/vm-systemd-$name.out" 2>&1 || { result=FAILED && failed=1; }
    printf '%-16s %s: %s checks %5d s\n' "$name" "$result" "$(head -n 1 "$BUILD/results/vm-systemd-$name.count" 2>/dev/null)" $((SECONDS - begun))
done
exit "$failed"
