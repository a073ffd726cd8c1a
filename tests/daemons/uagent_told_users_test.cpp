/*
 * What an agent has told, as the commands that tell it again.
 */
#include <gtest/gtest.h>
#include <sstream>

#include "daemons/uagent/describe.h"
#include "daemons/uagent/told_users.h"

using namespace uagent;

namespace
{

// What is told again after these commands, one a line, each with its groups.
std::string again_after(const std::string &lines)
{
    ToldUsers told;
    std::istringstream input(lines);
    std::string result;

    for (std::string line; std::getline(input, line);) {
        Command command;
        std::string error;

        if (!parse_command(split_words(line), MCAST_FAMILY_IPV4, &command, &error)) {
            return error;
        }
        told.note(command);
    }
    for (const Command &command : told.again()) {
        result +=
            std::string(verb_name(command.verb)) + " " + std::to_string(command.user_id) + " " + command.name;
        for (const Permission &permission : command.permissions) {
            result += " G" + std::to_string(permission.group.address[3]);
        }
        result += command.open ? " ...\n" : "\n";
    }
    return result;
}

std::string announce(const std::string &id, const std::string &more)
{
    return "announce id=" + id + " node=3 kind=1 interface=0x7 address=10.2.0.2 " + more + "\n";
}

TEST(UagentToldUsers, AUserIsAnnouncedWithWhatWasSaidLast)
{
    EXPECT_EQ(
        again_after(announce("8", "name=bob group=239.1.1.1") + announce("7", "name=al group=239.1.1.2") +
                    "groups id=8 node=3 kind=1 group=239.1.1.3 group=239.1.1.4\n" +
                    "update id=7 node=3 kind=1 interface=0x7 address=10.2.0.9 name=ann group=239.1.1.5\n"),
        "announce 7 ann G5\n"
        "announce 8 bob G3 G4\n");
}

TEST(UagentToldUsers, WhoIsWithdrawnOrWasNeverAnnouncedIsLeftOut)
{
    EXPECT_EQ(again_after(announce("7", "") + announce("8", "") + "withdraw id=7 node=3 kind=1\n" +
                          "withdraw id=8 node=4 kind=1\n" + "groups id=9 node=3 kind=1 group=239.1.1.3\n" +
                          "update id=9 node=3 kind=1 interface=0x7 address=10.2.0.9\n"),
              "announce 8 \n");
}

TEST(UagentToldUsers, AListThatGoesOnAddsToTheLastWholeOneUntilItEnds)
{
    const std::string open = announce("7", "group=239.1.1.1") +
                             "groups id=7 node=3 kind=1 group=239.1.1.2 open=yes\n"
                             "groups id=7 node=3 kind=1 group=239.1.1.3 open=yes\n";
    EXPECT_EQ(again_after(open), "announce 7  G1\ngroups 7  G2 G3 ...\n");
    EXPECT_EQ(again_after(open + "groups id=7 node=3 kind=1 group=239.1.1.4\n"), "announce 7  G2 G3 G4\n");
}

TEST(UagentToldUsers, AFirstListThatHasNotEndedStaysOpen)
{
    const std::string open = announce("7", "group=239.1.1.1 open=yes");
    EXPECT_EQ(again_after(open), "announce 7  G1 ...\n");
    EXPECT_EQ(again_after(open + "groups id=7 node=3 kind=1\n"), "announce 7  G1\n");
}

TEST(UagentToldUsers, ARefreshEndsThoseWhoWereNotAnnouncedInIt)
{
    const std::string before = announce("7", "") + announce("8", "") +
                               "announce id=9 node=3 kind=2 interface=0x7 address=10.2.0.2\n"
                               "announce id=7 node=4 kind=1 interface=0x7 address=10.2.0.2\n"
                               "refresh-begin node=3 kind=1\n";
    EXPECT_EQ(again_after(before + announce("8", "name=bob") + "refresh-end node=3 kind=1\n"),
              "announce 8 bob\nannounce 9 \nannounce 7 \n");
    EXPECT_EQ(again_after(before + announce("8", "") +
                          "refresh-end node=3 kind=1\nrefresh-begin node=3 kind=1\n"
                          "refresh-end node=3 kind=1\n"),
              "announce 9 \nannounce 7 \n");
    EXPECT_EQ(again_after(before + "update id=8 node=3 kind=1 interface=0x7 address=10.2.0.2\n" +
                          "refresh-end node=3 kind=1\n"),
              "announce 9 \nannounce 7 \n")
        << "an update is no announcement";
}

TEST(UagentToldUsers, ARefreshThatHasNotEndedIsBegunAgainBetweenThoseLeftAndThoseAnnounced)
{
    EXPECT_EQ(again_after(announce("7", "") + announce("8", "") + "refresh-begin node=3 kind=1\n" +
                          announce("7", "name=al")),
              "announce 8 \nrefresh-begin 0 \nannounce 7 al\n");
}

} // namespace
