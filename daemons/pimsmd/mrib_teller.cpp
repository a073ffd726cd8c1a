/*
 * What is said of an entry follows from its words (olist.h) alone; the MRIB process puts output lists together by the
 * formulas that pim_records.h has. An assert that the RFC's formulas leave out is not told as lost: nobody takes the link
 * over which the packets come.
 */
#include "daemons/pimsmd/mrib_teller.h"

#include <bit>

#include "daemons/common/membership.h"
#include "daemons/common/memory.h"

namespace pimsmd
{

bool MribTeller::Said::operator==(const Said &other) const
{
    return joins == other.joins && blocks == other.blocks && lost == other.lost && won == other.won &&
           from_interface == other.from_interface && awaited == other.awaited && flags == other.flags &&
           from == other.from && rp_is_own == other.rp_is_own &&
           registered_at.family == other.registered_at.family &&
           same_address(registered_at, other.registered_at);
}

void MribTeller::NodeList::push_back(Node &node)
{
    node.list = this;
    node.previous = last_;
    node.next = nullptr;
    (last_ != nullptr ? last_->next : first_) = &node;
    last_ = &node;
}

void MribTeller::NodeList::remove(Node &node)
{
    (node.previous != nullptr ? node.previous->next : first_) = node.next;
    (node.next != nullptr ? node.next->previous : last_) = node.previous;
    node.next = node.previous = nullptr;
    node.list = nullptr;
}

MribTeller::MribTeller(uint16_t instance, Trees &trees, TellerSurroundings &surroundings,
                       RegisterTunnels &tunnels)
    : instance_(instance), trees_(trees), surroundings_(surroundings), tunnels_(tunnels)
{
}

MribTeller::Node &MribTeller::node_of(const Address &group, const Address &source)
{
    const Key key{group, source};
    Node &node = nodes_[key];
    node.key = key;
    return node;
}

void MribTeller::queue(Node &node, NodeList &list)
{
    if (node.list != nullptr) {
        node.list->remove(node);
        --waiting_;
    }
    list.push_back(node);
    ++waiting_;
}

// It is called in the midst of what the trees do, where no exception may end it.
void MribTeller::entry_changed(const Address &group, const Address &source)
{
    const bool noted = mcastd::memory_unit("a change for the MRIB process", [&] {
        Node &node = node_of(group, source);

        if (node.list == nullptr) {
            queue(node, changed_);
        }
    });
    missed_ |= !noted;
}

// Its group's tree is what counts where nothing is said of the source.
void MribTeller::answer(const Address &group, const Address &source)
{
    const auto star = nodes_.find({group, any_address(group.family)});
    if (star != nodes_.end() && star->second.list != nullptr) {
        queue(star->second, urgent_);
    }
    Node &node = node_of(group, source);
    node.answer = true;
    queue(node, urgent_);
}

// Of all, for one of which nothing was to be said is without a node.
void MribTeller::queue_sources(const Address &group)
{
    if (const GroupEntry *entry = trees_.find(group)) {
        Trees::visit_sources(*entry,
                             [&](const SourceEntry &source) { entry_changed(group, source.address()); });
    }
    for (auto at = nodes_.upper_bound({group, any_address(group.family)});
         at != nodes_.end() && same_address(at->first.group, group); ++at) {
        if (at->second.list == nullptr) {
            queue(at->second, changed_);
        }
    }
}

void MribTeller::link_came(unsigned link)
{
    links_[link].if_index = surroundings_.interface_of(link);
    links_[link].serial = 0;
}

void MribTeller::dr_changed(unsigned link)
{
    links_[link].if_index = surroundings_.interface_of(link);
}

void MribTeller::link_gone(unsigned link, uint32_t if_index)
{
    gone_.insert(if_index);
    links_[link] = {};
    newest_gone_ = gone_at_[link] = ++serial_;
}

void MribTeller::start_over()
{
    started_ = ++serial_;
    gone_.clear();
    walking_ = true;
    walked_.reset();
}

// What was told of links that went, and on another connection, holds no longer.
void MribTeller::forget_void(Node &node) const
{
    if (node.serial < started_) {
        node.told = {};
    } else if (node.serial < newest_gone_) {
        for (unsigned link = 0; link < MOST_LINKS; ++link) {
            if (node.serial < gone_at_[link]) {
                const Links kept = ~(Links{1} << link);
                node.told.joins &= kept;
                node.told.blocks &= kept;
                node.told.lost &= kept;
                node.told.won &= kept;
            }
        }
    }
    node.serial = serial_;
}

void MribTeller::take_leave(MribRecords &records)
{
    for (unsigned link = 0; link < MOST_LINKS; ++link) {
        if (links_[link].if_index != 0) {
            link_gone(link, links_[link].if_index);
        }
    }
    tell_links(records);
}

void MribTeller::tell_links(MribRecords &records)
{
    for (const uint32_t if_index : gone_) {
        say_link(records, if_index, mcastd::PIM_GONE);
    }
    gone_.clear();
    for (unsigned link = 0; link < MOST_LINKS; ++link) {
        LinkTold &told = links_[link];
        const bool is_dr = (trees_.roles().dr >> link & 1) != 0;
        const uint8_t state = told.if_index == 0 ? mcastd::PIM_GONE
                              : is_dr            ? mcastd::PIM_DESIGNATED
                                                 : mcastd::PIM_RUNS;
        if (told.if_index != 0 && (told.state != state || told.serial < started_)) {
            say_link(records, told.if_index, state);
            told.state = state;
            told.serial = serial_;
        }
    }
}

// After a lack of memory: all entries may have changed.
void MribTeller::see_all()
{
    missed_ = false;
    trees_.visit_groups([this](const GroupEntry &group) {
        entry_changed(group.address(), any_address(group.address().family));
        Trees::visit_sources(
            group, [&](const SourceEntry &source) { entry_changed(group.address(), source.address()); });
    });
    walking_ = true; // and those that are gone meanwhile
    walked_.reset();
}

bool MribTeller::tell(MribRecords &records, size_t most)
{
    if (!records.has_room()) {
        return false;
    }
    if (missed_ && !mcastd::memory_is_short()) {
        see_all();
    }
    tell_links(records);
    for (size_t told = 0; told < most; ++told) {
        if (!records.has_room() || !tell_next(records)) {
            return false;
        }
    }
    return waiting_ != 0 || walking_;
}

// Those who wait, then changes, then what a new connection has to hear. False when there is nothing.
bool MribTeller::tell_next(MribRecords &records)
{
    Node *node = urgent_.first() != nullptr ? urgent_.first() : changed_.first();
    if (node == nullptr && walking_) {
        const auto next = walked_ ? nodes_.upper_bound(*walked_) : nodes_.begin();

        walking_ = next != nodes_.end();
        node = walking_ ? &next->second : nullptr;
        if (walking_) {
            walked_ = node->key;
        }
    }
    if (node == nullptr) {
        return false;
    }
    if (node->list != nullptr) {
        node->list->remove(*node);
        --waiting_;
    }
    tell_node(records, *node);
    return true;
}

// The tree comes last: with an answer the packets go that wait.
void MribTeller::tell_node(MribRecords &records, Node &node)
{
    forget_void(node);
    const Key &key = node.key;
    node.tunnelled = tunnel(key, node.tunnelled);
    const Said before = node.told;
    Said after = now(key);
    if (!node.tunnelled) {
        after.flags = static_cast<uint16_t>(after.flags & ~mcastd::PIM_TREE_REGISTER_OUT);
    }
    say_asserts(records, key, before, after);
    say_joins(records, key, before.joins, after.joins, mcastd::MEMBERSHIP_PLAIN);
    say_joins(records, key, before.blocks, after.blocks, mcastd::MEMBERSHIP_EXCLUDE);
    const bool watch = after.awaited != 0 && before.awaited != after.awaited;
    if (node.answer || watch || before.from != after.from || before.flags != after.flags ||
        before.from_interface != after.from_interface) {
        say_tree(records, key, after,
                 static_cast<uint16_t>((node.answer ? mcastd::PIM_TREE_ANSWER : 0) |
                                       (watch ? mcastd::PIM_TREE_WATCH : 0)));
    }
    const bool same_rp = before.registered_at.family == after.registered_at.family &&
                         same_address(before.registered_at, after.registered_at);
    if (!same_rp && before.registered_at.family != 0) {
        say_registered(records, key, before.registered_at, false);
    }
    if (!same_rp && after.registered_at.family != 0) {
        say_registered(records, key, after.registered_at, true);
    }
    const bool of_group = is_unspecified(key.source);
    if (of_group && (before.from_interface != after.from_interface || before.rp_is_own != after.rp_is_own ||
                     before.from != after.from)) {
        queue_sources(key.group);
    }
    node.answer = false;
    node.told = after;
    if (after == Said{} && !node.tunnelled) {
        const Key gone = key;
        nodes_.erase(gone);
    }
}

MribTeller::Said MribTeller::now(const Key &key)
{
    if (is_unspecified(key.source)) {
        const GroupEntry *group = trees_.find(key.group);
        return group != nullptr ? of_group(*group) : Said{};
    }
    const SourceEntry *source = trees_.find(key.group, key.source);
    return source != nullptr ? of_source(*source) : Said{};
}

// Of the one link that is in the set, or 0.
uint32_t MribTeller::interface_of(Links rpf) const
{
    return rpf != 0 ? surroundings_.interface_of(static_cast<unsigned>(std::countr_zero(rpf))) : 0;
}

// Of a group without an RP nothing is said: packets come by the unicast routes, as where no PIM runs.
MribTeller::Said MribTeller::of_group(const GroupEntry &group)
{
    const StarState &words = group.words;
    Said said;
    said.joins = words.joins;
    said.lost = words.lost & ~words.rpf;
    said.won = words.won;
    said.rp_is_own = group.rp && trees_.surroundings().is_own(*group.rp);
    if (said.rp_is_own) {
        said.from = mcastd::PIM_FROM_REGISTER;
    } else if (group.rp) {
        said.from_interface = interface_of(words.rpf);
        said.from = said.from_interface != 0 ? mcastd::PIM_FROM_INTERFACE : mcastd::PIM_FROM_NOWHERE;
    }
    return said;
}

// Where no shared tree is, packets can come over the source's own alone.
MribTeller::Said MribTeller::of_source(const SourceEntry &source)
{
    const SourceState &words = source.words;
    const StarState &star = source.group.words;
    const bool own_tree = words.spt_bit || !source.group.rp;
    const bool is_rp = source.group.rp && trees_.surroundings().is_own(*source.group.rp);
    Said said;
    said.joins = words.joins;
    said.blocks = words.rpt_prunes;
    said.lost = own_tree ? words.lost & words.lost_to_better & ~words.rpf : words.lost & ~star.rpf;
    said.won = words.won;
    if (own_tree || (words.connected && words.keepalive)) {
        said.from_interface = interface_of(words.rpf);
        said.from = said.from_interface != 0 ? mcastd::PIM_FROM_INTERFACE : mcastd::PIM_FROM_NOWHERE;
        said.flags = own_tree ? mcastd::PIM_TREE_SPT : uint16_t{0};
    }
    if (source.was_reported && !own_tree && source.machine.joined() && words.rpf != star.rpf) {
        said.awaited = interface_of(words.rpf);
    }
    if (source.registers_to()) {
        said.flags |= mcastd::PIM_TREE_REGISTER_OUT;
    }
    if (is_rp && words.keepalive && (source.registered || words.connected)) {
        said.registered_at = *source.group.rp;
    }
    return said;
}

// Brings the way of Registers in line before packets go it. Whether there is one.
bool MribTeller::tunnel(const Key &key, bool was)
{
    const SourceEntry *source = is_unspecified(key.source) ? nullptr : trees_.find(key.group, key.source);
    const std::optional<Address> rp = source != nullptr ? source->registers_to() : std::nullopt;
    const std::optional<Tunnel> way =
        rp && source->route.link != NO_LINK
            ? surroundings_.tunnel_to(*rp, static_cast<unsigned>(source->route.link))
            : std::nullopt;
    if (way) {
        tunnels_.put(instance_, key.group, key.source, *way);
    } else if (was) {
        tunnels_.remove(instance_, key.group, key.source);
    }
    return way.has_value();
}

} // namespace pimsmd
