#include "mcast/service.h"

#include <algorithm>
#include <array>
#include <cerrno>
#include <cstring>
#include <gtest/gtest.h>
#include <unistd.h>

#include "support/descriptors.h"
#include "support/fault.h"
#include "support/scripted_device.h"
#include "support/scripted_libc.h"

namespace
{

using Calls = std::vector<std::string>;
using scripted::device;
using scripted::device_calls;

constexpr uint64_t kService = 7;
constexpr int kSocket = 1000;
const MCAST_APP_ENDPOINT_S kStart = {kService, 2182, 1};
const MCAST_APP_ENDPOINT_S kNoStart = {kService, 2182, 0};

/* Scripted states: what a node's service manager answers. */
struct State {
    uint32_t status;
    uint32_t state;
};

class Services : public testing::Test
{
protected:
    void SetUp() override
    {
        scripted::Reset();
        scripted::ResetDevice();
        live = fault::LiveBlocks();
        device.local_lip = 0x20003;
        device.service_status = [this](uint16_t node, uint64_t, uint32_t *state) {
            *state = states[node % states.size()].state;
            return states[node % states.size()].status;
        };
        scripted::socket = [](int, int, int) { return kSocket; };
        scripted::setsockopt = [](auto...) {
            device_calls.emplace_back("option");
            return 0;
        };
        scripted::close = [](int fd) {
            EXPECT_EQ(fd, kSocket);
            device_calls.emplace_back("close");
            errno = EBADF;
            return -1;
        };
        scripted::nanosleep = [](const struct timespec *wanted, struct timespec *) {
            EXPECT_EQ(wanted->tv_sec, 0);
            EXPECT_EQ(wanted->tv_nsec, 200000000);
            device_calls.emplace_back("wait");
            errno = EFAULT;
            return 0;
        };
    }

    void TearDown() override
    {
        scripted::Reset();
        EXPECT_EQ(fault::LiveBlocks(), live) << "a list of nodes was not freed";
    }

    /* Connecting fails that often with the error, then succeeds. */
    static void RefuseConnection(int times, int error = ECONNREFUSED)
    {
        scripted::connect = [times, error](int, const sockaddr *, socklen_t) mutable {
            device_calls.emplace_back("connect");
            errno = error;
            return times-- > 0 ? -1 : 0;
        };
    }

    static size_t Count(const std::string &call)
    {
        return static_cast<size_t>(std::count(device_calls.begin(), device_calls.end(), call));
    }

    long live = 0;
    std::array<State, 8> states = {};
};

/* ---- Standby nodes ---- */

TEST_F(Services, AreNotStartedWithoutStandbyNodes)
{
    EXPECT_EQ(MCAST_StartSlaveService(kService), MCAST_OK);
    device.standby.emplace();
    EXPECT_EQ(MCAST_StartSlaveService(kService), MCAST_OK);
    EXPECT_EQ(device_calls, (Calls{"standby", "standby"}));
}

TEST_F(Services, AreStartedOnStandbyNodesWhereTheyAreAbsentOrStopped)
{
    device.standby = {{5, 2, 1, 3, 4}};
    states = {{{0, 0}, {0, 1}, {0, 0}, {0, 3}, {0, 2}, {0, 4}, {0, 0}, {0, 0}}};
    EXPECT_EQ(MCAST_StartSlaveService(kService), MCAST_OK);
    EXPECT_EQ(device_calls, (Calls{"standby", "status 5 7", "status 2 7", "start 2 7", "status 1 7",
                                   "status 3 7", "start 3 7", "status 4 7"}));
}

TEST_F(Services, AreLeftAloneWhereTheirStateIsUnknown)
{
    device.standby = {{0, 1, 2}};
    states[0] = {MCAST_ERR_GENERAL, 0};
    states[1] = {MCAST_ERR_NOTHING_DONE, 3};
    states[2] = {MCAST_ERR_NOTHING_DONE, 2};
    EXPECT_EQ(MCAST_StartSlaveService(0xffffffffffffffff), MCAST_OK);
    EXPECT_EQ(Count("start 1 18446744073709551615"), 1u);
    EXPECT_EQ(device_calls.size(), 5u);
}

TEST_F(Services, OrTheResultsOfTheirStartsButForNothingDone)
{
    device.standby = {{0, 1, 2, 3}};
    device.service_start = [](uint16_t node, uint64_t) {
        return std::array<uint32_t, 4>{0x100, MCAST_ERR_NOTHING_DONE, 0x200, 0}[node];
    };
    EXPECT_EQ(MCAST_StartSlaveService(kService), 0x300u);
    EXPECT_EQ(Count("start 3 7"), 1u);
    device.standby = {{1, 3}};
    EXPECT_EQ(MCAST_StartSlaveService(kService), MCAST_OK);
}

/* ---- connect ---- */

TEST_F(Services, ConnectHandsOverItsArgumentsAndGivesZero)
{
    const sockaddr address = {};
    scripted::connect = [&](int fd, const sockaddr *to, socklen_t length) {
        EXPECT_EQ(fd, 5);
        EXPECT_EQ(to, &address);
        EXPECT_EQ(length, 11u);
        return 0;
    };
    EXPECT_EQ(MCAST_Connect(5, &address, 11), 0);
}

TEST_F(Services, ConnectIsRepeatedWhileInterrupted)
{
    int calls = 0;
    scripted::connect = [&](auto...) {
        errno = EINTR;
        return ++calls <= 10000 ? -1 : 0;
    };
    EXPECT_EQ(MCAST_Connect(5, nullptr, 0), 0);
    EXPECT_EQ(calls, 10001);
}

TEST_F(Services, ConnectTakesAConnectedSocketForSuccess)
{
    int calls = 0;
    scripted::connect = [&](auto...) {
        errno = ++calls == 1 ? EINTR : EISCONN;
        return -1;
    };
    EXPECT_EQ(MCAST_Connect(5, nullptr, 0), 0);
    EXPECT_EQ(calls, 2);
}

TEST_F(Services, ConnectFailsAtOnceWithAnyOtherError)
{
    for (int error : {ECONNREFUSED, EAGAIN, EALREADY, EINPROGRESS, EBADF, ETIMEDOUT, ENOENT, EACCES}) {
        RefuseConnection(1, error);
        device_calls.clear();
        EXPECT_EQ(MCAST_Connect(5, nullptr, 0), -1);
        EXPECT_EQ(errno, error);
        EXPECT_EQ(device_calls, Calls{"connect"});
    }
}

/* ---- Reaching a daemon ---- */

TEST_F(Services, ADaemonThatListensIsReachedAtOnce)
{
    const uint8_t expected[4] = {16, 37, 0x08, 0x86};
    const uint16_t node = 128;
    int options = 0;
    scripted::socket = [](int family, int type, int protocol) {
        EXPECT_EQ(family, 37);
        EXPECT_EQ(type, SOCK_DGRAM);
        EXPECT_EQ(protocol, 1);
        return kSocket;
    };
    scripted::connect = [&](int fd, const sockaddr *to, socklen_t length) {
        EXPECT_EQ(fd, kSocket);
        EXPECT_EQ(length, 16u);
        EXPECT_EQ(memcmp(to, expected, 4), 0);
        EXPECT_EQ(memcmp(reinterpret_cast<const uint8_t *>(to) + 4, &node, 2), 0);
        EXPECT_EQ(memcmp(reinterpret_cast<const uint8_t *>(to) + 6, "\0\0\0\0\0\0\0\0\0", 10), 0);
        return 0;
    };
    scripted::setsockopt = [&](int fd, int level, int option, const void *value, socklen_t length) {
        const uint32_t linger[2] = {1, 0};
        EXPECT_EQ(fd, kSocket);
        EXPECT_EQ(level, SOL_SOCKET);
        EXPECT_EQ(option, 128);
        EXPECT_EQ(length, 8u);
        EXPECT_EQ(memcmp(value, linger, sizeof(linger)), 0);
        ++options;
        errno = EINVAL;
        return -1; /* the result does not matter */
    };
    EXPECT_EQ(MCAST_Connect2APP(&kStart), kSocket);
    EXPECT_EQ(options, 1);
    EXPECT_TRUE(device_calls.empty()) << "nobody is asked and nothing is closed";
}

TEST_F(Services, ASocketThatCannotBeMadeIsReportedAsItIs)
{
    scripted::socket = scripted::Failing(EMFILE, -5);
    EXPECT_EQ(MCAST_Connect2APP(&kStart), -5);
    EXPECT_EQ(errno, EMFILE);
    EXPECT_TRUE(device_calls.empty());
}

TEST_F(Services, AnEndpointIsNeeded)
{
    scripted::socket = [](auto...) {
        ADD_FAILURE() << "a socket for nothing";
        return kSocket;
    };
    EXPECT_EQ(MCAST_Connect2APP(nullptr), -1);
    EXPECT_EQ(errno, EINVAL);
}

TEST_F(Services, DescriptorZeroIsASocketLikeAnyOther)
{
    scripted::socket = [](auto...) { return 0; };
    RefuseConnection(0);
    EXPECT_EQ(MCAST_Connect2APP(&kStart), 0);
    EXPECT_EQ(device_calls, (Calls{"connect", "option"}));
}

TEST_F(Services, AConnectedSocketAndSignalsDoNotCountAsAttempts)
{
    int calls = 0;
    scripted::connect = [&](auto...) {
        errno = ++calls < 100 ? EINTR : EISCONN;
        return -1;
    };
    EXPECT_EQ(MCAST_Connect2APP(&kNoStart), kSocket);
    EXPECT_EQ(calls, 100);
    EXPECT_EQ(device_calls, Calls{"option"});
}

TEST_F(Services, WithoutLeaveToStartThereIsOneAttemptAndNoWait)
{
    for (uint16_t flag : {uint16_t{0}, uint16_t{2}, uint16_t{0x101}}) {
        const MCAST_APP_ENDPOINT_S endpoint = {kService, 2182, flag};

        RefuseConnection(1, EHOSTDOWN);
        device_calls.clear();
        EXPECT_EQ(MCAST_Connect2APP(&endpoint), -1);
        EXPECT_EQ(errno, EHOSTDOWN) << "closing leaves it alone";
        EXPECT_EQ(device_calls, (Calls{"connect", "close"}));
    }
}

TEST_F(Services, AnAbsentDaemonIsStartedHereAndOnTheStandbyNodesAndThenReached)
{
    device.standby = {{1}};
    RefuseConnection(1);
    EXPECT_EQ(MCAST_Connect2APP(&kStart), kSocket);
    EXPECT_EQ(device_calls, (Calls{"connect", "status 3 7", "start 3 7", "standby", "status 1 7", "start 1 7",
                                   "wait", "connect", "option"}));
}

TEST_F(Services, AnyFailureOfTheConnectionLeadsToAStart)
{
    RefuseConnection(1, EAGAIN);
    EXPECT_EQ(MCAST_Connect2APP(&kStart), kSocket);
    EXPECT_EQ(Count("start 3 7"), 1u);
}

TEST_F(Services, AStoppedDaemonAndOneOfUnknownStateAreStarted)
{
    for (State state : {State{0, 3}, State{MCAST_ERR_NOTHING_DONE, 3}, State{MCAST_ERR_NOTHING_DONE, 0},
                        State{MCAST_ERR_GENERAL, 0}, State{MCAST_ERR_GENERAL, 1}}) {
        states[3] = state;
        RefuseConnection(1);
        device_calls.clear();
        EXPECT_EQ(MCAST_Connect2APP(&kStart), kSocket);
        EXPECT_EQ(device_calls,
                  (Calls{"connect", "status 3 7", "start 3 7", "standby", "wait", "connect", "option"}));
    }
}

TEST_F(Services, ADaemonThatIsThereButNotReadyIsOnlyWaitedFor)
{
    for (State state : {State{0, 1}, State{0, 2}, State{0, 4}, State{MCAST_ERR_NOTHING_DONE, 1}}) {
        states[3] = state;
        RefuseConnection(2);
        device_calls.clear();
        EXPECT_EQ(MCAST_Connect2APP(&kStart), kSocket);
        EXPECT_EQ(device_calls, (Calls{"connect", "status 3 7", "wait", "connect", "status 3 7", "wait",
                                       "connect", "option"}));
    }
}

TEST_F(Services, TheFifthAttemptMayStillSucceed)
{
    RefuseConnection(4);
    EXPECT_EQ(MCAST_Connect2APP(&kStart), kSocket);
    EXPECT_EQ(Count("connect"), 5u);
    EXPECT_EQ(Count("wait"), 4u);
    EXPECT_EQ(Count("close"), 0u);
}

TEST_F(Services, AfterFiveAttemptsTheSocketIsClosedAndTheErrorIsThatOfTheLast)
{
    RefuseConnection(6, ECONNREFUSED);
    device.service_start = [](uint16_t, uint64_t) {
        errno = ENOMEM;
        return MCAST_ERR_GENERAL;
    };
    EXPECT_EQ(MCAST_Connect2APP(&kStart), -1);
    EXPECT_EQ(errno, ECONNREFUSED);
    EXPECT_EQ(Count("connect"), 5u);
    EXPECT_EQ(Count("start 3 7"), 5u);
    EXPECT_EQ(Count("wait"), 5u);
    EXPECT_EQ(Count("close"), 1u);
    EXPECT_EQ(Count("option"), 0u);
    EXPECT_EQ(device_calls.back(), "close");
}

TEST_F(Services, SignalsDoNotShortenTheWait)
{
    std::vector<long> waits;
    RefuseConnection(1);
    scripted::nanosleep = [&](const struct timespec *wanted, struct timespec *left) {
        waits.push_back(wanted->tv_nsec);
        *left = {0, wanted->tv_nsec - 50000000};
        errno = EINTR;
        return waits.size() < 4 ? -1 : 0;
    };
    EXPECT_EQ(MCAST_Connect2APP(&kStart), kSocket);
    EXPECT_EQ(waits, (std::vector<long>{200000000, 150000000, 100000000, 50000000}));
}

TEST_F(Services, AWaitThatFailsOtherwiseIsOver)
{
    RefuseConnection(1);
    scripted::nanosleep = scripted::Failing(EINVAL);
    EXPECT_EQ(MCAST_Connect2APP(&kStart), kSocket);
}

TEST_F(Services, ShortMemoryForTheStandbyNodesStopsNothing)
{
    device.standby = {{1}};
    fault::ForEveryAllocation([](unsigned long) {
        RefuseConnection(1);
        EXPECT_EQ(MCAST_Connect2APP(&kStart), kSocket);
    });
    EXPECT_GE(Count("standby"), 2u);
}

/* On real sockets: nothing stays open on a failure, and the caller owns what it is given. */
TEST_F(Services, LeaveNoDescriptorBehind)
{
    scripted::Reset();
    scripted::socket = [](int, int, int) {
        return scripted::real::socket(AF_UNIX, SOCK_SEQPACKET | SOCK_CLOEXEC, 0);
    };
    scripted::nanosleep = [](auto...) { return 0; };

    int before = OpenDescriptors();

    scripted::connect = scripted::Failing(ECONNREFUSED);
    EXPECT_EQ(MCAST_Connect2APP(&kNoStart), -1);
    EXPECT_EQ(MCAST_Connect2APP(&kStart), -1);
    EXPECT_EQ(OpenDescriptors(), before);
    scripted::connect = [](auto...) { return 0; };

    int fd = MCAST_Connect2APP(&kStart);

    EXPECT_EQ(OpenDescriptors(), before + 1);
    EXPECT_EQ(close(fd), 0);
    EXPECT_EQ(OpenDescriptors(), before);
}

} // namespace
