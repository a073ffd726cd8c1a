/*
 * The public headers in strict C11, where the C library hides the reader-writer lock: the layout of what holds
 * one, for mrib_abi.c to compare.
 */
#undef _GNU_SOURCE
#include "strict.h"

#include "all_public_headers.h"

#if defined(__GLIBC__) && defined(PTHREAD_RWLOCK_INITIALIZER)
#error "this is to be compiled as strict C11, which does not see the lock"
#endif

const struct strict_layout strict_layout = {sizeof(MCAST_RWLOCK_S), _Alignof(MCAST_RWLOCK_S),
                                            sizeof(MRIB_GMP_VRF_S),
                                            offsetof(MRIB_GMP_VRF_S, msdp_local_source)};
