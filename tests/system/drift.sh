#!/bin/bash
# nm_bin drift: nothing after a boot; each change that is planted, all at once, and nothing else; nothing again after a
# further boot. Looking changes nothing, also when it is killed.
set -euo pipefail
source "$(dirname "${BASH_SOURCE[0]}")/../support/drift_world.sh"

plant() {
    local command
    while IFS='|' read -r command _; do
        eval "$command" || failed "planted: $command"
    done <<<"$CHANGES"
}

# signs: findings as what is missing (-), extra (+) or outside (~), which add up where one thing has several changes.
signs() {
    sed 's/^changed \(.*\)/- \1\n+ \1/; s/^lost/-/; s/^foreign/+/; s/^outside/~/' | sort -u
}

undo_all() {
    local undos=() undo
    while IFS='|' read -r _ undo _; do
        [[ -z $undo ]] || undos+=("$undo")
    done <<<"$CHANGES"
    repair "${undos[@]}"
}

killed_at() {
    nm_bin drift >/dev/null 2>&1 &
    sleep "$1"
    kill -9 $! 2>/dev/null || true
    wait $! 2>/dev/null || true
}

check_partial() {
    local kept
    kept=$(<"$DEVICE_INFO")
    echo '{' >"$DEVICE_INFO"
    look
    same "a broken document is named, and makes the answer partial" "2 $DEVICE_INFO" "$status $(unread | grep -x "$DEVICE_INFO")"
    echo "$kept" >"$DEVICE_INFO"
    status=0
    nm_bin drift --text >"$scratch/text" 2>&1 || status=$?
    same "for people there is a line of what is found, and one of what is not known" \
        "2 0 differences, 0 things outside of the network configuration nm_bin: not looked at: $UNREAD" "$status $(sed 's/: -1019.*//' "$scratch/text" | paste -sd' ')"
    same "without privileges nothing is looked at" 77 "$(setpriv --reuid 65534 --regid 65534 --clear-groups nm_bin drift >/dev/null 2>&1; echo $?)"
    look_without_namespaces=$(setpriv --bounding-set -sys_admin nm_bin drift --json 2>/dev/null; echo $?)
    check "without namespaces it says so" grep -q 'namespaces of its own are refused' <<<"$look_without_namespaces"
    same "and knows nothing" 2 "${look_without_namespaces##*$'\n'}"
}

make_site_with_secret
kernel_call network_state "$scratch/before" >/dev/null
rest=$(outside)
look
same "after a boot there is no drift" "" "$(found)"
same "but what the kernel of the sandbox lacks" "2 $UNREAD" "$status $(unread)"
for n in 0.05 0.3 0.8; do
    killed_at "$n"
done
check "killed, it leaves no process, no namespace, no mount and no file" eventually 20 is_outside "$rest"
kernel_call network_state "$scratch/after" >/dev/null
check "looking changes nothing" cmp "$scratch/before" "$scratch/after"

plant
look
same "each change is found, and nothing else" "$(cut -d'|' -f3 <<<"$CHANGES" | tr ';' '\n' | grep . | signs)" "$(found | signs)"
check "at least forty of them" test "$(cut -d'|' -f3 <<<"$CHANGES" | grep -cv '^outside\|^$')" -ge 40
check "no secret is shown" bash -c "grep -qF '\"PASSWORD\\\" : \\\"***' '$scratch/drift' && ! grep -q geheim-7 '$scratch/drift'"
check "a name is not run" test ! -e evil
undo_all
check "after a further boot there is no drift again" eventually 5 is_without_drift
same "nothing is left" "" "$(found)"
check_partial
finish
