// What an operator can try when a call has failed: a line for each result code where more can be said than to
// read the log.
#pragma once

#include <array>
#include <string_view>

#include "result_codes.h"

struct ResultAdvice {
    int code;
    std::string_view text;
};

inline constexpr std::array kResultAdvice{
    ResultAdvice{NM_ERR_BAD_ACT, "give act as 1 (add), 2 (delete) or 3 (alter)"},
    ResultAdvice{NM_ERR_NO_IFACE, "compare the port's INTERFACE with the devices that ip link shows"},
    ResultAdvice{NM_ERR_NO_SECTION,
                 "look for the target in the stored document: nm_bin list; a target that is new needs act 1 "
                 "and a document that has it"},
    ResultAdvice{NM_ERR_NULL_ARG,
                 "check that no value of the target is empty, and that the directories exist: "
                 "systemd-tmpfiles --create networkinterface.conf"},
    ResultAdvice{NM_ERR_IOCTL, "check the value against what the device can do: ip -d link show"},
    ResultAdvice{NM_ERR_BAD_TYPE, "use a type that networkinterface(7) lists for this kind of port"},
    ResultAdvice{NM_ERR_BAD_IP, "check addresses and gateway of the target: nm_bin show"},
    ResultAdvice{NM_ERR_BAD_PREFIX, "give a prefix length from 1 to 32, or to 128 for IPv6"},
    ResultAdvice{NM_ERR_SERVICE, "see what the daemon or command said: journalctl -b, nm_bin log"},
    ResultAdvice{NM_ERR_BAD_FORMAT, "compare the text with the form that networkinterface(7) shows"},
    ResultAdvice{NM_ERR_LOCK, "wait until the other call has ended and repeat this one"},
    ResultAdvice{NM_ERR_LOCK_MEM, "find out what holds so many locks: /proc/locks"},
    ResultAdvice{NM_ERR_OPEN, "check that the file exists and who may read it"},
    ResultAdvice{NM_ERR_NOT_FOUND, "check the path of the document and that it is not empty"},
    ResultAdvice{NM_ERR_WRITE, "check room and access where the document lies: df, ls -l"},
    ResultAdvice{NM_ERR_EMPTY, "give the value that the log names"},
    ResultAdvice{NM_ERR_NOMEM, "free memory and repeat the call"},
    ResultAdvice{NM_ERR_POOL_EMPTY, "widen the pool: its addresses are all reserved"},
    ResultAdvice{NM_ERR_PARSE, "check the text, for example with jq"},
    ResultAdvice{NM_ERR_HOSTS, "check room and access of /etc/hosts"},
    ResultAdvice{NM_ERR_BAD_VALUE, "check the values that the log names against each other"},
    ResultAdvice{NM_ERR_NO_KEY, "the document lacks a section: networkinterface(7) lists them"},
    ResultAdvice{NM_ERR_NO_SUBKEY, "the section has no such entry: nm_bin list"},
    ResultAdvice{NM_ERR_NO_VALUE, "give the key a value"},
    ResultAdvice{NM_ERR_BR_NO_DEVICE, "set up the VLAN segment first: nm_bin list"},
    ResultAdvice{NM_ERR_VLAN_IOCTL,
                 "check that the kernel has 802.1Q (modprobe 8021q) and that the device exists"},
    ResultAdvice{NM_ERR_NL_CONNECT, "check that the peer daemon runs: systemctl status"},
    ResultAdvice{NM_ERR_NL_ROUTE_ADD, "check that the next hop lies in a connected network: ip route get"},
    ResultAdvice{NM_ERR_SEND, "check that the peer daemon runs: systemctl status"},
    ResultAdvice{NM_ERR_RECEIVE, "check that the peer daemon runs: systemctl status"},
    ResultAdvice{NM_ERR_HTTP_INIT, "install libcurl4"},
    ResultAdvice{NM_ERR_HTTP_TRANSFER, "check that the server answers: curl"},
    ResultAdvice{NM_ERR_BUS_CALL,
                 "check that the service that the log names runs and answers: vsh, systemctl status"},
    ResultAdvice{NM_ERR_SESSION_ARG, "check user name and password of the port"},
    ResultAdvice{NM_ERR_SESSION_NONE, "the port has no session: set its type to PPPOE first"},
    ResultAdvice{NM_ERR_SESSION_UNAVAILABLE, "check that pppd is installed and /dev/ppp is there"},
    ResultAdvice{NM_ERR_SESSION_STORE, "check room and access of /etc/vpppoe"},
};

/// What to try about `code`; empty where only the log can say.
constexpr std::string_view advise_result(int code) {
    for (const ResultAdvice& row : kResultAdvice) {
        if (row.code == code) {
            return row.text;
        }
    }
    return {};
}
