/*
 * What passes between the router of this process and its client of the MRIB process, in both directions:
 *
 *      Router ── entries, links (MribSide) ──────────────────────► MRIB client: join/prune, interface, tree, assert,
 *                                                                    registered
 *      Trees  ◄── members, packets, remote sources (Router::trees) ── MRIB client: member, source, remote, instance
 *
 * The client keeps what it told, notes what is other now in the calls of MribSide, and looks at it when the round ends:
 *
 *      an entry    trees().find(group), trees().find(group, source); NULL when it is gone
 *      outputs     by link: words.joins of both, words.rpt_prunes, words.lost, words.won
 *      upstream    words.rpf and to; words.spt_bit; registers_to(); registered
 *      a link      Router::link(number): its interface and whether this router is designated there
 *
 * Links are numbers below MOST_LINKS, which Router::link_of finds for an interface. A number may stand for another
 * interface once link_gone was called for it. What hosts want on an interface on which PIM does not run is of no concern to
 * the trees; it has to be said again when link_came is called for the interface.
 *
 * What the client calls in trees() takes effect at Router::settle, which the daemon calls once a round, before the client
 * sends what it has.
 */
#ifndef DAEMONS_PIMSMD_MRIB_SIDE_H
#define DAEMONS_PIMSMD_MRIB_SIDE_H

#include "daemons/pimsmd/address.h"

namespace pimsmd
{

// Nothing of the router may be changed in these calls.
class MribSide
{
public:
    // PIM runs on the link from now on: the trees know of nothing there yet.
    virtual void link_came(unsigned link) = 0;

    // Another router is designated on the link, or this one is.
    virtual void dr_changed(unsigned link) = 0;

    // PIM does not run on the interface any more; the trees have forgotten all that was on the link.
    virtual void link_gone(unsigned link, uint32_t if_index) = 0;

    // (S,G), or with an unspecified source (*,G), is other than it was, or gone. Called several times a round.
    virtual void entry_changed(const Address &group, const Address &source) = 0;

protected:
    ~MribSide() = default;
};

} // namespace pimsmd

#endif
