/* Another process that uses the store. Its result is the store's code; "ready" on its output is what a test waits for.
 */

#define _POSIX_C_SOURCE 200809L

#include "sarna/sarna.h"

#include <lmdb.h>
#include <stdio.h>
#include <stdlib.h>
#include <string.h>
#include <unistd.h>

#define CHECK(call)                                                                                                    \
    do {                                                                                                               \
        const int result = (call);                                                                                     \
        if (result != 0) {                                                                                             \
            return result;                                                                                             \
        }                                                                                                              \
    } while (0)

static int set(const char* path, const char* value)
{
    sarna_db_group_t group = NULL;
    CHECK(sarna_open_db_group("group", &group));
    CHECK(sarna_set_value(group, path, value, strlen(value), 0, 0));
    return sarna_close_db_group(group);
}

static int get(const char* nodePath, const char* key)
{
    sarna_db_group_t group = NULL;
    sarna_node_t node = NULL;
    char value[256];
    size_t size = sizeof(value);
    CHECK(sarna_open_db_group("group", &group));
    CHECK(sarna_open_node(group, nodePath, &node));
    CHECK(sarna_get_value(node, key, value, &size));
    printf("%.*s\n", (int)size, value);
    CHECK(sarna_close_node(node));
    return sarna_close_db_group(group);
}

/** Writes values of one letter, each time the next one and another size, until it is killed. */
static int alternate(const char* path, size_t smallest)
{
    sarna_db_group_t group = NULL;
    char* const value = malloc(2 * smallest);
    CHECK(value == NULL);
    CHECK(sarna_open_db_group("group", &group));
    for (unsigned count = 0;; ++count) {
        memset(value, 'a' + (int)(count % 26U), 2 * smallest);
        CHECK(sarna_set_value(group, path, value, smallest + count % smallest, 0, 0));
        if (count == 0) {
            puts("ready");
            fflush(stdout);
        }
    }
}

/** Stops in the midst of reading or writing, which no call of the store gives an occasion for. */
static int stuck(const char* directory, unsigned flags)
{
    MDB_env* environment = NULL;
    MDB_txn* transaction = NULL;
    MDB_dbi database = 0;
    MDB_val key = {6, "/n/key"};
    MDB_val value = {3, "bad"};
    CHECK(mdb_env_create(&environment));
    CHECK(mdb_env_open(environment, directory, 0, 0600));
    CHECK(mdb_txn_begin(environment, NULL, flags, &transaction));
    CHECK(mdb_dbi_open(transaction, NULL, 0, &database));
    CHECK(flags == 0 ? mdb_put(transaction, database, &key, &value, 0) : mdb_get(transaction, database, &key, &value));
    puts("ready");
    fflush(stdout);
    return pause();
}

int main(int argc, char** argv)
{
    if (argc == 4 && strcmp(argv[1], "set") == 0) {
        return set(argv[2], argv[3]);
    }
    if (argc == 4 && strcmp(argv[1], "get") == 0) {
        return get(argv[2], argv[3]);
    }
    if (argc == 4 && strcmp(argv[1], "alternate") == 0) {
        return alternate(argv[2], strtoul(argv[3], NULL, 10));
    }
    if (argc == 3 && strcmp(argv[1], "stuck-reader") == 0) {
        return stuck(argv[2], MDB_RDONLY);
    }
    if (argc == 3 && strcmp(argv[1], "stuck-writer") == 0) {
        return stuck(argv[2], 0);
    }
    return EXIT_FAILURE;
}
