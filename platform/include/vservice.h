/* The appliance's service bus: one synchronous request and one reply, both of them text (JSON by
 * convention), between root processes of one machine.
 *
 * A service listens on the unix stream socket /var/run/vservice/<service>.sock. Only uid 0 is served,
 * and only a service that runs as uid 0 is believed. Failures are negative errno values unless a
 * declaration says otherwise. An io belongs to one thread at a time; different ios are independent.
 */
#ifndef VSERVICE_H
#define VSERVICE_H

#include <stddef.h>

#ifdef __cplusplus
extern "C" {
#endif
#pragma GCC visibility push(default)

/* One text buffer: a request before the call, the reply after it. */
typedef struct vs_io vs_io;

/* A new, empty io, which the caller frees; null when memory is short. */
vs_io* vs_io_create(void);

/* Releases `io` and every text pointer read from it. Null is allowed. */
void vs_io_free(vs_io* io);

/* Appends formatted text. The number of bytes appended, or -1. */
int vs_io_printf(vs_io* io, const char* format, ...) __attribute__((format(printf, 2, 3)));

/* Makes room for `size` bytes and cuts a longer text down to them; 0 empties the buffer. 0, or -1. */
int vs_io_realloc(vs_io* io, size_t size);

/* Appends `length` bytes. 0, or -1. */
int vs_io_write(vs_io* io, const char* text, size_t length);

/* The length in bytes. `*text`, if wanted, is set to the text: NUL-terminated, null when empty, owned by
 * `io` and valid until the io is changed or freed. */
size_t vs_io_read(vs_io* io, char** text);

/* Calls `method` of `service` with the io's text, which may be empty and at most 16 MiB.
 *
 * timeout_seconds: more than 0; one limit on connecting, sending and waiting for the whole reply.
 * flags: reserved; callers pass -1.
 *
 * 0: the reply has replaced the io's text. Otherwise the text is still the request, and the result is
 *   -EINVAL        a null argument, no positive timeout, or a name that is empty or not plain
 *   -ENAMETOOLONG  the service's socket path does not fit an address
 *   -ENOENT, -ECONNREFUSED  the service is not running
 *   -EPERM         the service does not run as root
 *   -ETIMEDOUT     the time is over
 *   -ECONNRESET, -EPIPE  the service closed the connection before the reply was whole
 *   -EMSGSIZE      the request, or the length that the reply announces, is over the limit
 * or another failure of a socket call. */
int vs_call(const char* service, const char* method, vs_io* io, int timeout_seconds, int flags);

/* Sends the io's text as the reply to the request that the io came with; once only.
 * 0; -ENOTCONN for an io that holds no open request; otherwise as vs_call. */
int vs_reply(vs_io* io);

/* The serving side of one service. */
typedef struct vs_server vs_server;

/* Works one request: reads its text from `io`, puts the answer in its place (vs_io_realloc with 0, then
 * vs_io_write), and calls vs_reply(io), vs_io_free(io) and close(socket), in this order. Both handles are
 * the method's to release, also when it does not answer. It runs on a thread of its own, beside other
 * requests, and must not throw. Its result is for its own use; the bus does not look at it. */
typedef int (*vs_method)(vs_io* io, int socket);

/* Claims the service's name and listens; callers queue until vs_server_run. Null, with errno set:
 * EADDRINUSE when another process serves the name, EINVAL or ENAMETOOLONG for an unusable name, or the
 * failure of a system call. A socket that a killed server left behind is not an obstacle. */
vs_server* vs_server_create(const char* service);

/* Adds a method before vs_server_run. `name` is at most 255 letters, digits and `_ . -`.
 * 0, -EINVAL, or -EEXIST for a name that is taken. */
int vs_server_add_method(vs_server* server, const char* name, vs_method method);

/* Serves until vs_server_stop, after which nobody can connect, and until the requests that had come in whole
 * are done, those of callers that were still in the queue as well. Callers that stall, break off or send
 * garbage are dropped without a word and delay nobody; an unknown method is answered
 * {"error":-1,"data":"unknown method <name>"}. 0 after a stop, or a negative errno. */
int vs_server_run(vs_server* server);

/* Ends vs_server_run, now or as soon as it begins. Any thread and any signal handler may call it. */
void vs_server_stop(vs_server* server);

/* Gives the name back and releases the server, which must not be running. Null is allowed. */
void vs_server_free(vs_server* server);

#pragma GCC visibility pop
#ifdef __cplusplus
}
#endif

#endif
