/*
 * What mribd offers at its control endpoint: the tables of both families.
 */
#ifndef DAEMONS_MRIBD_CONTROL_H
#define DAEMONS_MRIBD_CONTROL_H

#include <vector>

#include "daemons/common/control.h"
#include "daemons/mribd/channel_server.h"

namespace mribd
{

// Offers the tables of the families, ascending; what they refer to must outlive the registration.
void offer_control(mcastd::ControlServer &control, std::vector<const ChannelServer *> families);

} // namespace mribd

#endif
