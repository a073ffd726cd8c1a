/*
 * Following the machine's network interfaces: on which of them PIM runs, and from which address.
 */
#ifndef DAEMONS_PIMSMD_INTERFACES_H
#define DAEMONS_PIMSMD_INTERFACES_H

#include "daemons/pimsmd/router.h"
#include "daemons/pimsmd/sockets.h"
#include "mcasthost/link.h"

namespace pimsmd
{

class Interfaces
{
public:
    // Both outlive it.
    Interfaces(Router &router, Sockets &sockets) : router_(router), sockets_(sockets)
    {
    }
    ~Interfaces();
    Interfaces(const Interfaces &) = delete;
    Interfaces &operator=(const Interfaces &) = delete;

    // Begins to follow, on the host loop, what exists and what will. False on failure, which is logged.
    bool open(int32_t loop);

    // Another configuration counts, or other interfaces are in other instances.
    void configured();

    // To be called every round: takes up what came with several changes, and what there was no memory for.
    void settle();

    // Ends following. PIM goes on where it runs.
    void close();

private:
    static void on_event(HOST_LINK_TABLE table, const HOST_LINK_EVENT_S *event, void *context);

    bool is_wanted(const HOST_LINK_S &link) const;
    void update(const HOST_LINK_S &link);
    void update_all();
    void remove(uint32_t if_index);
    void read_own_addresses();
    void report_missing_names() const;

    Router &router_;
    Sockets &sockets_;
    HOST_LINK_TABLE table_ = nullptr;
    bool missed_ = false;   // a change was not taken
    bool own_stale_ = true; // addresses came or went
};

} // namespace pimsmd

#endif
