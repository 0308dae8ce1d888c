# shellcheck shell=bash
# Results of a shell test, one line a check: "ok NAME", "not ok NAME" or "skip NAME: reason". Sourced; the
# test ends with `finish`, whose status is 0 only if no check failed.

tap_failed=0

# failed NAME DETAIL...
failed() {
    echo "not ok $1"
    printf '    # %s\n' "${@:2}"
    tap_failed=$((tap_failed + 1))
}

# check NAME COMMAND [ARG]...: the command succeeds.
check() {
    local output
    if output=$("${@:2}" 2>&1); then
        echo "ok $1"
    else
        failed "$1" "${*:2}" "${output:0:1000}"
    fi
}

# same NAME EXPECTED ACTUAL: two texts are equal.
same() {
    if [[ $2 == "$3" ]]; then
        echo "ok $1"
    else
        failed "$1" "expected: $2" "got:      $3"
    fi
}

# skip NAME REASON
skip() {
    echo "skip $1: $2"
}

# eventually SECONDS COMMAND [ARG]...: the command succeeds sooner or later.
eventually() {
    local deadline=$((SECONDS + $1))
    shift
    until "$@"; do
        ((SECONDS < deadline)) || return 1
        sleep 0.05
    done
}

finish() {
    exit $((tap_failed > 0))
}
