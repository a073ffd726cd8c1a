/*
 * A day of two MSDP peers within seconds, on a clock that the test moves: peers speak at random, fall silent
 * for good and come back. Each second is compared with what RFC 3618 says in moments instead of timers: when
 * an entry ends, when a silent peer is given up, when this speaker must have said something.
 *
 * The clock starts so that milliseconds since boot pass 2^32 within the day. MSDPD_RANDOM_SEED repeats a run.
 */
#include <cstdlib>
#include <gtest/gtest.h>
#include <random>
#include <set>
#include <sstream>

#include "daemons/msdpd/wire.h"
#include "tests/daemons/msdpd_lab.h"

using namespace msdpd;
using namespace msdpd_test;

namespace
{

constexpr unsigned STEADY = 1;      // connects to the speaker, and never falls silent before the end
constexpr unsigned FALTERING = 150; // is connected to
constexpr unsigned LOCAL = 99;      // the speaker's own source and group
constexpr uint32_t DAY_S = 24 * 3600;
constexpr uint32_t KEEPALIVE_S = 60;
constexpr uint32_t HOLD_S = 75;
constexpr uint32_t RETRY_S = 30;
constexpr uint32_t ADVERTISEMENT_S = 60;
constexpr uint32_t STATE_S = 150;
constexpr unsigned NUMBERS = 12; // of sources, and of groups

class Clock
{
public:
    explicit Clock(unsigned long seed) : random_(seed)
    {
        scripted_timer::platform.now_ms = ((uint64_t{1} << 32) / 1000 - DAY_S / 2) * 1000;
        lab_.mrib.local = {pair(LOCAL, LOCAL)};
        lab_.pass(1);
        timers_at_rest_ = lab_.timers->heap->count;
        come_up(STEADY);
        come_up(FALTERING);
    }

    // The day, and what is left when both have fallen silent.
    void run()
    {
        while (now_ < DAY_S && !testing::Test::HasFailure()) {
            second();
            speak(STEADY);
            if (up_.contains(FALTERING)) {
                speak(FALTERING);
            } else if (connects_ && below(3) == 0) {
                come_up(FALTERING);
            }
        }
        for (const uint32_t end = now_ + STATE_S; now_ < end && !testing::Test::HasFailure();) {
            second();
        }
        EXPECT_EQ(lab_.cache(), "");
        EXPECT_TRUE(up_.empty());
        EXPECT_EQ(lab_.timers->heap->count, timers_at_rest_);
        EXPECT_GT(losses_, 10u);
    }

private:
    struct Connection {
        uint32_t heard = 0;
        uint32_t spoke = 0; // this speaker
        bool mute = false;
    };

    unsigned below(unsigned bound)
    {
        return static_cast<unsigned>(random_() % bound);
    }

    void come_up(unsigned number)
    {
        lab_.establish(number);
        up_[number] = {now_, now_, false};
        connects_ = false;
    }

    void second()
    {
        ++now_;
        lab_.pass(1);
        give_up();
        forget();
        for (auto &[number, connection] : up_) {
            listen(number, connection);
        }
        const std::string calls = std::exchange(lab_.transport.calls, {});

        if (calls.find("connect " + std::to_string(FALTERING)) != std::string::npos &&
            !up_.contains(FALTERING) && now_ != lost_) {
            EXPECT_EQ((now_ - lost_) % RETRY_S, 0u) << "an attempt at another time, second " << now_;
            connects_ = true;
        }
    }

    // Who said nothing for the hold time is given up in that second, nobody before.
    void give_up()
    {
        for (const unsigned number : {STEADY, FALTERING}) {
            const auto found = up_.find(number);

            if (found != up_.end() && now_ - found->second.heard == HOLD_S) {
                up_.erase(found);
                ++losses_;
                lost_ = number == FALTERING ? now_ : lost_;
                lab_.sent(number);
            }
            EXPECT_EQ(lab_.state(number) == "established", up_.contains(number)) << "second " << now_;
        }
    }

    // The MRIB process is told the end of each entry in the second in which it comes.
    void forget()
    {
        std::multiset<std::string> expected;
        for (auto entry = ends_.begin(); entry != ends_.end();) {
            if (entry->second == now_) {
                expected.insert("-" + entry->first);
                entry = ends_.erase(entry);
            } else {
                ++entry;
            }
        }
        EXPECT_EQ(words(lab_.told()), expected) << "second " << now_;
    }

    void listen(unsigned number, Connection &connection)
    {
        const std::string said = lab_.sent(number);
        if (!said.empty()) {
            connection.spoke = now_;
        }
        EXPECT_LE(now_ - connection.spoke, KEEPALIVE_S)
            << "nothing said to " << number << ", second " << now_;
        if (number == STEADY && said.find(text(pair(LOCAL, LOCAL))) != std::string::npos) {
            EXPECT_TRUE(advertised_ == 0 || now_ - advertised_ == ADVERTISEMENT_S) << "second " << now_;
            advertised_ = now_;
        }
        if (number == STEADY && advertised_ != 0) {
            EXPECT_LT(now_ - advertised_, ADVERTISEMENT_S) << "no announcement, second " << now_;
        }
    }

    // Something at least every 60 seconds, unless it falls silent.
    void speak(unsigned number)
    {
        Connection &connection = up_.at(number);

        connection.mute = connection.mute || (number == FALTERING && below(2000) == 0);
        if (connection.mute || (below(40) != 0 && now_ - connection.heard < HOLD_S - 1)) {
            return;
        }
        connection.heard = now_;
        if (below(2) == 0) {
            lab_.input(number, build_keepalive());
            return;
        }
        // Each peer has sources of its own, for which it is the originator.
        const Pair announced =
            pair(1 + below(NUMBERS) + (number == STEADY ? 0 : NUMBERS), 1 + below(NUMBERS));

        lab_.announce(number, {announced});
        EXPECT_EQ(lab_.told(), ends_.contains(text(announced)) ? "" : "+" + text(announced));
        ends_[text(announced)] = now_ + STATE_S;
    }

    static std::multiset<std::string> words(const std::string &line)
    {
        std::istringstream in(line);
        return {std::istream_iterator<std::string>(in), {}};
    }

    std::mt19937_64 random_;
    Lab lab_{{STEADY, FALTERING}};
    size_t timers_at_rest_ = 0;
    uint32_t now_ = 0; // since the start
    std::map<unsigned, Connection> up_;
    std::map<std::string, uint32_t> ends_; // of the entries
    uint32_t advertised_ = 0;
    uint32_t lost_ = 0;
    unsigned losses_ = 0;
    bool connects_ = false;
};

} // namespace

TEST(MsdpdClock, ADayOfPeersAndSourcesEndsWhereItShould)
{
    const char *text = getenv("MSDPD_RANDOM_SEED");
    const unsigned long seed = text != nullptr ? strtoul(text, nullptr, 10) : std::random_device()();
    SCOPED_TRACE("MSDPD_RANDOM_SEED=" + std::to_string(seed));
    Clock clock(seed);

    clock.run();
}
