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

/// What a program that times a call learns of its steps; called as those above, and beside them. Steps of one
/// thread lie in each other: what begins last ends first.
struct nm_step_watch {
    /// A step begins. Its kind, its name and what it is about:
    ///   entry      of the library, "Setup_wanif"
    ///   target     as target_begins() above; what it is about is empty
    ///   operation  "create", "add", "delete", "alter" an object of this class
    ///   document   "load", "store" that of this path
    ///   lock       "take" that of this name
    ///   file       "read", "write", "copy", "replace", "sync" that of this path
    ///   netlink    a request ("RTM_NEWADDR") for this device, which may be empty
    ///   ioctl      a request ("SIOCSIFMTU") for this device
    ///   process    "run", "read": this command line, which may hold secrets
    ///   unit       a verb of systemctl ("start") and its unit
    ///   bus        a service and its method
    ///   socket     a peer daemon and the path of its socket
    ///   http       a method and its URL, without user, password and query
    ///   wait       for what: "link" of this device
    void (*step_begins)(const char* kind, const char* name, const char* object);

    /// Of the step that began last and has not ended: its `result`, the `holder` of a lock that it waits for.
    void (*step_noted)(const char* key, const char* value);
    void (*step_ends)();

    /// The lock of this name is held from now on, by this handle; and is no longer.
    void (*lock_taken)(int handle, const char* name);
    void (*lock_released)(int handle);
};

/// Watches the steps of this process's calls from now on, in place of an earlier watcher; null ends that.
/// `watch` stays the caller's, and has to last as long.
void nm_watch_steps(const nm_step_watch* watch);

#pragma GCC visibility pop
