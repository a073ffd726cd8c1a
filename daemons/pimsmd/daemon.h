/*
 * The daemon put together: configuration file in, event loop out.
 */
#ifndef DAEMONS_PIMSMD_DAEMON_H
#define DAEMONS_PIMSMD_DAEMON_H

#include "daemons/common/options.h"

namespace pimsmd
{

// Runs until a signal ends it. The exit code of the process.
int run_daemon(const mcastd::Options &options);

} // namespace pimsmd

#endif
