/*
 * A message has up to 255 group records, each with a list of Joins and a list of Prunes. A wish of its own costs 20 bytes
 * for IPv4, so that 73 of different groups fit into a packet of 1500 bytes; one more source of a group costs 8.
 *
 * Wishes may come in any message but for one rule (RFC 7761, section 4.9.5.2): a Join(*,G) asks for every source but those
 * whose Prune(S,G,rpt) is in the same message. Apart from it, such a Prune would come too late, and the source's packets
 * twice. So a group is taken apart into
 *
 *      together   Join(*,G) with all (S,G,rpt) of the group: one record, never split
 *      apart      everything else, which may fill up this message and go on in the next
 *
 * A record that must stay whole and has no room in an empty message goes out alone in one that is longer than the MTU.
 * Only beyond the longest message that IP has, which is at some 8000 prunes of IPv4, prunes are left out: all but
 * the lowest addresses, as the RFC asks, so that both ends leave out the same each time.
 */
#include "daemons/pimsmd/packer.h"

#include <algorithm>
#include <utility>

namespace pimsmd
{
namespace
{

bool is_star_join(const Wish &wish)
{
    return wish.join && wish.source.tree == Tree::Star;
}

} // namespace

Packer::Packer(const Envelope &envelope, const Address &upstream, uint16_t holdtime_s, size_t room, Send send)
    : envelope_(envelope), upstream_(upstream), holdtime_s_(holdtime_s), send_(std::move(send)),
      buffer_(std::clamp(
          room, JoinPruneWriter::head_size(upstream.family) + JoinPruneWriter::group_size(upstream.family, 1),
          MAX_MESSAGE_SIZE)),
      writer_(buffer_, upstream, holdtime_s)
{
}

void Packer::add(const Address &group, std::span<const Wish> wishes)
{
    const bool has_star = std::any_of(wishes.begin(), wishes.end(), is_star_join);
    together_ = {};
    apart_ = {};
    for (const Wish &wish : wishes) {
        const bool is_bound = has_star && wish.source.tree != Tree::Source;
        Sorted &sorted = is_bound ? together_ : apart_;

        (wish.join ? sorted.joins : sorted.prunes).push_back(wish.source);
    }
    if (together_.size() > 0) {
        put_together(group);
    }
    if (apart_.size() > 0) {
        put_apart(group);
    }
}

void Packer::finish()
{
    if (writer_.groups() > 0) {
        const size_t size = writer_.finish(envelope_);

        send_(std::span(buffer_).first(size));
        writer_ = JoinPruneWriter(buffer_, upstream_, holdtime_s_);
    }
}

void Packer::put(const Address &group, std::span<const TreeSource> joins, std::span<const TreeSource> prunes)
{
    const GroupRange range{{group, address_bits(group.family)}};
    if (!writer_.add(range, joins, prunes)) {
        finish();
        writer_.add(range, joins, prunes);
    }
}

// One record, and what else the group has with it when there is room for all of it.
void Packer::put_together(const Address &group)
{
    const size_t size = JoinPruneWriter::group_size(group.family, together_.size());
    const size_t all = size + apart_.size() * encoded_source_size(group.family);
    if (JoinPruneWriter::head_size(group.family) + size > buffer_.size()) {
        send_alone(group);
        return;
    }
    if (size > writer_.room()) {
        finish();
    }
    if (all <= writer_.room()) {
        together_.joins.insert(together_.joins.end(), apart_.joins.begin(), apart_.joins.end());
        together_.prunes.insert(together_.prunes.end(), apart_.prunes.begin(), apart_.prunes.end());
        apart_ = {};
    }
    put(group, together_.joins, together_.prunes);
}

// As many records as it takes, each filling up its message.
void Packer::put_apart(const Address &group)
{
    std::span<const TreeSource> joins(apart_.joins);
    std::span<const TreeSource> prunes(apart_.prunes);
    while (joins.size() + prunes.size() > 0) {
        if (writer_.room() < JoinPruneWriter::group_size(group.family, 1)) {
            finish();
        }
        const size_t fit = (writer_.room() - JoinPruneWriter::group_size(group.family, 0)) /
                           encoded_source_size(group.family);
        const size_t joins_here = std::min(fit, joins.size());
        const size_t prunes_here = std::min(fit - joins_here, prunes.size());

        put(group, joins.first(joins_here), prunes.first(prunes_here));
        joins = joins.subspan(joins_here);
        prunes = prunes.subspan(prunes_here);
    }
}

void Packer::send_alone(const Address &group)
{
    const size_t fit = (MAX_MESSAGE_SIZE - JoinPruneWriter::head_size(group.family) -
                        JoinPruneWriter::group_size(group.family, 0)) /
                       encoded_source_size(group.family);
    std::vector<TreeSource> &prunes = together_.prunes;
    // A Join(S,G,rpt) beside the Join(*,G) says nothing that it does not.
    std::erase_if(together_.joins, [](const TreeSource &source) { return source.tree == Tree::Rpt; });
    std::sort(prunes.begin(), prunes.end(), [](const TreeSource &first, const TreeSource &second) {
        return address_less(first.address, second.address);
    });
    if (together_.size() > fit) {
        left_out_ += together_.size() - fit;
        prunes.resize(fit - together_.joins.size());
    }
    std::vector<uint8_t> buffer(MAX_MESSAGE_SIZE);
    JoinPruneWriter writer(buffer, upstream_, holdtime_s_);

    writer.add({{group, address_bits(group.family)}}, together_.joins, prunes);
    send_(std::span(buffer).first(writer.finish(envelope_)));
}

} // namespace pimsmd
