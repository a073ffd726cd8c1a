// The library's own calls meet the host platform: both are loaded into one process, as in a daemon.
#include <gtest/gtest.h>
#include <sys/epoll.h>
#include <sys/eventfd.h>
#include <unistd.h>

#include "mcast/event.h"
#include "mcast/timer.h"
#include "mcasthost/loop.h"

namespace
{

int g_calls;
uint32_t g_events;
int32_t g_fd;

uint64_t note(uint32_t events, int32_t fd)
{
    ++g_calls;
    g_events = events;
    g_fd = fd;
    return 0;
}

TEST(WithLibrary, RegistrationsOfTheLibraryReachTheirHandlers)
{
    g_calls = 0;
    int loop = HOST_LoopCreate();
    uint32_t fd = MCAST_CreateEvtFd(static_cast<uint32_t>(loop), reinterpret_cast<uint64_t>(&note));
    ASSERT_NE(fd, UINT32_MAX);
    uint64_t one = 1;
    ASSERT_EQ(write(static_cast<int>(fd), &one, sizeof(one)), 8);
    EXPECT_EQ(HOST_LoopRunOnce(loop, 0), 1);
    EXPECT_EQ(g_events, static_cast<uint32_t>(EPOLLIN));
    EXPECT_EQ(g_fd, static_cast<int32_t>(fd));
    EXPECT_EQ(MCAST_ModifyEpoll(static_cast<uint32_t>(loop), fd, EPOLLOUT, reinterpret_cast<uint64_t>(&note)),
              0u);
    EXPECT_EQ(HOST_LoopRunOnce(loop, 0), 1);
    EXPECT_EQ(g_events, static_cast<uint32_t>(EPOLLOUT));
    EXPECT_EQ(MCAST_DeleteEpoll(static_cast<uint32_t>(loop), fd), 0);
    EXPECT_EQ(HOST_LoopRunOnce(loop, 0), 0);
    EXPECT_EQ(g_calls, 2);
    close(static_cast<int>(fd));
    EXPECT_EQ(HOST_LoopDestroy(loop), 0u);
}

TEST(WithLibrary, PlainEpollInstancesOfTheLibraryAreTheKernels)
{
    uint32_t epoll = MCAST_CreateEpoll();
    uint32_t fd = MCAST_CreateEvtFd(epoll, 1);
    ASSERT_NE(fd, UINT32_MAX);
    uint64_t one = 1;
    ASSERT_EQ(write(static_cast<int>(fd), &one, sizeof(one)), 8);
    epoll_event event{};
    EXPECT_EQ(epoll_wait(static_cast<int>(epoll), &event, 1, 0), 1);
    uint64_t data = event.data.u64; // the record is packed
    EXPECT_EQ(data, fd);
    close(static_cast<int>(fd));
    close(static_cast<int>(epoll));
}

MCAST_TMR_S *g_manager;

void process(uint64_t *)
{
    EXPECT_EQ(MCAST_TMR_ProcExpires(g_manager), 0u);
}

void expired(uint64_t *data)
{
    HOST_LoopStop(static_cast<int32_t>(data[0]));
}

TEST(WithLibrary, TimerManagerRunsOnTheLoopsTimers)
{
    int loop = HOST_LoopCreate();
    g_manager = MCAST_TMR_Create(HOST_LoopTimerService(loop), process, nullptr);
    ASSERT_NE(g_manager, nullptr);
    uint64_t data[4] = {static_cast<uint64_t>(loop), 0, 0, 0};
    uint32_t before = 0;
    uint32_t after = 0;
    uint32_t unused = 0;
    ASSERT_NE(MCAST_TMR_AddNode(g_manager, 3600, expired, data), nullptr);
    TIME_GetSystemBootTime(&before, &unused);
    ASSERT_NE(MCAST_TMR_AddNode(g_manager, 1, expired, data), nullptr);
    EXPECT_EQ(HOST_LoopRun(loop), 0u); // until the earlier one stops it
    TIME_GetSystemBootTime(&after, &unused);
    EXPECT_GE(after, before + 1);
    MCAST_TMR_Destroy(g_manager);
    EXPECT_EQ(HOST_LoopDestroy(loop), 0u);
}

} // namespace
