#include "tests/simulation/network/link.h"

#include <algorithm>

#include "tests/simulation/network/host.h"
#include "tests/simulation/network/querier.h"

namespace sim
{
namespace
{

constexpr Ns ORDINARY_DELAY = 5 * MILLISECOND;

} // namespace

void Link::detach(const Machine &machine)
{
    std::erase_if(attached_, [&machine](const Attachment &each) { return each.machine == &machine; });
}

uint32_t Link::if_index_of(const Machine &machine) const
{
    for (const Attachment &each : attached_) {
        if (each.machine == &machine) {
            return each.if_index;
        }
    }
    return 0;
}

void Link::later(std::function<void()> act)
{
    const Ns limit = std::max(delay, ORDINARY_DELAY);
    const bool lost = kernel_.draw.chance(Stream::Delivery, number_, loss);
    const bool twice = kernel_.draw.chance(Stream::Delivery, number_, duplication);
    if (lost) {
        return;
    }
    for (int copies = twice ? 2 : 1; copies > 0; --copies) {
        kernel_.clock.after(kernel_.draw.below(Stream::Delivery, number_, limit), act);
    }
}

// Checksums cover one bit wherever it matters, so that a damaged packet is as good as lost.
Packet Link::damaged(Packet packet)
{
    const uint64_t bit = kernel_.draw.below(Stream::Fault, number_, packet.bytes.size() * 9);
    if (bit < packet.bytes.size() * 8) {
        packet.bytes[bit / 8] ^= static_cast<uint8_t>(1u << bit % 8);
    } else {
        packet.bytes.resize(bit - packet.bytes.size() * 8);
    }
    return packet;
}

// To everybody but the one that it is from. Hosts and queriers check nothing and hear no damaged packet.
void Link::deliver(const void *from, const Packet &packet)
{
    const auto query = read_query(packet.bytes);
    if (query && query->group.family == AF_UNSPEC) {
        asked_[query->from] = kernel_.clock.now();
    }
    const bool is_damaged = kernel_.draw.chance(Stream::Fault, number_, damage);
    for (const Attachment &each : attached_) {
        if (each.machine != from) {
            const Packet arrives = is_damaged ? damaged(packet) : packet;
            later([each, arrives] { each.machine->arrive(each.if_index, arrives); });
        }
    }
    if (is_damaged) {
        return;
    }
    for (Host *host : hosts) {
        if (host != from) {
            later([host, packet] { host->hear(packet); });
        }
    }
    for (Querier *querier : queriers) {
        if (querier != from) {
            later([querier, packet] { querier->hear(packet); });
        }
    }
}

void Link::carry(Machine &from, uint32_t, const Packet &packet)
{
    deliver(&from, packet);
}

// A packet that is lost finds nobody.
Machine *Link::neighbour(const Machine &from, const Address &address)
{
    for (const Attachment &each : attached_) {
        const Interface *interface = each.machine->find(each.if_index);
        if (each.machine != &from && interface != nullptr && interface->is_up &&
            std::any_of(interface->addresses.begin(), interface->addresses.end(),
                        [&address](const auto &its) { return its.address == address; })) {
            return kernel_.draw.chance(Stream::Tcp, 1000 + number_, loss) ? nullptr : each.machine;
        }
    }
    return nullptr;
}

void Link::send(const Host &from, Bytes packet)
{
    deliver(&from, {packet[0] >> 4 == 4 ? AF_INET : AF_INET6, std::move(packet)});
}

void Link::send(const Querier &from, Bytes packet)
{
    deliver(&from, {packet[0] >> 4 == 4 ? AF_INET : AF_INET6, std::move(packet)});
}

void Link::carry(Machine &from, uint32_t, const Datum &datum)
{
    observer_.delivered(*this, from, datum);
    for (const Attachment &each : attached_) {
        if (each.machine != &from) {
            each.machine->arrive(each.if_index, datum);
        }
    }
}

void Link::send(const Datum &datum)
{
    for (const Attachment &each : attached_) {
        each.machine->arrive(each.if_index, datum);
    }
}

} // namespace sim
