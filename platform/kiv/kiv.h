/*
 * kiv: mailbox messaging between the threads and processes of one unit.
 *
 * A thread creates one mailbox and may clone it: a clone has a name and an id of its own and shares the receive queue
 * of the mailbox that it was made from. Any thread of the unit sends a message to a mailbox id; the receiver sees who
 * sent it and to which of its mailboxes. Messages go directly from process to process over SOCK_SEQPACKET sockets in
 * "$RU_DIR/kiv" (RU_DIR defaults to /run/ru); there is no daemon.
 *
 * A message is a block of bytes whose first 32 bits are its number, in host order. It is allocated with kiv_alloc and
 * belongs to whoever holds the pointer: to the caller until kiv_send takes it, to the receiver from kiv_receive on.
 *
 * What holds
 *   order     messages of one sending thread arrive at one receive queue in the order sent, whichever of the queue's
 *             mailboxes they were sent to
 *   delivery  once and whole while both ends live; a message to a mailbox that is gone is dropped, and the sender
 *             isn't told
 *   sending   never blocks: what the socket doesn't take waits in the sender and goes out by itself; of more than 64
 *             MiB for one peer all is dropped, as if it had died, with a line on standard error; then it goes on anew
 *   sender    checked against the kernel's credentials of the connection: no process sends in another's name; a
 *             malformed frame cuts off the peer that sent it and nobody else
 *   names     a name belongs to one mailbox at a time; names of a killed process are free again at once
 *   death     a mailbox that is deleted, or whose process dies, fires its monitors and frees its names within 100 ms
 *   threads   a mailbox belongs to the thread that created it, and dies with that thread; only that thread receives on
 *             it, monitors and hunts for it; any thread of the process may send with it as the sender
 *   fork      a child starts without mailboxes; the parent's are not touched
 *
 * Ids are 32 bits with a node field in the upper bits. No id is 0, 1 or 0xFFF00000 and above.
 */
#ifndef KIV_KIV_H
#define KIV_KIV_H

#include <stdint.h>

#ifdef __cplusplus
extern "C" {
#endif

typedef uint32_t kiv_mbox_id_t;

/** A message as its holder sees it: the number, followed by the rest of its kiv_size() bytes. */
struct kiv_msg {
    uint32_t number; /**< host order */
};
#ifndef __cplusplus
typedef struct kiv_msg kiv_msg;
#endif

#define KIV_NO_MBOX ((kiv_mbox_id_t)0xFFFFFFFFU)      /**< no mailbox; the result of what failed */
#define KIV_CURRENT_MBOX ((kiv_mbox_id_t)0xFFF00000U) /**< as a sender: the calling thread's mailbox */
#define KIV_ANY_SENDER ((kiv_mbox_id_t)0xFFF11111U)   /**< sender selector of kiv_receive: whoever sent it */
#define KIV_WAIT_FOREVER 0xFFFFFFFFU                  /**< time-out of kiv_receive, milliseconds */
#define KIV_NO_WAIT 0U                                /**< time-out of kiv_receive */
#define KIV_MAX_SIZE (16U * 1024U * 1024U)            /**< largest message, bytes, the number included */
#define KIV_NAME_MAX 128U                             /**< longest name, bytes */

/**
 * Prepares the process: makes the run-time directory and raises the limit of open files as far as the system allows.
 * Calling it again does nothing. The other calls do it with their own defaults where it was left out.
 *
 * mailboxes: how many mailboxes the process expects; a hint for the size of tables, not a limit.
 * flags, reserved: 0.
 * Returns 0, or an errno value where the run-time directory can't be used.
 */
int kiv_init(uint32_t mailboxes, uint32_t flags, uintptr_t reserved);

/**
 * Creates the calling thread's mailbox under a name of 1 to KIV_NAME_MAX bytes.
 * Returns its id, or KIV_NO_MBOX with errno set: EEXIST (the name is taken), EBUSY (the thread has a mailbox),
 * EINVAL (the name), or what the system said.
 */
kiv_mbox_id_t kiv_create_mailbox(const char* name);

/**
 * Creates a second name and id on the receive queue of `parent`, a mailbox of the calling thread.
 * Returns the id, or KIV_NO_MBOX with errno set: EEXIST, EINVAL (the name, or `parent` isn't the calling thread's).
 */
kiv_mbox_id_t kiv_clone_mailbox(kiv_mbox_id_t parent, const char* name);

/**
 * Deletes a mailbox of this process: its name is free, its monitors fire, messages to it are dropped, also those that
 * are already queued. Deleting a thread's first mailbox deletes its clones and the queue too.
 * Returns 0, or ENOENT where there is no such mailbox in this process.
 */
int kiv_delete_mailbox(kiv_mbox_id_t mbox);

/** The calling thread's first mailbox, or KIV_NO_MBOX. */
kiv_mbox_id_t kiv_current_mbox(void);

/**
 * A descriptor of the calling thread's receive queue: readable (poll, epoll) exactly while kiv_receive would return a
 * message without waiting; only a message that is dropped on arrival, or the end of a peer, may make it readable in
 * vain. It stays the same for the life of the mailbox; the caller doesn't read, write or close it. -1 without mailbox.
 */
int kiv_get_fd(void);

/**
 * Allocates a message of `size` bytes (4 to KIV_MAX_SIZE, the number included), zeroed behind the number.
 * Null where the size is out of range or there is no memory.
 */
struct kiv_msg* kiv_alloc(uint32_t size, uint32_t number);

/** Gives a message back. Null is allowed. */
void kiv_free(struct kiv_msg* msg);

/**
 * Hands a message over to `receiver`. The message is gone for the caller whatever happens: *msg is set to null.
 * `sender` is what the receiver sees: a mailbox of this process (a clone may have been deleted since, as long as its
 * queue lives), KIV_CURRENT_MBOX, or KIV_NO_MBOX for none. With any other value the message is dropped.
 */
void kiv_send(struct kiv_msg** msg, kiv_mbox_id_t receiver, kiv_mbox_id_t sender);

/**
 * Takes the first matching message of the calling thread's queue; others stay queued in their order.
 *
 * filter: null for every number, or an array of a count followed by that many numbers.
 * timeout: milliseconds to wait, KIV_NO_WAIT or KIV_WAIT_FOREVER.
 * sender: only messages from this mailbox, or KIV_ANY_SENDER.
 * Returns the message, which the caller owns, or null when nothing came in time or the thread has no mailbox.
 */
struct kiv_msg* kiv_receive(const uint32_t* filter, uint32_t timeout, kiv_mbox_id_t sender);

/** Of a received message: the sender. Of an allocated one: KIV_NO_MBOX. */
kiv_mbox_id_t kiv_sender(const struct kiv_msg* msg);

/** Of a received message: the mailbox that it was sent to, clones included. Of an allocated one: KIV_NO_MBOX. */
kiv_mbox_id_t kiv_receiver(const struct kiv_msg* msg);

/** Size in bytes, the number included. */
uint32_t kiv_size(const struct kiv_msg* msg);

/**
 * Delivers `msg` once to the calling thread's mailbox when `mbox` dies, with `mbox` as its sender and behind all that
 * `mbox` had sent to this queue; at once where it is dead already. The library owns the message until then.
 * Returns a reference for kiv_unmonitor, never 0; 0 where the thread has no mailbox (the message is freed).
 */
uint32_t kiv_monitor(kiv_mbox_id_t mbox, struct kiv_msg* msg);

/** Cancels a monitor of the calling thread and frees its message, also one that is delivered but not yet received. */
void kiv_unmonitor(uint32_t ref);

/** The id of the mailbox that has this name now, or KIV_NO_MBOX. */
kiv_mbox_id_t kiv_locate(const char* name);

/**
 * Delivers `msg` once to the calling thread's mailbox when a mailbox of this name exists, with that mailbox as its
 * sender: at once or much later. Returns a reference for kiv_unhunt, never 0; 0 as in kiv_monitor.
 */
uint32_t kiv_hunt(const char* name, struct kiv_msg* msg);

/** Cancels a hunt of the calling thread and frees its message, also one that is delivered but not yet received. */
void kiv_unhunt(uint32_t ref);

#ifdef __cplusplus
}
#endif

#endif
