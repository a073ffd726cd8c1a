/*
 * What gmpd offers at its control endpoint: its tables and the query interval.
 */
#ifndef DAEMONS_GMPD_CONTROL_H
#define DAEMONS_GMPD_CONTROL_H

#include <functional>

#include "daemons/common/control.h"
#include "daemons/gmpd/interface.h"
#include "daemons/gmpd/status.h"

namespace gmpd
{

// Offers them; server and router must outlive the registration. process tells what only the process knows.
void offer_control(mcastd::ControlServer &server, Router &router, std::function<ProcessStatus()> process);

// Offers the tables of users and the command that clears them; service must outlive the registration. NULL
// without user authentication: the tables are empty.
void offer_user_control(mcastd::ControlServer &server, const Router &router, UserService *service);

// Offers the command to hand over to a standby. hand_over answers whether there is one.
void offer_switch_over(mcastd::ControlServer &server, std::function<bool()> hand_over);

} // namespace gmpd

#endif
