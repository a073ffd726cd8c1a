/*
 * Random bytes of the platform's cryptographic library.
 */
#ifndef PLATFORM_RANDOM_H
#define PLATFORM_RANDOM_H

#include <stdint.h>

#ifdef __cplusplus
extern "C" {
#endif

/* Fills buffer with length random bytes. 1 on success; on failure 0 and the buffer is untouched. */
int FIPS_rand_bytes(uint8_t *buffer, int length);

#ifdef __cplusplus
}
#endif

#endif
