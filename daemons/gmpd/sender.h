/*
 * Queries on their way to the link.
 */
#ifndef DAEMONS_GMPD_SENDER_H
#define DAEMONS_GMPD_SENDER_H

#include "daemons/common/descriptor.h"
#include "daemons/gmpd/effects.h"

namespace gmpd
{

class Sender final : public QuerySink
{
public:
    // Opens the socket of the family. False when the kernel refuses, which is logged with the remedy.
    bool open(uint16_t family);

    void close()
    {
        socket_ = mcastd::Descriptor();
    }

    // Sends the query through the interface from the interface's address. A failure is counted and logged.
    void send_query(Interface &interface, const Query &query) override;

private:
    bool set_up_ipv4();
    bool set_up_ipv6();

    mcastd::Descriptor socket_;
    uint16_t family_ = MCAST_FAMILY_IPV4;
};

} // namespace gmpd

#endif
