/*
 * What gmpd offers at its control endpoint: its tables and the query interval.
 */
#ifndef DAEMONS_GMPD_CONTROL_H
#define DAEMONS_GMPD_CONTROL_H

#include <functional>

#include "daemons/common/control.h"
#include "daemons/gmpd/process.h"
#include "daemons/gmpd/status.h"

namespace gmpd
{

// Offers them; server and process must outlive the registration. daemon tells what only the daemon knows.
void offer_control(mcastd::ControlServer &server, Process &process, std::function<DaemonStatus()> daemon);

// Offers the tables of users and the command that clears them; service must outlive the registration. NULL
// without user authentication: the tables are empty.
void offer_user_control(mcastd::ControlServer &server, const Process &process, UserService *service);

// Offers the command to hand over to a standby. hand_over answers whether there is one.
void offer_switch_over(mcastd::ControlServer &server, std::function<bool()> hand_over);

} // namespace gmpd

#endif
