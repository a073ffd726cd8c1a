/*
 * The records by which the MRIB process is told: of a link, and of an entry what is other than it was told last.
 */
#include <bit>
#include <cstring>

#include "daemons/common/membership.h"
#include "daemons/pimsmd/mrib_teller.h"

namespace pimsmd
{
namespace
{

using mcastd::PimAssert;
using mcastd::PimInterface;
using mcastd::PimRegistered;
using mcastd::PimTree;

// Calls visit(unsigned) for each link of the set.
template <typename Visit> void for_each(Links links, Visit visit)
{
    for (; links != 0; links &= links - 1) {
        visit(static_cast<unsigned>(std::countr_zero(links)));
    }
}

template <typename Value> void append(MribRecords &records, uint16_t type, const Value &value)
{
    records.append(type, {reinterpret_cast<const uint8_t *>(&value), sizeof(value)});
}

template <typename Value> void put_addresses(Value *value, const Address &group, const Address &source)
{
    std::memcpy(value->group, group.address, sizeof(value->group));
    std::memcpy(value->source, source.address, sizeof(value->source));
}

uint8_t family_byte(const Address &address)
{
    return static_cast<uint8_t>(address.family);
}

} // namespace

void MribTeller::say_link(MribRecords &records, uint32_t if_index, uint8_t state) const
{
    PimInterface value{};
    value.family = static_cast<uint8_t>(trees_.family());
    value.state = state;
    value.vrf_index = instance_;
    value.if_index = if_index;
    append(records, mcastd::PIM_TLV_INTERFACE, value);
}

void MribTeller::say_asserts(MribRecords &records, const Key &key, const Said &before,
                             const Said &after) const
{
    for_each((before.lost ^ after.lost) | (before.won ^ after.won), [&](unsigned link) {
        const uint32_t if_index = surroundings_.interface_of(link);
        const bool lost = (after.lost >> link & 1) != 0;
        const bool won = (after.won >> link & 1) != 0;
        PimAssert value{};

        if (if_index == 0) {
            return;
        }
        value.family = family_byte(key.group);
        value.state = lost ? mcastd::PIM_ASSERT_LOST : won ? mcastd::PIM_ASSERT_WON : mcastd::PIM_ASSERT_NONE;
        value.vrf_index = instance_;
        value.if_index = if_index;
        put_addresses(&value, key.group, key.source);
        append(records, mcastd::PIM_TLV_ASSERT, value);
    });
}

void MribTeller::say_joins(MribRecords &records, const Key &key, Links before, Links after,
                           uint8_t exclude) const
{
    for_each(before ^ after, [&](unsigned link) {
        const uint32_t if_index = surroundings_.interface_of(link);

        if (if_index != 0) {
            const bool join = (after >> link & 1) != 0;
            records.join_prune(if_index, key.group, key.source,
                               join ? mcastd::MEMBERSHIP_JOIN : mcastd::MEMBERSHIP_PRUNE, exclude);
        }
    });
}

void MribTeller::say_tree(MribRecords &records, const Key &key, const Said &after, uint16_t more) const
{
    PimTree value{};
    value.family = family_byte(key.group);
    value.from = after.from;
    value.vrf_index = instance_;
    value.if_index = after.from_interface;
    value.flags = after.flags | more;
    value.group_length = mcastd::address_bits(key.group.family);
    put_addresses(&value, key.group, key.source);
    append(records, mcastd::PIM_TLV_TREE, value);
}

void MribTeller::say_registered(MribRecords &records, const Key &key, const Address &rp, bool present) const
{
    PimRegistered value{};
    value.family = family_byte(key.group);
    value.present = present ? 1 : 0;
    value.vrf_index = instance_;
    std::memcpy(value.rp, rp.address, sizeof(value.rp));
    put_addresses(&value, key.group, key.source);
    append(records, mcastd::PIM_TLV_REGISTERED, value);
}

} // namespace pimsmd
