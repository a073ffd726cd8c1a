#include "unit/intf/mib_fixture.h"

namespace mib_test
{
namespace
{

TEST_F(Mib, CombinedResultOfSeveralInstances)
{
    struct Row {
        std::vector<int64_t> results;
        uint32_t start;
        MCAST_STATUS expected;
    };
    const int64_t none = MCAST_MIB_NO_ENTRY;
    const int64_t end = MCAST_MIB_NO_NEXT;
    const Row rows[] = {
        {{}, 0, MCAST_MIB_NO_ENTRY},
        {{}, 9, MCAST_MIB_NO_ENTRY},
        {{none}, 1, MCAST_MIB_NO_NEXT},
        {{none}, 0xffffffff, MCAST_MIB_NO_NEXT},
        {{none}, 0, MCAST_MIB_NO_ENTRY},
        {{end}, 0, MCAST_MIB_NO_NEXT},
        {{end, end}, 0, MCAST_MIB_NO_NEXT},
        {{none, none}, 0, MCAST_MIB_NO_ENTRY},
        {{none, end}, 0, MCAST_MIB_NO_NEXT},
        {{none, kOther}, 0, MCAST_ERR_NOTHING_DONE},
        {{kOther, none}, 0, MCAST_ERR_NOTHING_DONE},
        {{end, none, 0}, 0, MCAST_ERR_NOTHING_DONE},
        {{none, none, none}, 1, MCAST_MIB_NO_NEXT},
        {{kOther, none, none}, 1, MCAST_MIB_NO_NEXT},
        {{kOther, none, end}, 2, MCAST_MIB_NO_NEXT},
        {{none, none, kOther}, 2, MCAST_ERR_NOTHING_DONE},
        {{-1}, 0, MCAST_ERR_NOTHING_DONE},
        {{none | int64_t{1} << 32}, 0, MCAST_ERR_NOTHING_DONE},
        {{end | int64_t{1} << 63}, 0, MCAST_ERR_NOTHING_DONE},
    };

    sockets_expected = 0;
    for (const Row &row : rows) {
        for (size_t i = 0; i < row.results.size(); ++i) {
            requests[i].mib.result = row.results[i];
        }
        EXPECT_EQ(
            mcastMib_GetNextResult(records.data(), static_cast<uint32_t>(row.results.size()), row.start),
            row.expected)
            << "row " << &row - rows;
    }
    EXPECT_EQ(mcastMib_GetNextResult(nullptr, 0, 0), MCAST_MIB_NO_ENTRY);
    EXPECT_EQ(mcastMib_GetNextResult(nullptr, 3, 3), MCAST_MIB_NO_NEXT);
}

/* ---- Get-next ---- */

/* The last of the requests that found an entry. */
uint32_t ChooseLast(MCAST_MIB_REQUEST_S *const requests[], uint32_t count)
{
    while (requests[count - 1]->result != 0) {
        --count;
    }
    return count - 1;
}

uint32_t MustNotChoose(MCAST_MIB_REQUEST_S *const[], uint32_t)
{
    ADD_FAILURE() << "nothing to choose from";
    return 0;
}

TEST_F(Mib, NextByIndexAsksEveryInstanceAndLetsTheChooserDecide)
{
    uint32_t chosen = kUntouched;
    Answer(0, MCAST_OK);
    Answer(1, MCAST_MIB_NO_NEXT);
    Answer(3, MCAST_OK);
    EXPECT_EQ(NextByIndex(4, ChooseLast, &chosen), MCAST_OK);
    EXPECT_EQ(chosen, 3u);
    EXPECT_EQ(Results(), (std::vector<int64_t>{0, 0x60010023, 0x6001001a, 0}));
    EXPECT_EQ(g_parsing.calls, 3);
    EXPECT_EQ(g_parsing.output, requests[3].output.data());
    EXPECT_EQ(g_parsing.extra1, nullptr);
    EXPECT_EQ(g_parsing.extra2, nullptr);
    EXPECT_EQ(device_calls, (Calls{"connect 1", "send", "recv", "close", "connect 2", "send", "recv", "close",
                                   "connect 3", "close", "connect 4", "send", "recv", "close"}));
    sockets_expected = 4;
}

TEST_F(Mib, NextByIndexTakesAnEntryBesideInstancesThatFail)
{
    uint32_t chosen = kUntouched;
    Answer(0, kOther);
    Answer(1, MCAST_OK);
    Answer(2, MCAST_MIB_NO_NEXT);
    EXPECT_EQ(NextByIndex(3, ChooseLast, &chosen), MCAST_OK);
    EXPECT_EQ(chosen, 1u);
    sockets_expected = 3;
}

TEST_F(Mib, NextByIndexLeavesAnInstanceWithoutAnAddressAlone)
{
    uint32_t chosen = kUntouched;
    daemons[0] = nullptr;
    records[2] = nullptr; /* not looked at where everything is over before */
    Answer(1, MCAST_MIB_NO_NEXT);
    EXPECT_EQ(NextByIndex(2, MustNotChoose, &chosen), MCAST_ERR_NOTHING_DONE) << "as its record said before";
    EXPECT_EQ(requests[0].mib.result, kUntouched);
    requests[0].mib.result = MCAST_MIB_NO_ENTRY;
    EXPECT_EQ(NextByIndex(2, MustNotChoose, &chosen), MCAST_MIB_NO_NEXT);
    EXPECT_EQ(chosen, kUntouched);
    sockets_expected = 2;
}

TEST_F(Mib, NextByIndexIgnoresAnOldSuccessOfAnInstanceWithoutAnAddress)
{
    uint32_t chosen = kUntouched;
    daemons[0] = nullptr;
    requests[0].mib.result = 0;
    EXPECT_EQ(NextByIndex(2, MustNotChoose, &chosen), MCAST_ERR_NOTHING_DONE);
    EXPECT_EQ(chosen, kUntouched);
}

TEST_F(Mib, NextByIndexCombinesWhenNobodyHasAnEntry)
{
    uint32_t chosen = kUntouched;
    EXPECT_EQ(NextByIndex(0, MustNotChoose, &chosen), MCAST_MIB_NO_ENTRY);
    EXPECT_EQ(NextByIndex(2, MustNotChoose, &chosen), MCAST_MIB_NO_ENTRY);
    Answer(0, MCAST_MIB_NO_NEXT);
    EXPECT_EQ(NextByIndex(2, MustNotChoose, &chosen), MCAST_MIB_NO_NEXT);
    Answer(1, kOther);
    EXPECT_EQ(NextByIndex(2, MustNotChoose, &chosen), MCAST_ERR_NOTHING_DONE);
    EXPECT_EQ(chosen, kUntouched);
    sockets_expected = 6;
}

TEST_F(Mib, NextByInetTakesTheFirstThatAnswersAndAsksNoFurther)
{
    uint32_t chosen = kUntouched;
    Answer(1, kOther);
    Answer(2, MCAST_OK);
    Answer(3, MCAST_OK);
    EXPECT_EQ(NextByInet(4, 0, &chosen), MCAST_OK);
    EXPECT_EQ(chosen, 2u);
    EXPECT_EQ(Results(), (std::vector<int64_t>{0x6001001a, kOther, 0, kUntouched}));
    EXPECT_EQ(Count("connect 4"), 0u);
    EXPECT_EQ(NextByInet(4, 3, &chosen), MCAST_OK);
    EXPECT_EQ(chosen, 3u);
    EXPECT_EQ(Count("connect 1"), 1u);
    sockets_expected = 4;
}

TEST_F(Mib, NextByInetCombinesFromWhereItStarted)
{
    uint32_t chosen = kUntouched;
    requests[0].mib.result = kOther; /* of an earlier call */
    EXPECT_EQ(NextByInet(4, 1, &chosen), MCAST_MIB_NO_NEXT) << "all unreachable, but not from the first on";
    EXPECT_EQ(NextByInet(4, 0, &chosen), MCAST_MIB_NO_ENTRY);
    EXPECT_EQ(NextByInet(4, 4, &chosen), MCAST_MIB_NO_NEXT);
    EXPECT_EQ(NextByInet(4, 0xffffffff, &chosen), MCAST_MIB_NO_NEXT);
    EXPECT_EQ(NextByInet(0, 0, &chosen), MCAST_MIB_NO_ENTRY);
    Answer(2, kOther);
    EXPECT_EQ(NextByInet(4, 2, &chosen), MCAST_ERR_NOTHING_DONE);
    EXPECT_EQ(chosen, kUntouched);
    sockets_expected = 9;
}

TEST_F(Mib, NextByInetCannotReachAnInstanceWithoutAnAddress)
{
    uint32_t chosen = kUntouched;
    daemons[0] = nullptr;
    Answer(1, MCAST_OK);
    EXPECT_EQ(NextByInet(2, 0, &chosen), MCAST_OK);
    EXPECT_EQ(requests[0].mib.result, 0x6001001a);
    EXPECT_EQ(chosen, 1u);
}

} // namespace
} // namespace mib_test
