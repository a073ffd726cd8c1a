/*
 * The daemon put together: command line and configuration in, event loop out.
 */
#ifndef DAEMONS_MRIBD_DAEMON_H
#define DAEMONS_MRIBD_DAEMON_H

#include "daemons/common/options.h"
#include "daemons/mribd/instance.h"

namespace mribd
{

// Adds the daemon's options to the command line; they fill settings when it is parsed.
void add_options(mcastd::Options &options, PlaneSettings &settings);

// Runs until a signal ends it. The exit code of the process.
int run_daemon(const mcastd::Options &options, const PlaneSettings &settings);

} // namespace mribd

#endif
