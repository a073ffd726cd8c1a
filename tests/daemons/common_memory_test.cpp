#include <cstdio>
#include <cstdlib>
#include <gtest/gtest.h>
#include <new>
#include <sys/resource.h>
#include <sys/wait.h>
#include <unistd.h>
#include <utility>
#include <vector>

#include "daemons/common/memory.h"

using namespace mcastd;

namespace
{

#if defined(__SANITIZE_ADDRESS__) || defined(__SANITIZE_THREAD__)
constexpr bool LIMITS_HOLD = false;
#elif defined(__has_feature)
constexpr bool LIMITS_HOLD = !(__has_feature(address_sanitizer) || __has_feature(thread_sanitizer));
#else
constexpr bool LIMITS_HOLD = true;
#endif

// Memory is a matter of the process; each test has one of its own, whose exit code tells what went wrong.
template <typename Test> int in_a_process(const Test &test)
{
    const pid_t child = fork();
    if (child == 0) {
        try {
            _Exit(test());
        } catch (const std::bad_alloc &) {
            _Exit(200);
        }
    }
    int status = 0;
    waitpid(child, &status, 0);
    return WIFEXITED(status) ? WEXITSTATUS(status) : 255;
}

// Leaves the process so much beyond what it has.
void leave(size_t bytes)
{
    long pages = 0;
    FILE *file = fopen("/proc/self/statm", "r");
    if (fscanf(file, "%ld", &pages) != 1) {
        _Exit(100);
    }
    fclose(file);
    const rlim_t limit = static_cast<rlim_t>(pages) * static_cast<rlim_t>(sysconf(_SC_PAGESIZE)) + bytes;
    const rlimit both{limit, limit};
    setrlimit(RLIMIT_AS, &both);
}

// Blocks that hang on each other.
class Taken
{
public:
    bool take()
    {
        auto *block = static_cast<void **>(malloc(4096));
        if (block == nullptr) {
            return false;
        }
        *block = last_;
        last_ = block;
        return true;
    }
    void take_everything()
    {
        while (take()) {
        }
    }
    void free_all()
    {
        while (last_ != nullptr) {
            free(std::exchange(last_, static_cast<void **>(*last_)));
        }
    }

private:
    void **last_ = nullptr;
};

constexpr size_t SEVERAL_MIB = size_t{24} << 20;

class Memory : public testing::Test
{
protected:
    void SetUp() override
    {
        if (!LIMITS_HOLD) {
            GTEST_SKIP() << "the sanitizer takes address space of its own";
        }
    }
};

TEST_F(Memory, OneWithTooLittleDoesNotBegin)
{
    EXPECT_EQ(in_a_process([] {
                  leave(MEMORY_RESERVE / 2);
                  Taken taken;
                  taken.take_everything();
                  return memory_open() ? 1 : 0;
              }),
              0);
}

TEST_F(Memory, GrowthEndsWhileThereIsHeadroom)
{
    EXPECT_EQ(in_a_process([] {
                  leave(SEVERAL_MIB);
                  if (!memory_open()) {
                      return 1;
                  }
                  const uint64_t before = memory_refusals();
                  const uint64_t lent = memory_lent();
                  Taken taken;
                  while (memory_permits(4096)) {
                      if (!taken.take()) {
                          return 2; // the C library found nothing though growth was permitted
                      }
                  }
                  if (!memory_is_short() || memory_refusals() != before + 1 || memory_lent() != lent) {
                      return 3;
                  }
                  void *more = malloc(MEMORY_HEADROOM / 2);
                  return more != nullptr ? 0 : 4;
              }),
              0);
}

TEST_F(Memory, TheReserveServesNewOnceAndComesBackWithTheRoom)
{
    EXPECT_EQ(in_a_process([] {
                  leave(SEVERAL_MIB);
                  if (!memory_open()) {
                      return 1;
                  }
                  const uint64_t lent = memory_lent();
                  Taken taken;
                  taken.take_everything();
                  const std::vector<char> needed(MEMORY_RESERVE / 4); // of the reserve
                  if (memory_lent() != lent + 1 || !memory_is_short() || memory_permits(1)) {
                      return 2;
                  }
                  taken.take_everything();
                  if (memory_unit("a test", [] { const std::vector<char> none(MEMORY_RESERVE); }) ||
                      new (std::nothrow) char[MEMORY_RESERVE] != nullptr) {
                      return 3;
                  }
                  taken.free_all();
                  memory_tend();
                  usleep(300 * 1000);
                  memory_tend();
                  return !memory_is_short() && memory_permits(1) ? 0 : 4;
              }),
              0);
}

TEST_F(Memory, TheReserveIsTakenAtTheBeginning)
{
    EXPECT_EQ(in_a_process([] {
                  leave(SEVERAL_MIB);
                  if (!memory_open()) {
                      return 1;
                  }
                  Taken taken;
                  taken.take_everything();
                  return memory_lend() && taken.take() ? 0 : 2;
              }),
              0);
}

TEST_F(Memory, WhatTheLibraryDoesNotGetIsAskedForAgainWithTheReserve)
{
    EXPECT_EQ(in_a_process([] {
                  leave(SEVERAL_MIB);
                  if (!memory_open()) {
                      return 1;
                  }
                  Taken taken;
                  taken.take_everything();
                  if (must_have([] { return malloc(MEMORY_RESERVE / 4); }) == nullptr) {
                      return 2;
                  }
                  taken.take_everything();
                  try {
                      must_have([] { return malloc(MEMORY_RESERVE); });
                  } catch (const std::bad_alloc &) {
                      return 0;
                  }
                  return 3;
              }),
              0);
}

} // namespace
