/*
 * The way to the MRIB process: one connection, kept up as long as the daemon runs, and the records that go
 * over it.
 */
#ifndef DAEMONS_GMPD_MRIB_LINK_H
#define DAEMONS_GMPD_MRIB_LINK_H

#include <cstdint>

#include "daemons/common/mrib_channel.h"
#include "daemons/gmpd/held_members.h"
#include "daemons/gmpd/mrib_policy.h"
#include "daemons/gmpd/process.h"
#include "daemons/gmpd/user_table.h"

namespace gmpd
{

// One object per process: the library's channel has no handle.
class MribLink final : public MribSink
{
public:
    MribLink(Process &process, mcastd::Reactor &reactor);
    ~MribLink() override;
    MribLink(const MribLink &) = delete;
    MribLink &operator=(const MribLink &) = delete;

    // Sets the channel up and tries to connect; a missing MRIB process is tried again every second. False
    // when the channel cannot be set up, which is logged.
    bool open();

    // Append records. Without a connection nothing happens: a new one begins with everything.
    void tell_running(const Interface &interface, bool running) override;
    void tell_querier(const Interface &interface, bool elected) override;
    // While the process is busy a change of a membership waits until flush finds that it no longer is.
    void tell_member(const Interface &interface, const Address &group, const Address *source, bool join,
                     bool blocked) override;

    // Appends what is known of a user, or that it is gone.
    void tell_user(const User &user, bool present);

    // What the MRIB process allows; the router's policy from open on.
    MribPolicy &policy()
    {
        return policy_;
    }

    // Applies changes of the policy, then sends what was appended, as far as the socket takes it, and
    // rebuilds a connection that lost records. To be called once after everything that a wake-up brought.
    void flush();

    // From now on nothing is told: what ends here goes on at another daemon.
    void be_silent(bool silent)
    {
        silent_ = silent;
    }

    // Forgets everything that was told, without withdrawing it: a new connection takes the place of this one.
    void start_over()
    {
        channel_.start_over();
    }

    bool connected() const
    {
        return channel_.connected();
    }
    // Connections made since the start.
    uint64_t connects() const
    {
        return channel_.connects();
    }
    // Messages that wait for the socket.
    uint32_t pending() const
    {
        return channel_.pending();
    }

    // Whether so much waits that what is told from now on would come late.
    bool behind() const
    {
        return channel_.unread() > FEW_BYTES || pending() > 0;
    }

    // Membership changes that wait for the process to be no longer busy.
    size_t held() const
    {
        return held_.size();
    }

private:
    // Some 450 membership changes, as full messages take in the kernel. A join stands behind all of them, and the MRIB
    // process does other work between them; the socket holds six times as many.
    static constexpr uint32_t FEW_BYTES = 32 * 1024;

    bool can_tell() const
    {
        return channel_.connected() && !silent_;
    }
    void tell_all();
    void serve_instances();

    Process &process_;
    MribPolicy policy_;
    uint64_t instances_needed_ = 0; // from 0 to the highest that an interface is in
    mcastd::MribChannel channel_;
    HeldMembers held_;
    bool silent_ = false;
};

} // namespace gmpd

#endif
