/*
 * What the MRIB process is told, as lines of text: what mrib_teller.h says of the trees of a TreeLab.
 */
#ifndef TESTS_DAEMONS_PIMSMD_TOLD_H
#define TESTS_DAEMONS_PIMSMD_TOLD_H

#include <string>
#include <vector>

#include "daemons/pimsmd/mrib_listener.h"
#include "tests/daemons/pimsmd_tree_lab.h"

namespace pimsmd_test
{

// The interface of a link has its number and 100 more.
constexpr uint32_t FIRST_INTERFACE = 100;

struct ToldRecords final : pimsmd::MribRecords {
    size_t room = SIZE_MAX; // records that are taken
    std::vector<std::string> lines;

    bool has_room() override
    {
        return room > 0;
    }
    void note(const std::string &line)
    {
        room -= room > 0 ? 1 : 0;
        lines.push_back(line);
    }
    template <typename Value> static Value read(std::span<const uint8_t> bytes)
    {
        Value value;
        EXPECT_EQ(bytes.size(), sizeof(value));
        std::memcpy(&value, bytes.data(), sizeof(value));
        EXPECT_EQ(mcastd::check_pim(value.family, value), mcastd::PimFault::None);
        return value;
    }
    static std::string pair(uint8_t family, const uint8_t *source, const uint8_t *group)
    {
        const Address from = mcastd::make_address(family, source);
        return (is_unspecified(from) ? "*" : address_text(from)) + " " +
               address_text(mcastd::make_address(family, group));
    }
    void append(uint16_t type, std::span<const uint8_t> bytes) override
    {
        if (type == mcastd::PIM_TLV_INTERFACE) {
            const auto value = read<mcastd::PimInterface>(bytes);
            const char *states[] = {"gone", "runs", "designated"};
            note(std::string(states[value.state]) + " " + std::to_string(value.if_index));
        } else if (type == mcastd::PIM_TLV_TREE) {
            const auto value = read<mcastd::PimTree>(bytes);
            const char *from[] = {"unsaid", "nowhere", "", "registers"};
            std::string line = "tree " + pair(value.family, value.source, value.group) + " " +
                               (value.from == mcastd::PIM_FROM_INTERFACE ? std::to_string(value.if_index)
                                                                         : from[value.from]);
            line += (value.flags & mcastd::PIM_TREE_SPT) != 0 ? " spt" : "";
            line += (value.flags & mcastd::PIM_TREE_REGISTER_OUT) != 0 ? " out" : "";
            line += (value.flags & mcastd::PIM_TREE_ANSWER) != 0 ? " answer" : "";
            line += (value.flags & mcastd::PIM_TREE_WATCH) != 0 ? " watch" : "";
            note(line);
        } else if (type == mcastd::PIM_TLV_ASSERT) {
            const auto value = read<mcastd::PimAssert>(bytes);
            const char *states[] = {"none", "lost", "won"};
            note(std::string(states[value.state]) + " " + pair(value.family, value.source, value.group) +
                 " " + std::to_string(value.if_index));
        } else if (type == mcastd::PIM_TLV_REGISTERED) {
            const auto value = read<mcastd::PimRegistered>(bytes);
            note(std::string(value.present != 0 ? "registered " : "unregistered ") +
                 pair(value.family, value.source, value.group) + " at " +
                 address_text(mcastd::make_address(value.family, value.rp)));
        } else {
            ADD_FAILURE() << "record " << type;
        }
    }
    void join_prune(uint32_t if_index, const Address &group, const Address &source, uint8_t join,
                    uint8_t exclude) override
    {
        const char *what = exclude != 0 ? (join != 0 ? "block " : "unblock ")
                           : join != 0  ? "join "
                                        : "prune ";
        note(what + (is_unspecified(source) ? "*" : address_text(source)) + " " + address_text(group) + " " +
             std::to_string(if_index));
    }
    std::vector<std::string> taken()
    {
        return std::exchange(lines, {});
    }
};

// Trees, and who tells of them and hears for them.
struct ToldLab : private pimsmd::TellerSurroundings, private pimsmd::ListenerSurroundings {
    explicit ToldLab(const pimsmd::TreeSettings &settings = {}) : lab(settings)
    {
        lab.told = &teller;
        for (unsigned link = 0; link < LINKS; ++link) {
            interfaces[link] = FIRST_INTERFACE + link;
        }
    }
    uint32_t interface_of(unsigned link) const override
    {
        const auto found = interfaces.find(link);
        return found != interfaces.end() ? found->second : 0;
    }
    std::optional<pimsmd::Tunnel> tunnel_to(const Address &rp, unsigned link) override
    {
        return has_way ? std::optional(pimsmd::Tunnel{TreeLab::own(link), rp, 0, 1500}) : std::nullopt;
    }
    std::optional<unsigned> link_of(uint32_t if_index) const override
    {
        for (const auto &[link, index] : interfaces) {
            if (index == if_index) {
                return link;
            }
        }
        return std::nullopt;
    }

    // What is told now, in sorted order.
    std::vector<std::string> told()
    {
        lab.trees.settle();
        while (teller.tell(records, 7)) {
        }
        auto lines = records.taken();
        std::sort(lines.begin(), lines.end());
        return lines;
    }

    TreeLab lab;
    ToldRecords records;
    std::map<unsigned, uint32_t> interfaces;
    bool has_way = true;
    pimsmd::RegisterTunnels tunnels{MCAST_FAMILY_IPV4};
    pimsmd::MribTeller teller{0, lab.trees, *this, tunnels};
    pimsmd::MribListener listener{0, lab.queue, lab.trees, *this, teller, tunnels};
};

} // namespace pimsmd_test

#endif
