#include <gtest/gtest.h>
#include <map>

#include "daemons/pimsmd/bsr_machine.h"
#include "tests/daemons/pimsmd_messages.h"

using namespace pimsmd_test;

namespace
{

template <typename Table>
void expect_cells(const Table &table, const std::vector<const char *> &states, const char *const *names,
                  const std::map<std::string, std::string> &transcript)
{
    const char *const events[] = {"preferred", "other", "gave up", "timer"};
    const char *const actions[] = {"forward", "store", "timeout", "override", "period", "originate"};
    using Kind = std::remove_cvref_t<decltype(table.cells[0][0].kind)>;
    size_t cells = 0;
    for (size_t state = 0; state < states.size(); ++state) {
        EXPECT_STREQ(states[state], names[state]);
        for (size_t event = 0; event < 4; ++event, ++cells) {
            const auto &cell = table.cells[state][event];
            std::string text = cell.kind == Kind::Never     ? "impossible"
                               : cell.kind == Kind::Missing ? "missing"
                                                            : "";
            if (cell.kind == Kind::Go) {
                text = names[static_cast<size_t>(cell.next)];
            }
            for (size_t bit = 0; bit < 6; ++bit) {
                if ((cell.actions & 1 << bit) != 0) {
                    text += (text.empty() ? "" : " ") + std::string(actions[bit]);
                }
            }
            const std::string key = std::string(states[state]) + ": " + events[event];
            const auto expected = transcript.find(key);

            ASSERT_NE(expected, transcript.end()) << key;
            EXPECT_EQ(text, expected->second) << key;
        }
    }
    EXPECT_EQ(cells, transcript.size());
}

} // namespace

TEST(PimBsrMachine, TheCandidatesIsThatOfTheRfc)
{
    expect_cells(pimsmd::bsr::CANDIDATE_TABLE, {"Candidate", "Pending", "Elected"},
                 pimsmd::bsr::CANDIDATE_NAMES,
                 {
                     {"Candidate: preferred", "forward store timeout"},
                     {"Candidate: other", ""},
                     {"Candidate: gave up", "Pending override"},
                     {"Candidate: timer", "Pending override"},
                     {"Pending: preferred", "Candidate forward store timeout"},
                     {"Pending: other", ""},
                     {"Pending: gave up", "impossible"},
                     {"Pending: timer", "Elected period originate"},
                     {"Elected: preferred", "Candidate forward store timeout"},
                     {"Elected: other", "period originate"},
                     {"Elected: gave up", "impossible"},
                     {"Elected: timer", "period originate"},
                 });
}

TEST(PimBsrMachine, TheListenersIsThatOfTheRfc)
{
    expect_cells(pimsmd::bsr::LISTENER_TABLE, {"AcceptAny", "AcceptPreferred"}, pimsmd::bsr::LISTENER_NAMES,
                 {
                     {"AcceptAny: preferred", "AcceptPreferred forward store timeout"},
                     {"AcceptAny: other", "impossible"},
                     {"AcceptAny: gave up", "impossible"},
                     {"AcceptAny: timer", "impossible"},
                     {"AcceptPreferred: preferred", "forward store timeout"},
                     {"AcceptPreferred: other", ""},
                     {"AcceptPreferred: gave up", ""},
                     {"AcceptPreferred: timer", "AcceptAny"},
                 });
}

TEST(PimBsrMachine, TheBetterWaitsLess)
{
    const auto wait = [](uint8_t own, const char *own_address, uint8_t best, const char *best_address) {
        return pimsmd::bsr::override_ms({own, addr(own_address)}, {best, addr(best_address)});
    };
    EXPECT_EQ(wait(0, "10.0.0.1", 0, "10.0.0.1"), 5000u);
    EXPECT_EQ(wait(0, "10.0.0.1", 0, "10.0.0.4"), 5125u);       // log2(4) / 16
    EXPECT_EQ(wait(0, "64.0.0.0", 1, "10.0.0.4"), 8500u);       // 2 log2(2) + 2 - 2^30 / 2^31
    EXPECT_EQ(wait(0, "128.0.0.0", 255, "10.0.0.4"), 22000u);   // 2 log2(256) + 2 - 1
    EXPECT_EQ(wait(0, "2001:db8::1", 0, "2001:db8::4"), 5031u); // log2(4) / 64
    EXPECT_EQ(wait(0, "4000::", 3, "2001:db8::4"), 10500u);     // 2 log2(4) + 2 - 2^126 / 2^127
}
