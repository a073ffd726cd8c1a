/*
 * The configuration file of the host platform: access control lists, VPN instances, nodes and services,
 * behind platform/acl.h, platform/vpn.h and platform/device.h. docs/configuration.md describes the file. Any
 * thread may call these functions.
 *
 * A load reads and checks the whole text before anything is exchanged. When something is wrong nothing
 * changes. When all is well the new configuration takes the place of the old one at once: a call that runs
 * meanwhile on another thread answers from the old or from the new one, never from a mixture and never from
 * nothing, and a call that begins after the load answers from the new one. A text without a table removes
 * what an earlier one configured in it. Before the first load nothing is configured.
 *
 * A file may have further tables, which belong to the programs that share it and which they check themselves:
 * whoever loads the file says which there may be, with an array of names that ends with NULL, or NULL for none.
 * Any other table is an error.
 *
 * Every thread that has asked keeps the configuration it last answered from until it asks again or ends, so
 * that asking takes no lock.
 */
#ifndef MCASTHOST_CONFIG_H
#define MCASTHOST_CONFIG_H

#include <stddef.h>

#include "mcasthost/loop.h"

#ifdef __cplusplus
extern "C" {
#endif

/* A size of the error buffer that holds every error but those with very long file names. */
#define HOST_CONFIG_ERROR_SIZE 512

/*
 * Loads the file at path, at most 16 MiB, in place of what is configured. 0; otherwise HOST_FAILED, and the
 * configuration is what it was.
 * error: on failure gets one line, "path:line:column: what is wrong; allowed: ...", without line and column
 * when the file could not be read; on success the empty string. At most error_size bytes with the terminator.
 * NULL only with error_size 0. path is not NULL.
 */
HOST_API uint32_t HOST_ConfigLoad(const char *path, const char *const *other_tables, char *error,
                                  size_t error_size);

/*
 * The same with the length bytes at text, which need no terminator, for a caller that has read the file
 * already. name stands for the path in errors and is not NULL; text may be NULL when length is 0.
 */
HOST_API uint32_t HOST_ConfigLoadText(const char *name, const char *text, size_t length,
                                      const char *const *other_tables, char *error, size_t error_size);

/*
 * Reads and checks the length bytes at text as HOST_ConfigLoadText does, and changes nothing. tell is called, on this thread and
 * before the function returns, with each error in turn, where a load tells the first: one line as a load would
 * give, which lives for the call; with the line and the column that it names, 0 for none; and with context. It must not
 * call back. Returns how many there were, at most 100; those are told that do not follow from another one.
 */
HOST_API uint32_t HOST_ConfigCheckText(
    const char *name, const char *text, size_t length, const char *const *other_tables,
    void (*tell)(void *context, uint32_t line, uint32_t column, const char *error), void *context);

#ifdef __cplusplus
}
#endif

#endif
