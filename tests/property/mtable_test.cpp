/*
 * The group and source table beside sorted sets: the same random inserts and removals on both, with the
 * counts and every look-up compared, and now and then a walk in pieces, between which records come and go.
 */
#include <map>
#include <set>

#include "support/property.h"
#include "unit/container/mtable_records.h"

namespace
{

constexpr uint32_t kAddresses = 12;

/* One of few addresses of the family, so that random choices meet. */
MCAST_ADDR_S Small(uint16_t family, uint32_t number)
{
    MCAST_ADDR_S addr = {family, 0, {}};
    int middle = family == MCAST_FAMILY_IPV4 ? 2 : 6;
    int last = family == MCAST_FAMILY_IPV4 ? 3 : 15;
    addr.address[middle] = static_cast<uint8_t>(number * 40);
    addr.address[last] = static_cast<uint8_t>(number * 77);
    return addr;
}

std::string Key(const MCAST_ADDR_S &addr)
{
    return std::string(reinterpret_cast<const char *>(addr.address), sizeof(addr.address));
}

class MTableProperty : public MTableTest
{
protected:
    void Run(uint16_t family, uint64_t seed)
    {
        random_ = property::Random(seed);
        model_.clear();
        MTable_FreeAll(&table_);
        for (uint64_t left = property::Operations(20000); left > 0; --left) {
            const MCAST_ADDR_S g = Small(family, random_.Below(kAddresses));

            ASSERT_NO_FATAL_FAILURE(Step(g, Small(family, random_.Below(kAddresses))));
            ASSERT_NO_FATAL_FAILURE(CompareCounts());
            if (random_.OneIn(100)) {
                ASSERT_NO_FATAL_FAILURE(ComparePagedWalk(family));
            }
        }
    }

    /* Changes one thing about the pair. */
    void Step(const MCAST_ADDR_S &g, const MCAST_ADDR_S &s)
    {
        MTABLE_GROUP_S *group = MTable_SearchGroup(&table_, &g);
        MTABLE_SOURCE_S *source = MTable_SearchSource(&table_, &g, &s);
        ASSERT_EQ(group != nullptr, model_.count(Key(g)) != 0);
        ASSERT_EQ(source != nullptr, group != nullptr && model_[Key(g)].count(Key(s)) != 0);
        if (group == nullptr) {
            ASSERT_EQ(MTable_InsertGroup(&table_, &NewGroup(g)->head), MCAST_OK);
            model_[Key(g)];
        } else if (random_.OneIn(30)) {
            RemoveGroup(group);
        } else if (random_.OneIn(60)) {
            MTable_FreeAllSourceInGroup(group);
            model_[Key(g)].clear();
        } else if (source == nullptr) {
            ASSERT_EQ(MTable_InsertSource(group, &NewSource(s)->head), MCAST_OK);
            model_[Key(g)].insert(Key(s));
        } else if (random_.OneIn(3)) {
            FreeRecord(MTable_RemoveSource(group, source));
            model_[Key(g)].erase(Key(s));
        }
    }

    void RemoveGroup(MTABLE_GROUP_S *group)
    {
        model_.erase(Key(group->address));
        MTable_RemoveGroup(&table_, group);
        MTable_FiniGroup(group);
        FreeRecord(group);
    }

    void CompareCounts()
    {
        size_t sources = 0;
        for (const auto &[address, of_group] : model_) {
            sources += of_group.size();
        }
        ASSERT_EQ(table_.group_count, model_.size());
        ASSERT_EQ(table_.source_count, sources);
    }

    /*
     * A walk that stops at random and resumes sees every pair once and in order. What the callback stops at
     * may be removed before the walk resumes; then it is not seen.
     */
    void ComparePagedWalk(uint16_t family)
    {
        MCAST_ADDR_S group_cursor = Small(family, 0), source_cursor = Small(family, 0);
        MTABLE_WALK_S walk = {&group_cursor, &source_cursor, MTABLE_WALK_ALL};
        std::vector<std::string> expected;
        seen_.clear();
        while (MTable_Walk(&table_, &walk, nullptr, nullptr, VisitSource, this) == MCAST_WALK_AGAIN) {
            if (random_.OneIn(4)) {
                RemoveAtCursors(walk);
            }
        }
        for (const auto &[g, of_group] : model_) {
            for (const std::string &s : of_group) {
                expected.push_back(g + s);
            }
        }
        ASSERT_EQ(seen_, expected);
        ASSERT_EQ(Key(group_cursor), Key(Small(family, 0)));
        ASSERT_EQ(Key(source_cursor), Key(Small(family, 0)));
    }

    void RemoveAtCursors(const MTABLE_WALK_S &walk)
    {
        MTABLE_GROUP_S *group = MTable_SearchGroup(&table_, walk.group_cursor);
        MTABLE_SOURCE_S *source = MTable_SearchSourceInGroup(group, walk.source_cursor);
        model_[Key(group->address)].erase(Key(source->address));
        FreeRecord(MTable_RemoveSource(group, source));
        /* A group of which nothing was seen may vanish as a whole. */
        if (seen_.empty() || seen_.back().compare(0, 16, Key(group->address)) != 0) {
            RemoveGroup(group);
        }
    }

    static uint32_t VisitSource(MTABLE_GROUP_S *group, MTABLE_SOURCE_S *source, void *argument)
    {
        MTableProperty *self = static_cast<MTableProperty *>(argument);
        if (self->random_.OneIn(4)) {
            return MCAST_WALK_AGAIN;
        }
        self->seen_.push_back(Key(group->address) + Key(source->address));
        return MCAST_OK;
    }

    property::Random random_{0};
    std::map<std::string, std::set<std::string>> model_;
    std::vector<std::string> seen_;
};

TEST_F(MTableProperty, AgreesWithSortedSetsForIpv4)
{
    Run(MCAST_FAMILY_IPV4, property::Seed("mtable ipv4"));
}

TEST_F(MTableProperty, AgreesWithSortedSetsForIpv6)
{
    Run(MCAST_FAMILY_IPV6, property::Seed("mtable ipv6"));
}

} // namespace
