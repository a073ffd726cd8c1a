/*
 * A view as records of the channel: whole, as answers to requests, and as the changes between two views.
 */
#ifndef DAEMONS_MRIBD_VIEW_RECORDS_H
#define DAEMONS_MRIBD_VIEW_RECORDS_H

#include <cstdint>

#include "daemons/mribd/outbox.h"
#include "daemons/mribd/view.h"

namespace mribd
{

// Each with its end record where it has one.
void put_instances(const View &view, Outbox &outbox);
void put_ssm_policies(const View &view, Outbox &outbox);
void put_designated_routers(const View &view, Outbox &outbox);
void put_boundaries(uint8_t family, const View &view, Outbox &outbox);
void put_flow_control(const View &view, Outbox &outbox);

// What brings a client from one view to the other, as far as its capability flags ask for it.
void put_changes(uint8_t family, const View &before, const View &now, uint64_t capabilities, Outbox &outbox);

} // namespace mribd

#endif
