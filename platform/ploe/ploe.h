/*
 * ploe: message sockets between the processes of one unit.
 *
 * A listener has an address, a client connects to it, and both ends of the connection then send and receive messages:
 * blocks of bytes that arrive whole, once and in the order sent, without any framing of the caller's own.
 *
 * An address is "ux:NAME". It stands for the SOCK_SEQPACKET Unix socket "$RU_DIR/ploe/NAME" (RU_DIR defaults to
 * /run/ru). NAME is a file name of 1 to PLOE_NAME_MAX bytes that doesn't begin with a dot. The path of the folder may
 * be of any length.
 *
 * What holds
 *   size      1 to PLOE_MAX_MSG_SIZE bytes. An empty message couldn't be told from a closed connection, so none is
 *             sent; one from a sender without this library counts as the end of the connection.
 *   sending   all of a message or nothing of it. The kernel keeps what isn't received yet and charges it to the sender:
 *             with the usual limits (below) two of the largest messages fit, or six of 64 KiB; some four times as much
 *             where the process is privileged or the limit is raised.
 *   closing   what was sent before the close can still be received, then the receiver is told of the end; what the
 *             closing end hasn't received is lost. The end of a process closes its sockets. Nothing raises SIGPIPE.
 *   names     an address belongs to one living listener at a time; that of a killed process is free again at once.
 *   threads   a socket belongs to one thread at a time; different sockets have nothing to do with each other.
 *   fork      descriptors are close-on-exec. A child that goes on without exec shares the sockets: the other end is
 *             told of the end when the last copy is closed.
 *
 * Where the maximum comes from: the kernel takes a message of up to the send buffer less 32 bytes. The buffer is set
 * with SO_SNDBUF, which net.core.wmem_max limits; its usual value of 212,992 gives a buffer of 425,984 bytes. The
 * maximum is thus one that every machine with the usual values carries, also for an unprivileged process, and the same
 * for both ends. Where a lowered wmem_max doesn't allow it, connecting and accepting fail with ENOBUFS instead of
 * promising it.
 *
 * Calls that return an int give 0, or -1 with errno set. A null socket is EINVAL, no memory is ENOMEM. Calls that a
 * signal interrupts go on.
 */
#ifndef PLOE_PLOE_H
#define PLOE_PLOE_H

#include <stdbool.h>
#include <stddef.h>
#include <sys/types.h>

#ifdef __cplusplus
extern "C" {
#endif

/** A connection's end, or a listener. */
struct ploe_socket;
#ifndef __cplusplus
typedef struct ploe_socket ploe_socket;
#endif

#define PLOE_NAME_MAX 64U                /**< longest NAME in an address, bytes */
#define PLOE_MAX_MSG_SIZE (256U * 1024U) /**< largest message, bytes */

/** Attribute: the largest message that can be sent and can arrive, bytes; a uint64_t. */
#define PLOE_ATTR_MAX_MSG_SIZE "ploe.max_msg_size"

/**
 * Connects to the listener at `address`. Doesn't wait for it to accept: messages can be sent at once. The connection is
 * blocking. `flags`: reserved, 0.
 * Returns the connection, or null with errno set: EINVAL (the address or the flags), ENAMETOOLONG (the name), ENOENT
 * (there is no such socket), ECONNREFUSED (its listener is dead), EAGAIN (too many wait there to be accepted), ENOBUFS
 * (see above), or what the system said.
 */
struct ploe_socket* ploe_connect(const char* address, int flags);

/**
 * Starts to listen at `address`, making the folder where it is missing and replacing the socket file of a dead
 * listener. `backlog`: how many connections may wait to be accepted, 1 or more. The listener is blocking. Returns the
 * listener, or null with errno set: EINVAL (the address or the backlog), ENAMETOOLONG (the name), EADDRINUSE (another
 * listener lives there, or a file that is no socket has the name), or what the system said.
 */
struct ploe_socket* ploe_listen(const char* address, int backlog);

/**
 * Takes the next connection that waits at a listener; it is blocking, whatever the listener is.
 * Returns it, or null with errno set: EAGAIN (non-blocking, and none waits), EINVAL (not a listener), ENOBUFS (see
 * above; the connection is closed), EMFILE and the like (the connection goes on waiting, and the listener's descriptor
 * stays readable), or what the system said.
 */
struct ploe_socket* ploe_accept(struct ploe_socket* listener);

/** Makes sending, receiving and accepting wait (true) or fail with EAGAIN (false) where they can't be done at once. */
int ploe_set_blocking(struct ploe_socket* socket, bool blocking);

/**
 * Copies the value of an attribute to the `size` bytes at `value`.
 * errno: ENOENT (no such attribute), EINVAL (`size` isn't that of the attribute, or a null pointer).
 */
int ploe_attr_get(struct ploe_socket* socket, const char* name, void* value, size_t size);

/**
 * Asks that the descriptor become readable as soon as `messages` messages can be received, which must be 1, the only
 * count that there is (EINVAL). To be called once before the descriptor is watched; it holds until the socket is
 * closed.
 */
int ploe_await(struct ploe_socket* socket, int messages);

/**
 * The socket's descriptor, for poll, epoll or an event loop; -1 for a null socket. A connection's is readable exactly
 * while ploe_receive would not wait: for a message, or for the end of the connection. A listener's is while a
 * connection waits to be accepted. It stays the same until ploe_close closes it: take it off the event loop before
 * that. It isn't read, written or closed by the caller.
 */
int ploe_fd(const struct ploe_socket* socket);

/**
 * Sends one message of `size` bytes. On failure nothing was sent; errno: EINVAL (`size` is 0), EMSGSIZE (beyond the
 * maximum), EAGAIN (non-blocking, and what was sent before leaves no room), EPIPE (the other end is closed), ENOTCONN
 * (a listener), ENOBUFS (no memory in the kernel).
 */
int ploe_send(struct ploe_socket* connection, const void* data, size_t size);

/**
 * Receives one message into the `size` bytes at `buffer`.
 * Returns its size; 0 where the connection is closed and all that was sent before is received; or -1 with errno set:
 * EAGAIN (non-blocking, and nothing is there), EMSGSIZE (the message is longer than the buffer: it is dropped, the
 * contents of the buffer are of no use, and the connection goes on with the next message), ENOTCONN (a listener).
 */
ssize_t ploe_receive(struct ploe_socket* connection, void* buffer, size_t size);

/** Closes a connection, or a listener with its socket file and all that wait to be accepted. Null is allowed. */
void ploe_close(struct ploe_socket* socket);

#ifdef __cplusplus
}
#endif

#endif
