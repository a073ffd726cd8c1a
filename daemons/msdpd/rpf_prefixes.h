/*
 * The prefixes of originators that the configuration assigns to peers, on the library's radix tree, which
 * finds those that cover an originator however many there are.
 */
#ifndef DAEMONS_MSDPD_RPF_PREFIXES_H
#define DAEMONS_MSDPD_RPF_PREFIXES_H

#include <functional>
#include <memory>
#include <vector>

#include "daemons/msdpd/config.h"
#include "mcast/radix.h"

namespace msdpd
{

class RpfPrefixes
{
public:
    RpfPrefixes();
    ~RpfPrefixes();
    RpfPrefixes(const RpfPrefixes &) = delete;
    RpfPrefixes &operator=(const RpfPrefixes &) = delete;

    // Takes over the prefixes of the configuration in place of those before.
    void configure(const Config &config);

    // Visits the peers with a prefix that covers the originator, the longest prefix first and the peers of
    // one prefix in the order of their addresses, until visitor returns false.
    void visit(Ipv4 originator, const std::function<bool(Ipv4 peer)> &visitor) const;

private:
    // An entry of the tree.
    struct Range {
        const MCAST_ADDR_S *key; // address
        uint8_t length;
        MCAST_ADDR_S address;
        std::vector<Ipv4> peers;
    };

    void add(const mcastd::Prefix &prefix, Ipv4 peer);
    void clear();

    std::vector<std::unique_ptr<Range>> ranges_;
    MRT_RDX_TREE_S *tree_;
};

} // namespace msdpd

#endif
