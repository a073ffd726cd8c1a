#include <cstring>

#include "unit/usrauth/usrauth_fixture.h"

namespace usrauth_test
{
namespace
{

class Detail : public UsrAuthTest
{
protected:
    Detail()
    {
        Start();
    }

    /* "node/id c0 c1 c2 c3 c4" of the records visited, one a line. */
    Calls Records(uint32_t mode = 1, uint16_t node = 0, uint32_t user_id = 0, uint32_t expected = MCAST_OK)
    {
        const MCAST_USRAUTH_DETAIL_FILTER_S filter = {mode, 55, user_id, node};
        seen.clear();
        EXPECT_EQ(MCAST_USRAUTH_WalkAllUserMsgDetail(&filter, Visit, this), expected);
        return seen;
    }

    static uint32_t Visit(MCAST_USRAUTH_MSG_DETAIL_S *record, void *argument)
    {
        Detail *self = static_cast<Detail *>(argument);
        std::string text = std::to_string(record->node) + "/" + std::to_string(record->user_id);
        const bool stops = text == self->stop_at;
        for (uint32_t count : record->counts) {
            text += " " + std::to_string(count);
        }
        self->seen.push_back(text);
        if (self->clears) {
            MCAST_USRAUTH_ClearRecord();
        }
        return stops ? 77 : 0;
    }

    UserSpec spec;
    Calls seen;
    std::string stop_at;
    bool clears = false;
};

TEST_F(Detail, CountsEachTypeOfAUser)
{
    Receive(spec.Announce() + spec.Announce() + spec.Update() + spec.List({}) + spec.ListEnd() +
            spec.ListEnd() + spec.ListEnd());
    Receive(spec.Withdraw());
    EXPECT_EQ(Records(), Calls{"1/7 2 1 1 1 3"});
}

TEST_F(Detail, ComesInTheOrderOfNodesThenUsers)
{
    for (auto [node, id] :
         {std::pair<uint16_t, uint32_t>{2, 1}, {1, 0xffffffff}, {1, 5}, {0xffff, 0}, {0, 9}}) {
        spec.node = node;
        spec.user_id = id;
        Receive(spec.ListEnd());
    }
    EXPECT_EQ(Records(), (Calls{"0/9 0 0 0 0 1", "1/5 0 0 0 0 1", "1/4294967295 0 0 0 0 1", "2/1 0 0 0 0 1",
                                "65535/0 0 0 0 0 1"}));
    EXPECT_EQ(Records(1, 1, 6).size(), 3u) << "from the next one when the pair is absent";
    EXPECT_EQ(Records(1, 1, 5).size(), 4u);
    EXPECT_EQ(Records(0, 1, 5), Calls{"1/5 0 0 0 0 1"});
    EXPECT_EQ(Records(2, 1, 5), Calls{"1/5 0 0 0 0 1"});
    EXPECT_EQ(Records(0, 1, 6), Calls{});
    stop_at = "1/5";
    EXPECT_EQ(Records(1, 0, 0, MCAST_ERR_STOPPED).size(), 2u);
    EXPECT_EQ(MCAST_USRAUTH_UserMsgDetailCount(), 5u);
}

TEST_F(Detail, WalkSurvivesThatItsCallbackClearsTheRecords)
{
    Receive(spec.ListEnd());
    spec.user_id = 8;
    Receive(spec.ListEnd());
    clears = true;
    EXPECT_EQ(Records().size(), 1u);
    EXPECT_EQ(MCAST_USRAUTH_UserMsgDetailCount(), 0u);
}

TEST_F(Detail, WalkNeedsFilterAndCallback)
{
    const MCAST_USRAUTH_DETAIL_FILTER_S filter = {};
    EXPECT_EQ(MCAST_USRAUTH_WalkAllUserMsgDetail(nullptr, Visit, this), MCAST_ERR_GENERAL);
    EXPECT_EQ(MCAST_USRAUTH_WalkAllUserMsgDetail(&filter, nullptr, this), MCAST_ERR_GENERAL);
}

TEST_F(Detail, LimitStopsNewRecordsAndNoOld)
{
    MCAST_USRAUTH_SetMsgDetailLimit(1);
    Receive(spec.ListEnd());
    spec.user_id = 8;
    Receive(spec.ListEnd());
    EXPECT_EQ(Records(), Calls{"1/7 0 0 0 0 1"});
    MCAST_USRAUTH_SetMsgDetailLimit(0);
    spec.user_id = 7;
    Receive(spec.ListEnd());
    EXPECT_EQ(Records(), Calls{"1/7 0 0 0 0 2"});
    MCAST_USRAUTH_ClearRecord();
    Receive(spec.ListEnd());
    EXPECT_EQ(Records(), Calls{});
}

TEST_F(Detail, LimitIs512AtFirst)
{
    MCAST_USRAUTH_StopServer();
    MCAST_USRAUTH_Fini();
    MCAST_USRAUTH_SetMsgDetailLimit(3);
    next_descriptor = kAgent;
    Start();
    for (uint32_t id = 0; id < 520; ++id) {
        spec.user_id = id;
        Receive(spec.ListEnd());
    }
    EXPECT_EQ(MCAST_USRAUTH_UserMsgDetailCount(), 512u);
}

TEST_F(Detail, MessageIsHandledWhenMemoryForItsRecordIsShort)
{
    spec.name = "";
    fault::FailAllocation(1);
    Receive(spec.Announce());
    fault::FailAllocation(0);
    EXPECT_EQ(Told(), Calls{"kind 1 3 up"});
    EXPECT_EQ(Records(), Calls{});
    platform::Fail(platform::Operation::kTreeInsert, 1);
    Receive(spec.ListEnd());
    EXPECT_EQ(Told(), Calls{"online 1/7"});
    EXPECT_EQ(Records(), Calls{});
}

TEST_F(Detail, StatisticsCountByKindAndType)
{
    MCAST_USRAUTH_STATISTICS_S out;
    uint32_t words[50];
    spec.kind = 4;
    Receive(spec.Announce() + spec.ListEnd());
    Receive(RefreshBegin(1, 2) + RefreshEnd(1, 2));
    EXPECT_EQ(MCAST_USRAUTH_GetStatistics(&out), MCAST_OK);
    memcpy(words, &out, sizeof(words));
    EXPECT_EQ(words[0], 2u);
    EXPECT_EQ(words[1 + 7 * 4 + 0], 1u);
    EXPECT_EQ(words[1 + 7 * 4 + 4], 1u);
    EXPECT_EQ(words[1 + 7 * 2 + 5], 1u);
    EXPECT_EQ(words[1 + 7 * 2 + 6], 1u);
    EXPECT_EQ(MCAST_USRAUTH_ClearStatistics(), MCAST_OK);
    MCAST_USRAUTH_GetStatistics(&out);
    memcpy(words, &out, sizeof(words));
    for (uint32_t word : words) {
        EXPECT_EQ(word, 0u);
    }
    EXPECT_EQ(MCAST_USRAUTH_GetStatistics(nullptr), MCAST_ERR_GENERAL);
}

} // namespace
} // namespace usrauth_test
