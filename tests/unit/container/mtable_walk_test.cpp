#include <cstring>
#include <functional>

#include "unit/container/mtable_records.h"

namespace
{

using Visits = std::vector<std::string>;

bool SameAddress(const MCAST_ADDR_S &first, const MCAST_ADDR_S &second)
{
    return std::memcmp(&first, &second, sizeof(first)) == 0;
}

class MTableWalk : public MTableTest
{
protected:
    /* Walks with the cursors, both callbacks writing down what they are called with. */
    uint32_t Walk(uint64_t mode = MTABLE_WALK_ALL)
    {
        return Walk(mode, CallGroup, CallSource);
    }

    uint32_t Walk(uint64_t mode, MTABLE_GROUP_CALLBACK group_callback, MTABLE_SOURCE_CALLBACK source_callback)
    {
        MTABLE_WALK_S walk = {&group_cursor_, &source_cursor_, mode};
        visits_.clear();
        return MTable_Walk(&table_, &walk, group_callback, this, source_callback, this);
    }

    static uint32_t CallGroup(MTABLE_GROUP_S *group, void *argument)
    {
        MTableWalk *self = static_cast<MTableWalk *>(argument);
        self->visits_.push_back(Text(&group->address));
        return self->on_group_ ? self->on_group_(group) : MCAST_OK;
    }

    static uint32_t CallSource(MTABLE_GROUP_S *group, MTABLE_SOURCE_S *source, void *argument)
    {
        MTableWalk *self = static_cast<MTableWalk *>(argument);
        EXPECT_EQ(source->group, group);
        self->visits_.push_back(Text(&group->address) + " " + Text(&source->address));
        return self->on_source_ ? self->on_source_(source) : MCAST_OK;
    }

    void SetCursors(const char *group, const char *source)
    {
        group_cursor_ = Addr(group);
        source_cursor_ = Addr(source);
    }

    void ExpectCursors(const char *group, const char *source)
    {
        EXPECT_EQ(Text(&group_cursor_), group);
        EXPECT_EQ(Text(&source_cursor_), source);
        EXPECT_EQ(group_cursor_.reserved, 0);
        EXPECT_EQ(source_cursor_.reserved, 0);
    }

    /* The number of the visit, from 1, that is under way. */
    size_t Visit() const
    {
        return visits_.size();
    }

    MCAST_ADDR_S group_cursor_ = Addr("0.0.0.0");
    MCAST_ADDR_S source_cursor_ = Addr("0.0.0.0");
    Visits visits_;
    std::function<uint32_t(MTABLE_GROUP_S *)> on_group_;
    std::function<uint32_t(MTABLE_SOURCE_S *)> on_source_;
};

TEST_F(MTableWalk, VisitsEverythingInOrderAndResetsBothCursors)
{
    AddGroupWithSources("224.1.1.2", 1);
    AddGroupWithSources("224.1.1.1", 2);
    AddGroup("224.1.1.3");
    group_cursor_.reserved = source_cursor_.reserved = 0x5555;
    EXPECT_EQ(Walk(), MCAST_OK);
    EXPECT_EQ(visits_, (Visits{"224.1.1.1", "224.1.1.1 10.0.0.1", "224.1.1.1 10.0.0.2", "224.1.1.2",
                               "224.1.1.2 10.0.0.1", "224.1.1.3"}));
    EXPECT_TRUE(SameAddress(group_cursor_, Addr("0.0.0.0")));
    EXPECT_TRUE(SameAddress(source_cursor_, Addr("0.0.0.0")));
}

TEST_F(MTableWalk, OfAnEmptyTableResetsTheCursors)
{
    SetCursors("224.1.1.1", "10.0.0.1");
    EXPECT_EQ(Walk(), MCAST_OK);
    EXPECT_TRUE(visits_.empty());
    ExpectCursors("0.0.0.0", "0.0.0.0");
}

TEST_F(MTableWalk, StoppedAtASourceVisitsThatSourceAgainAndGoesOn)
{
    AddGroupWithSources("224.1.1.1", 3);
    AddGroupWithSources("224.1.1.2", 4);
    int sources = 0;

    on_source_ = [&](auto) { return ++sources == 5 ? MCAST_WALK_AGAIN : MCAST_OK; };
    EXPECT_EQ(Walk(), MCAST_WALK_AGAIN);
    EXPECT_EQ(visits_.back(), "224.1.1.2 10.0.0.2");
    ExpectCursors("224.1.1.2", "10.0.0.2");
    on_source_ = nullptr;
    EXPECT_EQ(Walk(), MCAST_OK);
    EXPECT_EQ(visits_,
              (Visits{"224.1.1.2", "224.1.1.2 10.0.0.2", "224.1.1.2 10.0.0.3", "224.1.1.2 10.0.0.4"}));
    ExpectCursors("0.0.0.0", "0.0.0.0");
}

TEST_F(MTableWalk, StoppedAtAGroupLeavesTheSourceCursorAndResumesThere)
{
    AddGroupWithSources("224.1.1.1", 1);
    AddGroupWithSources("224.1.1.2", 1);
    on_group_ = [&](auto) { return Visit() == 3 ? MCAST_WALK_AGAIN : MCAST_OK; };
    EXPECT_EQ(Walk(), MCAST_WALK_AGAIN);
    ExpectCursors("224.1.1.2", "0.0.0.0");
    on_group_ = nullptr;
    EXPECT_EQ(Walk(), MCAST_OK);
    EXPECT_EQ(visits_, (Visits{"224.1.1.2", "224.1.1.2 10.0.0.1"}));

    SetCursors("224.1.1.1", "10.0.0.7");
    on_group_ = [](auto) { return MCAST_WALK_AGAIN; };
    EXPECT_EQ(Walk(), MCAST_WALK_AGAIN);
    ExpectCursors("224.1.1.1", "10.0.0.7");
}

TEST_F(MTableWalk, ResumesBehindASourceThatIsGone)
{
    MTABLE_GROUP_S *group = AddGroupWithSources("224.1.1.1", 3);
    MCAST_ADDR_S second = Addr("10.0.0.2");
    SetCursors("224.1.1.1", "10.0.0.2");
    FreeRecord(MTable_RemoveSource(group, MTable_SearchSourceInGroup(group, &second)));
    EXPECT_EQ(Walk(), MCAST_OK);
    EXPECT_EQ(visits_, (Visits{"224.1.1.1", "224.1.1.1 10.0.0.3"}));
}

TEST_F(MTableWalk, ResumesBehindAGroupThatIsGoneWithAllSourcesOfTheNext)
{
    AddGroupWithSources("224.1.1.1", 1);
    AddGroupWithSources("224.1.1.3", 2);
    SetCursors("224.1.1.2", "10.0.0.2");
    EXPECT_EQ(Walk(), MCAST_OK);
    EXPECT_EQ(visits_, (Visits{"224.1.1.3", "224.1.1.3 10.0.0.1", "224.1.1.3 10.0.0.2"}));
}

TEST_F(MTableWalk, SkipsTheSourcesOfAGroupThatItsCallbackSkips)
{
    AddGroupWithSources("224.1.1.1", 2);
    AddGroupWithSources("224.1.1.2", 2);
    AddGroupWithSources("224.1.1.3", 1);
    SetCursors("224.1.1.1", "10.0.0.2");
    on_group_ = [&](MTABLE_GROUP_S *group) {
        return group->address.address[3] != 2 ? MCAST_WALK_SKIP_GROUP : MCAST_OK;
    };
    EXPECT_EQ(Walk(), MCAST_OK);
    EXPECT_EQ(visits_,
              (Visits{"224.1.1.1", "224.1.1.2", "224.1.1.2 10.0.0.1", "224.1.1.2 10.0.0.2", "224.1.1.3"}));
    ExpectCursors("0.0.0.0", "0.0.0.0");
}

TEST_F(MTableWalk, OfOneGroupStaysInIt)
{
    AddGroupWithSources("224.1.1.1", 1);
    AddGroupWithSources("224.1.1.2", 3);
    AddGroupWithSources("224.1.1.3", 1);
    SetCursors("224.1.1.2", "10.0.0.2");
    EXPECT_EQ(Walk(MTABLE_WALK_GROUP), MCAST_OK);
    EXPECT_EQ(visits_, (Visits{"224.1.1.2", "224.1.1.2 10.0.0.2", "224.1.1.2 10.0.0.3"}));
    ExpectCursors("0.0.0.0", "0.0.0.0");
}

TEST_F(MTableWalk, OfOneGroupStopsAndResumes)
{
    AddGroupWithSources("224.1.1.1", 3);
    AddGroupWithSources("224.1.1.2", 1);
    SetCursors("224.1.1.1", "0.0.0.0");
    on_source_ = [&](auto) { return Visit() == 3 ? MCAST_WALK_AGAIN : MCAST_OK; };
    EXPECT_EQ(Walk(MTABLE_WALK_GROUP), MCAST_WALK_AGAIN);
    ExpectCursors("224.1.1.1", "10.0.0.2");
    EXPECT_EQ(Walk(MTABLE_WALK_GROUP), MCAST_WALK_AGAIN);
    EXPECT_EQ(visits_, (Visits{"224.1.1.1", "224.1.1.1 10.0.0.2", "224.1.1.1 10.0.0.3"}));
    EXPECT_EQ(Walk(MTABLE_WALK_GROUP), MCAST_OK);
    EXPECT_EQ(visits_, (Visits{"224.1.1.1", "224.1.1.1 10.0.0.3"}));
}

TEST_F(MTableWalk, OfAGroupThatIsMissingVisitsNothingAndLeavesTheSourceCursor)
{
    AddGroupWithSources("224.1.1.2", 1);
    for (uint32_t mode : {MTABLE_WALK_GROUP, MTABLE_WALK_SOURCE}) {
        SetCursors("224.1.1.1", "10.0.0.1");
        EXPECT_EQ(Walk(mode), MCAST_OK);
        EXPECT_TRUE(visits_.empty());
        ExpectCursors("0.0.0.0", "10.0.0.1");
    }
}

TEST_F(MTableWalk, OfOneSourceVisitsItsGroupAndThatSource)
{
    AddGroupWithSources("224.1.1.1", 3);
    AddGroupWithSources("224.1.1.2", 3);
    SetCursors("224.1.1.1", "10.0.0.2");
    EXPECT_EQ(Walk(MTABLE_WALK_SOURCE), MCAST_OK);
    EXPECT_EQ(visits_, (Visits{"224.1.1.1", "224.1.1.1 10.0.0.2"}));
    ExpectCursors("0.0.0.0", "0.0.0.0");
}

TEST_F(MTableWalk, OfASourceThatIsMissingVisitsTheGroupAlone)
{
    MTABLE_GROUP_S *group = AddGroup("224.1.1.1");
    AddSource(group, "10.0.0.2");
    SetCursors("224.1.1.1", "10.0.0.1");
    EXPECT_EQ(Walk(MTABLE_WALK_SOURCE), MCAST_OK);
    EXPECT_EQ(visits_, (Visits{"224.1.1.1"}));
    ExpectCursors("0.0.0.0", "0.0.0.0");
}

TEST_F(MTableWalk, GivesTheCodeOfTheLastSourceAndLeavesTheCursors)
{
    AddGroupWithSources("224.1.1.1", 3);
    on_source_ = [&](auto) { return Visit() == 4 ? 77u : 55u; };
    SetCursors("224.1.1.1", "10.0.0.1");
    EXPECT_EQ(Walk(), 77u);
    EXPECT_EQ(visits_.size(), 4u);
    ExpectCursors("224.1.1.1", "10.0.0.1");
}

TEST_F(MTableWalk, ForgetsTheCodesOfSourcesBeforeTheLast)
{
    AddGroupWithSources("224.1.1.1", 3);
    on_source_ = [&](auto) { return Visit() == 4 ? MCAST_OK : 55u; };
    EXPECT_EQ(Walk(), MCAST_OK);
    EXPECT_EQ(visits_.size(), 4u);
    ExpectCursors("0.0.0.0", "0.0.0.0");
}

TEST_F(MTableWalk, CarriesTheSkipCodeOfASourceLikeAnyOther)
{
    AddGroupWithSources("224.1.1.1", 2);
    on_source_ = [](auto) { return MCAST_WALK_SKIP_GROUP; };
    EXPECT_EQ(Walk(), MCAST_WALK_SKIP_GROUP);
    EXPECT_EQ(visits_.size(), 3u);
}

TEST_F(MTableWalk, GoesOnFromTheSourceCursorBehindAGroupThatEndedWithACode)
{
    AddGroupWithSources("224.1.1.1", 2);
    AddGroupWithSources("224.1.1.2", 3);
    SetCursors("224.1.1.1", "10.0.0.2");
    on_source_ = [&](MTABLE_SOURCE_S *source) {
        return source->group->address.address[3] == 1 ? 55u : MCAST_OK;
    };
    EXPECT_EQ(Walk(), MCAST_OK);
    EXPECT_EQ(visits_, (Visits{"224.1.1.1", "224.1.1.1 10.0.0.2", "224.1.1.2", "224.1.1.2 10.0.0.2",
                               "224.1.1.2 10.0.0.3"}));
    ExpectCursors("0.0.0.0", "0.0.0.0");
}

TEST_F(MTableWalk, GivesOnlyTheCodeOfTheLastGroup)
{
    AddGroupWithSources("224.1.1.1", 1);
    AddGroup("224.1.1.2");
    on_source_ = [](auto) { return 55u; };
    EXPECT_EQ(Walk(), MCAST_OK);
    EXPECT_EQ(visits_.size(), 3u);
}

TEST_F(MTableWalk, WithoutSourceCallbackVisitsGroupsAndLeavesTheSourceCursor)
{
    AddGroupWithSources("224.1.1.1", 1);
    AddGroupWithSources("224.1.1.2", 1);
    SetCursors("224.1.1.1", "10.0.0.9");
    EXPECT_EQ(Walk(MTABLE_WALK_ALL, CallGroup, nullptr), MCAST_OK);
    EXPECT_EQ(visits_, (Visits{"224.1.1.1", "224.1.1.2"}));
    ExpectCursors("0.0.0.0", "10.0.0.9");
}

TEST_F(MTableWalk, WithoutSourceCallbackGivesTheCodeOfTheLastGroupCallback)
{
    AddGroup("224.1.1.1");
    AddGroup("224.1.1.2");
    SetCursors("224.1.1.1", "0.0.0.0");
    on_group_ = [&](auto) { return Visit() == 2 ? 77u : MCAST_OK; };
    EXPECT_EQ(Walk(MTABLE_WALK_ALL, CallGroup, nullptr), 77u);
    ExpectCursors("224.1.1.1", "0.0.0.0");
    on_group_ = [&](auto) { return Visit() == 1 ? 77u : MCAST_OK; };
    EXPECT_EQ(Walk(MTABLE_WALK_ALL, CallGroup, nullptr), MCAST_OK);
}

TEST_F(MTableWalk, WithoutGroupCallbackVisitsTheSources)
{
    AddGroupWithSources("224.1.1.1", 1);
    AddGroupWithSources("224.1.1.2", 1);
    EXPECT_EQ(Walk(MTABLE_WALK_ALL, nullptr, CallSource), MCAST_OK);
    EXPECT_EQ(visits_, (Visits{"224.1.1.1 10.0.0.1", "224.1.1.2 10.0.0.1"}));
    SetCursors("224.1.1.1", "0.0.0.0");
    EXPECT_EQ(Walk(MTABLE_WALK_ALL, nullptr, nullptr), MCAST_OK);
    ExpectCursors("0.0.0.0", "0.0.0.0");
}

TEST_F(MTableWalk, SurvivesSourcesThatFreeThemselves)
{
    AddGroupWithSources("224.1.1.1", 3);
    AddGroupWithSources("224.1.1.2", 2);
    on_source_ = [&](MTABLE_SOURCE_S *source) {
        bool stop = Visit() == 3;

        FreeRecord(MTable_RemoveSource(source->group, source));
        return stop ? MCAST_WALK_AGAIN : MCAST_OK;
    };
    EXPECT_EQ(Walk(), MCAST_WALK_AGAIN);
    ExpectCursors("224.1.1.1", "10.0.0.2");
    EXPECT_EQ(Walk(), MCAST_OK);
    EXPECT_EQ(table_.source_count, 0u);
}

TEST_F(MTableWalk, SurvivesGroupsThatFreeThemselves)
{
    AddGroupWithSources("224.1.1.1", 2);
    AddGroupWithSources("224.1.1.2", 2);
    AddGroupWithSources("224.1.1.3", 2);
    on_group_ = [&](MTABLE_GROUP_S *group) {
        bool stop = Visit() == 2;

        MTable_RemoveGroup(&table_, group);
        MTable_FiniGroup(group);
        FreeRecord(group);
        return stop ? MCAST_WALK_AGAIN : MCAST_WALK_SKIP_GROUP;
    };
    EXPECT_EQ(Walk(), MCAST_WALK_AGAIN);
    ExpectCursors("224.1.1.2", "0.0.0.0");
    EXPECT_EQ(Walk(), MCAST_OK);
    EXPECT_EQ(table_.group_count, 0u);
    EXPECT_EQ(table_.source_count, 0u);
}

TEST_F(MTableWalk, ResetsTheGroupCursorToTheFamilyByteThatTheSourceCursorHad)
{
    AddGroupWithSources("224.1.1.1", 1);
    source_cursor_ = Addr("::5");
    source_cursor_.family = 0x0a07;
    group_cursor_ = Addr("0.0.0.0");
    std::memset(group_cursor_.address + 4, 0x77, 12);
    EXPECT_EQ(Walk(MTABLE_WALK_ALL, CallGroup, nullptr), MCAST_OK);
    MCAST_ADDR_S expected = Addr("::");

    expected.family = 7;
    EXPECT_TRUE(SameAddress(group_cursor_, expected));
}

TEST_F(MTableWalk, ResettingAnIpv4CursorLeavesTheBytesBehindTheAddress)
{
    SetCursors("224.1.1.1", "10.0.0.1");
    group_cursor_.address[4] = source_cursor_.address[15] = 0x77;
    EXPECT_EQ(Walk(), MCAST_OK);
    ExpectCursors("0.0.0.0", "0.0.0.0");
    EXPECT_EQ(group_cursor_.address[4], 0x77);
    EXPECT_EQ(source_cursor_.address[15], 0x77);
}

TEST_F(MTableWalk, PagesThroughIpv6Pairs)
{
    Visits all;

    for (const char *group : {"ff05::1", "ff0e::1", "ff0e::2"}) {
        MTABLE_GROUP_S *record = AddGroup(group);

        for (const char *source : {"2001:db8::1", "2001:db8::2", "fd00::1"}) {
            AddSource(record, source);
        }
    }
    SetCursors("::", "::");
    for (uint32_t code = MCAST_WALK_AGAIN; code == MCAST_WALK_AGAIN;) {
        int left = 2;

        on_source_ = [&](auto) { return left-- == 0 ? MCAST_WALK_AGAIN : MCAST_OK; };
        code = Walk(MTABLE_WALK_ALL, nullptr, CallSource);
        if (code == MCAST_WALK_AGAIN) {
            visits_.pop_back();
        }
        all.insert(all.end(), visits_.begin(), visits_.end());
    }
    EXPECT_EQ(all.size(), 9u);
    EXPECT_EQ(all.front(), "ff05::1 2001:db8::1");
    EXPECT_EQ(all.back(), "ff0e::2 fd00::1");
    EXPECT_TRUE(SameAddress(group_cursor_, Addr("::")));
    EXPECT_TRUE(SameAddress(source_cursor_, Addr("::")));
}

} // namespace
