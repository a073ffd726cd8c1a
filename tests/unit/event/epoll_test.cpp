#include <cerrno>
#include <cstring>
#include <fcntl.h>
#include <gtest/gtest.h>
#include <sys/epoll.h>
#include <sys/eventfd.h>
#include <unistd.h>
#include <vector>

#include "mcast/event.h"
#include "support/descriptors.h"
#include "support/scripted_libc.h"

namespace
{

constexpr uint64_t kContext = 0xfedcba9876543210;

class Epoll : public testing::Test
{
protected:
    void SetUp() override
    {
        before_ = OpenDescriptors();
        epfd_ = MCAST_CreateEpoll();
        ASSERT_NE(epfd_, MCAST_NONE);
        ASSERT_EQ(pipe(pipe_), 0);
    }

    void TearDown() override
    {
        scripted::Reset();
        close(static_cast<int>(epfd_));
        close(pipe_[0]);
        close(pipe_[1]);
        EXPECT_EQ(OpenDescriptors(), before_);
    }

    uint32_t Reader() const
    {
        return static_cast<uint32_t>(pipe_[0]);
    }

    /* What the set reports now. */
    std::vector<struct epoll_event> Ready() const
    {
        std::vector<struct epoll_event> events(8);
        int count = epoll_wait(static_cast<int>(epfd_), events.data(), 8, 0);
        events.resize(count > 0 ? static_cast<size_t>(count) : 0);
        return events;
    }

    /* Closing works and leaves an errno of its own behind. */
    static void MakeCloseClobberErrno()
    {
        scripted::close = [](int fd) {
            int result = scripted::real::close(fd);

            errno = EIO;
            return result;
        };
    }

    uint32_t epfd_ = MCAST_NONE;
    int pipe_[2] = {-1, -1};
    int before_ = 0;
};

TEST_F(Epoll, IsCreatedWithSizeOne)
{
    int size = 0;
    scripted::epoll_create = [&](int wanted) {
        size = wanted;
        errno = EMFILE;
        return -1;
    };
    EXPECT_EQ(MCAST_CreateEpoll(), MCAST_NONE);
    EXPECT_EQ(errno, EMFILE);
    EXPECT_EQ(size, 1);
}

TEST_F(Epoll, ReportsTheDescriptorNumberAndNotTheContext)
{
    ASSERT_EQ(MCAST_AddEpoll(epfd_, Reader(), EPOLLIN, kContext), MCAST_OK);
    ASSERT_EQ(write(pipe_[1], "x", 1), 1);

    auto events = Ready();

    ASSERT_EQ(events.size(), 1u);
    EXPECT_EQ(uint64_t{events[0].data.u64}, Reader());
    EXPECT_EQ(uint32_t{events[0].events}, static_cast<uint32_t>(EPOLLIN));
}

TEST_F(Epoll, HandsOverTheKernelsEventAndTheContextBehindIt)
{
    struct Call {
        int epfd;
        int operation;
        int fd;
        epoll_event event;
        uint64_t context;
    };
    std::vector<Call> calls;

    scripted::epoll_ctl = [&](int epfd, int operation, int fd, struct epoll_event *event) {
        Call call = {epfd, operation, fd, *event, 0};

        std::memcpy(&call.context, event + 1, sizeof(call.context));
        calls.push_back(call);
        return 0;
    };
    EXPECT_EQ(MCAST_AddEpoll(5, 7, 0x80000001, kContext), MCAST_OK);
    EXPECT_EQ(MCAST_ModifyEpoll(5, 0xfffffff0, EPOLLOUT, 1), MCAST_OK);
    EXPECT_EQ(MCAST_DeleteEpoll(5, 7), 0);

    const auto carries = [&](size_t number, uint32_t events, uint64_t data, uint64_t context) {
        const Call &call = calls[number];
        return call.event.events == events && call.event.data.u64 == data && call.context == context;
    };
    ASSERT_EQ(calls.size(), 3u);
    EXPECT_EQ(calls[0].epfd, 5);
    EXPECT_EQ(calls[0].operation, EPOLL_CTL_ADD);
    EXPECT_EQ(calls[0].fd, 7);
    EXPECT_TRUE(carries(0, 0x80000001, 7, kContext));
    EXPECT_EQ(calls[1].operation, EPOLL_CTL_MOD);
    EXPECT_EQ(calls[1].fd, -16);
    EXPECT_TRUE(carries(1, EPOLLOUT, 0xfffffff0, 1)) << "the descriptor, zero-extended";
    EXPECT_EQ(calls[2].operation, EPOLL_CTL_DEL);
    EXPECT_EQ(calls[2].fd, 7);
    EXPECT_TRUE(carries(2, 0, 7, 0));
}

TEST_F(Epoll, ModifyChangesWhatIsWaitedFor)
{
    uint32_t writer = static_cast<uint32_t>(pipe_[1]);
    ASSERT_EQ(MCAST_AddEpoll(epfd_, writer, 0, kContext), MCAST_OK);
    EXPECT_TRUE(Ready().empty());
    ASSERT_EQ(MCAST_ModifyEpoll(epfd_, writer, EPOLLOUT, kContext), MCAST_OK);
    ASSERT_EQ(Ready().size(), 1u);
    EXPECT_EQ(uint64_t{Ready()[0].data.u64}, writer);
}

TEST_F(Epoll, ModifyFailsForADescriptorThatIsNotInTheSet)
{
    EXPECT_EQ(MCAST_ModifyEpoll(epfd_, Reader(), EPOLLIN, kContext), MCAST_ERR_GENERAL);
    EXPECT_EQ(errno, ENOENT);
}

TEST_F(Epoll, AddFailsForADescriptorThatIsInTheSet)
{
    ASSERT_EQ(MCAST_AddEpoll(epfd_, Reader(), EPOLLIN, kContext), MCAST_OK);
    EXPECT_EQ(MCAST_AddEpoll(epfd_, Reader(), EPOLLIN, kContext), MCAST_ERR_GENERAL);
    EXPECT_EQ(errno, EEXIST);
}

TEST_F(Epoll, FailsForDescriptorsThatAreNone)
{
    EXPECT_EQ(MCAST_AddEpoll(MCAST_NONE, Reader(), EPOLLIN, kContext), MCAST_ERR_GENERAL);
    EXPECT_EQ(MCAST_AddEpoll(epfd_, MCAST_NONE, EPOLLIN, kContext), MCAST_ERR_GENERAL);
    EXPECT_EQ(MCAST_DeleteEpoll(MCAST_NONE, Reader()), -1);
}

TEST_F(Epoll, TakesAnyResultButZeroForARefusal)
{
    scripted::epoll_ctl = [](auto...) { return 1; };
    EXPECT_EQ(MCAST_AddEpoll(epfd_, Reader(), EPOLLIN, kContext), MCAST_ERR_GENERAL);
    EXPECT_EQ(MCAST_ModifyEpoll(epfd_, Reader(), EPOLLIN, kContext), MCAST_ERR_GENERAL);
    EXPECT_EQ(MCAST_DeleteEpoll(epfd_, Reader()), 1);
}

TEST_F(Epoll, DeleteEndsTheRegistrationAndFailsTheSecondTime)
{
    ASSERT_EQ(MCAST_AddEpoll(epfd_, Reader(), EPOLLIN, kContext), MCAST_OK);
    ASSERT_EQ(write(pipe_[1], "x", 1), 1);
    EXPECT_EQ(MCAST_DeleteEpoll(epfd_, Reader()), 0);
    EXPECT_TRUE(Ready().empty());
    EXPECT_EQ(MCAST_DeleteEpoll(epfd_, Reader()), -1);
    EXPECT_EQ(errno, ENOENT);
}

TEST_F(Epoll, AnEventDescriptorStartsAtZeroAndWakesTheLoopWhenWritten)
{
    uint32_t fd = MCAST_CreateEvtFd(epfd_, kContext);
    uint64_t count = 3;
    ASSERT_NE(fd, MCAST_NONE);
    EXPECT_TRUE(Ready().empty());
    EXPECT_EQ(fcntl(static_cast<int>(fd), F_GETFL) & O_NONBLOCK, 0);
    EXPECT_EQ(fcntl(static_cast<int>(fd), F_GETFD) & FD_CLOEXEC, 0);
    ASSERT_EQ(eventfd_write(static_cast<int>(fd), count), 0);
    ASSERT_EQ(Ready().size(), 1u);
    EXPECT_EQ(uint64_t{Ready()[0].data.u64}, fd);
    ASSERT_EQ(eventfd_read(static_cast<int>(fd), &count), 0);
    EXPECT_EQ(count, 3u);
    EXPECT_TRUE(Ready().empty());
    close(static_cast<int>(fd));
}

TEST_F(Epoll, AnEventDescriptorNeedsAContextAndASet)
{
    int created = 0;
    int before = OpenDescriptors();
    scripted::eventfd = [&](unsigned int count, int flags) {
        ++created;
        return scripted::real::eventfd(count, flags);
    };
    EXPECT_EQ(MCAST_CreateEvtFd(epfd_, 0), MCAST_NONE);
    EXPECT_EQ(MCAST_CreateEvtFd(MCAST_NONE, kContext), MCAST_NONE);
    EXPECT_EQ(created, 0);
    EXPECT_EQ(OpenDescriptors(), before);
}

TEST_F(Epoll, AnEventDescriptorThatCannotBeMadeIsReported)
{
    scripted::eventfd = scripted::Failing(ENFILE);
    EXPECT_EQ(MCAST_CreateEvtFd(epfd_, kContext), MCAST_NONE);
    EXPECT_EQ(errno, ENFILE);
}

TEST_F(Epoll, AnEventDescriptorThatCannotBeRegisteredIsClosedAndErrnoKept)
{
    int before = OpenDescriptors();
    MakeCloseClobberErrno();
    scripted::epoll_ctl = scripted::Failing(ENOSPC);
    EXPECT_EQ(MCAST_CreateEvtFd(epfd_, kContext), MCAST_NONE);
    EXPECT_EQ(errno, ENOSPC);
    EXPECT_EQ(OpenDescriptors(), before);
}

} // namespace
