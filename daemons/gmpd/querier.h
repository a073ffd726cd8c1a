/*
 * Who asks: the election of the querier on a link, its general queries, and what queries of others change.
 */
#ifndef DAEMONS_GMPD_QUERIER_H
#define DAEMONS_GMPD_QUERIER_H

#include "daemons/gmpd/interface.h"
#include "daemons/gmpd/message.h"
#include "daemons/gmpd/packet_build.h"

namespace gmpd
{

// Makes this router the querier of the interface and begins the start-up queries.
void querier_start(Interface &interface);

// Ends asking and waiting.
void querier_stop(Interface &interface);

// Hosts may have missed queries, or were not listened to: begins the start-up queries anew when this router
// is the querier.
void querier_ask_again(Interface &interface);

// Configures the interface's query interval, 0 for that of all interfaces, more than the response interval
// otherwise. The querier asks at once: memberships then last by the new interval, and other routers hear of
// it. One that waits keeps to what it hears, and uses the interval when it becomes the querier.
void querier_set_interval(Interface &interface, uint32_t seconds);

// Why a query from the sender must not be acted on, or NO_DROP: no router has an address that stands for a whole
// network, and the operator may have said who asks on the interface.
Count querier_refused(const Interface &interface, const Address &sender);

// Another router's query, checked and from a neighbour. A lower address wins the querier's role; a query
// without the S flag shortens the life of what it asks for.
void querier_heard(Interface &interface, const Message &query);

// Fills in what every query of the interface says and sends it.
void querier_send(Interface &interface, Query query);

} // namespace gmpd

#endif
