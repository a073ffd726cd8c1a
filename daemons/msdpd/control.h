/*
 * What msdpd offers at its control endpoint: its peers, the cache and the counters.
 */
#ifndef DAEMONS_MSDPD_CONTROL_H
#define DAEMONS_MSDPD_CONTROL_H

#include <functional>

#include "daemons/common/control.h"
#include "daemons/msdpd/speaker.h"
#include "daemons/msdpd/status.h"

namespace msdpd
{

// Offers them; server and speaker must outlive the registration. process tells what only the process knows.
void offer_control(mcastd::ControlServer &server, Speaker &speaker, std::function<ProcessStatus()> process);

} // namespace msdpd

#endif
