// What a program that shows a call to a person may learn while the call runs: what it waits for, which errors
// it logs, which target it works, how that came out. Without a watcher, which is the rule, that costs a look
// at a pointer.
#pragma once

#pragma GCC visibility push(default)

/// Whom to call; members may be null. They are called on the thread of the call, in its midst, so they return
/// soon, throw nothing and do not call the library. Texts are valid until they return.
struct nm_call_watch {
    /// A wait begins, and ends: for what, in words ("the lock of swdev1"); the lock file if it is for a lock,
    /// else null; after how many seconds the library gives up, 0 if that is not known. Each wait that begins
    /// ends.
    void (*wait_begins)(const char* what, const char* lock_file, int limit);
    void (*wait_ends)();

    /// The text of a statement of the level ERROR, whether or not there is a log that takes it.
    void (*error_logged)(const char* text);

    /// A target of a request ("PORT1"), a step of a bring-up ("setup_wanif PORT1") or a document of a
    /// migration is worked from now on; and has been, with this result. One follows the other, none lies in
    /// another; what is noted between two of them belongs to the call as a whole.
    void (*target_begins)(const char* target);
    void (*target_done)(const char* target, int code);
};

/// Watches the calls of this process from now on, in place of an earlier watcher; null ends that. `watch`
/// stays the caller's, and has to last as long.
void nm_watch_calls(const nm_call_watch* watch);

#pragma GCC visibility pop
