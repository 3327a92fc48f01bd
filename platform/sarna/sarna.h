/*
 * sarna: the unit's non-volatile store: small values under paths, shared by all processes of one unit.
 *
 * A group is a store of its own, opened by its name ("sys_bpar"). In a group every value has a path
 * ("/sys/vorn/pid_id"). The part up to and with the last slash is the value's node ("/sys/vorn/"), what follows is its
 * key ("pid_id"). Values are read by their key in an opened node, and written and deleted by their path in the group.
 *
 *     sarna_db_group_t group = NULL;
 *     sarna_node_t node = NULL;
 *     char text[64];
 *     size_t size = sizeof(text);
 *     if (sarna_open_db_group("sys_bpar", &group) == SARNA_OK) {
 *         sarna_set_value(group, "/sys/vorn/pid_id", "temporary", 10, 0, 0);
 *         if (sarna_open_node(group, "/sys/vorn/", &node) == SARNA_OK) {
 *             sarna_get_value(node, "pid_id", text, &size);
 *         }
 *         sarna_close_db_group(group);
 *     }
 *
 * A group is kept in "$RU_DIR/sarna/<group>" (RU_DIR defaults to /run/ru) and lives as long as that folder: on a tmpfs
 * it survives restarts and goes with a power cycle.
 *
 * What holds
 *   results    every function that gives an int gives 0 (SARNA_OK) or an error code of enum sarna_error
 *   whole      a reader sees a value as one writer left it, never a part or a mixture. A writer that is killed at any
 *              moment leaves the old value or the new one, and nothing locked
 *   durable    what sarna_set_value and sarna_delete_key have returned from stays, also when the process is killed
 *   bytes      a value is a block of bytes, zeros included. An empty value has the size 0 and isn't an absent one
 *   processes  any number of processes may use a group at once. Readers wait for nobody; a writer waits while another
 *              one writes in the same group
 *   threads    any thread may use any handle, also several threads at once
 *   handles    a handle that is closed, or null, is answered with SARNA_BAD_HANDLE; handles aren't used again
 *   fork       a child starts without handles: the parent's are answered with SARNA_BAD_HANDLE in it, and stay as they
 *              are in the parent
 */
#ifndef SARNA_SARNA_H
#define SARNA_SARNA_H

#include <stddef.h>
#include <stdint.h>

#ifdef __cplusplus
extern "C" {
#endif

#define SARNA_GROUP_NAME_MAX 64U                /**< longest name of a group, bytes */
#define SARNA_PATH_MAX 255U                     /**< longest path, bytes: node and key together */
#define SARNA_VALUE_MAX (1024U * 1024U)         /**< largest value, bytes */
#define SARNA_GROUP_MAX (16U * SARNA_VALUE_MAX) /**< all of a group, bytes, with up to 4 KiB more for each value */

enum sarna_error {
    SARNA_OK = 0,
    SARNA_BAD_ARGUMENT = 1,  /**< a null pointer, or a reserved argument that isn't 0 */
    SARNA_BAD_HANDLE = 2,    /**< null, closed, or inherited by fork */
    SARNA_BAD_NAME = 3,      /**< a malformed name of a group, path or key */
    SARNA_NAME_TOO_LONG = 4, /**< longer than SARNA_GROUP_NAME_MAX or SARNA_PATH_MAX */
    SARNA_VALUE_TOO_BIG = 5, /**< larger than SARNA_VALUE_MAX */
    SARNA_NOT_FOUND = 6,     /**< there is no value of this path */
    SARNA_TOO_SMALL = 7,     /**< the buffer doesn't take the value */
    SARNA_FULL = 8,          /**< the group holds SARNA_GROUP_MAX, or the file system is full */
    SARNA_BUSY = 9,          /**< more than a hundred readers are in the group, or the store is locked for 5 seconds */
    SARNA_NO_ACCESS = 10,    /**< the process may not use the group's files */
    SARNA_DAMAGED = 11,      /**< the group's files aren't what this library wrote, as far as
                                  their heads tell; what is damaged behind them can end the process */
    SARNA_NO_MEMORY = 12,    /**< memory, descriptors or address space ran out */
    SARNA_SYSTEM = 13        /**< the system failed in another way */
};

typedef struct sarna_db_group* sarna_db_group_t; /**< an open group; nothing that a caller can look into */
typedef struct sarna_node* sarna_node_t;         /**< an open node */

/**
 * Opens a group, and makes it where there is none.
 *
 * name: 1 to SARNA_GROUP_NAME_MAX letters, digits, "_" and "-".
 * group: where the handle goes; null on a failure.
 */
int sarna_open_db_group(const char* name, sarna_db_group_t* group);

/**
 * Opens a node for reading. A node is there as soon as its group is, with or without values.
 *
 * path: begins and ends with a slash, no two slashes side by side; up to SARNA_PATH_MAX bytes.
 * node: where the handle goes; null on a failure.
 */
int sarna_open_node(sarna_db_group_t group, const char* path, sarna_node_t* node);

/** Tells the size in bytes of the value under `key`, a name without a slash. `size` is written on success only. */
int sarna_get_value_size(sarna_node_t node, const char* key, size_t* size);

/**
 * Copies the value under `key` to `buffer`.
 *
 * size: in, how much the buffer takes; out, the value's size, also with SARNA_TOO_SMALL, which leaves the buffer as it
 * is. Otherwise unchanged on a failure. The buffer may be null where it takes nothing.
 */
int sarna_get_value(sarna_node_t node, const char* key, void* buffer, size_t* size);

/**
 * Writes a value, in the place of an earlier one.
 *
 * path: begins with a slash and doesn't end with one, no two slashes side by side; up to SARNA_PATH_MAX bytes.
 * value, size: up to SARNA_VALUE_MAX bytes; the value may be null where the size is 0.
 * flags, reserved: 0.
 */
int sarna_set_value(sarna_db_group_t group, const char* path, const void* value, size_t size, uint32_t flags,
                    uint32_t reserved);

/** Deletes the value of this path; in a full group, too. SARNA_NOT_FOUND where there is none. */
int sarna_delete_key(sarna_db_group_t group, const char* path);

/** Closes a node. */
int sarna_close_node(sarna_node_t node);

/** Closes a group, with all nodes that were opened by this handle. Other handles of the group aren't touched. */
int sarna_close_db_group(sarna_db_group_t group);

/** What a result means, in a few words; never null. */
const char* sarna_error_text(int error);

#ifdef __cplusplus
}
#endif

#endif
