/*
 * The connection of a daemon to the MRIB process: made, watched and made again by the library's client end,
 * as long as the daemon runs.
 *
 *     MribChannel channel(reactor, [] { report everything });
 *     callbacks of the daemon's own, without connected and disconnected
 *     channel.open(timers, component, family, callbacks);
 *     ... MRIB_GMP_Send... while channel.connected() ...
 *     channel.flush();                                   once after everything that a wake-up brought
 */
#ifndef DAEMONS_COMMON_MRIB_CHANNEL_H
#define DAEMONS_COMMON_MRIB_CHANNEL_H

#include <cstdint>
#include <functional>

#include "daemons/common/reactor.h"
#include "daemons/common/timer.h"
#include "mcast/mrib.h"

namespace mcastd
{

// One object per process: the library's channel has no handle.
class MribChannel
{
public:
    // report_all is called on each new connection: it begins with everything that the daemon has to say.
    MribChannel(Reactor &reactor, std::function<void()> report_all);
    ~MribChannel();
    MribChannel(const MribChannel &) = delete;
    MribChannel &operator=(const MribChannel &) = delete;

    struct Client {
        uint8_t component;
        uint8_t family;
        uint64_t instance_count; // instances from 0 on of which there is a view
    };

    // Sets the channel up and tries to connect; a missing MRIB process is tried again every second. False
    // when the channel cannot be set up, which is logged. timers must outlive the channel.
    bool open(MCAST_TMR_S *timers, const Client &client, const MRIB_GMP_CALLBACKS_S &callbacks);

    // Closes an open channel and opens it again with an empty view of that many instances. False as open.
    bool reopen(uint64_t instance_count);

    uint64_t instance_count() const
    {
        return client_.instance_count;
    }

    // Ends the channel for good; harmless when it is not open.
    void close();

    // Drops the connection without another word, with what waits for it, and connects again.
    void start_over();

    // Sends what was appended, as far as the socket takes it, and rebuilds a connection that lost records.
    void flush();

    bool connected() const
    {
        return connected_;
    }
    // Connections made since the start.
    uint64_t connects() const
    {
        return connects_;
    }
    // Messages that wait for the socket.
    uint32_t pending() const;
    // Bytes in the socket that the MRIB process has not read, with what the kernel adds to each message; 0 without one.
    uint32_t unread() const;

private:
    static uint64_t on_connected(int32_t socket);
    static void on_disconnected(int32_t socket);
    static void on_retry(void *owner);

    bool open();
    void connect();
    void retry_later();
    void ready(uint32_t events, int socket);

    Reactor &reactor_;
    std::function<void()> report_all_;
    MCAST_TMR_S *timers_ = nullptr;
    Client client_{};
    MRIB_GMP_CALLBACKS_S callbacks_{};
    Timer retry_;
    bool open_ = false;
    bool connected_ = false;
    bool reported_missing_ = false;
    bool missed_ = false; // there was no memory for a record of this connection
    bool waiting_for_room_ = false;
    int socket_ = -1;
    uint64_t connects_ = 0;
};

} // namespace mcastd

#endif
