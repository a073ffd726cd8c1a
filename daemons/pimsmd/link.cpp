#include "daemons/pimsmd/link.h"

#include <algorithm>
#include <array>

#include "daemons/pimsmd/config.h"
#include "daemons/pimsmd/message_type.h"

namespace pimsmd
{
namespace
{

constexpr uint64_t MS_PER_S = 1000;

// Enough for a Hello with as many addresses as there may be in one.
constexpr size_t MOST_HELLO = 2048;
constexpr size_t MOST_OTHERS = 64;

// The smallest MTU of the family's links, below which IP cuts messages all the same.
constexpr size_t least_mtu(uint16_t family)
{
    return family == MCAST_FAMILY_IPV4 ? 576 : 1280;
}

Address all_pim_routers(uint16_t family)
{
    return family == MCAST_FAMILY_IPV4 ? g_stPimAllRoutersAddr4 : g_stPimAllRoutersAddr6;
}

bool same_addresses(const std::vector<Address> &first, const std::vector<Address> &second)
{
    return std::equal(first.begin(), first.end(), second.begin(), second.end(), same_address);
}

} // namespace

bool LinkState::operator==(const LinkState &other) const
{
    return if_index == other.if_index && name == other.name && mtu == other.mtu &&
           same_address(address, other.address) && same_addresses(others, other.others);
}

Link::Link(unsigned number, MsQueue &queue, Transmitter &transmitter, LinkOwner &owner,
           const LinkState &state, const HelloSettings &settings)
    : number_(number), queue_(queue), transmitter_(transmitter), owner_(owner), state_(state),
      settings_(settings), generation_(owner.draw(UINT32_MAX)),
      neighbours_(queue, neighbour_settings(), *this)
{
    say_soon();
}

LinkSettings Link::neighbour_settings() const
{
    LinkSettings settings;
    settings.name = state_.name;
    settings.address = state_.address;
    settings.dr_priority = settings_.dr_priority;
    settings.lan_delay = settings_.lan_delay;
    settings.most_neighbours = settings_.most_neighbours;
    return settings;
}

void Link::set(const LinkState &state, const HelloSettings &settings)
{
    const bool says_other = settings.dr_priority != settings_.dr_priority ||
                            settings.hello_s != settings_.hello_s ||
                            settings.lan_delay.override_ms != settings_.lan_delay.override_ms ||
                            settings.lan_delay.propagation_ms != settings_.lan_delay.propagation_ms ||
                            !same_addresses(state.others, state_.others);
    state_ = state;
    settings_ = settings;
    neighbours_.set(neighbour_settings());
    if (says_other) {
        say_hello(hold_of_period(settings_.hello_s));
    }
}

void Link::say_goodbye()
{
    say_hello(0);
    queue_.stop(hello_);
}

Count Link::heard(const Address &sender, const Hello &hello)
{
    return neighbours_.heard(sender, hello, counters_);
}

void Link::introduce()
{
    if (owed_) {
        say_hello(hold_of_period(settings_.hello_s));
    }
}

void Link::send_to_all(std::span<const uint8_t> message)
{
    if (message.empty()) {
        ++counters_[Count::SendFailed];
        return;
    }
    transmitter_.send(state_.if_index, envelope(), message);
}

Envelope Link::envelope() const
{
    return {state_.address, all_pim_routers(state_.address.family)};
}

size_t Link::room() const
{
    const uint16_t family = state_.address.family;
    const size_t header = family == MCAST_FAMILY_IPV4 ? IPV4_HEADER_SIZE : IPV6_HEADER_SIZE;
    return std::clamp<size_t>(state_.mtu, least_mtu(family), MAX_MESSAGE_SIZE) - header;
}

void Link::neighbour_up(const Neighbour &neighbour)
{
    say_soon();
    owner_.neighbour_came(number_, neighbour);
}

void Link::neighbour_restarted(const Neighbour &neighbour)
{
    say_soon();
    owner_.neighbour_restarted(number_, neighbour);
}

void Link::neighbour_down(const Neighbour &neighbour)
{
    owner_.neighbour_left(number_, neighbour);
}

void Link::dr_changed(const Address &)
{
    owner_.dr_changed(number_);
}

void Link::hello_due(void *self)
{
    auto &link = *static_cast<Link *>(self);
    link.say_hello(hold_of_period(link.settings_.hello_s));
}

void Link::say_soon()
{
    const uint32_t most =
        static_cast<uint32_t>(std::min<uint64_t>(TRIGGERED_HELLO_MS, settings_.hello_s * MS_PER_S));
    const uint32_t delay = owner_.draw(most);
    owed_ = true;
    if (hello_.running()) {
        queue_.lower(hello_, delay);
    } else {
        queue_.start(hello_, delay, hello_due, this);
    }
}

void Link::say_hello(uint16_t holdtime_s)
{
    std::array<uint8_t, MOST_HELLO> buffer;
    Hello hello;
    hello.holdtime_s = holdtime_s;
    hello.lan_delay = settings_.lan_delay;
    hello.dr_priority = settings_.dr_priority;
    hello.generation = generation_;
    const std::span<const Address> others =
        std::span(state_.others).first(std::min(state_.others.size(), MOST_OTHERS));
    const size_t size = write_hello(buffer, envelope(), hello, others);
    owed_ = false;
    queue_.start(hello_, settings_.hello_s * MS_PER_S, hello_due, this);
    send_to_all(std::span(buffer).first(size));
}

} // namespace pimsmd
