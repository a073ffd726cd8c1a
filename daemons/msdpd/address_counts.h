/*
 * How many there are of something for each address, in the order of the addresses: the library's balanced
 * tree with an item for every address that has any.
 */
#ifndef DAEMONS_MSDPD_ADDRESS_COUNTS_H
#define DAEMONS_MSDPD_ADDRESS_COUNTS_H

#include <cstdint>
#include <functional>

#include "daemons/msdpd/ipv4.h"
#include "mcast/avl.h"

namespace msdpd
{

class AddressCounts
{
public:
    AddressCounts();
    ~AddressCounts();
    AddressCounts(const AddressCounts &) = delete;
    AddressCounts &operator=(const AddressCounts &) = delete;

    // One more, or one less, of which there is one.
    void add(Ipv4 address);
    void remove(Ipv4 address);

    uint32_t of(Ipv4 address) const;

    // Visits the addresses that have any, from first on, until visitor returns false. It must not change the
    // counts.
    void visit(Ipv4 first, const std::function<bool(Ipv4 address, uint32_t count)> &visitor) const;

private:
    mutable MCAST_AVL_S tree_{}; // walks take it as one that may change
};

} // namespace msdpd

#endif
