/*
 * Where the state machine's effects go in the daemon.
 */
#ifndef DAEMONS_GMPD_DAEMON_OUTPUTS_H
#define DAEMONS_GMPD_DAEMON_OUTPUTS_H

#include "daemons/gmpd/interface.h"
#include "daemons/gmpd/mrib_link.h"
#include "daemons/gmpd/sender.h"

namespace gmpd
{

class DaemonOutputs final : public Outputs
{
public:
    // Both must outlive the object.
    DaemonOutputs(Sender &sender, MribLink &mrib) : sender_(sender), mrib_(mrib)
    {
    }

    // From now on nothing is sent and told: what ends here goes on at another daemon.
    void be_silent(bool silent)
    {
        silent_ = silent;
    }

    void send_query(Interface &interface, const Query &query) override
    {
        if (!silent_) {
            sender_.send(interface, query);
        }
    }
    void tell_running(const Interface &interface, bool running) override
    {
        if (!silent_) {
            mrib_.tell_running(interface, running);
        }
    }
    void tell_querier(const Interface &interface, bool elected) override
    {
        if (!silent_) {
            mrib_.tell_querier(interface, elected);
        }
    }
    void tell_member(const Interface &interface, const Address &group, const Address *source, bool join,
                     bool blocked) override
    {
        if (!silent_) {
            mrib_.tell_member(interface, group, source, join, blocked);
        }
    }

private:
    Sender &sender_;
    MribLink &mrib_;
    bool silent_ = false;
};

} // namespace gmpd

#endif
