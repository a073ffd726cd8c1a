/*
 * The daemon's state as JSON text.
 */
#ifndef DAEMONS_PIMSMD_STATUS_H
#define DAEMONS_PIMSMD_STATUS_H

#include <string>

#include "daemons/pimsmd/router.h"
#include "daemons/pimsmd/sockets.h"

namespace pimsmd
{

// One object: the links with their neighbours and non-zero counters, how many entries there are, the RPs learnt and the
// BSR, the counters of no link. Entries themselves are tables of mcastctl.
std::string status_text(Router &router, const Sockets &sockets);

} // namespace pimsmd

#endif
