/*
 * The state machines, cell for cell, against the tables of RFC 7761 as they were written down here once more, by words and
 * not by the names in the code. A line is
 *
 *      state | event | what happens: nothing ("-"), "impossible", or the next state and what is done
 */
#include <gtest/gtest.h>
#include <map>
#include <sstream>
#include <vector>

#include "daemons/pimsmd/assert_machine.h"
#include "daemons/pimsmd/downstream.h"
#include "daemons/pimsmd/register.h"
#include "daemons/pimsmd/rpt_prune.h"
#include "daemons/pimsmd/upstream.h"
#include "tests/daemons/pimsmd_messages.h"

namespace
{

using Names = std::vector<const char *>;

// The text between bars, without blanks around it.
std::vector<std::string> fields(const std::string &line)
{
    std::vector<std::string> found;
    std::istringstream in(line);
    std::string field;
    while (std::getline(in, field, '|')) {
        const size_t first = field.find_first_not_of(' ');
        const size_t last = field.find_last_not_of(' ');

        found.push_back(first == std::string::npos ? "" : field.substr(first, last - first + 1));
    }
    return found;
}

// "Join, start ET" for a cell that leads to another state or does something.
template <typename State>
std::string cell_text(const pimsmd::Cell<State> &cell, const Names &states, const Names &actions)
{
    using Kind = typename pimsmd::Cell<State>::Kind;
    std::string text = cell.kind == Kind::Go ? states.at(static_cast<size_t>(cell.next)) : "";
    if (cell.kind == Kind::Never || cell.kind == Kind::Missing) {
        return cell.kind == Kind::Never ? "impossible" : "missing";
    }
    for (size_t bit = 0; bit < 16; ++bit) {
        if ((cell.actions & 1 << bit) != 0) {
            text += (text.empty() ? "" : ", ") + std::string(actions.at(bit));
        }
    }
    return text.empty() ? "-" : text;
}

// Every cell of the machine says what the transcript says, and the transcript has every cell once.
template <typename Machine>
void expect_transcript(const Machine &machine, const Names &states, const Names &events, const Names &actions,
                       const std::vector<std::string> &transcript)
{
    std::map<std::string, std::string> expected;
    for (const std::string &line : transcript) {
        const std::vector<std::string> parts = fields(line);

        ASSERT_EQ(parts.size(), 3u) << line;
        EXPECT_TRUE(expected.emplace(parts[0] + " | " + parts[1], parts[2]).second) << "twice: " << line;
    }
    ASSERT_EQ(std::size(machine.cells), states.size());
    ASSERT_EQ(std::size(machine.cells[0]), events.size());
    for (size_t state = 0; state < states.size(); ++state) {
        for (size_t event = 0; event < events.size(); ++event) {
            const std::string key = std::string(states[state]) + " | " + events[event];

            EXPECT_EQ(cell_text(machine.cells[state][event], states, actions), expected[key]) << key;
        }
    }
    EXPECT_EQ(expected.size(), states.size() * events.size());
}

} // namespace

// Sections 4.5.1 and 4.5.2. ET is the expiry timer, PPT the prune-pending timer.
TEST(PimMachines, DownstreamIsThatOfTheRfc)
{
    expect_transcript(pimsmd::downstream::TABLE, {"NI", "J", "PP"},
                      {"receive Join", "receive Prune", "PPT expires", "ET expires"},
                      {"start ET", "restart ET", "cancel ET", "start PPT", "cancel PPT", "send PruneEcho"},
                      {
                          "NI | receive Join  | J, start ET",
                          "NI | receive Prune | -",
                          "NI | PPT expires   | impossible",
                          "NI | ET expires    | impossible",
                          "J  | receive Join  | restart ET",
                          "J  | receive Prune | PP, start PPT",
                          "J  | PPT expires   | impossible",
                          "J  | ET expires    | NI",
                          "PP | receive Join  | J, restart ET, cancel PPT",
                          "PP | receive Prune | -",
                          "PP | PPT expires   | NI, cancel ET, send PruneEcho",
                          "PP | ET expires    | NI, cancel PPT",
                      });
}

// Section 4.5.3. P' and PP' last while one message is read, in which no timer ends. The RFC has no expiry in PP; a holdtime
// shorter than the prune-pending time ends it all the same.
TEST(PimMachines, DownstreamRptIsThatOfTheRfc)
{
    expect_transcript(
        pimsmd::rpt_downstream::TABLE, {"NI", "P", "PP", "P'", "PP'"},
        {"Join(*,G)", "Join(S,G,rpt)", "Prune(S,G,rpt)", "end of message", "PPT expires", "ET expires"},
        {"start ET", "restart ET", "cancel ET", "start PPT", "cancel PPT"},
        {
            "NI  | Join(*,G)      | -",
            "NI  | Join(S,G,rpt)  | -",
            "NI  | Prune(S,G,rpt) | PP, start ET, start PPT",
            "NI  | end of message | -",
            "NI  | PPT expires    | impossible",
            "NI  | ET expires     | impossible",
            "P   | Join(*,G)      | P'",
            "P   | Join(S,G,rpt)  | NI, cancel ET",
            "P   | Prune(S,G,rpt) | restart ET",
            "P   | end of message | -",
            "P   | PPT expires    | impossible",
            "P   | ET expires     | NI",
            "PP  | Join(*,G)      | PP'",
            "PP  | Join(S,G,rpt)  | NI, cancel ET, cancel PPT",
            "PP  | Prune(S,G,rpt) | -",
            "PP  | end of message | -",
            "PP  | PPT expires    | P",
            "PP  | ET expires     | NI, cancel PPT",
            "P'  | Join(*,G)      | -",
            "P'  | Join(S,G,rpt)  | -",
            "P'  | Prune(S,G,rpt) | P, restart ET",
            "P'  | end of message | NI, cancel ET",
            "P'  | PPT expires    | impossible",
            "P'  | ET expires     | impossible",
            "PP' | Join(*,G)      | -",
            "PP' | Join(S,G,rpt)  | -",
            "PP' | Prune(S,G,rpt) | PP, restart ET",
            "PP' | end of message | NI, cancel ET, cancel PPT",
            "PP' | PPT expires    | impossible",
            "PP' | ET expires     | impossible",
        });
}

namespace
{

const Names UPSTREAM_EVENTS = {
    "JoinDesired true",  "JoinDesired false", "JT expires",     "see Join",
    "see Prune",         "see Prune(rpt)",    "see Prune(*,G)", "RPF' changes by assert",
    "RPF' changes else", "RPF' GenID changes"};
const Names UPSTREAM_ACTIONS = {"send Join",
                                "send Prune",
                                "send Prune to old",
                                "JT to t_periodic",
                                "cancel JT",
                                "raise JT to t_suppressed",
                                "lower JT to t_override",
                                "clear SPTbit"};

} // namespace

// Section 4.5.4. Prunes of sources are no events of (*,G).
TEST(PimMachines, UpstreamStarIsThatOfTheRfc)
{
    expect_transcript(pimsmd::upstream::STAR_TABLE, {"NJ", "J"}, UPSTREAM_EVENTS, UPSTREAM_ACTIONS,
                      {
                          "NJ | JoinDesired true       | J, send Join, JT to t_periodic",
                          "NJ | JoinDesired false      | -",
                          "NJ | JT expires             | impossible",
                          "NJ | see Join               | -",
                          "NJ | see Prune              | -",
                          "NJ | see Prune(rpt)         | impossible",
                          "NJ | see Prune(*,G)         | impossible",
                          "NJ | RPF' changes by assert | -",
                          "NJ | RPF' changes else      | -",
                          "NJ | RPF' GenID changes     | -",
                          "J  | JoinDesired true       | -",
                          "J  | JoinDesired false      | NJ, send Prune, cancel JT",
                          "J  | JT expires             | send Join, JT to t_periodic",
                          "J  | see Join               | raise JT to t_suppressed",
                          "J  | see Prune              | lower JT to t_override",
                          "J  | see Prune(rpt)         | impossible",
                          "J  | see Prune(*,G)         | impossible",
                          "J  | RPF' changes by assert | lower JT to t_override",
                          "J  | RPF' changes else      | send Join, send Prune to old, JT to t_periodic",
                          "J  | RPF' GenID changes     | lower JT to t_override",
                      });
}

// Section 4.5.5.
TEST(PimMachines, UpstreamSourceIsThatOfTheRfc)
{
    expect_transcript(pimsmd::upstream::SOURCE_TABLE, {"NJ", "J"}, UPSTREAM_EVENTS, UPSTREAM_ACTIONS,
                      {
                          "NJ | JoinDesired true       | J, send Join, JT to t_periodic",
                          "NJ | JoinDesired false      | -",
                          "NJ | JT expires             | impossible",
                          "NJ | see Join               | -",
                          "NJ | see Prune              | -",
                          "NJ | see Prune(rpt)         | -",
                          "NJ | see Prune(*,G)         | -",
                          "NJ | RPF' changes by assert | -",
                          "NJ | RPF' changes else      | -",
                          "NJ | RPF' GenID changes     | -",
                          "J  | JoinDesired true       | -",
                          "J  | JoinDesired false      | NJ, send Prune, cancel JT, clear SPTbit",
                          "J  | JT expires             | send Join, JT to t_periodic",
                          "J  | see Join               | raise JT to t_suppressed",
                          "J  | see Prune              | lower JT to t_override",
                          "J  | see Prune(rpt)         | lower JT to t_override",
                          "J  | see Prune(*,G)         | lower JT to t_override",
                          "J  | RPF' changes by assert | lower JT to t_override",
                          "J  | RPF' changes else      | send Join, send Prune to old, JT to t_periodic",
                          "J  | RPF' GenID changes     | lower JT to t_override",
                      });
}

// Section 4.5.7. OT is the override timer, which runs in NotPruned alone.
TEST(PimMachines, UpstreamRptIsThatOfTheRfc)
{
    expect_transcript(pimsmd::rpt_upstream::TABLE, {"NJ", "P", "NP"},
                      {"PruneDesired true", "PruneDesired false", "RPTJoinDesired false", "olist non-NULL",
                       "OT expires", "see Prune(S,G,rpt)", "see Join(S,G,rpt)", "see Prune(S,G)",
                       "RPF' becomes RPF'(*,G)"},
                      {"send Prune(S,G,rpt)", "send Join(S,G,rpt)", "OT to min(OT, t_override)", "cancel OT"},
                      {
                          "NJ | PruneDesired true      | P",
                          "NJ | PruneDesired false     | -",
                          "NJ | RPTJoinDesired false   | -",
                          "NJ | olist non-NULL         | NP",
                          "NJ | OT expires             | impossible",
                          "NJ | see Prune(S,G,rpt)     | -",
                          "NJ | see Join(S,G,rpt)      | -",
                          "NJ | see Prune(S,G)         | -",
                          "NJ | RPF' becomes RPF'(*,G) | -",
                          "P  | PruneDesired true      | -",
                          "P  | PruneDesired false     | NP, send Join(S,G,rpt)",
                          "P  | RPTJoinDesired false   | NJ",
                          "P  | olist non-NULL         | -",
                          "P  | OT expires             | impossible",
                          "P  | see Prune(S,G,rpt)     | -",
                          "P  | see Join(S,G,rpt)      | -",
                          "P  | see Prune(S,G)         | -",
                          "P  | RPF' becomes RPF'(*,G) | -",
                          "NP | PruneDesired true      | P, send Prune(S,G,rpt), cancel OT",
                          "NP | PruneDesired false     | -",
                          "NP | RPTJoinDesired false   | NJ, cancel OT",
                          "NP | olist non-NULL         | -",
                          "NP | OT expires             | send Join(S,G,rpt)",
                          "NP | see Prune(S,G,rpt)     | OT to min(OT, t_override)",
                          "NP | see Join(S,G,rpt)      | cancel OT",
                          "NP | see Prune(S,G)         | OT to min(OT, t_override)",
                          "NP | RPF' becomes RPF'(*,G) | OT to min(OT, t_override)",
                      });
}

// Section 4.4.1. The register-stop timer takes a random suppression time, or the probe time.
TEST(PimMachines, RegisterIsThatOfTheRfc)
{
    expect_transcript(
        pimsmd::registers::TABLE, {"NI", "J", "JP", "P"},
        {"timer expires", "CouldRegister true", "CouldRegister false", "Register-Stop", "RP changed"},
        {"add tunnel", "remove tunnel", "update tunnel", "timer to suppression", "timer to probe",
         "cancel timer", "send Null-Register"},
        {
            "NI | timer expires       | impossible",
            "NI | CouldRegister true  | J, add tunnel",
            "NI | CouldRegister false | -",
            "NI | Register-Stop       | -",
            "NI | RP changed          | -",
            "J  | timer expires       | impossible",
            "J  | CouldRegister true  | -",
            "J  | CouldRegister false | NI, remove tunnel",
            "J  | Register-Stop       | P, remove tunnel, timer to suppression",
            "J  | RP changed          | update tunnel",
            "JP | timer expires       | J, add tunnel",
            "JP | CouldRegister true  | -",
            "JP | CouldRegister false | NI, cancel timer",
            "JP | Register-Stop       | P, timer to suppression",
            "JP | RP changed          | J, add tunnel, cancel timer",
            "P  | timer expires       | JP, timer to probe, send Null-Register",
            "P  | CouldRegister true  | -",
            "P  | CouldRegister false | NI, cancel timer",
            "P  | Register-Stop       | -",
            "P  | RP changed          | J, add tunnel, cancel timer",
        });
}

namespace
{

// The actions of section 4.6 taken apart: A1 sends, starts the timer and stores this router; A2 stores the other and starts
// the longer timer; A3 sends and starts; A4 cancels and deletes; A5 deletes; A6 is A2 and the SPT bit.
const Names ASSERT_EVENTS = {
    "data",           "inferior",    "preferred",         "winner stands",  "winner gives up",
    "AT expires",     "winner gone", "CouldAssert false", "tracking false", "my metric better",
    "RPF moves away", "receive Join"};
const Names ASSERT_ACTIONS = {"send Assert", "AT short",          "store self",  "store winner",
                              "AT long",     "send AssertCancel", "delete info", "set SPTbit"};

std::vector<std::string> assert_transcript(const std::string &acceptable)
{
    return {
        "NI | data              | W, send Assert, AT short, store self",
        "NI | inferior          | W, send Assert, AT short, store self",
        "NI | preferred         | " + acceptable,
        "NI | winner stands     | impossible",
        "NI | winner gives up   | impossible",
        "NI | AT expires        | impossible",
        "NI | winner gone       | -",
        "NI | CouldAssert false | -",
        "NI | tracking false    | -",
        "NI | my metric better  | -",
        "NI | RPF moves away    | -",
        "NI | receive Join      | -",
        "W  | data              | -",
        "W  | inferior          | send Assert, AT short",
        "W  | preferred         | L, store winner, AT long",
        "W  | winner stands     | impossible",
        "W  | winner gives up   | impossible",
        "W  | AT expires        | send Assert, AT short",
        "W  | winner gone       | -",
        "W  | CouldAssert false | NI, send AssertCancel, delete info",
        "W  | tracking false    | -",
        "W  | my metric better  | -",
        "W  | RPF moves away    | -",
        "W  | receive Join      | -",
        "L  | data              | -",
        "L  | inferior          | -",
        "L  | preferred         | store winner, AT long",
        "L  | winner stands     | store winner, AT long",
        "L  | winner gives up   | NI, delete info",
        "L  | AT expires        | NI, delete info",
        "L  | winner gone       | NI, delete info",
        "L  | CouldAssert false | -",
        "L  | tracking false    | NI, delete info",
        "L  | my metric better  | NI, delete info",
        "L  | RPF moves away    | NI, delete info",
        "L  | receive Join      | NI, delete info",
    };
}

} // namespace

// Section 4.6.1.
TEST(PimMachines, AssertOfASourceIsThatOfTheRfc)
{
    expect_transcript(pimsmd::asserts::SOURCE_TABLE, {"NI", "W", "L"}, ASSERT_EVENTS, ASSERT_ACTIONS,
                      assert_transcript("L, store winner, AT long, set SPTbit"));
}

// Section 4.6.2.
TEST(PimMachines, AssertOfAGroupIsThatOfTheRfc)
{
    expect_transcript(pimsmd::asserts::STAR_TABLE, {"NI", "W", "L"}, ASSERT_EVENTS, ASSERT_ACTIONS,
                      assert_transcript("L, store winner, AT long"));
}

TEST(PimMachines, AStepChangesTheStateAndSaysWhatIsToBeDone)
{
    auto state = pimsmd::downstream::State::NoInfo;
    EXPECT_EQ(pimsmd::downstream::TABLE.step(state, pimsmd::downstream::Event::Join), pimsmd::START_EXPIRY);
    EXPECT_EQ(state, pimsmd::downstream::State::Join);
    EXPECT_EQ(pimsmd::downstream::TABLE.step(state, pimsmd::downstream::Event::Join), pimsmd::PROLONG_EXPIRY);
    EXPECT_EQ(state, pimsmd::downstream::State::Join);
}
