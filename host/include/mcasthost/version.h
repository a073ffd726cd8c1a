/*
 * Which version of the libraries a program runs with. Any thread.
 */
#ifndef MCASTHOST_VERSION_H
#define MCASTHOST_VERSION_H

#include <stdint.h>

#include "mcasthost/loop.h"

#ifdef __cplusplus
extern "C" {
#endif

/*
 * The version of libmcasthost, and of libmcastcommon that was built with it: MCAST_VERSION of mcast/common.h
 * as it was then, where a program compares it with its own.
 */
HOST_API uint32_t HOST_Version(void);

#ifdef __cplusplus
}
#endif

#endif
