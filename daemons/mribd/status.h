/*
 * mribd's tables as text, for people and for scripts.
 */
#ifndef DAEMONS_MRIBD_STATUS_H
#define DAEMONS_MRIBD_STATUS_H

#include <string>

#include "daemons/mribd/channel_server.h"
#include "daemons/mribd/router.h"

namespace mribd
{

// What one family knows: clients, what the clients are told and what the channel refused; and of each
// instance, the others after the public one, interfaces, memberships, entries with the kernel's packet
// counters (one system call each) and everything that was dropped or refused.
std::string status_text(const ChannelServer &server);

// Its part about what the clients are told, what the MSDP daemon tells, and the users that gmpd knows.
std::string view_text(const Backend &backend);

// Appends formatted text, cut at a few hundred bytes.
__attribute__((format(printf, 2, 3))) void add_text(std::string *out, const char *format, ...);

} // namespace mribd

#endif
