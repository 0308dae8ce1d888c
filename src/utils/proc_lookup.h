// Finding processes by what /proc tells of them.
#pragma once

#include <string>
#include <vector>

#pragma GCC visibility push(default)

// A process matches if its short name (at most 15 characters) equals `comm` and if `args` occur among
// the words of its command line, the program's name left out, in the given order; other words may stand
// between them. With empty `args` the command line is not read.

/// The id that the pid file records, if that process is the expected one. Else how far the check got:
/// -1 no pid file, -2 first line empty, the negative number (NM_ERR_NOT_A_NUMBER for no number) of that
/// line, -3 no such process, -4 no short name, -5 another short name, -6 no command line, -7 command
/// line empty, -8 not all of `args` found.
int checkPidFileByCmdArgs(std::string pidfile, std::string comm, std::vector<std::string> args);

/// The id of the first process that matches, or -1.
int getProcIdByCmdArgs(std::string comm, std::vector<std::string> args);

/// The id of the link-local address daemon that serves the interface, or -1; its helper that runs the
/// call-outs does not count.
int get_avahiProcId(std::string ifname);

#pragma GCC visibility pop
