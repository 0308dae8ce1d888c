#!/bin/bash
# Whether the packages come out the same, byte by byte, of two builds that have nothing in common but the source: another
# path, time zone, language, umask, and nothing kept by a cache.
#
# usage: reproducible.sh
set -euo pipefail

SOURCE_DIR=$(cd "$(dirname "${BASH_SOURCE[0]}")/../.." && pwd -P)
readonly SOURCE_DIR
source "$SOURCE_DIR/tests/support/tap.sh"
work=$(mktemp -d)
trap 'rm -rf "$work"' EXIT

# Both copies at once, since the tree may be edited while the first is built.
for copy in first second/below; do
    mkdir -p "$work/$copy"
    tar -C "$SOURCE_DIR" -c --exclude-vcs --exclude='./build*' . | tar -C "$work/$copy" -x
done

# build NAME UMASK [VARIABLE=VALUE]...
build() {
    (umask "$2" && env CCACHE_DISABLE=1 "${@:3}" "$work/$1/scripts/package") >"$work/$1.log" 2>&1
}

check "a build" build first 022 TZ=UTC LC_ALL=C.UTF-8
check "another build" build second/below 027 TZ=Pacific/Auckland LC_ALL=C
for package in "$work"/first/build-package/*.deb; do
    check "$(basename "$package" | cut -d _ -f 1) is the same" cmp "$package" "$work/second/below/build-package/${package##*/}"
done
finish
