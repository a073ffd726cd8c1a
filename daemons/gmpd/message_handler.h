/*
 * What received messages do.
 */
#ifndef DAEMONS_GMPD_MESSAGE_HANDLER_H
#define DAEMONS_GMPD_MESSAGE_HANDLER_H

#include "daemons/gmpd/interface.h"
#include "daemons/gmpd/message.h"

namespace gmpd
{

// Acts on a checked message that arrived on the running interface, or counts why not. The message's memory
// is not kept.
void handle_message(Interface &interface, const Message &message);

} // namespace gmpd

#endif
