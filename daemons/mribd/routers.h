/*
 * The routers of one family's instances. Clients are of all instances at once: what one is told or leaves
 * behind concerns every router.
 */
#ifndef DAEMONS_MRIBD_ROUTERS_H
#define DAEMONS_MRIBD_ROUTERS_H

#include <functional>
#include <map>
#include <set>

#include "daemons/mribd/router.h"
#include "daemons/mribd/view.h"

namespace mribd
{

// What the routers of a family count.
struct RouterCounters {
    ForwardingCounters forwarding;
    uint64_t upcalls_lost = 0;
    uint64_t vifs_failed = 0;
    uint64_t vifs_refused = 0;
    uint64_t trees_refused = 0;

    void add(const Router &router);
};

class Routers
{
public:
    // The public instance's, which is always there. Routers must outlive their place in here.
    explicit Routers(Router &common);
    ~Routers();
    Routers(const Routers &) = delete;
    Routers &operator=(const Routers &) = delete;

    uint8_t family() const
    {
        return common().family();
    }

    Router &common() const
    {
        return *routers_.begin()->second;
    }

    // The instance's router, NULL when the instance is not served.
    Router *find(uint16_t vrf_index) const;

    // Adds the router of an instance that has none yet, or takes that of one other than the public away.
    void add(Router &router);
    void remove(uint16_t vrf_index);

    // By instance, ascending.
    const std::map<uint16_t, Router *> &all() const
    {
        return routers_;
    }

    // Of all instances together, those that are not served any more included.
    RouterCounters counters() const;

    // Called whenever designated_interfaces may give another answer.
    void on_designated_router(std::function<void()> told);

    // The interfaces of every instance for which this router is the designated router.
    std::set<InterfaceKey> designated_interfaces() const;

    // The interfaces of every instance on which PIM runs.
    std::set<InterfaceKey> pim_interfaces() const;

    // For the routers of all instances, those that are added later included.
    void set_pim_listener(PimListener *listener);

    // Whether a new source waits for the answer of PIM; and see Forwarding.
    bool awaits_answers() const;
    void pass_answer_tick() const;

    // See Router::end_pim_report.
    void end_pim_report();

    // The client's connection ended; see Router::lose_client.
    void lose_client(ClientId client);

private:
    void tell_designated_router() const;

    std::map<uint16_t, Router *> routers_;
    RouterCounters gone_; // of those that were removed
    std::function<void()> designated_router_told_;
    PimListener *pim_listener_ = nullptr;
};

} // namespace mribd

#endif
