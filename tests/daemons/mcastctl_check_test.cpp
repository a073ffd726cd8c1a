#include <algorithm>
#include <cstdlib>
#include <fstream>
#include <gtest/gtest.h>
#include <string>
#include <unistd.h>

#include "daemons/mcastctl/command.h"

namespace
{

// What "mcastctl check" says of a file with this text, the file's name left out, and how it ends.
struct Answer {
    int code;
    std::string out;
    std::string err;
};

Answer check(const std::string &text)
{
    char name[] = "/tmp/mcastctl-check-XXXXXX";
    close(mkstemp(name));
    std::ofstream(name) << text;
    const char *const words[] = {"mcastctl", "check", name, nullptr};
    testing::internal::CaptureStdout();
    testing::internal::CaptureStderr();
    Answer answer = {mcastctl::run_command_line(3, words), "", ""};
    answer.out = testing::internal::GetCapturedStdout();
    answer.err = testing::internal::GetCapturedStderr();
    for (std::string *said : {&answer.out, &answer.err}) {
        for (size_t at; (at = said->find(name)) != said->npos;) {
            said->erase(at, sizeof(name) - 1);
        }
    }
    unlink(name);
    return answer;
}

TEST(CheckCommand, ARightFileIsSaidToBe)
{
    const Answer answer = check("[pimsmd]\nhello_interval = 5\n");
    EXPECT_EQ(answer.code, mcastctl::EXIT_DONE);
    EXPECT_EQ(answer.out, ": nothing is wrong\n");
    EXPECT_EQ(answer.err, "");
}

// In the order of the file, whoever reads the table; once each.
TEST(CheckCommand, TellsWhatEveryProgramWouldRefuse)
{
    const Answer answer =
        check("[pimsmd]\nhello_interval = 0\njoin_prune_interval = \"a\"\n[[pimsmd.rp]]\naddress = \"1\"\n"
              "[msdpd]\noriginator = 5\n[[mribd.interface]]\nname = 1\n[gmpd]\nword = 1\n"
              "[[acl]]\nnumber = 7\nfamily = \"ipv4\"\n[other]\n");
    EXPECT_EQ(answer.code, mcastctl::EXIT_FAILED);
    EXPECT_EQ(answer.out, "");
    size_t from = 0;
    for (const char *place :
         {":2:18: hello_interval is 0", ":3:23: join_prune_interval is a string", ":5:11: address is \"1\"",
          ":7:14: originator is an integer", ":9:8: name is an integer", ":11:1: unknown key \"word\"",
          ":13:10: number is 7", ":15:2: unknown key \"other\""}) {
        const size_t at = answer.err.find(place, from);
        ASSERT_NE(at, std::string::npos) << place << " in\n" << answer.err;
        from = at + 1;
    }
    EXPECT_EQ(std::count(answer.err.begin(), answer.err.end(), '\n'), 8) << answer.err;
}

TEST(CheckCommand, WhatIsNoTomlIsSaidOnce)
{
    const Answer answer = check("[pimsmd\n");
    EXPECT_EQ(answer.code, mcastctl::EXIT_FAILED);
    EXPECT_EQ(std::count(answer.err.begin(), answer.err.end(), '\n'), 1) << answer.err;
}

TEST(CheckCommand, AFileThatIsNotThereIsSaidToBe)
{
    const char *const words[] = {"mcastctl", "check", "/no/such/file", nullptr};
    testing::internal::CaptureStderr();
    EXPECT_EQ(mcastctl::run_command_line(3, words), mcastctl::EXIT_FAILED);
    EXPECT_NE(testing::internal::GetCapturedStderr().find("/no/such/file"), std::string::npos);
}

} // namespace
