// Result codes: every function of the library that returns an int returns 0 or a positive value on
// success and one of these negative codes on failure. The table at the end names them for people.
#pragma once

#include <array>
#include <string_view>

// Arguments, ports and sections.
constexpr int NM_OK = 0;
constexpr int NM_ERR_BAD_ACT = -1001;
constexpr int NM_ERR_NO_IFACE = -1002;
constexpr int NM_ERR_NO_SECTION = -1003;
constexpr int NM_ERR_FORWARDING = -1004;
constexpr int NM_ERR_NULL_ARG = -1005;
constexpr int NM_ERR_SOCKET = -1006;
constexpr int NM_ERR_IOCTL = -1007;
constexpr int NM_ERR_BAD_TYPE = -1008;
constexpr int NM_ERR_BAD_IP = -1009;
constexpr int NM_ERR_BAD_PREFIX = -1010;
constexpr int NM_ERR_SERVICE = -1011;
constexpr int NM_ERR_BAD_FORMAT = -1012;
constexpr int NM_ERR_NULL_IFNAME = -1013;
constexpr int NM_ERR_BUFFER = -1014;
constexpr int NM_ERR_LOCK = -1015;
constexpr int NM_ERR_LOCK_MEM = -1016;
constexpr int NM_ERR_OPEN = -1019;
constexpr int NM_ERR_NOT_FOUND = -1020;
constexpr int NM_ERR_WRITE = -1021;
constexpr int NM_ERR_EMPTY = -1022;
constexpr int NM_ERR_NOMEM = -1023;
constexpr int NM_ERR_NOT_NULL = -1028;
constexpr int NM_ERR_POOL_EMPTY = -1030;
constexpr int NM_ERR_PARSE = -1032;
constexpr int NM_ERR_DUP_DNS = -1035;
constexpr int NM_ERR_HOSTS = -1041;
constexpr int NM_ERR_BAD_VALUE = -1045;
constexpr int NM_ERR_NO_KEY = -1051;
constexpr int NM_ERR_NO_SUBKEY = -1052;
constexpr int NM_ERR_NO_VALUE = -1053;

// Bridges.
constexpr int NM_ERR_BR_ARG = -1101;
constexpr int NM_ERR_BR_NO_DEVICE = -1102;
constexpr int NM_ERR_BR_SOCKET = -1103;
constexpr int NM_ERR_BR_CONNECT = -1104;
constexpr int NM_ERR_BR_CACHE = -1105;
constexpr int NM_ERR_BR_LINK = -1106;
constexpr int NM_ERR_BR_ADD = -1107;
constexpr int NM_ERR_BR_DELETE = -1108;
constexpr int NM_ERR_BR_ENSLAVE = -1109;
constexpr int NM_ERR_BR_RELEASE = -1110;
constexpr int NM_ERR_BR_TYPE = -1111;
constexpr int NM_ERR_BR_SYSFS = -1112;

// 802.1Q devices.
constexpr int NM_ERR_VLAN_ARG = -1201;
constexpr int NM_ERR_VLAN_SOCKET = -1202;
constexpr int NM_ERR_VLAN_IOCTL = -1203;
constexpr int NM_ERR_VLAN_NAME = -1205;

// Netlink requests.
constexpr int NM_ERR_NL_ARG = -1301;
constexpr int NM_ERR_NL_SOCKET = -1302;
constexpr int NM_ERR_NL_CONNECT = -1304;
constexpr int NM_ERR_NL_ROUTE_ADD = -1306;
constexpr int NM_ERR_NL_ROUTE_DELETE = -1307;
constexpr int NM_ERR_NL_RULE_ADD = -1308;
constexpr int NM_ERR_NL_RULE_DELETE = -1309;

// HTTP calls and number conversion.
constexpr int NM_ERR_HTTP_INIT = -1401;
constexpr int NM_ERR_HTTP_TRANSFER = -1402;
constexpr int NM_ERR_NOT_A_NUMBER = -1403;

// Clients of unix sockets and raw netlink messages.
constexpr int NM_ERR_SEND = -1503;
constexpr int NM_ERR_RECEIVE = -1504;
constexpr int NM_ERR_CLI_SERIALISE = -1505;
constexpr int NM_ERR_CLI_EMPTY = -1506;
constexpr int NM_ERR_CLI_FORMAT = -1507;
constexpr int NM_ERR_CLI_RETCODE = -1508;

// Service bus.
constexpr int NM_ERR_BUS_IO = -1601;
constexpr int NM_ERR_BUS_CALL = -1602;
constexpr int NM_ERR_BUS_READ = -1603;
constexpr int NM_ERR_BUS_DAEMON_READ = -1604;
constexpr int NM_ERR_RELOAD = -1605;
constexpr int NM_ERR_NO_NAT_RULE = -1606;

// PPPoE sessions: the codes of vpppoe.h, moved by NM_ERR_SESSION.
constexpr int NM_ERR_SESSION = -1702;
constexpr int NM_ERR_SESSION_ARG = -1703;
constexpr int NM_ERR_SESSION_NONE = -1704;
constexpr int NM_ERR_SESSION_UNAVAILABLE = -1705;
constexpr int NM_ERR_SESSION_STORE = -1706;

// Local management.
constexpr int NM_ERR_MGMT_ARG = -1901;
constexpr int NM_ERR_MGMT_STATIC_ROUTE = -1907;

/// One row of the result table: the number, the constant's name and what it means in a few words.
struct ResultCode {
    int code;
    std::string_view name;
    std::string_view meaning;
};

inline constexpr std::array kResultCodes{
    ResultCode{NM_OK, "NM_OK", "success"},
    ResultCode{NM_ERR_BAD_ACT, "NM_ERR_BAD_ACT", "unknown action or argument value"},
    ResultCode{NM_ERR_NO_IFACE, "NM_ERR_NO_IFACE", "no such interface or port"},
    ResultCode{NM_ERR_NO_SECTION, "NM_ERR_NO_SECTION",
               "the port's section is absent or empty in the configuration"},
    ResultCode{NM_ERR_FORWARDING, "NM_ERR_FORWARDING", "IPv6 forwarding could not be switched"},
    ResultCode{NM_ERR_NULL_ARG, "NM_ERR_NULL_ARG", "a null or empty argument or a missing directory"},
    ResultCode{NM_ERR_SOCKET, "NM_ERR_SOCKET", "a socket could not be opened"},
    ResultCode{NM_ERR_IOCTL, "NM_ERR_IOCTL", "the kernel refused an interface request"},
    ResultCode{NM_ERR_BAD_TYPE, "NM_ERR_BAD_TYPE", "a type or mode that is not served here"},
    ResultCode{NM_ERR_BAD_IP, "NM_ERR_BAD_IP", "a bad address"},
    ResultCode{NM_ERR_BAD_PREFIX, "NM_ERR_BAD_PREFIX", "a bad prefix length"},
    ResultCode{NM_ERR_SERVICE, "NM_ERR_SERVICE", "a daemon, command or rule set failed"},
    ResultCode{NM_ERR_BAD_FORMAT, "NM_ERR_BAD_FORMAT", "the text has the wrong form"},
    ResultCode{NM_ERR_NULL_IFNAME, "NM_ERR_NULL_IFNAME", "the interface addresses could not be listed"},
    ResultCode{NM_ERR_BUFFER, "NM_ERR_BUFFER", "the caller's buffer is too small"},
    ResultCode{NM_ERR_LOCK, "NM_ERR_LOCK", "the lock was not obtained"},
    ResultCode{NM_ERR_LOCK_MEM, "NM_ERR_LOCK_MEM", "the kernel has no room for lock records"},
    ResultCode{NM_ERR_OPEN, "NM_ERR_OPEN", "a file could not be opened"},
    ResultCode{NM_ERR_NOT_FOUND, "NM_ERR_NOT_FOUND", "a file or section was not found"},
    ResultCode{NM_ERR_WRITE, "NM_ERR_WRITE", "a file could not be written"},
    ResultCode{NM_ERR_EMPTY, "NM_ERR_EMPTY", "a needed value is empty"},
    ResultCode{NM_ERR_NOMEM, "NM_ERR_NOMEM", "out of memory"},
    ResultCode{NM_ERR_NOT_NULL, "NM_ERR_NOT_NULL", "the output pointer of a factory is already set"},
    ResultCode{NM_ERR_POOL_EMPTY, "NM_ERR_POOL_EMPTY", "the address pool is empty"},
    ResultCode{NM_ERR_PARSE, "NM_ERR_PARSE", "the text is not valid JSON"},
    ResultCode{NM_ERR_DUP_DNS, "NM_ERR_DUP_DNS", "the name server is listed already"},
    ResultCode{NM_ERR_HOSTS, "NM_ERR_HOSTS", "the hosts file could not be rewritten"},
    ResultCode{NM_ERR_BAD_VALUE, "NM_ERR_BAD_VALUE", "a value is out of range or inconsistent"},
    ResultCode{NM_ERR_NO_KEY, "NM_ERR_NO_KEY", "a top-level key is missing"},
    ResultCode{NM_ERR_NO_SUBKEY, "NM_ERR_NO_SUBKEY", "a second-level key is missing"},
    ResultCode{NM_ERR_NO_VALUE, "NM_ERR_NO_VALUE", "the key has no value"},
    ResultCode{NM_ERR_BR_ARG, "NM_ERR_BR_ARG", "bad bridge argument"},
    ResultCode{NM_ERR_BR_NO_DEVICE, "NM_ERR_BR_NO_DEVICE", "no such bridge or bridge port"},
    ResultCode{NM_ERR_BR_SOCKET, "NM_ERR_BR_SOCKET", "no netlink socket for a bridge operation"},
    ResultCode{NM_ERR_BR_CONNECT, "NM_ERR_BR_CONNECT", "netlink connection for a bridge operation failed"},
    ResultCode{NM_ERR_BR_CACHE, "NM_ERR_BR_CACHE", "the link table could not be read"},
    ResultCode{NM_ERR_BR_LINK, "NM_ERR_BR_LINK", "no memory for a link object"},
    ResultCode{NM_ERR_BR_ADD, "NM_ERR_BR_ADD", "the bridge could not be created"},
    ResultCode{NM_ERR_BR_DELETE, "NM_ERR_BR_DELETE", "the bridge could not be deleted"},
    ResultCode{NM_ERR_BR_ENSLAVE, "NM_ERR_BR_ENSLAVE", "the device could not join the bridge"},
    ResultCode{NM_ERR_BR_RELEASE, "NM_ERR_BR_RELEASE", "the device could not leave the bridge"},
    ResultCode{NM_ERR_BR_TYPE, "NM_ERR_BR_TYPE", "not a bridge, or a bad bridge value"},
    ResultCode{NM_ERR_BR_SYSFS, "NM_ERR_BR_SYSFS", "the bridge setting could not be written"},
    ResultCode{NM_ERR_VLAN_ARG, "NM_ERR_VLAN_ARG", "bad VLAN argument"},
    ResultCode{NM_ERR_VLAN_SOCKET, "NM_ERR_VLAN_SOCKET", "no socket for a VLAN operation"},
    ResultCode{NM_ERR_VLAN_IOCTL, "NM_ERR_VLAN_IOCTL", "the kernel refused the VLAN operation"},
    ResultCode{NM_ERR_VLAN_NAME, "NM_ERR_VLAN_NAME", "the VLAN device name is too long"},
    ResultCode{NM_ERR_NL_ARG, "NM_ERR_NL_ARG", "null argument of a link operation"},
    ResultCode{NM_ERR_NL_SOCKET, "NM_ERR_NL_SOCKET", "no netlink socket"},
    ResultCode{NM_ERR_NL_CONNECT, "NM_ERR_NL_CONNECT", "the connection failed"},
    ResultCode{NM_ERR_NL_ROUTE_ADD, "NM_ERR_NL_ROUTE_ADD", "the route could not be added"},
    ResultCode{NM_ERR_NL_ROUTE_DELETE, "NM_ERR_NL_ROUTE_DELETE", "the route could not be deleted"},
    ResultCode{NM_ERR_NL_RULE_ADD, "NM_ERR_NL_RULE_ADD", "the rule could not be added"},
    ResultCode{NM_ERR_NL_RULE_DELETE, "NM_ERR_NL_RULE_DELETE", "the rule could not be deleted"},
    ResultCode{NM_ERR_HTTP_INIT, "NM_ERR_HTTP_INIT", "the HTTP client could not be set up"},
    ResultCode{NM_ERR_HTTP_TRANSFER, "NM_ERR_HTTP_TRANSFER", "the HTTP transfer failed"},
    ResultCode{NM_ERR_NOT_A_NUMBER, "NM_ERR_NOT_A_NUMBER", "the text is no number"},
    ResultCode{NM_ERR_SEND, "NM_ERR_SEND", "a message could not be sent"},
    ResultCode{NM_ERR_RECEIVE, "NM_ERR_RECEIVE", "no message could be received"},
    ResultCode{NM_ERR_CLI_SERIALISE, "NM_ERR_CLI_SERIALISE", "the command could not be serialised"},
    ResultCode{NM_ERR_CLI_EMPTY, "NM_ERR_CLI_EMPTY", "the command text is empty"},
    ResultCode{NM_ERR_CLI_FORMAT, "NM_ERR_CLI_FORMAT", "a path or command could not be formatted"},
    ResultCode{NM_ERR_CLI_RETCODE, "NM_ERR_CLI_RETCODE", "the peer daemon reported a failure"},
    ResultCode{NM_ERR_BUS_IO, "NM_ERR_BUS_IO", "the service-bus buffer could not be made"},
    ResultCode{NM_ERR_BUS_CALL, "NM_ERR_BUS_CALL", "a service-bus call failed"},
    ResultCode{NM_ERR_BUS_READ, "NM_ERR_BUS_READ", "the bus request could not be read"},
    ResultCode{NM_ERR_BUS_DAEMON_READ, "NM_ERR_BUS_DAEMON_READ", "the daemon request could not be read"},
    ResultCode{NM_ERR_RELOAD, "NM_ERR_RELOAD", "a peer service could not reload its conditions"},
    ResultCode{NM_ERR_NO_NAT_RULE, "NM_ERR_NO_NAT_RULE", "the network service has no such NAT rule"},
    ResultCode{NM_ERR_SESSION_ARG, "NM_ERR_SESSION_ARG", "bad name or credentials of a PPPoE session"},
    ResultCode{NM_ERR_SESSION_NONE, "NM_ERR_SESSION_NONE",
               "no PPPoE configuration or session of the interface"},
    ResultCode{NM_ERR_SESSION_UNAVAILABLE, "NM_ERR_SESSION_UNAVAILABLE", "PPPoE sessions cannot be run here"},
    ResultCode{NM_ERR_SESSION_STORE, "NM_ERR_SESSION_STORE", "the PPPoE configuration could not be written"},
    ResultCode{NM_ERR_MGMT_ARG, "NM_ERR_MGMT_ARG", "a local management argument is empty or unreadable"},
    ResultCode{NM_ERR_MGMT_STATIC_ROUTE, "NM_ERR_MGMT_STATIC_ROUTE",
               "the shared static routes could not be switched"},
};

/// The row of `code`; positive codes and codes of other programs get a row without a name.
constexpr ResultCode describe_result(int code) {
    for (const ResultCode& row : kResultCodes) {
        if (row.code == code) {
            return row;
        }
    }
    return {code, code > 0 ? "NM_OK" : "NM_ERR_UNKNOWN", code > 0 ? "success" : "a code of another program"};
}
