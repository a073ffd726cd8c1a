/*
 * Resources and command-line help of the platform. A module registers a table of texts; a text is then known
 * by its identifier, the module's block plus the index in the table. Any thread.
 */
#ifndef PLATFORM_RESOURCE_H
#define PLATFORM_RESOURCE_H

#include <stdint.h>

#ifdef __cplusplus
extern "C" {
#endif

/* A module's table of texts. */
typedef struct RC_TEXT_TABLE_S {
    const char *const *texts;
    uint64_t reserved; /* 0 */
} RC_TEXT_TABLE_S;

/* The help entries of one command-line request, made and read by the command-line service. */
typedef struct CLI_HELP_LIST_S CLI_HELP_LIST_S;

/*
 * Registers count texts for the module block, whose low 16 bits are 0. The table and its texts outlive the
 * registration. 0, or an error code.
 */
uint32_t RC_RegInfo(uint32_t module_id, const RC_TEXT_TABLE_S *table, uint32_t count);

/* Withdraws what is registered for the module block. 0, or an error code. */
uint32_t RC_DeregInfo(uint32_t module_id);

/* The text with this identifier, never NULL: an unknown one gives the empty text. */
const char *RC_LoadString(uint32_t id);

/* Adds an entry with copies of both texts to the list. An entry for which there is no memory is left out. */
void CLI_NewHelpInfo(const char *syntax, const char *description, CLI_HELP_LIST_S *list);

#ifdef __cplusplus
}
#endif

#endif
