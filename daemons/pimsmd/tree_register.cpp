/*
 * Sources that the RP hears of by Registers (RFC 7761, sections 4.2.1 and 4.4), at both ends.
 *
 *      designated router of the source           RP of the group
 *        packet ── Register ────────────────────►  down the shared tree; or over the source's own tree
 *        no Registers for a minute ◄── Stop ─────  when packets come that way, or nobody wants them
 *        null Register ─────────────────────────►  the source is still there
 *
 * The RP keeps a source for as long as its keepalive runs, longer than a Stop counts: whoever joins the group meanwhile
 * gets it at once. It keeps nothing of a source that it does not want over its own tree.
 *
 * A router that is both ends sends itself nothing: packets of its own links go down the shared tree as they come, and
 * the source's entry is there for those who join.
 *
 * Two things limit what others can cause. Registers make at most so many sources; one more gets the same answer, but is
 * forgotten until its next null Register. Registers and Stops have a rate; a Stop that is held back is owed to the next
 * Register. Null Registers have none, since a source makes one in some 30 s.
 */
#include "daemons/pimsmd/tree_register.h"

#include <algorithm>

#include "daemons/pimsmd/tree.h"

namespace pimsmd
{
namespace
{

constexpr uint32_t MS_PER_S = 1000;

} // namespace

SourceRegister::SourceRegister(SourceEntry &of, const Address &with)
    : source(of), rp(with), machine(of.trees.queue(), *this)
{
}

void SourceRegister::set_tunnel(bool)
{
    update_tunnel();
}

void SourceRegister::update_tunnel()
{
    source.tunnel_changed = true;
    source.trees.mark(source);
}

void SourceRegister::send_null_register()
{
    source.trees.surroundings().send_null_register(rp, source.group.address(), source.address());
}

// Half the suppression time to one and a half, without the time of the probe that follows it.
uint32_t SourceRegister::draw_suppression_ms()
{
    const uint32_t middle_ms = source.trees.settings().register_suppression_s * MS_PER_S;
    const uint32_t drawn_ms = middle_ms / 2 + source.trees.surroundings().random(middle_ms);
    return drawn_ms - std::min(drawn_ms, probe_ms());
}

uint32_t SourceRegister::probe_ms()
{
    return source.trees.settings().register_probe_s * MS_PER_S;
}

void SourceEntry::settle_register()
{
    using registers::Event;
    const std::optional<Address> rp = group.rp;
    const bool could = view().could_register() && rp && !trees.surroundings().is_own(*rp);

    if (!could && registering) {
        registering->machine.take(Event::CouldNotRegister);
        registering.reset();
    } else if (could && !registering) {
        registering = std::make_unique<SourceRegister>(*this, *rp);
        registering->machine.take(Event::CouldRegister);
    } else if (could && !same_address(registering->rp, *rp)) {
        registering->rp = *rp;
        registering->machine.take(Event::RpChanged);
    }
}

std::optional<Address> SourceEntry::registers_to() const
{
    const bool on = registering && registering->machine.state() == registers::State::Join;
    return on ? std::optional(registering->rp) : std::nullopt;
}

void Trees::register_stop_heard(const Address &sender, const RegisterStop &message)
{
    bool is_asked_for = false;
    const auto stop = [&](SourceEntry &source) {
        const bool is_meant =
            is_unspecified(message.source) || same_address(message.source, source.address());

        if (is_meant && source.registering && same_address(source.registering->rp, sender)) {
            is_asked_for = true;
            source.registering->machine.take(registers::Event::Stop);
        }
    };
    const GroupEntry *group = group_of(message.group);

    if (group != nullptr && is_unspecified(message.source)) {
        visit_sources(*group, stop);
    } else if (group != nullptr) {
        SourceEntry *source = source_of(*group, message.source);

        if (source != nullptr) {
            stop(*source);
        }
    }
    if (!is_asked_for) {
        ++counters_[Count::OtherStop];
    }
}

// Whether it went out.
bool Trees::stop_register(const Envelope &outer, const Register &message)
{
    if (!stops_.take(outer.source, queue_.now_ms())) {
        ++counters_[Count::StopRate];
        return false;
    }
    surroundings_.send_register_stop(outer.destination, outer.source, message.group, message.source);
    return true;
}

SourceEntry *Trees::make_registered(const Address &group, const Address &address)
{
    if (registered_ >= settings_.most_registered) {
        ++counters_[Count::RegisteredLimit];
        return nullptr;
    }
    SourceEntry *source = make_source(group, address);
    if (source != nullptr) {
        source->registered = true;
        ++registered_;
        mark(*source);
    }
    return source;
}

bool Trees::register_heard(const Envelope &outer, const Register &message)
{
    if (!surroundings_.is_own(outer.destination)) {
        ++counters_[Count::RegisterDestination];
        return false;
    }
    const std::optional<Address> rp = surroundings_.rp_of(message.group);
    if (!rp || !same_address(*rp, outer.destination)) {
        ++counters_[Count::NotRp];
        stop_register(outer, message);
        return false;
    }
    const bool switches = surroundings_.switches_to_spt(message.group, message.source);
    const GroupEntry *group = group_of(message.group);
    SourceEntry *source = group != nullptr ? source_of(*group, message.source) : nullptr;

    if (switches && (source == nullptr || !source->registered)) {
        SourceEntry *registered = make_registered(message.group, message.source);
        source = registered != nullptr ? registered : source;
        group = group_of(message.group);
    }
    const StarState no_group;
    const SourceState no_source;
    const SourceView view = source != nullptr
                                ? source->view()
                                : SourceView(group != nullptr ? group->words : no_group, no_source, roles_);
    const bool spt_bit = source != nullptr && source->words.spt_bit;
    const bool stop = spt_bit || (switches && view.inherited_olist() == 0);
    const bool stopped = stop && stop_register(outer, message);
    const uint32_t rp_keepalive_s = 3 * settings_.register_suppression_s + settings_.register_probe_s;

    if (source != nullptr && (spt_bit || switches)) {
        source->packet_came((stopped ? rp_keepalive_s : settings_.keepalive_s) * MS_PER_S);
    }
    if (spt_bit || message.null) {
        return false;
    }
    if (source != nullptr) {
        check_switch(*source); // as any other packet over the shared tree
    }
    return true;
}

// At a router of hosts that want the packets, a keepalive makes the switch to the source's own tree.
void Trees::check_switch(SourceEntry &source)
{
    if (source.view().hosts() != 0 &&
        surroundings_.switches_to_spt(source.group.address(), source.address())) {
        source.packet_came(settings_.keepalive_s * MS_PER_S);
    }
}

} // namespace pimsmd
