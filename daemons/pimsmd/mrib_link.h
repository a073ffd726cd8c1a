/*
 * Both connections to the MRIB process: the channel, over which the teller says what the trees are, and the member channel, of
 * which the listener hears. Each is of use with the other alone, so that both end when one does, and are made again.
 *
 *      mrib_teller.h ──► channel (common/mrib_channel.h) ──► mribd
 *      mrib_listener.h ◄──────────────────── member channel ◄──┘
 */
#ifndef DAEMONS_PIMSMD_MRIB_LINK_H
#define DAEMONS_PIMSMD_MRIB_LINK_H

#include "daemons/common/mrib_channel.h"
#include "daemons/pimsmd/mrib_listener.h"
#include "daemons/pimsmd/router.h"

namespace pimsmd
{

// One object per process: the library's channel has no handle.
class MribLink final : public MribSide,
                       private MribRecords,
                       private TellerSurroundings,
                       private ListenerSurroundings
{
public:
    // All of them outlive it. The router tells it from then on.
    MribLink(mcastd::Reactor &reactor, MsQueue &queue, Router &router, RegisterTunnels &tunnels);
    ~MribLink();
    MribLink(const MribLink &) = delete;
    MribLink &operator=(const MribLink &) = delete;

    // Sets the channels up and tries to connect; a missing MRIB process is tried again every second. What it knows of a
    // process before this one is kept until this one has had the time to hear its neighbours. False when the channel
    // cannot be set up, which is logged.
    bool open(MCAST_TMR_S *timers, uint32_t relearn_s);

    // Tells the MRIB process that PIM ends on every link, and ends both connections.
    void close();

    // Tells the trees what hosts want that concerns them only now. To be called once a round, before Router::settle. Whether
    // there is more to do at once.
    bool work();

    // Says what changed, as much as the MRIB process takes, and sends it. To be called once a round, after
    // Router::settle. Whether there is more to do at once.
    bool flush();

    void link_came(unsigned link) override;
    void dr_changed(unsigned link) override;
    void link_gone(unsigned link, uint32_t if_index) override;
    void entry_changed(const Address &group, const Address &source) override;

    bool connected() const
    {
        return channel_.connected();
    }
    const mcastd::MribChannel &channel() const
    {
        return channel_;
    }
    const MribTeller &teller() const
    {
        return teller_;
    }
    const MribListener &listener() const
    {
        return listener_;
    }

private:
    static void on_smooth_finished();
    bool has_room() override;
    void append(uint16_t type, std::span<const uint8_t> value) override;
    void join_prune(uint32_t if_index, const Address &group, const Address &source, uint8_t join,
                    uint8_t exclude) override;
    uint32_t interface_of(unsigned link) const override;
    std::optional<Tunnel> tunnel_to(const Address &rp, unsigned link) override;
    std::optional<unsigned> link_of(uint32_t if_index) const override;

    void report_all();
    void begin_report();
    void end_bracket();
    bool open_member();
    void drop_member();
    void serve_member(uint32_t events);
    bool receive();
    void request_replay();
    void send_waiting();

    mcastd::Reactor &reactor_;
    MsQueue &queue_;
    Router &router_;
    MribTeller teller_;
    MribListener listener_;
    mcastd::MribChannel channel_;
    MsTimer relearning_; // runs while neighbours may not have said everything yet
    bool bracket_open_ = false;
    bool replayed_ = false;  // the library's view is that of this connection
    bool say_again_ = false; // the MRIB process wants to hear everything once more
    Links came_ = 0;         // links of which the trees know no hosts yet
    int member_ = -1;
    bool asking_ = false; // for a replay, which has not ended
};

} // namespace pimsmd

#endif
