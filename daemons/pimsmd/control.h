/*
 * The daemon's tables, settings and commands at its control endpoint.
 */
#ifndef DAEMONS_PIMSMD_CONTROL_H
#define DAEMONS_PIMSMD_CONTROL_H

#include "daemons/common/control.h"
#include "daemons/pimsmd/mrib_link.h"
#include "daemons/pimsmd/register_thread.h"
#include "daemons/pimsmd/sockets.h"

namespace pimsmd
{

// The parts of the daemon of which its tables tell; NULL where a test has none.
struct Shown {
    Router &router;
    const Sockets *sockets;
    const RegisterThread *registers;
    const MribLink *mrib;
};

// Offers all of them; the parts must outlive the server's last request.
void offer_control(mcastd::ControlServer &server, const Shown &shown);

// Those of groups and sources.
void offer_trees(mcastd::ControlRegistry &registry, Router &router);

} // namespace pimsmd

#endif
