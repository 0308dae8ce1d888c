// Commands run through the shell.
#pragma once

#include <string>

#pragma GCC visibility push(default)

/// Runs a shell command or script of any size and waits for it. Its exit code (0 to 255), or
/// NM_ERR_SERVICE if it could not be run or was ended by a signal; null: NM_ERR_NULL_ARG. The caller
/// makes values in the text harmless.
int system_cmd(const char* cmd);

/// Runs a shell command or script of any size; all that it wrote to its standard output, the trailing
/// newline and NUL bytes included. Its exit code is not looked at. Throws std::runtime_error
/// ("popen() failed!") if it could not be run.
std::string exec(const char* cmd);

/// Splits a command line at blanks (there is no quoting) into a table for an exec-style call: at most
/// 63 words of the first 1023 characters, then null. The number of words, or -1 on a null argument or
/// without memory. The caller frees first (*argv)[0], which is the buffer of all words even if there
/// are none, and then *argv.
int cmd2argv(const char* cmd, char*** argv);

#pragma GCC visibility pop
