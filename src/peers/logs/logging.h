// The log of a process: which file under /var/log/network/ its statements reach, in which format, and
// what becomes of a file that is full. The statements themselves are in log.h.
#pragma once

#include <cstddef>
#include <string>

#pragma GCC visibility push(default)

/// 80 "=" and a newline: the INFO statement with which every entry opens its part of the log.
/// Built at load time; not for the initialisers of other units.
extern const std::string SEPARATE_LINE;

/// Points the log of this process at the file of the category `name`. First action of every exported
/// entry, with "MAIN" (changes) or "API" (queries); daemons pass their own names. Until the first call
/// statements are silent; every call reads anew the environment, the marker files in
/// /var/run/network/ (.boot_fin, .reboot, .poweroff) and the category's configuration file under
/// /tmp/log_config/, and opens the log file anew unless nothing has changed. A configuration file that is
/// missing, faulty or without any setting is replaced as a whole by a built-in configuration; so is one that
/// somebody other than root can have written: file and directory have to belong to uid 0, writable for no
/// other user, and neither may be a symbolic link.
///
/// Environment: DEBUG_NA "1" appends standard error to /var/log/network/err_log; NALOG (any value)
/// uses the logger `other` with /var/log/network/default.log, whatever the category; CALL_BY_NMLOG
/// (any value, without NALOG) leaves location and function out of the lines.
///
/// Never fails: what cannot be read or written is passed over. `name` may be null (no category).
void INITIALIZE_LOG(const char* name);

/// Takes rolloutHandler out again: a full log file is from then on replaced without being kept. The
/// next INITIALIZE_LOG puts it back.
void DETACH_LOG();

/// Hands the full log file `filename` to /usr/sbin/log_compress.sh and waits for it; the writer of the line
/// that filled the file calls it, holding the locks of the logging library, before it puts an empty file in
/// the place of the full one. Of several processes one does so, the others write on: what they add to the
/// full file meanwhile comes into the new one. The target of a symbolic link is handed
/// over instead of the link, a path longer than 256 bytes is cut there, and a file that is neither
/// regular nor a link is left alone. `size` (bytes) is not used.
void rolloutHandler(const char* filename, std::size_t size);

#pragma GCC visibility pop
