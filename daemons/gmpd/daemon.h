/*
 * The daemon put together: configuration in, event loop out.
 */
#ifndef DAEMONS_GMPD_DAEMON_H
#define DAEMONS_GMPD_DAEMON_H

#include "daemons/common/options.h"
#include "daemons/gmpd/config.h"

namespace gmpd
{

// Adds the daemon's options to the command line; they fill config when it is parsed.
void add_options(mcastd::Options &options, Config &config);

// Completes a parsed configuration. False when its values do not go together, which is logged.
bool finish_config(const mcastd::Options &options, Config &config);

// Runs until a signal ends it. The exit code of the process.
int run_daemon(const mcastd::Options &options, const Config &config);

} // namespace gmpd

#endif
