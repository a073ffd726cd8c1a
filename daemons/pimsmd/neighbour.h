/*
 * The PIM routers of a link, as their Hellos tell of them (RFC 7761, section 4.3), and what follows for the link: its
 * designated router, the delays that all routers can keep, whether Joins are suppressed.
 */
#ifndef DAEMONS_PIMSMD_NEIGHBOUR_H
#define DAEMONS_PIMSMD_NEIGHBOUR_H

#include <cstdint>
#include <map>
#include <optional>
#include <string>
#include <vector>

#include "daemons/common/limit_watch.h"
#include "daemons/pimsmd/counters.h"
#include "daemons/pimsmd/ms_timer.h"
#include "daemons/pimsmd/wire.h"
#include "mcast/avl.h"

namespace pimsmd
{

// Neighbours of one link, and further addresses of one neighbour.
constexpr uint32_t MOST_NEIGHBOURS = 256;
constexpr uint32_t MOST_NEIGHBOUR_ADDRESSES = 64;

// What is taken where a router says nothing (RFC 7761, section 4.11).
constexpr uint16_t DEFAULT_HOLDTIME_S = 105;
constexpr uint16_t DEFAULT_PROPAGATION_MS = 500;
constexpr uint16_t DEFAULT_OVERRIDE_MS = 2500;

// What this router says on the link.
struct LinkSettings {
    std::string name;
    Address address; // its primary one
    uint32_t dr_priority = 1;
    LanDelay lan_delay = {false, DEFAULT_PROPAGATION_MS, DEFAULT_OVERRIDE_MS};
    uint32_t most_neighbours = MOST_NEIGHBOURS;
};

struct Neighbour {
    Address address; // the primary one, from which its Hellos come
    std::optional<LanDelay> lan_delay;
    std::optional<uint32_t> dr_priority;
    std::optional<uint32_t> generation;
    std::vector<Address> addresses; // its others, each of one neighbour at a time
    MsTimer expiry;                 // does not run when it said that it stays for ever
    class Neighbours *link = nullptr;
};

// What a link tells its owner. Nothing of the link may be changed in these calls.
class LinkEvents
{
public:
    // A new one. It has not heard this router yet: a Hello is due within the triggered delay.
    virtual void neighbour_up(const Neighbour &neighbour) = 0;

    // It lost what it knew: a Hello is due as for a new one, and all Joins that it is asked for.
    virtual void neighbour_restarted(const Neighbour &neighbour) = 0;

    // It said goodbye or was silent too long. The record goes after the call.
    virtual void neighbour_down(const Neighbour &neighbour) = 0;

    // Another designated router, told after what caused it.
    virtual void dr_changed(const Address &dr) = 0;

protected:
    ~LinkEvents() = default;
};

class Neighbours
{
public:
    // The queue and the owner of the events outlive it.
    Neighbours(MsQueue &queue, const LinkSettings &settings, LinkEvents &events);
    ~Neighbours();
    Neighbours(const Neighbours &) = delete;
    Neighbours &operator=(const Neighbours &) = delete;

    // Takes a Hello from the link, not of this router. NO_DROP, or why it was refused; counters gets what was not
    // refused but left out.
    Count heard(const Address &sender, const Hello &hello, Counters &counters);

    // Takes other settings of this router.
    void set(const LinkSettings &settings);

    // Forgets all of them, telling each.
    void clear();

    // The neighbour with the primary address, or NULL.
    const Neighbour *find(const Address &primary) const;

    // The neighbour that has the address as primary or further one, or NULL: a route's next hop may name any.
    const Neighbour *owner_of(const Address &address) const;

    uint32_t size() const
    {
        return tree_.node_count;
    }

    const Address &dr() const
    {
        return dr_;
    }
    bool is_dr() const
    {
        return same_address(dr_, settings_.address);
    }

    // What all routers of the link can keep (RFC 7761, section 4.3.3), in milliseconds: how long a message takes, how
    // long a router may take to override a Prune, and both together.
    uint32_t propagation_ms() const
    {
        return propagation_ms_;
    }
    uint32_t override_ms() const
    {
        return override_ms_;
    }
    uint32_t join_prune_override_ms() const
    {
        return propagation_ms_ + override_ms_;
    }

    // Whether a Join that another router sends makes this router's own unnecessary.
    bool suppresses_joins() const
    {
        return suppresses_joins_;
    }

    // Calls visit(const Neighbour &) for each in the order of their addresses; visit changes nothing.
    template <typename Visit> void visit(Visit visit) const
    {
        MCAST_AVL_WALK_S walk;
        MCAST_AVL_InitWalk(&walk, &tree_);
        while (const MCAST_AVL_NODE_S *node = MCAST_AVL_WalkNextNode(&walk)) {
            visit(*static_cast<const Neighbour *>(node->data));
        }
    }

private:
    struct Less {
        bool operator()(const Address &first, const Address &second) const
        {
            return address_less(first, second);
        }
    };

    static void expired(void *owner);
    Neighbour *find_mutable(const Address &primary) const;
    Neighbour *add(const Address &address);
    void remove(Neighbour &neighbour);
    void take(Neighbour &neighbour, const Hello &hello, Counters &counters);
    void take_addresses(Neighbour &neighbour, EncodedUnicasts addresses, Counters &counters);
    void drop_addresses(Neighbour &neighbour);
    void settle();

    MsQueue &queue_;
    LinkSettings settings_;
    LinkEvents &events_;
    // Of Neighbour, by primary address. A walk takes it as if it were to change it.
    mutable MCAST_AVL_S tree_{};
    std::map<Address, Neighbour *, Less> owners_; // of further addresses
    mcastd::LimitWatch<90, 80> limit_watch_;
    Address dr_;
    uint32_t propagation_ms_ = 0;
    uint32_t override_ms_ = 0;
    bool suppresses_joins_ = true;
};

} // namespace pimsmd

#endif
