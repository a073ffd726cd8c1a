#include <gtest/gtest.h>

#include <algorithm>
#include <array>
#include <cerrno>
#include <cstring>
#include <functional>

#include <sys/socket.h>
#include <unistd.h>

#include "mcast/mib.h"
#include "support/descriptors.h"
#include "support/fault.h"
#include "support/scripted_device.h"
#include "support/scripted_libc.h"

namespace
{

using Calls = std::vector<std::string>;
using scripted::device;
using scripted::device_calls;

constexpr uint32_t kOther = MCAST_ERR_GENERAL;
constexpr uint32_t kUntouched = 77;

/* A request as callers lay it out: the parser's part follows the record. */
struct Request {
    MCAST_MIB_REQUEST_S mib;
    std::array<char, 16> output;
};

static_assert(offsetof(Request, output) == sizeof(MCAST_MIB_REQUEST_S));

/* The parser's arguments of the last call, and what it does. */
struct Parsing {
    int calls;
    std::string reply;
    void *output;
    void *extra1;
    void *extra2;
    std::function<MCAST_STATUS(void *output, void *extra1, void *extra2)> act;
};

Parsing g_parsing;

/* Unless told otherwise the result is what the reply says: its first four bytes. */
MCAST_STATUS Parse(const void *reply, uint64_t length, void *output, void *extra1, void *extra2)
{
    ++g_parsing.calls;
    g_parsing.reply.assign(static_cast<const char *>(reply), length);
    g_parsing.output = output;
    g_parsing.extra1 = extra1;
    g_parsing.extra2 = extra2;
    if (g_parsing.act) {
        return g_parsing.act(output, extra1, extra2);
    }
    MCAST_STATUS result = 0;

    memcpy(&result, reply, std::min<uint64_t>(length, sizeof(result)));
    return result;
}

/*
 * Instances of a daemon on ports 1, 2, ...: each answers every request with a text, or is out of reach. A
 * connection is a descriptor of 1000 and the port.
 */
class Mib : public testing::Test
{
protected:
    static constexpr int kFirst = 1000;
    static constexpr uint32_t kCount = 4;

    void SetUp() override
    {
        scripted::Reset();
        scripted::ResetDevice();
        g_parsing = {};
        live = fault::LiveBlocks();
        for (uint32_t i = 0; i < kCount; ++i) {
            endpoints[i] = {7 + i, static_cast<uint16_t>(i + 1), 0};
            daemons[i] = &endpoints[i];
            requests[i].mib = {5, "query", buffers[i].size(), buffers[i].data(), kUntouched, kUntouched};
            records[i] = &requests[i].mib;
        }
        scripted::socket = [](int, int, int) { return kFirst; };
        scripted::setsockopt = [](auto...) { return 0; };
        scripted::connect = [this](int fd, const sockaddr *to, socklen_t) {
            EXPECT_EQ(fd, kFirst);
            port = reinterpret_cast<const uint8_t *>(to)[3];
            device_calls.push_back("connect " + std::to_string(port));
            errno = ECONNREFUSED;
            return replies.at(port - 1).empty() ? -1 : 0;
        };
        scripted::send = [](int fd, const void *data, size_t length, int flags) {
            EXPECT_EQ(fd, kFirst);
            EXPECT_EQ(flags, MSG_NOSIGNAL);
            EXPECT_EQ(std::string(static_cast<const char *>(data), length), "query");
            device_calls.emplace_back("send");
            return static_cast<ssize_t>(length);
        };
        scripted::recv = [this](int fd, void *data, size_t length, int flags) {
            const std::string &reply = replies.at(port - 1);
            size_t size = std::min(length, reply.size());

            EXPECT_EQ(fd, kFirst);
            EXPECT_EQ(flags, 0);
            memcpy(data, reply.data(), size);
            device_calls.emplace_back("recv");
            return static_cast<ssize_t>(size);
        };
        scripted::close = [](int fd) {
            EXPECT_EQ(fd, kFirst);
            device_calls.emplace_back("close");
            return 0;
        };
    }

    void TearDown() override
    {
        scripted::Reset();
        EXPECT_EQ(fault::LiveBlocks(), live) << "a list of nodes was not freed";
        EXPECT_EQ(Count("close"), sockets_expected) << "every socket is closed, once";
    }

    /* The instance answers with this result. */
    void Answer(uint32_t instance, MCAST_STATUS result)
    {
        replies[instance].assign(reinterpret_cast<const char *>(&result), sizeof(result));
        replies[instance] += "tail";
    }

    static size_t Count(const std::string &call)
    {
        return static_cast<size_t>(std::count(device_calls.begin(), device_calls.end(), call));
    }

    static const Calls &Conversation()
    {
        static const Calls calls = {"connect 1", "send", "recv", "close"};

        return calls;
    }

    MCAST_STATUS NextByIndex(uint32_t n, MCAST_MIB_CHOOSER chooser, uint32_t *chosen)
    {
        return MCAST_MIB_GetNextByIndex(daemons.data(), records.data(), n, Parse, chooser, chosen);
    }

    MCAST_STATUS NextByInet(uint32_t n, uint32_t start, uint32_t *chosen)
    {
        return MCAST_MIB_GetNextByInet(daemons.data(), records.data(), n, start, Parse, chosen);
    }

    std::vector<int64_t> Results() const
    {
        std::vector<int64_t> results;

        for (const Request &request : requests) {
            results.push_back(request.mib.result);
        }
        return results;
    }

    long live = 0;
    uint32_t port = 0;
    size_t sockets_expected = 1;
    std::array<std::string, kCount> replies;
    std::array<std::array<char, 12>, kCount> buffers = {};
    std::array<MCAST_APP_ENDPOINT_S, kCount> endpoints = {};
    std::array<const MCAST_APP_ENDPOINT_S *, kCount> daemons = {};
    std::array<Request, kCount> requests = {};
    std::array<MCAST_MIB_REQUEST_S *, kCount> records = {};
};

/* ---- One exchange ---- */

TEST_F(Mib, GetSendsTheRequestAndHandsTheReplyToTheParser)
{
    replies[0] = "answer";
    g_parsing.act = [](void *output, void *, void *) {
        memcpy(output, "parsed", 7);
        return 0x12345678u;
    };
    EXPECT_EQ(MCAST_MIB_Get(daemons[0], Parse, records[0]), 0x12345678u);
    EXPECT_EQ(device_calls, Conversation());
    EXPECT_EQ(g_parsing.calls, 1);
    EXPECT_EQ(g_parsing.reply, "answer");
    EXPECT_EQ(g_parsing.output, requests[0].output.data());
    EXPECT_EQ(g_parsing.extra1, nullptr);
    EXPECT_EQ(g_parsing.extra2, nullptr);
    EXPECT_STREQ(requests[0].output.data(), "parsed");
    EXPECT_EQ(requests[0].mib.reply_length, 6u);
    EXPECT_EQ(requests[0].mib.result, kUntouched) << "results belong to the get-next calls";
}

TEST_F(Mib, AReplyLongerThanItsBufferIsCut)
{
    replies[0] = "longer than twelve";
    g_parsing.act = [](auto...) { return MCAST_OK; };
    EXPECT_EQ(MCAST_MIB_Get(daemons[0], Parse, records[0]), MCAST_OK);
    EXPECT_EQ(g_parsing.reply, "longer than ");
    EXPECT_EQ(requests[0].mib.reply_length, 12u);
    EXPECT_EQ(Count("recv"), 1u) << "the rest is not asked for";
}

TEST_F(Mib, AReplyOfOneByteIsAReply)
{
    replies[0] = "x";
    g_parsing.act = [](auto...) { return MCAST_OK; };
    EXPECT_EQ(MCAST_MIB_Get(daemons[0], Parse, records[0]), MCAST_OK);
    EXPECT_EQ(requests[0].mib.reply_length, 1u);
}

TEST_F(Mib, APartialSendIsNotCompletedAndTheReplyIsAwaited)
{
    Answer(0, MCAST_OK);
    scripted::send = [](auto...) {
        device_calls.emplace_back("send");
        return ssize_t{1};
    };
    EXPECT_EQ(MCAST_MIB_Get(daemons[0], Parse, records[0]), MCAST_OK);
    EXPECT_EQ(device_calls, Conversation());
}

TEST_F(Mib, SignalsRepeatSendAndReceiveUntilTheyAreThrough)
{
    int sends = 0;
    int receives = 0;

    Answer(0, MCAST_OK);
    scripted::send = [&](int, const void *, size_t length, int) {
        errno = EINTR;
        return ++sends <= 1000 ? ssize_t{-1} : static_cast<ssize_t>(length);
    };
    scripted::recv = [&](int, void *data, size_t, int) {
        errno = EINTR;
        memset(data, 0, 4);
        return ++receives <= 1000 ? ssize_t{-1} : ssize_t{4};
    };
    EXPECT_EQ(MCAST_MIB_Get(daemons[0], Parse, records[0]), MCAST_OK);
    EXPECT_EQ(sends, 1001);
    EXPECT_EQ(receives, 1001);
    EXPECT_EQ(requests[0].mib.reply_length, 4u);
}

TEST_F(Mib, AFailedSendEndsTheExchange)
{
    sockets_expected = 0;
    Answer(0, MCAST_OK);
    for (auto [result, error] : {std::pair{-1, EPIPE}, {-1, EAGAIN}, {-1, EMSGSIZE}, {0, 0}, {0, EINTR}}) {
        scripted::send = scripted::Failing(error, ssize_t{result});
        device_calls.clear();
        EXPECT_EQ(MCAST_MIB_Get(daemons[0], Parse, records[0]), MCAST_MIB_NO_ENTRY);
        EXPECT_EQ(device_calls, (Calls{"connect 1", "close"}));
    }
    device_calls.clear();
    EXPECT_EQ(g_parsing.calls, 0);
    EXPECT_EQ(requests[0].mib.reply_length, kUntouched);
}

TEST_F(Mib, AFailedReceiveOrAPeerThatClosesEndsTheExchange)
{
    sockets_expected = 0;
    Answer(0, MCAST_OK);
    for (auto [result, error] : {std::pair{-1, ECONNRESET}, {-1, EAGAIN}, {0, 0}, {0, EINTR}}) {
        scripted::recv = scripted::Failing(error, ssize_t{result});
        device_calls.clear();
        EXPECT_EQ(MCAST_MIB_Get(daemons[0], Parse, records[0]), MCAST_MIB_NO_ENTRY);
        EXPECT_EQ(device_calls, (Calls{"connect 1", "send", "close"}));
    }
    device_calls.clear();
    EXPECT_EQ(g_parsing.calls, 0);
    EXPECT_EQ(requests[0].mib.reply_length, kUntouched);
}

TEST_F(Mib, AnUnreachableDaemonHasNoEntry)
{
    EXPECT_EQ(MCAST_MIB_Get(daemons[0], Parse, records[0]), MCAST_MIB_NO_ENTRY);
    EXPECT_EQ(MCAST_MIB_Get(nullptr, Parse, records[0]), MCAST_MIB_NO_ENTRY);
    scripted::socket = scripted::Failing(EMFILE, -3);
    EXPECT_EQ(MCAST_MIB_Get(daemons[0], Parse, records[0]), MCAST_MIB_NO_ENTRY);
    EXPECT_EQ(MCAST_MIB_SetGlobal(daemons[0], Parse, records[0]), MCAST_MIB_NO_ENTRY);
    EXPECT_EQ(g_parsing.calls, 0);
}

TEST_F(Mib, SetGlobalGivesTheParserNothingToWriteTo)
{
    Answer(0, 0x40010001);
    EXPECT_EQ(MCAST_MIB_SetGlobal(daemons[0], Parse, records[0]), 0x40010001u);
    EXPECT_EQ(device_calls, Conversation());
    EXPECT_EQ(g_parsing.output, nullptr);
    EXPECT_EQ(g_parsing.extra1, nullptr);
    EXPECT_EQ(g_parsing.extra2, nullptr);
}

TEST_F(Mib, SetTablePresetsTheParsersSlotsAndGivesTheErrorIndexWhateverTheResult)
{
    Answer(0, 0);
    for (MCAST_STATUS result : {MCAST_OK, kOther}) {
        uint32_t wrong = 5;

        g_parsing.act = [=](void *output, void *extra1, void *extra2) {
            uint32_t type = 0;
            uint16_t count = 0xffff;
            uint32_t index = 0;

            memcpy(&type, output, sizeof(type));
            memcpy(&count, extra1, sizeof(count));
            memcpy(&index, extra2, sizeof(index));
            EXPECT_EQ(type, 8u);
            EXPECT_EQ(count, 0u);
            EXPECT_EQ(index, 0xffffffffu);
            memset(output, 0xee, sizeof(type));
            memset(extra1, 0xee, sizeof(count));
            memset(extra2, 0x01, sizeof(index));
            return result;
        };
        EXPECT_EQ(MCAST_MIB_SetTable(daemons[0], Parse, records[0], &wrong), result);
        EXPECT_EQ(wrong, 0x01010101u);
    }
    sockets_expected = 2;
}

TEST_F(Mib, SetTableWithoutADaemonHasNoErrorIndex)
{
    uint32_t wrong = 5;

    EXPECT_EQ(MCAST_MIB_SetTable(daemons[0], Parse, records[0], &wrong), MCAST_MIB_NO_ENTRY);
    EXPECT_EQ(wrong, 0xffffffffu);
    EXPECT_EQ(g_parsing.calls, 0);
}

TEST_F(Mib, SetTableLeavesTheErrorIndexAtNoneWhenTheParserDoes)
{
    uint32_t wrong = 5;

    Answer(0, kOther);
    EXPECT_EQ(MCAST_MIB_SetTable(daemons[0], Parse, records[0], &wrong), kOther);
    EXPECT_EQ(wrong, 0xffffffffu);
}

/* ---- Combined results ---- */

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

/* ---- Daemon status ---- */

class DaemonStatus : public Mib
{
protected:
    struct State {
        uint32_t status;
        uint32_t state;
    };

    void SetUp() override
    {
        Mib::SetUp();
        sockets_expected = 0;
        device.local_lip = 0x70003;
        device.service_status = [this](uint16_t node, uint64_t service, uint32_t *state) {
            EXPECT_EQ(service, 7u);
            *state = states.at(node).state;
            return states.at(node).status;
        };
    }

    void Reachable()
    {
        replies[0] = "x";
    }

    std::array<State, 8> states = {};
};

TEST_F(DaemonStatus, RunningHereIsProvedByAConnection)
{
    states[3] = {0, 2};
    EXPECT_EQ(MCAST_MIB_GetDaemonStatus(daemons[0]), MCAST_ERR_GENERAL);
    EXPECT_EQ(device_calls, (Calls{"status 3 7", "connect 1", "close"}));
    Reachable();
    EXPECT_EQ(MCAST_MIB_GetDaemonStatus(daemons[0]), MCAST_OK);
    sockets_expected = 2;
}

TEST_F(DaemonStatus, NoSocketIsNoConnection)
{
    states[3] = {0, 2};
    scripted::socket = scripted::Failing(EMFILE);
    EXPECT_EQ(MCAST_MIB_GetDaemonStatus(daemons[0]), MCAST_ERR_GENERAL);
}

TEST_F(DaemonStatus, RunningHereBesideAnErrorIsNotProved)
{
    states[3] = {MCAST_ERR_GENERAL, 2};
    EXPECT_EQ(MCAST_MIB_GetDaemonStatus(daemons[0]), MCAST_OK);
    EXPECT_EQ(device_calls, Calls{"status 3 7"});
}

TEST_F(DaemonStatus, OnlyNothingDoneHereAsksTheStandbyNodes)
{
    states[3] = {MCAST_ERR_NOTHING_DONE, 2};
    EXPECT_EQ(MCAST_MIB_GetDaemonStatus(daemons[0]), MCAST_OK);
    EXPECT_EQ(device_calls, (Calls{"status 3 7", "standby"}));
}

TEST_F(DaemonStatus, RunningNowhereIsWellWithoutAConnection)
{
    for (uint32_t state : {0u, 1u, 3u, 4u, 0x10002u}) {
        states[3] = {0, state};
        EXPECT_EQ(MCAST_MIB_GetDaemonStatus(daemons[0]), MCAST_OK);
    }
    device.standby.emplace();
    EXPECT_EQ(MCAST_MIB_GetDaemonStatus(daemons[0]), MCAST_OK);
    device.standby = {{1, 2}};
    states[1] = {0, 1};
    EXPECT_EQ(MCAST_MIB_GetDaemonStatus(daemons[0]), MCAST_OK);
    EXPECT_EQ(Count("connect 1"), 0u);
    EXPECT_EQ(Count("status 2 7"), 1u);
}

TEST_F(DaemonStatus, TheFirstStandbyNodeWhereItRunsEndsTheSearch)
{
    device.standby = {{6, 1, 4, 2}};
    states[6] = {MCAST_ERR_NOTHING_DONE, 2};
    states[1] = {MCAST_ERR_GENERAL, 2};
    states[4] = {0, 2};
    EXPECT_EQ(MCAST_MIB_GetDaemonStatus(daemons[0]), MCAST_ERR_GENERAL);
    EXPECT_EQ(device_calls, (Calls{"status 3 7", "standby", "status 6 7", "status 1 7", "status 4 7",
                                   "connect 1", "close"}));
    Reachable();
    EXPECT_EQ(MCAST_MIB_GetDaemonStatus(daemons[0]), MCAST_OK);
    sockets_expected = 2;
}

TEST_F(DaemonStatus, AnAnswerThatSetsNothingIsNotThatOfTheNodeBefore)
{
    device.standby = {{1, 4}};
    device.service_status = [](uint16_t node, uint64_t, uint32_t *state) {
        if (node == 1) {
            *state = 2;
            return MCAST_ERR_GENERAL;
        }
        return MCAST_OK;
    };
    EXPECT_EQ(MCAST_MIB_GetDaemonStatus(daemons[0]), MCAST_OK);
    EXPECT_EQ(Count("connect 1"), 0u);
}

TEST_F(DaemonStatus, WithoutMemoryForTheStandbyNodesItIsTakenForWell)
{
    device.standby = {{4}};
    states[4] = {0, 2};
    EXPECT_EQ(fault::ForEveryAllocation([this](unsigned long nth) {
                  EXPECT_EQ(MCAST_MIB_GetDaemonStatus(daemons[0]), nth == 1 ? MCAST_OK : MCAST_ERR_GENERAL);
              }),
              1u);
    sockets_expected = 1;
}

/* ---- Real sockets ---- */

/* Every exchange takes a descriptor and gives it back, whatever becomes of it. */
TEST(MibSockets, NoDescriptorStaysOpenAndAClosedPeerEndsNothing)
{
    MCAST_APP_ENDPOINT_S daemon = {7, 1, 0};
    char reply[16] = {};
    MCAST_MIB_REQUEST_S request = {5, "query", sizeof(reply), reply, 0, 0};
    int before = OpenDescriptors();
    int peer = -1;

    scripted::Reset();
    scripted::ResetDevice();
    g_parsing = {};
    g_parsing.act = [](auto...) { return MCAST_OK; };
    scripted::socket = [&](int, int, int) {
        int pair[2] = {-1, -1};

        EXPECT_EQ(socketpair(AF_UNIX, SOCK_SEQPACKET, 0, pair), 0);
        peer = pair[1];
        return pair[0];
    };
    scripted::setsockopt = [](auto...) { return 0; };

    /* Nobody there: SIGPIPE, if it were sent, would end this program. */
    scripted::connect = [&](auto...) { return close(peer); };
    EXPECT_EQ(MCAST_MIB_Get(&daemon, Parse, &request), MCAST_MIB_NO_ENTRY);

    /* Two replies are there; the first is taken, an empty one is none. */
    scripted::connect = [&](auto...) {
        EXPECT_EQ(send(peer, "first", 5, 0), 5);
        EXPECT_EQ(send(peer, "second", 6, 0), 6);
        return 0;
    };
    EXPECT_EQ(MCAST_MIB_Get(&daemon, Parse, &request), MCAST_OK);
    EXPECT_EQ(g_parsing.reply, "first");
    close(peer);
    scripted::connect = [&](auto...) { return send(peer, "", 0, 0) == 0 ? 0 : -1; };
    EXPECT_EQ(MCAST_MIB_Get(&daemon, Parse, &request), MCAST_MIB_NO_ENTRY);
    close(peer);

    /* Nothing to send is nothing to wait for. */
    scripted::connect = [](auto...) { return 0; };
    request.request_length = 0;
    EXPECT_EQ(MCAST_MIB_Get(&daemon, Parse, &request), MCAST_MIB_NO_ENTRY);
    close(peer);
    EXPECT_EQ(OpenDescriptors(), before);
    scripted::Reset();
}

} // namespace
