/*
 * The RFC writes these as sets of interfaces, each a condition on every interface. Here a set is a word with a bit a link,
 * so that a formula costs a few operations however many links there are, and nothing has to be kept up to date but the
 * words that the machines set. An entry's outputs before and after an event tell what the event changed.
 *
 *      RFC               here
 *      A (+) B           a | b
 *      A (-) B           a & ~b
 *      I in A            a & bit of I
 *
 * In the RFC's sums everything is done from left to right.
 */
#include "daemons/pimsmd/olist.h"

namespace pimsmd
{
namespace
{

// lost_assert(*,G). Nobody takes the link over which this router itself gets the packets.
Links lost(const StarState &star)
{
    return star.lost & ~star.rpf;
}

// Where this router answers for the hosts that want all sources.
Links answers(const StarState &star, LinkRoles roles)
{
    return (roles.dr & ~lost(star)) | star.won;
}

// pim_include(*,G)
Links include(const StarState &star, LinkRoles roles)
{
    return star.receivers & answers(star, roles);
}

// lost_assert(S,G)
Links lost(const SourceState &source)
{
    return source.lost & source.lost_to_better & ~source.rpf;
}

// lost_assert(S,G,rpt)
Links lost_rpt(const StarState &star, const SourceState &source)
{
    return source.lost & ~star.rpf & ~(source.spt_bit ? source.rpf : 0);
}

} // namespace

Links immediate_olist(const StarState &star, LinkRoles roles)
{
    return (star.joins | include(star, roles)) & ~lost(star);
}

bool join_desired(const StarState &star, LinkRoles roles)
{
    return immediate_olist(star, roles) != 0;
}

Links could_assert(const StarState &star, LinkRoles roles)
{
    return (star.joins | include(star, roles)) & ~star.rpf;
}

Links tracks_assert(const StarState &star, LinkRoles roles)
{
    const Links hosts = star.receivers & (roles.dr | star.won);
    return could_assert(star, roles) | hosts | (join_desired(star, roles) ? star.rpf : 0);
}

// pim_include(S,G)
Links SourceView::include() const
{
    return source_.receivers & ((roles_.dr & ~lost(source_)) | source_.won);
}

// pim_include(*,G) (-) pim_exclude(S,G)
Links SourceView::star_hosts() const
{
    return pimsmd::include(star_, roles_) & ~(source_.excluded & answers(star_, roles_));
}

// What the shared tree contributes, lost asserts of the source apart.
Links SourceView::shared_tree() const
{
    return (star_.joins & ~source_.rpt_prunes) | star_hosts();
}

Links SourceView::hosts() const
{
    return star_hosts() | include();
}

Links SourceView::immediate_olist() const
{
    return (source_.joins | include()) & ~lost(source_);
}

Links SourceView::inherited_olist_rpt() const
{
    return shared_tree() & ~(lost(star_) | lost_rpt(star_, source_));
}

Links SourceView::inherited_olist() const
{
    return (inherited_olist_rpt() | source_.joins | include()) & ~lost(source_);
}

bool SourceView::join_desired() const
{
    return immediate_olist() != 0 || ((source_.keepalive || source_.remote) && inherited_olist() != 0);
}

bool SourceView::prune_desired_rpt(bool same_upstream) const
{
    return pimsmd::join_desired(star_, roles_) &&
           (inherited_olist_rpt() == 0 || (source_.spt_bit && !same_upstream));
}

Links SourceView::could_assert() const
{
    const Links forwards = (shared_tree() & ~lost(star_)) | source_.joins | include();
    return source_.spt_bit ? forwards & ~source_.rpf : 0;
}

Links SourceView::tracks_assert() const
{
    const Links hosts = source_.receivers & (roles_.dr | source_.won);
    const Links over_source = join_desired() ? source_.rpf : 0;
    const Links over_rp = pimsmd::join_desired(star_, roles_) && !source_.spt_bit ? star_.rpf : 0;
    return (shared_tree() & ~lost(star_)) | source_.joins | hosts | over_source | over_rp;
}

bool SourceView::could_register() const
{
    return (roles_.dr & source_.rpf) != 0 && source_.keepalive && source_.connected;
}

} // namespace pimsmd
