/*
 * What gmpd offers at its control endpoint: its tables and the query interval.
 */
#ifndef GMPD_CONTROL_H
#define GMPD_CONTROL_H

#include <functional>

#include "daemons/common/control.h"
#include "daemons/gmpd/interface.h"
#include "daemons/gmpd/status.h"

namespace gmpd
{

// Offers them; server and router must outlive the registration. process tells what only the process knows.
void offer_control(mcastd::ControlServer &server, Router &router, std::function<ProcessStatus()> process);

} // namespace gmpd

#endif
