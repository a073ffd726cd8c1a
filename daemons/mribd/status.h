/*
 * mribd's tables as text, for people and for scripts.
 */
#ifndef DAEMONS_MRIBD_STATUS_H
#define DAEMONS_MRIBD_STATUS_H

#include "daemons/mribd/channel_server.h"
#include "daemons/mribd/router.h"

#include <string>

namespace mribd
{

// What one family knows: clients, interfaces, memberships, entries with the kernel's packet counters (one
// system call each), and everything that was dropped or refused. lost_upcalls is the kernel's count.
std::string status_text(const Router &router, const ChannelServer &server, uint64_t lost_upcalls);

} // namespace mribd

#endif
