/*
 * Help lists: what a command-line service hands to the help calls of a module and reads afterwards. A list
 * belongs to one thread at a time.
 */
#ifndef MCASTHOST_HELP_H
#define MCASTHOST_HELP_H

#include <stdint.h>

#include "mcasthost/loop.h"
#include "platform/resource.h"

#ifdef __cplusplus
extern "C" {
#endif

/* Makes an empty list. NULL when memory is short. */
HOST_API CLI_HELP_LIST_S *HOST_HelpCreate(void);

/* Frees the list and the texts in it. NULL is ignored. */
HOST_API void HOST_HelpDestroy(CLI_HELP_LIST_S *list);

/*
 * Gives the texts of entry number position, counted from 0 in the order in which they were added; they are
 * the list's and live as long as it. 0, or HOST_FAILED past the last (the outputs are untouched).
 */
HOST_API uint32_t HOST_HelpGet(const CLI_HELP_LIST_S *list, uint32_t position, const char **syntax,
                               const char **description);

#ifdef __cplusplus
}
#endif

#endif
