/*
 * The channel's end in mribd for one family: the listening socket and a session for each client.
 */
#ifndef DAEMONS_MRIBD_CHANNEL_SERVER_H
#define DAEMONS_MRIBD_CHANNEL_SERVER_H

#include <functional>
#include <map>
#include <memory>

#include "daemons/common/reactor.h"
#include "daemons/mribd/session.h"

namespace mribd
{

class ChannelServer final : private PimListener
{
public:
    // All must outlive the server.
    ChannelServer(mcastd::Reactor &reactor, const Backend &backend);
    ~ChannelServer();
    ChannelServer(const ChannelServer &) = delete;
    ChannelServer &operator=(const ChannelServer &) = delete;

    // Listens on the family's port. Failures are logged with what to do.
    bool open();

    // Serves a connected descriptor, which becomes the server's; what accept does with each.
    void adopt(int fd);

    // Has every client ask for everything again.
    void resynchronise();

    // Whether a membership of some client was refused since it was asked for all of them, or a client missed something;
    // and has each of these clients say them again for which there is room now, or connect anew.
    bool has_refused() const;
    void ask_refused_again();

    // Tells the clients what changed of the view, and sends what the last round left in the queues.
    void flush();

    const Backend &backend() const
    {
        return backend_;
    }

    const ChannelCounters &counters() const
    {
        return counters_;
    }

    void visit(const std::function<void(const Session &)> &visitor) const;

private:
    struct Client {
        std::unique_ptr<Session> session;
        bool waits_for_room = false; // watched for writability
    };

    // PimListener
    bool is_told(uint64_t events) const override;
    void tell_member(const Router &router, uint32_t if_index, const MCAST_ADDR_S &group,
                     const MCAST_ADDR_S &source, bool exclude, const HostWish &wish) override;
    bool tell_source(const Router &router, const Entry &entry, mcastd::PimSourceState state,
                     uint32_t if_index) override;
    void tell_instance(const Router &router, bool served) override;

    void accept_clients();
    void serve(int fd, uint32_t events);
    void receive(int fd);
    bool flush(int fd, Client &client, bool writable);
    ClientQueue::Result send_all(int fd, Session &session);
    void drop(int fd, const char *why);

    mcastd::Reactor &reactor_;
    Backend backend_;
    Routers &routers_;
    ChannelCounters counters_;
    int listener_ = -1;
    ClientId next_id_ = 1;
    std::map<int, Client> clients_;
};

} // namespace mribd

#endif
