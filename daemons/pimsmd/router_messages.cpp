/*
 * Messages in and out. Those of a link count when a neighbour sent them, but for Hellos, which make neighbours, and
 * Bootstraps, of which the election says itself whom it believes. Others come from anywhere to an address of this router.
 *
 * What a neighbour is asked for is collected until the round ends, and leaves in as few messages as hold it.
 */
#include <algorithm>

#include "daemons/common/log.h"
#include "daemons/pimsmd/bsr_pieces.h"
#include "daemons/pimsmd/checksum.h"
#include "daemons/pimsmd/dr.h"
#include "daemons/pimsmd/router.h"

namespace pimsmd
{
namespace
{

// Of one group; a message has room for some 180.
constexpr size_t MOST_WISHES_TOGETHER = 256;

} // namespace

void Router::received(uint32_t if_index, const Envelope &envelope, std::span<const uint8_t> bytes)
{
    const auto number = link_of(if_index);
    if (if_index != 0 && !number) {
        ++counters_[Count::NoLink];
        return;
    }
    Link *on = number ? links_[*number].get() : nullptr;
    Counters &counters = on != nullptr ? on->counters() : counters_;
    Message message;

    if (is_own(envelope.source)) {
        ++counters[Count::OwnMessage];
        return;
    }
    Count drop = read_message(envelope, bytes, &message);

    if (drop == NO_DROP) {
        receiving_ = bytes;
        drop = on != nullptr ? take(*on, envelope, message) : take_unicast(envelope, message);
        receiving_ = {};
    }
    if (drop != NO_DROP) {
        ++counters[drop];
    }
}

// Whether this router would be designated on the link without that neighbour.
bool Router::is_designated_but_for(const Link &on, const Address &newcomer)
{
    DrElection election;
    election.offer(on.state().address, on.settings().dr_priority);
    on.neighbours().visit([&](const Neighbour &neighbour) {
        if (!same_address(neighbour.address, newcomer)) {
            election.offer(neighbour.address, neighbour.dr_priority);
        }
    });
    return same_address(election.winner().value_or(newcomer), on.state().address);
}

Count Router::take_hello(Link &on, const Address &sender, const Hello &hello)
{
    const Neighbour *known = on.neighbours().find(sender);
    const std::vector<Address> before = known != nullptr ? known->addresses : std::vector<Address>();
    newcomer_ = false;
    const Count drop = on.heard(sender, hello);
    const Neighbour *now = on.neighbours().find(sender);

    if (now == nullptr) {
        return drop;
    }
    if (!std::equal(before.begin(), before.end(), now->addresses.begin(), now->addresses.end(),
                    same_address)) {
        rejoin_link(on, *now);
        reroute_wanted_ = reroute_wanted_ || asked_.contains({on.number(), sender});
    }
    if (newcomer_ && is_designated_but_for(on, sender)) {
        bsr_->neighbour_up(on.number(), sender);
    }
    return drop;
}

Count Router::take(Link &on, const Envelope &envelope, const Message &message)
{
    const bool to_all = same_address(envelope.destination, on.envelope().destination);
    const auto *bootstrap = std::get_if<Bootstrap>(&message);
    if (bootstrap != nullptr && (to_all || is_own(envelope.destination))) {
        return bsr_->bootstrap(on.number(), envelope.source, !to_all, *bootstrap);
    }
    if (!to_all) {
        return Count::Destination;
    }
    if (const auto *hello = std::get_if<Hello>(&message)) {
        return take_hello(on, envelope.source, *hello);
    }
    if (on.neighbours().find(envelope.source) == nullptr) {
        return Count::NoNeighbour;
    }
    if (const auto *join_prune = std::get_if<JoinPrune>(&message)) {
        trees_.join_prune(on.number(), envelope.source, *join_prune);
    } else if (const auto *assertion = std::get_if<Assert>(&message)) {
        trees_.assert_heard(on.number(), envelope.source, *assertion);
    } else {
        return Count::MessageType;
    }
    return NO_DROP;
}

Count Router::take_unicast(const Envelope &envelope, const Message &message)
{
    if (!is_own(envelope.destination)) {
        return Count::Destination;
    }
    if (const auto *registered = std::get_if<Register>(&message)) {
        trees_.register_heard(envelope, *registered);
    } else if (const auto *stop = std::get_if<RegisterStop>(&message)) {
        trees_.register_stop_heard(envelope.source, *stop);
    } else if (const auto *candidate = std::get_if<CandidateRp>(&message)) {
        return bsr_->candidate_rp(*candidate);
    } else {
        return Count::MessageType;
    }
    return NO_DROP;
}

void Router::send(unsigned number, const Address &neighbour, const Address &group,
                  std::span<const Wish> wishes)
{
    Link *on = number < links_.size() ? links_[number].get() : nullptr;
    if (on == nullptr || is_unspecified(neighbour)) {
        return;
    }
    auto found = outgoing_.find({number, neighbour});

    if (found == outgoing_.end()) {
        on->introduce();
        Packer packer(on->envelope(), neighbour, hold_of_period(config_.trees.join_period_s), on->room(),
                      [on](std::span<const uint8_t> message) { on->send_to_all(message); });
        found = outgoing_.emplace(PackerKey{number, neighbour}, Outgoing{std::move(packer), {}, {}}).first;
    }
    const bool has_star = std::any_of(wishes.begin(), wishes.end(),
                                      [](const Wish &wish) { return wish.source.tree == Tree::Star; });

    if (has_star) {
        found->second.put();
        found->second.packer.add(group, wishes);
        return;
    }
    for (const Wish &wish : wishes) {
        found->second.add(group, wish);
    }
}

// A source of which something was said already is named again in a record of its own, so that the order stays.
void Router::Outgoing::add(const Address &of, const Wish &wish)
{
    const bool again = std::any_of(wishes.rbegin(), wishes.rend(), [&](const Wish &other) {
        return other.source.tree == wish.source.tree &&
               same_address(other.source.address, wish.source.address);
    });
    if (again || !same_address(group, of) || wishes.size() >= MOST_WISHES_TOGETHER) {
        put();
    }
    group = of;
    wishes.push_back(wish);
}

void Router::Outgoing::put()
{
    if (!wishes.empty()) {
        packer.add(group, wishes);
        wishes.clear();
    }
}

void Router::flush()
{
    for (auto &[where, out] : outgoing_) {
        out.put();
        out.packer.finish();
        counters_[Count::TooLong] += out.packer.left_out();
    }
    outgoing_.clear();
}

void Router::send_assert(unsigned number, const Address &group, const Address &source,
                         const asserts::Metric &metric)
{
    Link *on = number < links_.size() ? links_[number].get() : nullptr;
    if (on == nullptr) {
        return;
    }
    const Assert message{group, source, metric.rpt, metric.preference, metric.metric};

    on->introduce();
    on->send_to_all(std::span(buffer_).first(write_assert(buffer_, on->envelope(), message)));
}

void Router::send_unicast(const Address &to, const std::optional<Address> &from,
                          const std::function<size_t(const Envelope &)> &write)
{
    const std::optional<Address> source = from ? from : source_towards(to);
    if (!source || is_unspecified(*source) || is_own(to)) {
        ++counters_[Count::SendFailed];
        return;
    }
    const Envelope envelope{*source, to};
    const size_t size = write(envelope);

    if (size == 0) {
        ++counters_[Count::SendFailed];
        return;
    }
    transmitter_.send(0, envelope, std::span(buffer_).first(size));
}

void Router::send_null_register(const Address &rp, const Address &group, const Address &source)
{
    send_unicast(rp, std::nullopt, [&](const Envelope &envelope) {
        Register message;
        message.null = true;
        message.group = group;
        message.source = source;
        return write_register(buffer_, envelope, message);
    });
}

void Router::send_register_stop(const Address &from, const Address &to, const Address &group,
                                const Address &source)
{
    send_unicast(to, from, [&](const Envelope &envelope) {
        return write_register_stop(buffer_, envelope, {group, source});
    });
}

// Only the checksum is another one, since another router sends it.
void Router::forward(const Bootstrap &)
{
    const std::vector<uint8_t> message(receiving_.begin(), receiving_.end());
    for (const std::unique_ptr<Link> &on : links_) {
        if (on != nullptr && on->neighbours().size() > 0) {
            std::copy(message.begin(), message.end(), buffer_.begin());
            const std::span<uint8_t> copy = std::span(buffer_).first(message.size());

            put_checksum(on->envelope(), copy);
            on->send_to_all(copy);
        }
    }
}

void Router::pieces_to(const Link &on, const Address *neighbour, const Bootstrap &message,
                       std::span<const BootstrapRangeOut> ranges)
{
    Envelope envelope = on.envelope();
    if (neighbour != nullptr) {
        envelope.destination = *neighbour;
    }
    for (const BootstrapPiece &piece : cut_bootstrap(family_, ranges, on.room())) {
        const size_t size = write_bootstrap(buffer_, envelope, message, piece);

        if (size == 0) {
            ++counters_[Count::SendFailed];
        } else {
            transmitter_.send(on.state().if_index, envelope, std::span(buffer_).first(size));
        }
    }
}

void Router::send_bootstrap(const Bootstrap &message, std::span<const BootstrapRangeOut> ranges)
{
    for (const std::unique_ptr<Link> &on : links_) {
        if (on != nullptr && on->neighbours().size() > 0) {
            pieces_to(*on, nullptr, message, ranges);
        }
    }
}

void Router::send_bootstrap_to(unsigned number, const Address &neighbour, const Bootstrap &message,
                               std::span<const BootstrapRangeOut> ranges)
{
    if (links_[number] != nullptr) {
        links_[number]->introduce(); // it takes a Bootstrap of a neighbour alone
        pieces_to(*links_[number], &neighbour, message, ranges);
    }
}

void Router::send_candidate(const Address &bsr, const CandidateRp &message,
                            std::span<const GroupRange> ranges)
{
    send_unicast(bsr, std::nullopt, [&](const Envelope &envelope) {
        return write_candidate(buffer_, envelope, message, ranges);
    });
}

} // namespace pimsmd
