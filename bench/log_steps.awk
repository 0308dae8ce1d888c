# Sums up where the time of requests went, from the library's log: ms a request and share by kind of step. The time
# between two lines belongs to what the first one entered, or else to what the second one reports.
#
# usage: awk -v requests=N -f log_steps.awk LOG
function command(line,   words) {
    split(line, words, " ")
    sub(/.*\//, "", words[1])
    return "command " words[1] " " words[2]
}
function step(line) {
    if (match(line, /script exit code.*cmd: /)) return command(substr(line, RSTART + RLENGTH))
    if (line ~ /\/peers\//) return "calls to peers"
    if (line ~ /\/services\//) return "hosts, name service and DHCP"
    if (line ~ /\/config\//) return "documents"
    if (line ~ /\/utils\/locks/) return "locks"
    if (line ~ /\/utils\//) return "files and other"
    if (line ~ /\/kernel\//) return "netlink and ioctl"
    return "the library itself, with what it asks the kernel and peers without a word"
}
/ >>> / {
    split($2, clock, ":")
    now = clock[1] * 3600 + clock[2] * 60 + clock[3]
    if (last == "" || $0 ~ /int Setup_[a-z]*\(char\*\) >>> Enter/) last = now
    name = step(before ~ />>> Enter/ ? before : $0)
    before = $0
    spent[name] += now - last
    total += now - last
    last = now
}
END {
    for (name in spent)
        printf "%8.1f  %5.1f %%  %s\n", spent[name] * 1000 / requests, 100 * spent[name] / total, name
}
