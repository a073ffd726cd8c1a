/*
 * To which RP the packets of a source go in Registers: what the trees say and the thread that sends them reads.
 */
#ifndef DAEMONS_PIMSMD_REGISTER_TUNNELS_H
#define DAEMONS_PIMSMD_REGISTER_TUNNELS_H

#include <cstdint>
#include <map>
#include <optional>

#include "daemons/pimsmd/register_report.h"
#include "mcast/lock.h"

namespace pimsmd
{

// How a Register goes.
struct Tunnel {
    Address from{}; // an address of this router, which the RP can answer to
    Address rp{};
    uint32_t if_index = 0;   // the link over which it leaves; 0: the routes decide
    uint32_t most_bytes = 0; // the MTU of the source's link
};

// Locks itself: one thread changes it, any may look.
class RegisterTunnels
{
public:
    explicit RegisterTunnels(uint16_t family) : family_(family)
    {
    }
    ~RegisterTunnels();
    RegisterTunnels(const RegisterTunnels &) = delete;
    RegisterTunnels &operator=(const RegisterTunnels &) = delete;

    // The kernel's table of an instance, 0 for its default one, and the register interface's number in it. Number and
    // table tell IPv4's packets apart, the number alone those of IPv6. Throws std::bad_alloc as put.
    void set_instance(uint16_t instance, uint32_t table, uint32_t vif) MCAST_EXCLUDES(lock_);
    void remove_instance(uint16_t instance) MCAST_EXCLUDES(lock_);

    // Packets of the source go this way from now on. Throws std::bad_alloc when there is no memory for it; then they
    // go where they went.
    void put(uint16_t instance, const Address &group, const Address &source, const Tunnel &tunnel)
        MCAST_EXCLUDES(lock_);
    void remove(uint16_t instance, const Address &group, const Address &source) MCAST_EXCLUDES(lock_);
    void clear() MCAST_EXCLUDES(lock_);

    // The way of a reported packet; nothing when it goes to nobody.
    std::optional<Tunnel> find(const RegisterReport &report) const MCAST_EXCLUDES(lock_);

    size_t size() const MCAST_EXCLUDES(lock_);

private:
    struct Key {
        uint16_t instance;
        Address group;
        Address source;

        bool operator<(const Key &other) const;
    };
    struct Place {
        uint32_t table;
        uint32_t vif;

        bool operator<(const Place &other) const
        {
            return table != other.table ? table < other.table : vif < other.vif;
        }
    };

    uint16_t family_;
    mutable MCAST_RWLOCK_S lock_ = {PTHREAD_RWLOCK_INITIALIZER};
    std::map<Place, uint16_t> instances_ MCAST_GUARDED_BY(lock_);
    std::map<Key, Tunnel> tunnels_ MCAST_GUARDED_BY(lock_);
};

} // namespace pimsmd

#endif
