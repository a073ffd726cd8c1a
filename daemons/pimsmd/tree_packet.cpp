/*
 * Packets and Asserts: both tell that somebody else forwards to a link, and packets whether a source's own tree works.
 *
 * A source's SPT bit says that its packets come over its own tree, so that those of the shared tree are not wanted any more.
 * It is set by a packet that came in where the source is (RFC 7761, section 4.2.2), unless that may have been the shared tree.
 */
#include "daemons/pimsmd/tree.h"

namespace pimsmd
{
namespace
{

constexpr uint32_t MS_PER_S = 1000;

Links bit_of(unsigned link)
{
    return Links{1} << link;
}

} // namespace

void Trees::packet(unsigned link, const Address &group_address, const Address &address)
{
    const Links bit = bit_of(link);
    GroupEntry *group = group_of(group_address);
    SourceEntry *source = group != nullptr ? source_of(*group, address) : nullptr;
    if (source == nullptr) {
        const Route route = surroundings_.route_to(address);
        const bool connected = route.connected && route.link == static_cast<int>(link);

        if (group == nullptr && !connected) {
            return; // of nobody's interest
        }
        source = make_source(group_address, address);
    }
    if (source == nullptr) {
        return;
    }
    source->was_reported = true;
    const SourceView view = source->view();
    const bool over_source = (source->words.rpf & bit) != 0;

    if (over_source &&
        (source->words.connected || (source->machine.joined() && view.inherited_olist() != 0))) {
        source->packet_came(settings_.keepalive_s * MS_PER_S);
    }
    GroupEntry &star = source->group;
    const SourceLink *here = source->link_on(link);
    const bool lost = here != nullptr && here->assertion.state() == asserts::State::Loser;
    const bool same_neighbour = source->to == star.to && !is_unspecified(source->to.neighbour);

    if (over_source && view.join_desired() &&
        (source->words.connected || source->words.rpf != star.words.rpf || view.inherited_olist_rpt() == 0 ||
         same_neighbour || lost)) {
        source->words.spt_bit = true;
    }
    if (!source->words.spt_bit && (star.words.rpf & bit) != 0) {
        check_switch(*source);
    }
    // This router would send it where it came from: somebody else does.
    if ((view.could_assert() & bit) != 0) {
        SourceLink *on = link_on(*source, link, any_address(family_));

        if (on != nullptr) {
            on->assertion.take(asserts::Event::Data);
        }
    } else if ((could_assert(star.words, roles_) & bit) != 0 && !lost) {
        StarLink *on = link_on(star, link, any_address(family_));

        if (on != nullptr) {
            on->assertion.take(asserts::Event::Data);
        }
    }
    mark(star);
    mark(*source);
}

void Trees::source_silent(const Address &group, const Address &address)
{
    GroupEntry *of = group_of(group);
    SourceEntry *source = of != nullptr ? source_of(*of, address) : nullptr;
    if (source != nullptr && source->words.keepalive && !source->registered) {
        queue_.stop(source->keepalive);
        source->words.keepalive = false;
        mark(*source);
    }
}

void Trees::set_remote(const Address &group, const Address &address, bool there)
{
    GroupEntry *of = group_of(group);
    SourceEntry *source = there           ? make_source(group, address)
                          : of != nullptr ? source_of(*of, address)
                                          : nullptr;
    if (source != nullptr) {
        source->remote = there;
        mark(*source);
    }
}

void Trees::assert_heard(unsigned link, const Address &sender, const Assert &message)
{
    const asserts::Metric metric{message.rpt, message.preference, message.metric, sender};
    const Links bit = bit_of(link);
    GroupEntry *group = group_of(message.group);
    if (group == nullptr) {
        return; // no state, no interest
    }
    if (!is_unspecified(message.source)) {
        SourceEntry *source = source_of(*group, message.source);
        const bool matters = !message.rpt || source != nullptr;

        if (matters && source == nullptr) {
            source = make_source(message.group, message.source);
        }
        if (source != nullptr) {
            mark(*source);
            const bool could = (source->view().could_assert() & bit) != 0;
            const bool tracks = (source->view().tracks_assert() & bit) != 0;
            SourceLink *on =
                could || tracks || source->links.contains(link) ? link_on(*source, link, sender) : nullptr;

            if (on != nullptr && (on->assertion.heard(metric, could, tracks) ||
                                  on->assertion.state() != asserts::State::NoInfo)) {
                return;
            }
        }
    }
    const bool could = (could_assert(group->words, roles_) & bit) != 0;
    const bool tracks = (tracks_assert(group->words, roles_) & bit) != 0;
    StarLink *on = could || tracks || group->links.contains(link) ? link_on(*group, link, sender) : nullptr;

    mark(*group);
    if (on != nullptr) {
        on->assertion.heard(metric, could, tracks);
    }
}

} // namespace pimsmd
