/* Messages, datagrams and flushes of the member channel. */
#include <thread>

#include "unit/event/member_fixture.h"

namespace member_test
{
namespace
{

using MemberChannel = MemberTest;

TEST_F(MemberChannel, PacksMessagesIntoOneDatagramByteForByte)
{
    Init();
    EXPECT_EQ(MBR_LIB_SendMsg(kIpv4, 0x0201, 3, "abc", 0), 0u);
    EXPECT_EQ(MBR_LIB_SendMsg(kIpv4, 7, 1, "d", 0), 0u);
    EXPECT_TRUE(sent.empty());
    EXPECT_EQ(Flush(), 0u);
    EXPECT_EQ(sent, (std::vector<Bytes>{Bytes{9, 0, 0, 0} + Number(2, 4) + Number(12, 4) + Number(0x0201, 2) +
                                        Number(3, 2) + Bytes{'a', 'b', 'c'} + Number(7, 2) + Number(1, 2) +
                                        Bytes{'d'}}));
    EXPECT_EQ(Flush(), 0u);
    EXPECT_EQ(sent.size(), 1u) << "nothing waits any more";
}

TEST_F(MemberChannel, AMessageWithFlushLeavesAtOnceAndOnlyOneFlushes)
{
    Init();
    EXPECT_EQ(Say(1, 5, 2), 0u);
    EXPECT_EQ(Say(2, 5, 0x101), 0u);
    EXPECT_TRUE(sent.empty());
    EXPECT_EQ(Say(3, 5, 1), 0u);
    ASSERT_EQ(sent.size(), 1u);
    EXPECT_EQ(sent[0],
              Datagram(kModule, 3,
                       Message(100, Bytes(5, 1)) + Message(100, Bytes(5, 2)) + Message(100, Bytes(5, 3))));
}

TEST_F(MemberChannel, EveryDatagramIsOfTheModuleTheFirstAndTheReusedOnesToo)
{
    Init();
    for (uint32_t number = 1; number <= 4; ++number) {
        EXPECT_EQ(Say(static_cast<uint8_t>(number), 5, 1), 0u);
        ASSERT_EQ(sent.size(), number);
        EXPECT_EQ(sent.back(), Datagram(kModule, 1, Message(100, Bytes(5, static_cast<uint8_t>(number)))));
        EXPECT_EQ(Blocks(), 1) << "a channel that keeps up needs one block";
    }
}

TEST_F(MemberChannel, AMessageWithoutPayloadIsNone)
{
    Init();
    EXPECT_EQ(MBR_LIB_SendMsg(kIpv4, 5, 0, nullptr, 0), 0u);
    EXPECT_EQ(MBR_LIB_SendMsg(kIpv4, 5, 0, "x", 1), 0u);
    EXPECT_TRUE(sent.empty());
    EXPECT_EQ(MBR_LIB_SendMsg(kIpv4, 5, 1, nullptr, 0), 0x40010001u);
    EXPECT_EQ(Flush(), 0u);
    EXPECT_TRUE(sent.empty());
    EXPECT_EQ(Refused(), 0u);
}

TEST_F(MemberChannel, AnotherFamilyMeansTheIpv4Channel)
{
    Init();
    EXPECT_EQ(MBR_LIB_SendMsg(7, 5, 1, "x", 1), 0u);
    EXPECT_EQ(MBR_LIB_SendMsg(0, 5, 1, "y", 1), 0u);
    EXPECT_EQ(MBR_LIB_IsAlreadyReg(7), 1u);
    EXPECT_EQ(MBR_LIB_RegEvt(7, 1), 0u);
    ASSERT_EQ(sent.size(), 3u);
    EXPECT_EQ(sent[2][16], 2) << "the registration names the channel's family";
    MBR_LIB_Fini(7);
    EXPECT_EQ(MBR_LIB_IsAlreadyReg(kIpv4), 0u);
}

TEST_F(MemberChannel, NothingIsTakenBeforeInit)
{
    EXPECT_EQ(Say(1, 1), 0x2001000eu);
    EXPECT_EQ(Say(1, 2000), 0x2001000eu) << "asked first";
    EXPECT_EQ(Flush(), 0x2001000eu);
    Init(kIpv6);
    EXPECT_EQ(Say(1, 1), 0x2001000eu);
    EXPECT_EQ(Refused(), 0u);
}

TEST_F(MemberChannel, TheLongestPayloadFitsAFreshDatagramAndOneByteMoreIsRefused)
{
    Init();
    EXPECT_EQ(Say(1, 1384, 1), 0x4001000bu);
    EXPECT_EQ(Say(1, 0xffff, 1), 0x4001000bu);
    EXPECT_EQ(MBR_LIB_SendMsg(kIpv4, 1, 1384, nullptr, 1), 0x4001000bu);
    EXPECT_EQ(Refused(), 3u);
    EXPECT_TRUE(sent.empty());
    EXPECT_EQ(Say(2, 1383), 0u);
    EXPECT_TRUE(sent.empty()) << "it fits the empty datagram";
    EXPECT_EQ(Flush(), 0u);
    ASSERT_EQ(sent.size(), 1u);
    EXPECT_EQ(sent[0], Datagram(kModule, 1, Message(100, Bytes(1383, 2))));
    EXPECT_EQ(sent[0].size(), 1399u);
}

TEST_F(MemberChannel, ARefusedMessageDoesNotFlush)
{
    Init();
    Say(1, 10);
    EXPECT_EQ(Say(1, 1384, 1), 0x4001000bu);
    EXPECT_TRUE(sent.empty());
}

TEST_F(MemberChannel, ADatagramIsFilledToTheLastByte)
{
    Init();
    Say(1, 700);                /* 12 + 704 */
    EXPECT_EQ(Say(2, 680), 0u); /* + 684 = 1400 */
    EXPECT_TRUE(sent.empty());
    EXPECT_EQ(Say(3, 1), 0u);
    ASSERT_EQ(sent.size(), 1u);
    EXPECT_EQ(sent[0].size(), 1400u);
    Flush();
    Say(1, 700);
    EXPECT_EQ(Say(2, 681), 0u);
    EXPECT_EQ(sent.back().size(), 716u) << "one byte too many";
}

TEST_F(MemberChannel, WhatDoesNotFitSendsTheDatagramFirst)
{
    Init();
    EXPECT_EQ(Say(1, 700), 0u);
    EXPECT_EQ(Say(2, 700), 0u);
    ASSERT_EQ(sent.size(), 1u);
    EXPECT_EQ(sent[0], Datagram(kModule, 1, Message(100, Bytes(700, 1))));
    EXPECT_EQ(Flush(), 0u);
    ASSERT_EQ(sent.size(), 2u);
    EXPECT_EQ(sent[1], Datagram(kModule, 1, Message(100, Bytes(700, 2))));
    EXPECT_EQ(Blocks(), 1);
}

TEST_F(MemberChannel, WhatDoesNotFitStartsASecondDatagramWhenTheFirstCannotLeave)
{
    Init();
    takes = 0;
    EXPECT_EQ(Say(1, 700), 0u);
    EXPECT_EQ(Say(2, 700), 0u) << "accepted all the same";
    EXPECT_EQ(SendFailures(), 1u);
    EXPECT_EQ(Blocks(), 2);
    takes = -1;
    EXPECT_EQ(Flush(), 0u);
    ASSERT_EQ(sent.size(), 2u);
    EXPECT_EQ(sent[0], Datagram(kModule, 1, Message(100, Bytes(700, 1))));
    EXPECT_EQ(sent[1], Datagram(kModule, 1, Message(100, Bytes(700, 2))));
    EXPECT_EQ(Blocks(), 1) << "one block is kept, the other freed";
    EXPECT_EQ(Flush(), 0u);
    EXPECT_EQ(sent.size(), 2u) << "the one that is kept is empty";
}

TEST_F(MemberChannel, AFailedFlushLosesNothing)
{
    Init();
    takes = 0;
    EXPECT_EQ(Say(1, 10, 1), 0x40010009u) << "queued, not sent";
    EXPECT_EQ(Flush(), 0x40010009u);
    EXPECT_EQ(SendFailures(), 2u);
    EXPECT_EQ(Refused(), 0u);
    takes = -1;
    EXPECT_EQ(Say(2, 10, 1), 0u);
    ASSERT_EQ(sent.size(), 1u);
    EXPECT_EQ(sent[0], Datagram(kModule, 2, Message(100, Bytes(10, 1)) + Message(100, Bytes(10, 2))));
}

TEST_F(MemberChannel, ASendThatTakesNothingIsAFailure)
{
    Init();
    takes = 0;
    refusal_result = 0;
    EXPECT_EQ(Say(1, 10, 1), 0x40010009u);
    EXPECT_EQ(SendFailures(), 1u);
    takes = -1;
    EXPECT_EQ(Flush(), 0u);
    EXPECT_EQ(sent.size(), 1u);
}

TEST_F(MemberChannel, AFlushThatIsCutShortKeepsTheRestInOrder)
{
    Init();
    takes = 0;
    for (uint8_t number = 1; number <= 4; ++number) {
        Say(number, 1000);
    }
    takes = 2;
    EXPECT_EQ(Flush(), 0x40010009u);
    EXPECT_EQ(sent.size(), 2u);
    EXPECT_EQ(Blocks(), 3) << "two wait, one is put to use again";
    EXPECT_EQ(Say(5, 1000), 0u);
    EXPECT_EQ(Blocks(), 3) << "and that is where the message went";
    EXPECT_EQ(sent.size(), 2u);
    takes = -1;
    EXPECT_EQ(Flush(), 0u);
    ASSERT_EQ(sent.size(), 5u);
    for (uint8_t number = 1; number <= 5; ++number) {
        EXPECT_EQ(sent[number - 1u], Datagram(kModule, 1, Message(100, Bytes(1000, number))));
    }
    EXPECT_EQ(Blocks(), 1);
}

TEST_F(MemberChannel, AnEmptyDatagramIsNeverSent)
{
    Init();
    takes = 0;
    for (uint8_t number = 1; number <= 3; ++number) {
        Say(number, 1000);
    }
    takes = 1;
    EXPECT_EQ(Flush(), 0x40010009u); /* leaves two, and an empty one behind them */
    takes = 1;
    EXPECT_EQ(Flush(), 0x40010009u); /* leaves one, and still a single empty one */
    EXPECT_EQ(Blocks(), 2);
    takes = -1;
    EXPECT_EQ(Flush(), 0u);
    EXPECT_EQ(sent.size(), 3u);
    EXPECT_EQ(Blocks(), 1);
    EXPECT_EQ(Flush(), 0u);
    EXPECT_EQ(sent.size(), 3u);
}

class FullMemberChannel : public MemberTest
{
protected:
    /* 1024 datagrams, the nth with one message of n as u16 values. */
    void Fill()
    {
        Init();
        takes = 0;
        for (uint16_t number = 0; number < 1024; ++number) {
            ASSERT_EQ(SayNumber(number), 0u);
        }
        ASSERT_EQ(Blocks(), 1024);
    }

    MCAST_STATUS SayNumber(uint16_t number, uint16_t flush = 0)
    {
        std::vector<uint16_t> payload(690, number);
        return MBR_LIB_SendMsg(kIpv4, number, 1380, payload.data(), flush);
    }

    uint16_t SentNumber(size_t index) const
    {
        uint16_t number;
        memcpy(&number, &sent.at(index)[16], sizeof(number));
        return number;
    }
};

TEST_F(FullMemberChannel, RefusesWhatNeedsTheThousandAndTwentyFifthDatagram)
{
    Fill();
    uint32_t failures = SendFailures();

    EXPECT_EQ(failures, 1023u) << "one try for each new datagram";
    EXPECT_EQ(SayNumber(2000), 0x4001000bu);
    EXPECT_EQ(SayNumber(2000, 1), 0x4001000bu);
    EXPECT_EQ(Refused(), 2u);
    EXPECT_EQ(SendFailures(), failures + 2);
    EXPECT_EQ(Blocks(), 1024);
    takes = -1;
    EXPECT_EQ(Flush(), 0u);
    ASSERT_EQ(sent.size(), 1024u);
    for (uint16_t number = 0; number < 1024; ++number) {
        ASSERT_EQ(SentNumber(number), number);
    }
    EXPECT_EQ(Blocks(), 1);
}

TEST_F(FullMemberChannel, StillFillsTheNewestDatagram)
{
    Fill();
    EXPECT_EQ(MBR_LIB_SendMsg(kIpv4, 1, 1, "x", 0), 0x4001000bu) << "4 bytes are left, 5 are needed";
    MBR_LIB_Fini(kIpv4);

    Init();
    for (int message = 0; message < 1024; ++message) {
        ASSERT_EQ(Say(1, 1379), 0u);
    }
    EXPECT_EQ(Blocks(), 1024);
    EXPECT_EQ(MBR_LIB_SendMsg(kIpv4, 1, 1, "x", 0), 0u);
    EXPECT_EQ(MBR_LIB_SendMsg(kIpv4, 1, 1, "x", 0), 0x4001000bu);
}

TEST_F(FullMemberChannel, OneDatagramThatLeavesMakesRoomWithoutMemory)
{
    Fill();
    takes = 1;
    fault::FailAllocation(1);
    EXPECT_EQ(SayNumber(1024), 0u);
    EXPECT_FALSE(fault::Fired());
    fault::FailAllocation(0);
    EXPECT_EQ(Blocks(), 1024);
    EXPECT_EQ(Refused(), 0u);
    EXPECT_EQ(SayNumber(1025), 0x4001000bu);
    takes = -1;
    EXPECT_EQ(Flush(), 0u);
    ASSERT_EQ(sent.size(), 1025u);
    for (uint16_t number = 0; number < 1025; ++number) {
        ASSERT_EQ(SentNumber(number), number);
    }
}

TEST_F(FullMemberChannel, IsFreedByFini)
{
    Fill();
    MBR_LIB_Fini(kIpv4);
    EXPECT_EQ(Blocks(), 0);
}

TEST_F(MemberChannel, WithoutMemoryAMessageIsRefusedWholeAndTheNextOneIsTaken)
{
    Init();
    takes = 0;
    Say(1, 1000);
    unsigned long needed = fault::ForEveryAllocation([this](unsigned long) {
        uint32_t refused = Refused();
        MCAST_STATUS status = Say(2, 1000);

        EXPECT_EQ(status, fault::Fired() ? 0x4001000bu : 0u);
        EXPECT_EQ(Refused() - refused, fault::Fired() ? 1u : 0u);
    });

    EXPECT_EQ(needed, 1u);
    takes = -1;
    EXPECT_EQ(Flush(), 0u);
    ASSERT_EQ(sent.size(), 2u);
    EXPECT_EQ(sent[0], Datagram(kModule, 1, Message(100, Bytes(1000, 1))));
    EXPECT_EQ(sent[1], Datagram(kModule, 1, Message(100, Bytes(1000, 2))));
}

TEST_F(MemberChannel, TheFamiliesMayRunOnThreadsOfTheirOwn)
{
    scripted::send = [](auto...) {
        errno = EAGAIN;
        return ssize_t{-1};
    };
    Init(kIpv4);
    Init(kIpv6);
    std::vector<std::thread> threads;

    for (uint32_t family : {kIpv4, kIpv6}) {
        threads.emplace_back([family] {
            for (int message = 0; message < 500; ++message) {
                MBR_LIB_SendMsg(family, 1, 100, Bytes(100, 1).data(), 1);
                MBR_LIB_SendMsg(family, 1, 1384, nullptr, 0);
            }
        });
    }
    for (std::thread &thread : threads) {
        thread.join();
    }
    /* 13 messages fill a datagram, so that each family begins 38 more, each after one more failed try. */
    EXPECT_EQ(SendFailures(), 2u * (500 + 38));
    EXPECT_EQ(Refused(), 1000u);
}

} // namespace
} // namespace member_test
