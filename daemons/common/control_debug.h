/*
 * Traces of a running daemon, switched and shown through its control endpoint.
 */
#ifndef DAEMONS_COMMON_CONTROL_DEBUG_H
#define DAEMONS_COMMON_CONTROL_DEBUG_H

#include "daemons/common/control_registry.h"

namespace mcastd
{

// Offers COMMAND_DEBUG and DEBUG_TABLE. The command's arguments are pairs of a word and a value:
//
//     "on" CATEGORY   "off" CATEGORY    text; "all" for every category
//     "acl" NUMBER                      MCAST_NONE for none
//     "interface" NAME                  text; empty for every interface
//
// They are taken in order, all or none.
void offer_debug(ControlRegistry &registry);

} // namespace mcastd

#endif
