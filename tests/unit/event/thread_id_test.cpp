#include <gtest/gtest.h>
#include <pthread.h>
#include <sys/syscall.h>
#include <unistd.h>

#include "mcast/event.h"
#include "support/scripted_libc.h"

namespace
{

TEST(ThreadId, IsTheKernelsNumberOfTheCallingThread)
{
    pthread_t thread;
    uint32_t ids[2] = {0, 0};

    ASSERT_EQ(pthread_create(
                  &thread, nullptr,
                  [](void *argument) -> void * {
                      uint32_t *seen = static_cast<uint32_t *>(argument);

                      seen[0] = MCAST_Gettid();
                      seen[1] = static_cast<uint32_t>(gettid());
                      return nullptr;
                  },
                  ids),
              0);
    pthread_join(thread, nullptr);
    EXPECT_EQ(ids[0], ids[1]);
    EXPECT_NE(ids[0], MCAST_Gettid());
    EXPECT_EQ(MCAST_Gettid(), static_cast<uint32_t>(gettid()));
}

TEST(ThreadId, ComesFromTheRawCall)
{
    scripted::syscall = [](long number, auto...) { return number + 1000; };
    EXPECT_EQ(MCAST_Gettid(), 1000u + SYS_gettid);
    scripted::Reset();
}

} // namespace
