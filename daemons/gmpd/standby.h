/*
 * The standby's end of the backup: it watches the active daemon, knows from it which user has which interface
 * index, and says when there is no active daemon any more.
 *
 *      looking ──── somebody listens on the port ────► connected: Begin, Users ..., End, changes
 *         ▲                                                 │ the connection ends
 *         ├─────────────────────────────────────────────────┘
 *         └── nobody listens, and patience has run out: the active one is gone
 */
#ifndef DAEMONS_GMPD_STANDBY_H
#define DAEMONS_GMPD_STANDBY_H

#include <cstdint>
#include <span>

#include "daemons/common/descriptor.h"
#include "daemons/common/reactor.h"
#include "daemons/common/timer.h"
#include "daemons/gmpd/user_indexes.h"

namespace gmpd
{

class Standby
{
public:
    // The reactor must outlive the standby.
    explicit Standby(mcastd::Reactor &reactor);
    ~Standby();
    Standby(const Standby &) = delete;
    Standby &operator=(const Standby &) = delete;

    // Begins to watch the port. When nobody listens there, the active one counts as gone after this
    // many further attempts, one second apart. What is known about users stays until an active one says otherwise.
    // timers must live until stop.
    void start(MCAST_TMR_S *timers, uint16_t port, uint32_t patience);

    // Ends watching; harmless when it has ended.
    void stop();

    // To be called each second: looks when there was no memory for the timer that would.
    void tend();

    bool watching() const
    {
        return timers_ != nullptr;
    }

    // Nobody is active; it stays so until the next start.
    bool active_is_gone() const
    {
        return gone_;
    }

    // Whether an active one is connected and has told everything.
    bool synchronised() const
    {
        return synchronised_;
    }

    // Whether there was an active one since the daemon's start.
    bool has_heard() const
    {
        return heard_;
    }

    // The users with the indexes that the active one told; possibly incomplete if the connection was cut.
    const UserIndexMap &indexes() const
    {
        return indexes_;
    }

    // For a daemon that was active itself: what it knows.
    void remember(const UserIndexMap &indexes);

private:
    enum class Look { Connected, Nobody, Unclear };

    void look();
    Look connect();
    void look_later();
    void hear(uint32_t events);
    void lost();
    bool take(std::span<const uint8_t> bytes);
    void disconnect();

    mcastd::Reactor &reactor_;
    MCAST_TMR_S *timers_ = nullptr; // while watching
    mcastd::Timer retry_;
    uint16_t port_ = 0;
    uint32_t patience_ = 0;
    mcastd::Descriptor socket_;
    bool gone_ = false;
    bool begun_ = false; // the active one spoke on this connection
    bool synchronised_ = false;
    bool heard_ = false;
    UserIndexMap indexes_;
};

} // namespace gmpd

#endif
