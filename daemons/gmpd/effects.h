/*
 * What the state machine causes outside: queries on a link, and what the MRIB process is told. Calls come from
 * the event loop; implementations must not call back.
 */
#ifndef DAEMONS_GMPD_EFFECTS_H
#define DAEMONS_GMPD_EFFECTS_H

#include "daemons/gmpd/address.h"
#include "daemons/gmpd/packet_build.h"

namespace gmpd
{

struct Interface;

// Where queries go.
class QuerySink
{
public:
    virtual ~QuerySink() = default;

    // A query is to leave through the interface.
    virtual void send_query(Interface &interface, const Query &query) = 0;
};

// Where changes go that the MRIB process must know.
class MribSink
{
public:
    virtual ~MribSink() = default;

    // The protocol began or ended to run on the interface. Its end takes every membership with it.
    virtual void tell_running(const Interface &interface, bool running) = 0;

    // This router became the querier on the interface, or no longer is.
    virtual void tell_querier(const Interface &interface, bool elected) = 0;

    // The state that forwarding depends on has changed by one step. source NULL: any source. blocked: it is
    // the exclusion of source from the group that is set (join) or removed.
    virtual void tell_member(const Interface &interface, const Address &group, const Address *source,
                             bool join, bool blocked) = 0;
};

} // namespace gmpd

#endif
