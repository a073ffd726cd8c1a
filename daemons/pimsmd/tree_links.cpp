/*
 * The end of a link. Its machines go without a word, for there is nobody left to say it to, and what entries know of it goes
 * with them; what they asked there for is asked elsewhere once they settle.
 */
#include "daemons/pimsmd/tree.h"

namespace pimsmd
{
namespace
{

void clear(StarState &words, Links bits)
{
    words.joins &= ~bits;
    words.receivers &= ~bits;
    words.lost &= ~bits;
    words.won &= ~bits;
}

void clear(SourceState &words, Links bits)
{
    words.joins &= ~bits;
    words.receivers &= ~bits;
    words.excluded &= ~bits;
    words.rpt_prunes &= ~bits;
    words.lost &= ~bits;
    words.lost_to_better &= ~bits;
    words.won &= ~bits;
}

} // namespace

void Trees::forget_link(unsigned link)
{
    const Links bit = Links{1} << link;
    const auto forget = [&](auto &entry) {
        entry.links.erase(link);
        clear(entry.words, bit);
        entry.routes_stale = true;
        mark(entry);
    };
    roles_.dr &= ~bit;
    visit_groups([&](GroupEntry &group) {
        forget(group);
        visit_sources(group, forget);
    });
}

void Trees::set(const TreeSettings &settings)
{
    settings_ = settings;
    stops_ = SharedRateLimit(settings.register_stops_per_s);
}

} // namespace pimsmd
