/*
 * What stands in for the machine in mribd's tests: a kernel table that records, an environment made of tables
 * and timers whose time is scripted.
 */
#ifndef TESTS_DAEMONS_MRIBD_SUPPORT_H
#define TESTS_DAEMONS_MRIBD_SUPPORT_H

#include <algorithm>
#include <cerrno>
#include <map>
#include <set>
#include <string>
#include <utility>
#include <vector>

#include "daemons/common/address.h"
#include "daemons/common/log.h"
#include "daemons/mribd/address.h"
#include "daemons/mribd/session.h"
#include "support/scripted_timer.h"

namespace mribd_test
{

inline MCAST_ADDR_S address(const std::string &text)
{
    const auto parsed = mcastd::parse_address(text);
    if (!parsed) {
        std::abort();
    }
    return *parsed;
}

// Keeps what the kernel would keep and refuses what it would refuse.
class RecordingKernel final : public mribd::KernelTable
{
public:
    using Key = std::pair<std::string, std::string>; // source, group
    struct Installed {
        unsigned parent;
        uint32_t outgoing;
        bool operator==(const Installed &) const = default;
    };

    int add_vif(unsigned vif, uint32_t if_index) override
    {
        if (refused_interfaces.contains(if_index)) {
            return EADDRNOTAVAIL;
        }
        return vifs.emplace(vif, if_index).second ? 0 : EADDRINUSE;
    }

    int delete_vif(unsigned vif) override
    {
        for (const auto &[key, entry] : entries) {
            if ((entry.outgoing >> vif & 1) != 0 || entry.parent == vif) {
                ++dangling; // the number may get a new meaning while an entry uses it
            }
        }
        return vifs.erase(vif) == 1 ? 0 : EADDRNOTAVAIL;
    }

    int set_entry(const MCAST_ADDR_S &source, const MCAST_ADDR_S &group, unsigned parent,
                  uint32_t outgoing) override
    {
        if (next_set_error != 0) {
            return std::exchange(next_set_error, 0);
        }
        ++sets;
        entries[{mribd::text_or_star(source), mribd::text_or_star(group)}] = {parent, outgoing};
        return 0;
    }

    int delete_entry(const MCAST_ADDR_S &source, const MCAST_ADDR_S &group) override
    {
        ++deletes;
        return entries.erase({mribd::text_or_star(source), mribd::text_or_star(group)}) == 1 ? 0 : ENOENT;
    }

    std::optional<mribd::EntryCounters> counters(const MCAST_ADDR_S &source,
                                                 const MCAST_ADDR_S &group) override
    {
        const Key key{mribd::text_or_star(source), mribd::text_or_star(group)};
        if (!entries.contains(key)) {
            return std::nullopt;
        }
        const auto count_of = [&key](const std::map<Key, uint64_t> &counts) {
            const auto found = counts.find(key);
            return found == counts.end() ? 0 : found->second;
        };
        return mribd::EntryCounters{count_of(packets), 0, count_of(wrong_interface)};
    }

    uint64_t lost_upcalls() const override
    {
        return lost;
    }

    bool has(const std::string &source, const std::string &group) const
    {
        return entries.contains({source, group});
    }

    std::map<unsigned, uint32_t> vifs;
    std::map<Key, Installed> entries;
    std::map<Key, uint64_t> packets;
    std::map<Key, uint64_t> wrong_interface; // of these packets
    std::set<uint32_t> refused_interfaces;
    int next_set_error = 0;
    int sets = 0;
    int deletes = 0;
    int dangling = 0;
    uint64_t lost = 0;
};

class TableEnvironment final : public mribd::Environment
{
public:
    std::vector<uint32_t> multicast_interfaces(uint16_t vrf_index) const override
    {
        std::vector<uint32_t> result(interfaces.begin(), interfaces.end());
        std::erase_if(result, [&](uint32_t if_index) { return instance_of(if_index) != vrf_index; });
        return result;
    }

    std::optional<uint16_t> instance_of(uint32_t if_index) const override
    {
        const auto found = instances.find(if_index);
        return found == instances.end() ? uint16_t{0} : found->second;
    }

    std::string interface_name(uint32_t if_index) const override
    {
        return "if" + std::to_string(if_index);
    }

    // "if1" to "if4", and what names says.
    uint32_t interface_index(const std::string &name) const override
    {
        const auto found = names.find(name);
        if (found != names.end()) {
            return found->second;
        }
        return name.starts_with("if") ? static_cast<uint32_t>(std::atoi(name.c_str() + 2)) : 0;
    }

    bool is_on_link(uint32_t if_index, const MCAST_ADDR_S &source) const override
    {
        return on_link.contains({if_index, mribd::text_or_star(source)});
    }

    std::string obstacle(uint8_t, uint32_t) const override
    {
        return "";
    }

    // Routes of an instance are entered as "5:10.0.0.1", those of the public one without a number.
    Route route_to(uint16_t vrf_index, const MCAST_ADDR_S &source) const override
    {
        ++lookups;
        const std::string prefix = vrf_index == 0 ? "" : std::to_string(vrf_index) + ":";
        const auto found = routes.find(prefix + mribd::text_or_star(source));
        return found == routes.end() ? Route{} : found->second;
    }

    std::set<uint32_t> interfaces;
    std::map<uint32_t, uint16_t> instances; // of interfaces that are not in the public one
    std::map<std::string, uint32_t> names;
    std::set<std::pair<uint32_t, std::string>> on_link;
    std::map<std::string, Route> routes;
    mutable int lookups = 0;
};

// The library's timers on scripted time.
class ScriptedTimers
{
public:
    ScriptedTimers()
        : manager_(MCAST_TMR_Create(
              scripted_timer::Service(), [](uint64_t *) {}, nullptr))
    {
        scripted_timer::platform.record = false;
    }
    ~ScriptedTimers()
    {
        MCAST_TMR_Destroy(manager_);
    }
    ScriptedTimers(const ScriptedTimers &) = delete;
    ScriptedTimers &operator=(const ScriptedTimers &) = delete;

    MCAST_TMR_S *manager() const
    {
        return manager_;
    }

    void pass(uint32_t seconds)
    {
        for (uint32_t i = 0; i < seconds; ++i) {
            scripted_timer::Advance(1);
            MCAST_TMR_ProcExpires(manager_);
        }
    }

    // Whether a timer ends within this time.
    bool ends_within(uint32_t seconds) const
    {
        const auto *top = static_cast<const MCAST_TMR_NODE_S *>(MCAST_MinHeapTop(manager_->heap));
        return top != nullptr && top->expiry <= mcastd::boot_time_s() + seconds;
    }

private:
    MCAST_TMR_S *manager_;
};

// A router of interfaces 1 to 4, all of its instance, among such stand-ins.
struct Bench {
    static constexpr uint32_t IDLE_PERIOD_S = 210;

    explicit Bench(uint8_t family = MCAST_FAMILY_IPV4, uint32_t entry_limit = 100, uint16_t vrf_index = 0,
                   size_t member_limit = mribd::MemberBudget::DEFAULT_TOTAL)
        : budget(member_limit), router(mribd::instance_key(family, vrf_index), kernel, environment, budget,
                                       timers.manager(), {entry_limit, IDLE_PERIOD_S})
    {
        mcastd::log_open("mribd", mcastd::LogLevel::Error);
        environment.interfaces = {1, 2, 3, 4};
        for (const uint32_t if_index : environment.interfaces) {
            environment.instances[if_index] = vrf_index;
        }
    }

    void settle()
    {
        while (router.settle()) {
        }
    }

    // Ends the idle period of every entry that there is.
    void pass_idle_period()
    {
        timers.pass(IDLE_PERIOD_S);
    }

    void join(mribd::ClientId client, uint32_t if_index, const std::string &group,
              const std::string &source = "")
    {
        set(client, if_index, group, source, mribd::MemberTable::Kind::Join, true);
    }

    void prune(mribd::ClientId client, uint32_t if_index, const std::string &group,
               const std::string &source = "")
    {
        set(client, if_index, group, source, mribd::MemberTable::Kind::Join, false);
    }

    void set(mribd::ClientId client, uint32_t if_index, const std::string &group, const std::string &source,
             mribd::MemberTable::Kind kind, bool present)
    {
        router.set_member(client, if_index, address(group),
                          source.empty() ? mribd::any_address(router.family()) : address(source), kind,
                          present);
        settle();
    }

    // A packet of a new source arrives.
    void packet(uint32_t if_index, const std::string &source, const std::string &group,
                mribd::UpcallKind kind = mribd::UpcallKind::NoEntry)
    {
        router.take_upcall(
            {kind, static_cast<unsigned>(router.vifs().find(if_index)), address(source), address(group)});
        settle();
    }

    // Source number number of interface 1 sends.
    void show_local_source(unsigned number)
    {
        const std::string source =
            "10.1." + std::to_string(number / 250 % 250) + "." + std::to_string(number % 250);
        environment.on_link.insert({1, source});
        settle(); // the interface may just have become one to watch
        packet(1, source, "239.1.1." + std::to_string(number / 62500));
    }

    // The interfaces to which the kernel forwards, -1 alone without an entry.
    std::vector<int> forwards(const std::string &source, const std::string &group) const
    {
        const auto found = kernel.entries.find({source, group});
        if (found == kernel.entries.end()) {
            return {-1};
        }
        std::vector<int> result;
        for (unsigned vif = 0; vif < mribd::MAX_VIFS; ++vif) {
            if ((found->second.outgoing >> vif & 1) != 0) {
                result.push_back(static_cast<int>(kernel.vifs.at(vif)));
            }
        }
        std::sort(result.begin(), result.end());
        return result;
    }

    // The interface from which the kernel takes the packets, 0 without an entry.
    uint32_t takes_from(const std::string &source, const std::string &group) const
    {
        const auto found = kernel.entries.find({source, group});
        return found == kernel.entries.end() ? 0 : kernel.vifs.at(found->second.parent);
    }

    RecordingKernel kernel;
    TableEnvironment environment;
    ScriptedTimers timers;
    mribd::MemberBudget budget;
    mribd::Router router;
};

// The interfaces that want packets of (source, group), ascending, each once.
inline std::vector<uint32_t> receivers(const mribd::MemberTable &table, const MCAST_ADDR_S &group,
                                       const MCAST_ADDR_S &source)
{
    std::set<uint32_t> result;
    table.visit_receivers(group, source, [&result](uint32_t if_index) { result.insert(if_index); });
    return {result.begin(), result.end()};
}

// The interfaces for which something is reported, ascending.
inline std::vector<uint32_t> interfaces_of(const mribd::MemberTable &table)
{
    std::set<uint32_t> result;
    table.visit_from(nullptr, nullptr,
                     [&result](const MCAST_ADDR_S &, const MCAST_ADDR_S &, const auto &wishes) {
                         for (const mribd::Wish &wish : wishes) {
                             result.insert(wish.if_index);
                         }
                         return true;
                     });
    return {result.begin(), result.end()};
}

// What sessions work on, over a bench's router.
struct ClientBench {
    explicit ClientBench(mribd::Router &router, uint32_t most_sources = 5)
        : routers(router), current_view(routers),
          msdp(router, most_sources), backend{routers, current_view, msdp, users, budget}
    {
    }

    // As a configuration file with this text for [mribd] does. Throws for a wrong one.
    void configure(const std::string &text)
    {
        const std::string file = "file";
        const host::ConfigDocument document(file, text);
        mcastd::ConfigTable root = document.root();
        mcastd::ConfigTable table = root.table("mribd");
        const mribd::Config config = mribd::read_config(table);
        table.finish();
        current_view.configure(config);
        msdp.configure(config);
    }

    mribd::Routers routers;
    mribd::CurrentView current_view;
    mribd::MsdpExchange msdp;
    mribd::UserRegistry users;
    mribd::MemberBudget budget; // shown only
    mribd::Backend backend;
};

using Interfaces = std::vector<int>;

} // namespace mribd_test

#endif
