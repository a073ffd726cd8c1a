/*
 * A view as records of the channel: whole, as answers to requests, and as the changes between two views.
 */
#ifndef DAEMONS_MRIBD_VIEW_RECORDS_H
#define DAEMONS_MRIBD_VIEW_RECORDS_H

#include <cstdint>

#include "daemons/mribd/client_queue.h"
#include "daemons/mribd/view.h"

namespace mribd
{

// Each with its end record where it has one.
void put_instances(const View &view, ClientQueue &queue);
void put_ssm_policies(const View &view, ClientQueue &queue);
void put_designated_routers(const View &view, ClientQueue &queue);
void put_boundaries(uint8_t family, const View &view, ClientQueue &queue);
void put_flow_control(const View &view, ClientQueue &queue);

// What brings a client from one view to the other, as far as its capability flags ask for it.
void put_changes(uint8_t family, const View &before, const View &now, uint64_t capabilities,
                 ClientQueue &queue);

} // namespace mribd

#endif
