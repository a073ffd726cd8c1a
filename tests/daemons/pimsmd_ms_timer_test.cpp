#include <gtest/gtest.h>
#include <map>
#include <memory>
#include <poll.h>
#include <sys/timerfd.h>
#include <vector>

#include "daemons/pimsmd/ms_timer.h"
#include "tests/support/property.h"

using pimsmd::MsQueue;
using pimsmd::MsTimer;
using pimsmd::MsWakeup;

namespace
{

constexpr size_t ALL = SIZE_MAX;

struct Lab {
    uint64_t now = 5000;
    MsQueue queue{[this] { return now; }};
    std::vector<int> ended;
};

// A timer that notes its end.
struct Noted {
    Lab *lab = nullptr;
    int number = 0;
    MsTimer timer;

    void start(uint64_t delay_ms)
    {
        lab->queue.start(timer, delay_ms, ended, this);
    }
    static void ended(void *owner)
    {
        auto *self = static_cast<Noted *>(owner);
        self->lab->ended.push_back(self->number);
    }
};

bool is_readable(const MsWakeup &wakeup, int wait_ms)
{
    pollfd look{wakeup.descriptor(), POLLIN, 0};
    return poll(&look, 1, wait_ms) == 1;
}

uint64_t armed_ms(const MsWakeup &wakeup)
{
    itimerspec setting{};
    EXPECT_EQ(timerfd_gettime(wakeup.descriptor(), &setting), 0);
    return static_cast<uint64_t>(setting.it_value.tv_sec) * 1000 +
           static_cast<uint64_t>(setting.it_value.tv_nsec) / 1000000;
}

} // namespace

TEST(PimMsTimer, EndsAtItsMillisecondAndNotBefore)
{
    Lab lab;
    Noted one{&lab, 1, {}};
    one.start(2500);
    EXPECT_EQ(lab.queue.next_ms(), 7500u);
    lab.now += 2499;
    EXPECT_FALSE(lab.queue.run_due(ALL));
    EXPECT_TRUE(lab.ended.empty());
    EXPECT_EQ(lab.queue.remaining_ms(one.timer), 1u);
    lab.now += 1;
    lab.queue.run_due(ALL);
    EXPECT_EQ(lab.ended, std::vector<int>{1});
    EXPECT_FALSE(one.timer.running());
    EXPECT_EQ(lab.queue.next_ms(), std::nullopt);
}

TEST(PimMsTimer, TimersOfOneMillisecondEndInTheOrderOfTheirStarts)
{
    Lab lab;
    std::vector<Noted> timers(20);
    for (int i = 0; i < 20; ++i) {
        timers[static_cast<size_t>(i)].lab = &lab;
        timers[static_cast<size_t>(i)].number = i;
        timers[static_cast<size_t>(i)].start(10);
    }
    timers[3].start(10);
    lab.now += 11;
    lab.queue.run_due(ALL);
    EXPECT_EQ(lab.ended,
              (std::vector<int>{0, 1, 2, 4, 5, 6, 7, 8, 9, 10, 11, 12, 13, 14, 15, 16, 17, 18, 19, 3}));
}

TEST(PimMsTimer, IsBroughtForwardOrPutOffAsAsked)
{
    Lab lab;
    Noted one{&lab, 1, {}};
    lab.queue.lower(one.timer, 10);
    lab.queue.raise(one.timer, 10);
    EXPECT_FALSE(one.timer.running());
    one.start(1000);
    lab.queue.lower(one.timer, 2000);
    EXPECT_EQ(lab.queue.remaining_ms(one.timer), 1000u);
    lab.queue.lower(one.timer, 400);
    EXPECT_EQ(lab.queue.remaining_ms(one.timer), 400u);
    lab.queue.raise(one.timer, 300);
    EXPECT_EQ(lab.queue.remaining_ms(one.timer), 400u);
    lab.queue.raise(one.timer, 800);
    EXPECT_EQ(lab.queue.remaining_ms(one.timer), 800u);
}

TEST(PimMsTimer, StopsWithItsRecordAndWithTheQueue)
{
    MsTimer outlives;
    {
        Lab lab;
        {
            Noted one{&lab, 1, {}};
            one.start(10);
            EXPECT_EQ(lab.queue.size(), 1u);
        }
        EXPECT_EQ(lab.queue.size(), 0u);
        lab.queue.start(
            outlives, 10, [](void *) { FAIL(); }, nullptr);
        lab.queue.stop(outlives);
        lab.queue.stop(outlives);
        lab.queue.start(
            outlives, 10, [](void *) { FAIL(); }, nullptr);
    }
    EXPECT_FALSE(outlives.running());
}

TEST(PimMsTimer, AHandlerMayStartItsTimerAgainAndDestroyOthers)
{
    struct Again {
        Lab *lab;
        std::unique_ptr<Noted> victim;
        MsTimer timer;
        int runs = 0;
    } again{nullptr, nullptr, {}};
    Lab lab;

    again.lab = &lab;
    again.victim = std::make_unique<Noted>();
    again.victim->lab = &lab;
    const MsTimer::Handler handler = [](void *owner) {
        auto *self = static_cast<Again *>(owner);
        const MsTimer::Handler count = [](void *of) { ++static_cast<Again *>(of)->runs; };

        self->victim.reset();
        ++self->runs;
        self->lab->queue.start(self->timer, 0, count, self);
    };

    lab.queue.start(again.timer, 5, handler, &again);
    again.victim->start(5);
    lab.now += 5;
    EXPECT_TRUE(lab.queue.run_due(ALL)); // the one started anew is left
    EXPECT_EQ(again.runs, 1);
    EXPECT_TRUE(lab.ended.empty());
    EXPECT_FALSE(lab.queue.run_due(ALL));
    EXPECT_EQ(again.runs, 2);
}

TEST(PimMsTimer, ATurnHasItsMeasure)
{
    Lab lab;
    std::vector<Noted> timers(10);
    for (Noted &one : timers) {
        one.lab = &lab;
        one.start(1);
    }
    lab.now += 1;
    EXPECT_TRUE(lab.queue.run_due(9));
    EXPECT_EQ(lab.ended.size(), 9u);
    EXPECT_FALSE(lab.queue.run_due(9));
    EXPECT_EQ(lab.ended.size(), 10u);
}

TEST(PimMsTimer, RandomOperationsAgreeWithAList)
{
    property::Random random(property::Seed("ms_timer"));
    Lab lab;
    std::vector<Noted> timers(50);
    std::map<int, std::pair<uint64_t, uint64_t>> model; // number to end and order of start
    uint64_t order = 0;

    for (int i = 0; i < 50; ++i) {
        timers[static_cast<size_t>(i)].lab = &lab;
        timers[static_cast<size_t>(i)].number = i;
    }
    for (uint64_t step = 0; step < property::Operations(20000); ++step) {
        const int number = static_cast<int>(random.Below(50));
        Noted &one = timers[static_cast<size_t>(number)];
        const uint64_t delay = random.Below(200);

        switch (random.Below(5)) {
        case 0:
        case 1:
            one.start(delay);
            model[number] = {lab.now + delay, ++order};
            break;
        case 2:
            lab.queue.stop(one.timer);
            model.erase(number);
            break;
        case 3:
            lab.queue.lower(one.timer, delay);
            if (model.contains(number) && model[number].first > lab.now + delay) {
                model[number] = {lab.now + delay, ++order};
            }
            break;
        default:
            lab.now += random.Below(100);
            lab.queue.run_due(ALL);
            std::map<std::pair<uint64_t, uint64_t>, int> due;
            for (const auto &[name, end] : model) {
                if (end.first <= lab.now) {
                    due[end] = name;
                }
            }
            std::vector<int> expected;
            for (const auto &[end, name] : due) {
                expected.push_back(name);
                model.erase(name);
            }
            ASSERT_EQ(lab.ended, expected);
            lab.ended.clear();
        }
        ASSERT_EQ(lab.queue.size(), model.size());
        ASSERT_EQ(one.timer.running(), model.contains(number));
    }
}

TEST(PimMsTimer, TheDescriptorFollowsTheFirstEnd)
{
    Lab lab;
    Noted one{&lab, 1, {}};
    Noted other{&lab, 2, {}};
    MsWakeup wakeup;
    ASSERT_GE(wakeup.descriptor(), 0);
    wakeup.arm(lab.queue);
    EXPECT_EQ(armed_ms(wakeup), 0u);
    one.start(7200 * 1000);
    wakeup.arm(lab.queue);
    EXPECT_GT(armed_ms(wakeup), 3600u * 1000);
    EXPECT_LE(armed_ms(wakeup), 7200u * 1000);
    other.start(0);
    wakeup.arm(lab.queue);
    EXPECT_TRUE(is_readable(wakeup, -1));
    lab.queue.run_due(ALL);
    wakeup.arm(lab.queue);
    EXPECT_FALSE(is_readable(wakeup, 0));
    EXPECT_GT(armed_ms(wakeup), 3600u * 1000);
    lab.queue.stop(one.timer);
    wakeup.arm(lab.queue);
    EXPECT_EQ(armed_ms(wakeup), 0u);
}

TEST(PimMsTimer, TheMonotonicClockNeverGoesBack)
{
    const uint64_t before = pimsmd::monotonic_ms();
    EXPECT_GT(before, 0u);
    EXPECT_GE(pimsmd::monotonic_ms(), before);
}
