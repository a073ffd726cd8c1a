#include "daemons/msdpd/rpf_prefixes.h"

#include <cstddef>

#include "daemons/common/memory.h"

namespace msdpd
{
namespace
{

constexpr uint32_t ADDRESS_BITS = mcastd::address_bits(MCAST_FAMILY_IPV4);

} // namespace

RpfPrefixes::RpfPrefixes()
    : tree_(mcastd::must_have([] {
          return MRT_RDX_CreateTree(offsetof(Range, key), offsetof(Range, length),
                                    offsetof(MCAST_ADDR_S, address), ADDRESS_BITS);
      }))
{
}

RpfPrefixes::~RpfPrefixes()
{
    MRT_RDX_DestroyTree(tree_); // the ranges outlive it
}

void RpfPrefixes::clear()
{
    for (const auto &range : ranges_) {
        MRT_RDX_DeleteNode(tree_, range.get());
    }
    ranges_.clear();
}

void RpfPrefixes::configure(const Config &config)
{
    clear();
    for (const auto &[address, peer] : config.peers) {
        for (const mcastd::Prefix &prefix : peer.rpf) {
            add(prefix, address);
        }
    }
}

void RpfPrefixes::add(const mcastd::Prefix &prefix, Ipv4 peer)
{
    auto *known = static_cast<Range *>(MRT_RDX_Locate(tree_, &prefix.address, prefix.length));
    if (known == nullptr) {
        known = ranges_.emplace_back(new Range{nullptr, prefix.length, prefix.address, {}}).get();
        known->key = &known->address;
        mcastd::must_have([this, known] { return MRT_RDX_AddNode(tree_, known); });
    }
    known->peers.push_back(peer);
}

void RpfPrefixes::visit(Ipv4 originator, const std::function<bool(Ipv4)> &visitor) const
{
    const MCAST_ADDR_S key = to_record(originator);
    uint32_t longest = ADDRESS_BITS;
    const Range *range;
    // Not with a filter, which the tree stops asking where two prefixes part.
    while ((range = static_cast<Range *>(MRT_RDX_LocateBest(tree_, &key, longest, nullptr, nullptr))) !=
           nullptr) {
        for (const Ipv4 peer : range->peers) {
            if (!visitor(peer)) {
                return;
            }
        }
        if (range->length == 0) {
            return;
        }
        longest = range->length - 1u;
    }
}

} // namespace msdpd
