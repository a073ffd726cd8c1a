#include "tests/simulation/network/querier.h"

namespace sim
{
namespace
{

// The protocol's defaults.
constexpr Ns QUERY_INTERVAL = 125 * SECOND;
constexpr Ns RESPONSE_TIME = 10 * SECOND;
constexpr Ns OTHER_QUERIER_PRESENT = 2 * QUERY_INTERVAL + RESPONSE_TIME / 2;

} // namespace

Querier::Querier(Kernel &kernel, Link &link, std::string its_name, const Host::Addresses &addresses,
                 unsigned its_version)
    : name(std::move(its_name)), version(its_version), kernel_(kernel), link_(link), addresses_(addresses)
{
    link.queriers.push_back(this);
}

void Querier::switch_on(bool on)
{
    if (on_ == on) {
        return;
    }
    on_ = on;
    ++turn_;
    silent_until_.clear();
    if (on) {
        ask(AF_INET, turn_);
        ask(AF_INET6, turn_);
    }
}

void Querier::ask(int family, uint64_t turn)
{
    if (turn != turn_ || !on_) {
        return;
    }
    const Ns now = kernel_.clock.now();
    if (silent_until_[family] > now) {
        kernel_.clock.at(silent_until_[family], [this, family, turn] { ask(family, turn); });
        return;
    }
    const unsigned oldest = family == AF_INET ? 1 : 2;
    link_.send(*this, general_query_packet(address(family), std::max(version, oldest), RESPONSE_TIME));
    kernel_.clock.after(QUERY_INTERVAL, [this, family, turn] { ask(family, turn); });
}

void Querier::hear(const Packet &packet)
{
    const auto query = read_query(packet.bytes);
    if (on_ && query && query->from < address(packet.family)) {
        silent_until_[packet.family] = kernel_.clock.now() + OTHER_QUERIER_PRESENT;
    }
}

} // namespace sim
