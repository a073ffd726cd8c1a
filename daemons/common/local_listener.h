/*
 * A listening socket of the local family.
 */
#ifndef DAEMONS_COMMON_LOCAL_LISTENER_H
#define DAEMONS_COMMON_LOCAL_LISTENER_H

#include <cstdint>

namespace mcastd
{

// A socket that listens on the local port and does not block; the caller closes it. -1 with errno set when
// there is none, EADDRINUSE when somebody listens already.
int listen_local(uint16_t port);

} // namespace mcastd

#endif
