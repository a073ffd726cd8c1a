/*
 * A scripted PIM client and a GMP client on a bench's router.
 */
#ifndef TESTS_DAEMONS_MRIBD_PIM_SUPPORT_H
#define TESTS_DAEMONS_MRIBD_PIM_SUPPORT_H

#include <gtest/gtest.h>
#include <optional>
#include <string>

#include "daemons/mribd/lost_clients.h"
#include "daemons/mribd/session.h"
#include "daemons/mribd_messages.h"

namespace mribd_test
{

// Fills the 16 bytes of an address in a record; empty text: any.
inline void put(uint8_t *bytes, const std::string &text)
{
    if (!text.empty()) {
        std::memcpy(bytes, address(text).address, 16);
    }
}

// Tells sessions what routers have to say to PIM daemons, as the channel's server does.
class SessionListener final : public mribd::PimListener
{
public:
    bool is_told(uint64_t events) const override
    {
        return std::any_of(sessions.begin(), sessions.end(),
                           [events](auto *one) { return one->is_told(events); });
    }
    void tell_member(const mribd::Router &router, uint32_t if_index, const MCAST_ADDR_S &group,
                     const MCAST_ADDR_S &source, bool exclude, const mribd::HostWish &wish) override
    {
        for (mribd::Session *one : sessions) {
            one->tell_member(router, if_index, group, source, exclude, wish);
        }
    }
    bool tell_source(const mribd::Router &router, const mribd::Entry &entry, mcastd::PimSourceState state,
                     uint32_t if_index) override
    {
        bool told = false;
        for (mribd::Session *one : sessions) {
            told |= one->tell_source(router, entry, state, if_index);
        }
        return told;
    }
    void tell_instance(const mribd::Router &router, bool served) override
    {
        for (mribd::Session *one : sessions) {
            one->tell_instance(router, served);
        }
    }

    std::vector<mribd::Session *> sessions;
};

class PimBench : public testing::TestWithParam<uint8_t>
{
protected:
    PimBench()
    {
        bench.environment.routes[source] = {1, false};
        bench.environment.routes[other_source] = {1, false};
        hosts.emplace(1, clients.backend, counters);
        pim.emplace(2, clients.backend, counters);
        introduce(*hosts);
        introduce(*pim);
        for (const uint32_t if_index : {2u, 3u, 4u}) {
            take(*hosts, Message().add_alert(MRIB_TLV_GMP_ENABLE, family, if_index, 1));
        }
    }

    void take(mribd::Session &session, const Message &message)
    {
        const auto bytes = message.bytes();
        session.take_message(bytes.data(), bytes.size(), false);
        bench.settle();
    }
    void introduce(mribd::Session &session)
    {
        take(session, Message().add_register(family));
    }

    mcastd::PimInterface interface_record(uint32_t if_index, uint8_t state) const
    {
        return {family, state, 0, if_index};
    }
    void interface(uint32_t if_index, uint8_t state)
    {
        take(*pim, Message().add(mcastd::PIM_TLV_INTERFACE, interface_record(if_index, state)));
    }
    void interfaces(uint8_t state)
    {
        for (const uint32_t if_index : {1u, 2u, 3u, 4u}) {
            interface(if_index, state);
        }
    }
    mcastd::PimTree tree_record(const std::string &of_source, uint8_t from, uint32_t if_index,
                                uint16_t flags) const
    {
        mcastd::PimTree value{};
        value.family = family;
        value.from = from;
        value.if_index = if_index;
        value.flags = flags;
        value.group_length = mcastd::address_bits(family);
        put(value.source, of_source);
        put(value.group, group);
        return value;
    }
    void tree(const std::string &of_source, uint8_t from, uint32_t if_index = 0, uint16_t flags = 0)
    {
        take(*pim, Message().add(mcastd::PIM_TLV_TREE, tree_record(of_source, from, if_index, flags)));
    }
    void range(uint8_t length, uint8_t from, uint32_t if_index = 0)
    {
        mcastd::PimTree value = tree_record("", from, if_index, 0);
        value.group_length = length;
        std::memset(value.group + length / 8, 0, 16 - length / 8);
        take(*pim, Message().add(mcastd::PIM_TLV_TREE, value));
    }
    void assertion(const std::string &of_source, uint32_t if_index, uint8_t state)
    {
        mcastd::PimAssert value{};
        value.family = family;
        value.state = state;
        value.if_index = if_index;
        put(value.source, of_source);
        put(value.group, group);
        take(*pim, Message().add(mcastd::PIM_TLV_ASSERT, value));
    }
    void join(mribd::Session &session, uint32_t if_index, const std::string &of_source = "", uint8_t join = 1,
              uint8_t exclude = 0)
    {
        take(session, Message().add_join(family, if_index, group, of_source, join, exclude));
    }
    void bracket(mribd::Session &session, uint16_t type)
    {
        take(session, Message().add(type, MRIB_SMOOTH_ALERT_S{family, {{0, 0, 0, 0, 0}}}));
    }
    Interfaces forwards() const
    {
        return bench.forwards(source, group);
    }
    uint64_t fault(mribd::Fault kind) const
    {
        return counters.faults[static_cast<size_t>(kind)];
    }

    const uint8_t family = GetParam();
    const bool is_v4 = family == MCAST_FAMILY_IPV4;
    const std::string group = is_v4 ? "239.1.1.1" : "ff1e::1";
    const std::string source = is_v4 ? "10.0.0.5" : "2001:db8::5";
    const std::string other_source = is_v4 ? "10.0.0.6" : "2001:db8::6";
    Bench bench{family};
    mribd::ChannelCounters counters;
    ClientBench clients{bench.router};
    std::optional<mribd::Session> hosts;
    std::optional<mribd::Session> pim;
};

} // namespace mribd_test

#endif
