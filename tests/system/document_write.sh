#!/bin/bash
# A document that is being written is the old one or the new one, whole, whatever happens to the writer.
set -euo pipefail

source "$(dirname "${BASH_SOURCE[0]}")/../support/world.sh"

readonly STORE_DIR=/etc/networkmanagement
readonly DOCUMENT=$STORE_DIR/kill.json
readonly OLD='{"state":"old"}'
padding=$(printf 'x%.0s' {1..20000})
readonly NEW="{\"padding\":\"$padding\",\"state\":\"new\"}"

build store_document networkinterface jsoncpp
: >/run/network/.boot_fin

store() {
    "$scratch/store_document" "$DOCUMENT" "$1"
}

content() {
    cat "$DOCUMENT" 2>&1
}

# The system calls of one write, as the tracer prints them: of the whole process and of the store alone.
trace_one_write() {
    store "$OLD"
    strace -f -y -qq -s 32 -o "$scratch/all" "$scratch/store_document" "$DOCUMENT" "$NEW"
    sed -i 's/^[0-9]* *//' "$scratch/all"
    sed -e '1,/store-begins/d' -e '/store-ends/,$d' "$scratch/all" >"$scratch/trace"
}

# lines PATTERN: where in the trace it stands, from first to last; 0 if nowhere.
lines() {
    grep -nE "$1" "$scratch/trace" | cut -d: -f1 | grep . || echo 0
}

check_order() {
    local last_write sync rename
    last_write=$(lines '^p?writev?(64)?\([0-9]+<.*kill\.json\.tmp>' | tail -n 1)
    sync=$(lines '^f(data)?sync\([0-9]+<.*kill\.json\.tmp>\) += 0' | head -n 1)
    rename=$(lines '^rename(at2?)?\(.*kill\.json\.tmp.*kill\.json.* = 0' | head -n 1)
    check "the text is written beside the document" test "$last_write" -gt 0
    check "the text reaches the disk after the last write" test "$sync" -gt "$last_write"
    check "the text reaches the disk before the rename" test "$rename" -gt "$sync"
    same "the document itself is never opened for writing" 0 \
        "$(lines '^open(at)?\(.*/kill\.json", .*(O_WRONLY|O_RDWR)')"
}

# Prints "SYSCALL N" for each call of the writing phase: it is the Nth of its kind in the whole process.
steps() {
    awk -F'(' '
        /store-begins/ { inside = 1; seen[$1]++; next }
        /store-ends/ { exit }
        /^[a-z0-9_]+\(/ { seen[$1]++; if (inside) print $1, seen[$1] }' "$scratch/all"
}

# One writer is killed at one step; prints what is found instead of the old or the new document, and what
# others may read although the document is for its owner alone. An earlier writer has left an open file.
kill_at() {
    local syscall=$1 occurrence=$2 status=0 found
    printf '%s\n' "$OLD" >"$DOCUMENT"
    : >"$DOCUMENT.tmp"
    chmod 600 "$DOCUMENT"
    chmod 644 "$DOCUMENT.tmp"
    # The shell announces a killed child on its own standard error.
    { strace -f -qq -o /dev/null -e "inject=$syscall:signal=KILL:when=$occurrence" \
        "$scratch/store_document" "$DOCUMENT" "$NEW"; } 2>/dev/null || status=$?
    found=$(content)
    [[ $status == 137 ]] || echo "$syscall $occurrence: not killed, status $status"
    case $found in
        "$OLD") left_old=$((left_old + 1)) ;;
        "$NEW") left_new=$((left_new + 1)) ;;
        *) echo "$syscall $occurrence: ${#found} bytes, ${found:0:80}" ;;
    esac
    find "$DOCUMENT"* -size +0 -perm /077 -printf "$syscall $occurrence: open to others: %p\n"
}

check_kills() {
    local syscall occurrence left_old=0 left_new=0
    while read -r syscall occurrence; do
        kill_at "$syscall" "$occurrence" >>"$scratch/torn"
    done < <(steps)
    same "killed at each system call, the document is old or new, and nobody else's" "" "$(cat "$scratch/torn")"
    check "some kills came before the rename" test "$left_old" -gt 10
    check "some kills came after the rename" test "$left_new" -gt 0
}

# A store whose write cannot succeed keeps the old document and says so.
refused() {
    : >"$MAIN_LOG"
    store "$NEW" || true
    same "$1: the old document stays" "$OLD" "$(content)"
    logged "$1: the failure is logged" 'Save JSON into file failed\.'
}

check_no_room() {
    local free
    for free in 0 4096 16384; do
        mount -t tmpfs -o size=32k full "$STORE_DIR"
        printf '%s\n' "$OLD" >"$DOCUMENT"
        head -c $((32768 - 4096 - free)) /dev/zero >"$STORE_DIR/filler"
        refused "disk with $free bytes free"
        rm "$STORE_DIR/filler"
        check "disk with room again after $free bytes" store "$NEW"
        same "the next write after $free free bytes is whole" "$NEW" "$(content)"
        umount "$STORE_DIR"
    done
    printf '%s\n' "$OLD" >"$DOCUMENT"
    mount --bind "$STORE_DIR" "$STORE_DIR"
    mount -o remount,bind,ro "$STORE_DIR"
    refused "read-only directory"
    umount "$STORE_DIR"
}

trace_one_write
check_order
check_kills
check_no_room
finish
