#!/bin/bash
# The two commands of an operator: nm_bin for the library's entries and vsh for the service bus. Their
# sources of text, output and exit status.
set -euo pipefail

source "$(dirname "${BASH_SOURCE[0]}")/../support/world.sh"

readonly SOME=/etc/networkmanagement/some.json STORED=/etc/networkmanagement/device_info.json

# Nothing may be written where the caller happens to stand.
mkdir "$scratch/here"
cd "$scratch/here"
: >/run/network/.boot_fin
printf 'model=VM\ndevid=4711\n' >/etc/networkmanagement/ncaas.conf
echo '{"a":1}' >"$SOME"

matches() {
    [[ $2 =~ ^$1$ ]]
}

# runs NAME PATTERN COMMAND [ARG]...: exit status, output and, in brackets, complaints match as a whole.
runs() {
    local status=0 output
    output=$("${@:3}" 2>"$scratch/complaint") || status=$?
    check "$1" matches "$2" "$status ${output}[$(<"$scratch/complaint")]"
}

# misused PROGRAM [ARG]...: wrong usage ends with 2, prints nothing and says why.
misused() {
    runs "usage: $*" "2 \[$1: .+]" "$@"
}

check_nm_bin() {
    runs "nm_bin --version" '0 nm_bin [0-9]+\.[0-9]+\.[0-9]+\[]' nm_bin --version
    misused nm_bin Setup_wanif
    misused nm_bin Setup_nothing '{}'
    misused nm_bin --nonsense Setup_wanif '{}'
    misused nm_bin Setup_wanif @/none
    misused nm_bin Add_hosts 192.0.2.256 swdev1
    misused nm_bin Add_hosts 2001:db8::1 'swdev1 other'
    misused nm_bin Del_hosts "a-name-of-16-chr"
    misused nm_bin Get_dhcp_client_table ../swdev1
    check "a misused nm_bin leaves no log" test ! -s "$MAIN_LOG"
    runs "text as an argument" "1 -1032 NM_ERR_PARSE the text is not valid JSON\[error: Json parse failed\..*]" \
        nm_bin Setup_wanif '['
    echo '[]' >"$scratch/array"
    runs "text in a file" "1 -1012 NM_ERR_BAD_FORMAT the text has the wrong form\[.*failed: -1012.*]" \
        nm_bin Setup_wanif "@$scratch/array"
    echo '{}' >"$scratch/applied"
    runs "a list is not a document to apply" "1 -1012 NM_ERR_BAD_FORMAT the text has the wrong form\[.*failed: -1012.*]" \
        nm_bin Apply_firewall "$scratch/array" "$scratch/applied"
    same "--json is for machines" '[-1032,"NM_ERR_PARSE","the text is not valid JSON"]' \
        "$(nm_bin Setup_wanif '[' --json 2>/dev/null | jq -c '[.code, .name, .meaning]')"
}

check_documents() {
    misused nm_bin migrate --dry-run nothing
    misused nm_bin diff "$SOME" "$SOME" "$SOME"
    echo '{"WAN_PORT":{"PORT1":{"PSK":"geheim"}}}' >"$STORED"
    runs "a rehearsed migration" '0 device_info +migrated +0\.0\.0 -> 1\.0\.2
\+ /WAN_PORT/PORT1/MTU: "1500"
\+ /dbversion: "1\.0\.2"
2 added, 0 removed, 0 changed\[]' nm_bin migrate --dry-run device_info
    same "changes nothing" '{"WAN_PORT":{"PORT1":{"PSK":"geheim"}}}' "$(<"$STORED")"
    echo '{' >"${STORED%/*}/segment.json"
    runs "a migration" '0 .*device_info +migrated .*segment +repaired +it is not JSON; replaced from .*\[]' nm_bin migrate
    same "is shown for machines" '["current","1.0.2"]' \
        "$(nm_bin --json migrate device_info | jq -c '.[0] | [.state, .to]')"
    runs "changes are kept" '0 device_info 20.*Z
\+ .*\[]' nm_bin changes device_info
    echo '{"a":2,"PSK":"geheim"}' >"$scratch/other"
    runs "a difference" '1 ~ /a: 1 -> 2
\+ /PSK: "\*\*\*"
1 added, 0 removed, 1 changed\[]' nm_bin diff "$SOME" "$scratch/other"
}

check_services() {
    misused nm_bin service
    misused nm_bin service add Camera TCP
    runs "a service" '0 0 NM_OK success\[]' nm_bin service add Camera tcp 554,8554-8558
    runs "two clashes" '1 -1045 .*\[.*taken by "SSH Service" \(All 22\).*there is a service "Camera"]' \
        nm_bin service add camera TCP 22
    runs "its port" '0 Camera +TCP +554, 8554~8558\[]' nm_bin service find 8555
    same "for machines" '["Camera",false]' \
        "$(nm_bin --json service list | jq -c '.[-1] | [.service, .predefined]')"
    echo '{"RULES":{"SITE":[{"SRC_SERVICE":"Camera"},{"DST_SERVICE":"none"}]}}' >"${STORED%/*}/policy.json"
    runs "what rules name" '1 policy /RULES/SITE/0/SRC_SERVICE Camera
policy /RULES/SITE/1/DST_SERVICE none \(not known\)\[]' nm_bin service uses
    runs "a service in use" '1 -1045 .*names it at /RULES/SITE/0/SRC_SERVICE]' nm_bin service delete CAMERA
}

check_vsh() {
    serve ncaas ncaas
    runs "vsh without a request" '0 \{"data":"VM","error":0\}\[]' vsh ncaas.get_model
    runs "vsh with text" '0 \{"data":\{"a":1\},"error":0\}\[]' vsh ncaas.read_json "{\"path\":\"$SOME\"}"
    echo "{\"path\":\"$SOME\",\"data\":{\"a\":\"é\\u0007\"}}" >"$scratch/request"
    runs "vsh with a file" '0 .*\[]' vsh ncaas.write_json "@$scratch/request"
    same "what was sent arrives" '{"a":"é\u0007"}' "$(jq -c . "$SOME")"
    same "vsh with standard input" '"é\u0007"' "$(vsh ncaas.read_json - <"$scratch/request" | jq .data.a)"
    runs "an error reply" '1 \{.*"error":-1.*]' vsh ncaas.read_json '{"path":"/etc/passwd"}'
    runs "a service that is not there" '1 \[vsh: nobody\.get_model: No such file.*]' vsh nobody.get_model
    misused vsh ncaas.
    misused vsh --timeout 0 ncaas.get_model
}

check_nm_bin
check_documents
check_services
check_vsh
same "no file appears in the current directory" "" "$(ls -A)"
finish
