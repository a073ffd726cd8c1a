/*
 * Membership changes that wait while the MRIB process is busy: the last change of each membership, in the order
 * of these last changes.
 */
#ifndef DAEMONS_GMPD_HELD_MEMBERS_H
#define DAEMONS_GMPD_HELD_MEMBERS_H

#include <cstdint>
#include <list>
#include <map>
#include <tuple>

#include "daemons/gmpd/address.h"
#include "mcast/mrib.h"

namespace gmpd
{

// One record of the channel.
struct MemberChange {
    MRIB_GMP_VRF_KEY_S key;
    uint32_t if_index;
    Address group;
    Address source; // all zero: any source
    bool join;
    bool blocked;
};

class HeldMembers
{
public:
    // What is kept at most; a host that keeps changing its mind about ever new groups must not fill the
    // memory.
    static constexpr size_t LIMIT = 65536;

    // Keeps the change in place of an earlier one of the same wish. False, and nothing is kept, when there is
    // no room for another wish, or no memory.
    bool hold(const MemberChange &change);

    // Forgets the changes of an interface, or all of them.
    void forget(uint32_t if_index);
    void clear();

    // Hands every change to send and forgets it.
    template <typename Send> void release(Send send)
    {
        for (const MemberChange &change : order_) {
            send(change);
        }
        clear();
    }

    size_t size() const
    {
        return order_.size();
    }

private:
    struct WishLess {
        bool operator()(const MemberChange &first, const MemberChange &second) const;
    };
    using Order = std::list<MemberChange>;

    Order order_;
    std::map<MemberChange, Order::iterator, WishLess> places_;
};

} // namespace gmpd

#endif
