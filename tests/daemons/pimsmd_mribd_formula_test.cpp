/*
 * The trees of pimsmd and the router of mribd in one process, joined by the records of the channel: after each random step of
 * messages, hosts, packets, asserts, routes and time the kernel's entries are what the sets of RFC 7761 make of the inputs.
 * Either side dies now and then, and the other one tells it everything anew.
 *
 *      RandomTrees ──► MribTeller ── records ──► Session ──► mribd's Router ──► kernel that records
 *           │                                                      ▲                     ║ the same
 *           └── hosts ─────────────────────────── records ─────────┘      Model ──► naive sets
 */
#include <bit>
#include <gtest/gtest.h>

#include "daemons/mribd_messages.h"
#include "daemons/pimsmd/mrib_teller.h"
#include "tests/daemons/pimsmd_random_trees.h"

using namespace pimsmd_test;

namespace
{

constexpr uint8_t V4 = MCAST_FAMILY_IPV4;
constexpr mribd::ClientId HOSTS = 1;

uint32_t interface_of_link(unsigned link)
{
    return link + 1;
}

// mribd with its clients.
struct Mribd {
    Mribd()
    {
        for (unsigned link = 0; link < LINKS; ++link) {
            bench.environment.interfaces.insert(interface_of_link(link));
            bench.environment.instances[interface_of_link(link)] = 0;
        }
        bench.router.links_changed();
        bench.settle();
        introduce(hosts);
        for (unsigned link = 0; link < LINKS; ++link) {
            take(hosts, mribd_test::Message().add_alert(MRIB_TLV_GMP_ENABLE, V4, interface_of_link(link), 1));
        }
        for (const std::string &source : SOURCES) {
            bench.environment.routes[source] = {1, false};
        }
    }
    void introduce(mribd::Session &session)
    {
        take(session, mribd_test::Message().add_register(V4));
    }
    void take(mribd::Session &session, const mribd_test::Message &message)
    {
        const auto bytes = message.bytes();
        session.take_message(bytes.data(), bytes.size(), false);
        bench.settle();
    }

    mribd_test::Bench bench{V4};
    mribd_test::ClientBench clients{bench.router, 1000};
    mribd::ChannelCounters counters;
    mribd::Session hosts{HOSTS, clients.backend, counters};
};

class Joined final : private pimsmd::MribRecords, private pimsmd::TellerSurroundings
{
public:
    explicit Joined(uint64_t seed) : random_(seed), trees_(seed, true)
    {
        trees_.lab().told = &teller_;
        for (unsigned link = 0; link < LINKS; ++link) {
            teller_.link_came(link);
        }
        mribd_starts();
    }

    void step()
    {
        trees_.step();
        if (random_.OneIn(40)) {
            mribd_starts();
        } else if (random_.OneIn(40)) {
            pimsmd_connects();
        }
        tell_hosts();
        do {
            had_room_ = false;
            teller_.tell(*this, 3);
        } while (!had_room_ || teller_.waiting() != 0 || !teller_.is_complete());
        mribd_->bench.settle();
    }

    void check()
    {
        for (const std::string &group : GROUPS) {
            for (const std::string &source : SOURCES) {
                if (!mribd_->bench.kernel.has(source, group)) {
                    mribd_->bench.packet(1 + random_.Below(LINKS), source, group);
                }
                check_entry(group, source);
            }
        }
        for (size_t fault = 0; fault < std::size(mribd_->counters.faults); ++fault) {
            EXPECT_EQ(mribd_->counters.faults[fault], 0u) << "fault " << fault;
        }
    }

private:
    // A new process: it has heard nothing of either side.
    void mribd_starts()
    {
        pim_.reset();
        mribd_ = std::make_unique<Mribd>();
        hosts_told_.clear();
        pimsmd_connects();
    }

    // As a new process of pimsmd does, or an old one whose connection broke.
    void pimsmd_connects()
    {
        pim_.reset();
        pim_.emplace(++last_client_, mribd_->clients.backend, mribd_->counters);
        mribd_->introduce(*pim_);
        teller_.start_over();
    }

    // What hosts want, as gmpd says it: lines "group source interface exclude".
    void tell_hosts()
    {
        std::map<std::string, mribd_test::Message> now;
        const auto add = [&](const std::set<unsigned> &links, const std::string &group,
                             const std::string &source, uint8_t exclude) {
            for (const unsigned link : links) {
                mribd_test::Message message;
                message.add_join(V4, interface_of_link(link), group, source, 1, exclude);
                now.emplace(group + " " + source + " " + std::to_string(link) + " " + std::to_string(exclude),
                            message);
                mribd_test::Message end;
                end.add_join(V4, interface_of_link(link), group, source, 0, exclude);
                ends_.insert_or_assign(
                    group + " " + source + " " + std::to_string(link) + " " + std::to_string(exclude), end);
            }
        };
        for (const auto &[group, inputs] : trees_.inputs()) {
            add(inputs.receivers, group, "", 0);
            for (const auto &[source, of_source] : inputs.sources) {
                add(of_source.receivers, group, source, 0);
                add(of_source.excluded, group, source, 1);
            }
        }
        for (const std::string &before : hosts_told_) {
            if (!now.contains(before)) {
                mribd_->take(mribd_->hosts, ends_.at(before));
            }
        }
        for (const auto &[line, message] : now) {
            if (!hosts_told_.contains(line)) {
                mribd_->take(mribd_->hosts, message);
            }
        }
        hosts_told_.clear();
        for (const auto &[line, message] : now) {
            hosts_told_.insert(line);
        }
    }

    void check_entry(const std::string &group, const std::string &source)
    {
        const Model m = trees_.model(group, source);
        const pimsmd::SourceEntry *entry = trees_.lab().trees.find(addr(group.c_str()), addr(source.c_str()));
        const bool is_said = trees_.lab().trees.find(addr(group.c_str())) != nullptr;
        const bool own_tree = m.spt_bit;
        const bool of_link = own_tree || (m.connected && m.keepalive);
        const bool from_registers = !of_link && trees_.lab().is_rp;
        const std::optional<int> from = of_link ? m.rpf_source : m.rpf_rp;
        Set expected = own_tree ? inherited_source(m) : inherited_rpt(m);
        std::set<uint32_t> interfaces;
        if (from) {
            expected.erase(*from);
        } else if (!from_registers && is_said) {
            expected.clear(); // they come from nowhere
        }
        for (const int link : expected) {
            interfaces.insert(interface_of_link(static_cast<unsigned>(link)));
        }
        if (entry != nullptr && entry->registers_to()) {
            interfaces.insert(mcastd::PIM_REGISTER_INTERFACE);
        }
        const auto &kernel = mribd_->bench.kernel;
        const auto found = kernel.entries.find({source, group});
        std::set<uint32_t> forwarded;
        for (uint32_t left = found != kernel.entries.end() ? found->second.outgoing : 0; left != 0;
             left &= left - 1) {
            forwarded.insert(kernel.vifs.at(static_cast<unsigned>(std::countr_zero(left))));
        }
        EXPECT_EQ(forwarded, interfaces) << group << " " << source;
        if (!forwarded.empty() && is_said) {
            EXPECT_EQ(kernel.vifs.at(found->second.parent),
                      from_registers ? mcastd::PIM_REGISTER_INTERFACE
                                     : interface_of_link(static_cast<unsigned>(from.value_or(-1))))
                << group << " " << source;
        }
    }

    bool has_room() override
    {
        const bool has = !random_.OneIn(8);
        had_room_ |= has;
        return has;
    }
    void append(uint16_t type, std::span<const uint8_t> value) override
    {
        std::vector<uint8_t> bytes(MRIB_MSG_RECV_MAX);
        uint32_t used = MRIB_MsgReset(bytes.data(), 9);
        std::memcpy(
            MRIB_MsgAppend(bytes.data(), &used, bytes.size(), type, static_cast<uint16_t>(value.size())),
            value.data(), value.size());
        pim_->take_message(bytes.data(), used, false);
    }
    void join_prune(uint32_t if_index, const Address &group, const Address &source, uint8_t join,
                    uint8_t exclude) override
    {
        mribd_->take(*pim_, mribd_test::Message().add_join(V4, if_index, address_text(group),
                                                           is_unspecified(source) ? "" : address_text(source),
                                                           join, exclude));
    }
    uint32_t interface_of(unsigned link) const override
    {
        return link < LINKS ? interface_of_link(link) : 0;
    }
    std::optional<pimsmd::Tunnel> tunnel_to(const Address &rp, unsigned link) override
    {
        return pimsmd::Tunnel{TreeLab::own(link), rp, 0, 1500};
    }

    property::Random random_;
    RandomTrees trees_;
    pimsmd::RegisterTunnels tunnels_{V4};
    pimsmd::MribTeller teller_{0, trees_.lab().trees, *this, tunnels_};
    std::unique_ptr<Mribd> mribd_;
    std::optional<mribd::Session> pim_;
    mribd::ClientId last_client_ = HOSTS;
    bool had_room_ = false;
    std::set<std::string> hosts_told_;
    std::map<std::string, mribd_test::Message> ends_;
};

} // namespace

TEST(PimFormula, KernelForwardsWhatTheSetsOfTheRfcSay)
{
    constexpr uint64_t LIFE = 150;
    const uint64_t seed = property::Seed("formula");
    const uint64_t steps = property::Operations(3000);
    for (uint64_t begun = 0; begun < steps; begun += LIFE) {
        Joined both(seed + begun);

        for (uint64_t step = 0; step < LIFE; ++step) {
            both.step();
            both.check();
            if (testing::Test::HasFailure()) {
                FAIL() << "step " << begun + step;
            }
        }
    }
}
