/* Opening, closing and registering on the member channel. */
#include "unit/event/member_fixture.h"

namespace member_test
{
namespace
{

using MemberOpening = MemberTest;

TEST_F(MemberOpening, SocketIsOfTheLocalFamilyAndConnectsToTheFamilysPort)
{
    const Bytes ipv4 = Bytes{0, 37, 0x08, 0x86} + Number(128, 2) + Bytes(10);
    const Bytes ipv6 = Bytes{0, 37, 0x08, 0x87} + Number(128, 2) + Bytes(10);
    Bytes address;
    int options = 0;
    scripted::socket = [this](int family, int type, int protocol) {
        EXPECT_EQ(family, 37);
        EXPECT_EQ(type, SOCK_DGRAM);
        EXPECT_EQ(protocol, 1);
        ++open;
        return next_socket++;
    };
    scripted::connect = [&](int, const sockaddr *to, socklen_t length) {
        address.assign(reinterpret_cast<const uint8_t *>(to), reinterpret_cast<const uint8_t *>(to) + length);
        return 0;
    };
    scripted::setsockopt = [&](int, int level, int option, const void *value, socklen_t length) {
        const uint32_t expected[2] = {1, 0};
        EXPECT_EQ(level, SOL_SOCKET);
        EXPECT_EQ(option, 128);
        EXPECT_EQ(length, 8u);
        EXPECT_EQ(memcmp(value, expected, sizeof(expected)), 0);
        ++options;
        errno = EINVAL;
        return -1; /* the result does not matter */
    };
    EXPECT_EQ(Init(kIpv4), 1000u);
    EXPECT_EQ(address, ipv4);
    EXPECT_EQ(Init(kIpv6), 1001u);
    EXPECT_EQ(address, ipv6);
    EXPECT_EQ(options, 2);
}

TEST_F(MemberOpening, RegistersTheSocketForReadingWithTheCallersContext)
{
    int registrations = 0;

    scripted::epoll_ctl = [&](int epfd, int operation, int fd, struct epoll_event *event) {
        MCAST_EPOLL_RECORD_S record;

        memcpy(&record, event, sizeof(record));
        EXPECT_EQ(epfd, 55);
        EXPECT_EQ(operation, EPOLL_CTL_ADD);
        EXPECT_EQ(fd, 1000);
        EXPECT_EQ(uint32_t{record.events}, static_cast<uint32_t>(EPOLLIN));
        EXPECT_EQ(uint64_t{record.context}, kContext);
        ++registrations;
        errno = EPERM;
        return -1; /* the result does not matter */
    };
    EXPECT_EQ(Init(), 1000u);
    EXPECT_EQ(registrations, 1);
    EXPECT_EQ(MBR_LIB_IsAlreadyReg(kIpv4), 1u);
    scripted::epoll_ctl = [](auto...) { return 0; };
}

TEST_F(MemberOpening, InitTwiceGivesTheSameSocketWithoutASecondConnection)
{
    EXPECT_EQ(Init(), 1000u);
    scripted::connect = [](auto...) {
        ADD_FAILURE() << "a second connection";
        return -1;
    };
    scripted::epoll_ctl = [](auto...) {
        ADD_FAILURE() << "a second registration";
        return -1;
    };
    Say(1, 10);
    EXPECT_EQ(MBR_LIB_Init(kIpv4, 3, 77, 1), 1000u);
    EXPECT_EQ(open, 1);
    scripted::epoll_ctl = [](auto...) { return 0; };
    Flush();
    ASSERT_EQ(sent.size(), 1u) << "what waited was kept";
    EXPECT_EQ(sent[0][0], kModule);
}

TEST_F(MemberOpening, ArgumentsAreChecked)
{
    EXPECT_EQ(MBR_LIB_Init(0, 9, kEpoll, 1), 0xffffffffu);
    EXPECT_EQ(MBR_LIB_Init(7, 9, kEpoll, 1), 0xffffffffu);
    EXPECT_EQ(MBR_LIB_Init(0xff, 9, kEpoll, 1), 0xffffffffu);
    EXPECT_EQ(MBR_LIB_Init(kIpv4, 17, kEpoll, 1), 0xffffffffu);
    EXPECT_EQ(MBR_LIB_Init(kIpv4, 0x109, kEpoll, 1), 0xffffffffu);
    EXPECT_EQ(MBR_LIB_Init(kIpv4, 9, 0xffffffff, 1), 0xffffffffu);
    EXPECT_EQ(MBR_LIB_Init(kIpv4, 9, kEpoll, 0), 0xffffffffu);
    EXPECT_EQ(next_socket, kFirstSocket);
    EXPECT_EQ(MBR_LIB_IsAlreadyReg(kIpv4), 0u);
    EXPECT_EQ(MBR_LIB_Init(kIpv4, 0, 0, 1), 1000u) << "epoll descriptor 0 is one";
    EXPECT_EQ(MBR_LIB_Init(kIpv6, 16, kEpoll, 1), 1001u);
}

TEST_F(MemberOpening, OnlyTheLowByteOfAFamilyCounts)
{
    EXPECT_EQ(Init(0x30a), 1000u);
    EXPECT_EQ(MBR_LIB_IsAlreadyReg(kIpv6), 1u);
    EXPECT_EQ(MBR_LIB_IsAlreadyReg(kIpv4), 0u);
    EXPECT_EQ(MBR_LIB_IsAlreadyReg(0x10a), 1u);
    MBR_LIB_Fini(0x40a);
    EXPECT_EQ(MBR_LIB_IsAlreadyReg(kIpv6), 0u);
}

TEST_F(MemberOpening, AFailedSocketClosesNothing)
{
    scripted::socket = scripted::Failing(EAFNOSUPPORT);
    EXPECT_EQ(Init(), 0xffffffffu);
    EXPECT_EQ(open, 0);
    EXPECT_EQ(MBR_LIB_IsAlreadyReg(kIpv4), 0u);
    EXPECT_EQ(Say(1, 1), 0x2001000eu);
}

TEST_F(MemberOpening, AFailedConnectClosesTheSocket)
{
    scripted::connect = scripted::Failing(ECONNREFUSED);
    scripted::close = [this](int descriptor) {
        EXPECT_EQ(descriptor, 1000);
        --open;
        errno = EIO;
        return -1;
    };
    EXPECT_EQ(Init(), 0xffffffffu);
    EXPECT_EQ(errno, ECONNREFUSED);
    EXPECT_EQ(open, 0);
    EXPECT_EQ(Blocks(), 0);
    EXPECT_EQ(MBR_LIB_IsAlreadyReg(kIpv4), 0u);
    EXPECT_EQ(Say(1, 1), 0x2001000eu);
}

TEST_F(MemberOpening, ASocketThatIsConnectedAlreadyIsASuccess)
{
    scripted::connect = scripted::Failing(EISCONN);
    EXPECT_EQ(Init(), 1000u);
}

TEST_F(MemberOpening, WithoutMemoryTheSocketIsClosedAndALaterInitSucceeds)
{
    unsigned long needed = fault::ForEveryAllocation([this](unsigned long) {
        uint32_t socket = Init();

        EXPECT_EQ(socket == MCAST_NONE, fault::Fired());
        EXPECT_EQ(MBR_LIB_IsAlreadyReg(kIpv4), fault::Fired() ? 0u : 1u);
        EXPECT_EQ(open, fault::Fired() ? 0 : 1);
    });

    EXPECT_EQ(needed, 1u);
}

TEST_F(MemberOpening, FiniLeavesTheEpollSetBeforeItClosesAndFreesWhatWaits)
{
    std::vector<std::string> calls;
    takes = 0;
    Init();
    for (int message = 0; message < 5; ++message) {
        Say(1, 1000);
    }
    EXPECT_EQ(Blocks(), 5);
    scripted::epoll_ctl = [&](int epfd, int operation, int fd, struct epoll_event *) {
        calls.push_back("epoll " + std::to_string(epfd) + " " + std::to_string(operation) + " " +
                        std::to_string(fd));
        errno = ENOENT;
        return -1; /* the result does not matter */
    };
    scripted::close = [&](int descriptor) {
        calls.push_back("close " + std::to_string(descriptor));
        --open;
        return 0;
    };
    MBR_LIB_Fini(kIpv4);
    EXPECT_EQ(calls, (std::vector<std::string>{"epoll 55 2 1000", "close 1000"}));
    EXPECT_EQ(Blocks(), 0);
    EXPECT_EQ(MBR_LIB_IsAlreadyReg(kIpv4), 0u);
    EXPECT_EQ(Say(1, 1), 0x2001000eu);
}

TEST_F(MemberOpening, FiniOfAClosedChannelDoesNothing)
{
    scripted::epoll_ctl = [](auto...) {
        ADD_FAILURE() << "closed channels are in no set";
        return -1;
    };
    scripted::close = [](auto...) {
        ADD_FAILURE() << "nothing is open";
        return -1;
    };
    MBR_LIB_Fini(kIpv4);
    MBR_LIB_Fini(kIpv6);
}

TEST_F(MemberOpening, ChannelsMayBeOpenedAndClosedOverAndOver)
{
    for (int round = 0; round < 100; ++round) {
        EXPECT_EQ(Init(), static_cast<uint32_t>(1000 + round));
        EXPECT_EQ(MBR_LIB_RegEvt(kIpv4, 1), 0u) << "a new channel is registered for nothing";
        EXPECT_EQ(sent.size(), static_cast<size_t>(round + 1));
        EXPECT_EQ(sent.back()[12], 0) << "so its registration is a first one";
        MBR_LIB_Fini(kIpv4);
        EXPECT_EQ(Blocks(), 0);
    }
}

TEST_F(MemberOpening, TheFamiliesHaveChannelsOfTheirOwn)
{
    Init(kIpv4);
    Init(kIpv6);
    EXPECT_EQ(MBR_LIB_SendMsg(kIpv6, 1, 1, "6", 0), 0u);
    EXPECT_EQ(MBR_LIB_SendMsg(kIpv4, 1, 1, "4", 0), 0u);
    EXPECT_EQ(Flush(kIpv4), 0u);
    ASSERT_EQ(sent.size(), 1u);
    EXPECT_EQ(sent[0].back(), '4');
    MBR_LIB_Fini(kIpv4);
    EXPECT_EQ(MBR_LIB_IsAlreadyReg(kIpv6), 1u);
    EXPECT_EQ(Flush(kIpv6), 0u);
    EXPECT_EQ(sent.at(1).back(), '6');
    EXPECT_EQ(sent_on, (std::vector<int>{1000, 1001}));
}

/* The datagram of a registration message alone. */
Bytes Registration(uint16_t type, uint8_t family, uint64_t mask)
{
    return Datagram(kModule, 1, Message(type, Bytes{family, kModule} + Number(mask, 8)));
}

using MemberRegistration = MemberTest;

TEST_F(MemberRegistration, IsByteForByteAsThePeerReadsIt)
{
    Init(kIpv6);
    EXPECT_EQ(MBR_LIB_RegEvt(kIpv6, 0x8877665544332211), 0u);
    EXPECT_EQ(sent, (std::vector<Bytes>{Bytes{9, 0, 0, 0} + Number(1, 4) + Number(14, 4) + Number(0, 2) +
                                        Number(10, 2) + Bytes{10, 9} + Number(0x8877665544332211, 8)}));
}

TEST_F(MemberRegistration, SendsTheWholeMaskOnlyWhenItChanges)
{
    Init();
    EXPECT_EQ(MBR_LIB_RegEvt(kIpv4, 1), 0u);
    EXPECT_EQ(MBR_LIB_RegEvt(kIpv4, 1), 0u);
    EXPECT_EQ(sent, std::vector<Bytes>{Registration(0, 2, 1)});
    EXPECT_EQ(MBR_LIB_RegEvt(kIpv4, 2), 0u);
    EXPECT_EQ(MBR_LIB_DeRegEvt(kIpv4, 1), 0u);
    EXPECT_EQ(MBR_LIB_DeRegEvt(kIpv4, 1), 0u);
    EXPECT_EQ(MBR_LIB_DeRegEvt(kIpv4, 0xfffffffffffffffd), 0u);
    EXPECT_EQ(sent.size(), 3u);
    EXPECT_EQ(sent[1], Registration(15, 2, 3));
    EXPECT_EQ(sent[2], Registration(15, 2, 2));
}

TEST_F(MemberRegistration, StartsOverAfterEverythingWasTakenOut)
{
    Init();
    EXPECT_EQ(MBR_LIB_DeRegEvt(kIpv4, UINT64_MAX), 0u) << "there is nothing to take out";
    EXPECT_EQ(MBR_LIB_RegEvt(kIpv4, 0), 0u) << "or to add";
    EXPECT_TRUE(sent.empty());
    EXPECT_EQ(MBR_LIB_RegEvt(kIpv4, UINT64_MAX), 0u);
    EXPECT_EQ(MBR_LIB_DeRegEvt(kIpv4, UINT64_MAX), 0u);
    EXPECT_EQ(MBR_LIB_RegEvt(kIpv4, 4), 0u);
    ASSERT_EQ(sent.size(), 3u);
    EXPECT_EQ(sent[1], Registration(15, 2, 0));
    EXPECT_EQ(sent[2], Registration(0, 2, 4));
}

TEST_F(MemberRegistration, GoesOutBehindWhatWaits)
{
    Init();
    Say(7, 3, 0, 40);
    EXPECT_EQ(MBR_LIB_RegEvt(kIpv4, 1), 0u);
    ASSERT_EQ(sent.size(), 1u);
    EXPECT_EQ(sent[0],
              Datagram(kModule, 2, Message(40, {7, 7, 7}) + Message(0, Bytes{2, kModule} + Number(1, 8))));
}

TEST_F(MemberRegistration, FailsOnAClosedChannel)
{
    EXPECT_EQ(MBR_LIB_RegEvt(kIpv4, 1), 0x40010001u);
    EXPECT_EQ(MBR_LIB_DeRegEvt(kIpv4, 1), 0x40010001u);
    EXPECT_EQ(MBR_LIB_RegEvt(kIpv4, 0), 0x40010001u);
    EXPECT_EQ(Refused(), 0u);
}

TEST_F(MemberRegistration, KeepsTheOldMaskWhenItCannotBeSent)
{
    Init();
    takes = 0;
    EXPECT_EQ(MBR_LIB_RegEvt(kIpv4, 1), 0x40010001u);
    EXPECT_EQ(SendFailures(), 1u);
    takes = -1;
    EXPECT_EQ(MBR_LIB_RegEvt(kIpv4, 1), 0u);
    ASSERT_EQ(sent.size(), 1u);
    EXPECT_EQ(sent[0], Datagram(kModule, 2,
                                Message(0, Bytes{2, kModule} + Number(1, 8)) +
                                    Message(0, Bytes{2, kModule} + Number(1, 8))))
        << "the one that waited, and the one of now, still a first one";
    takes = 0;
    EXPECT_EQ(MBR_LIB_DeRegEvt(kIpv4, 1), 0x40010001u);
    takes = -1;
    EXPECT_EQ(MBR_LIB_RegEvt(kIpv4, 1), 0u) << "it is registered for that still";
    EXPECT_EQ(sent.size(), 1u);
}

TEST_F(MemberRegistration, FinalStepTakesAnyTypeAndMask)
{
    MBR_CHANNEL_S channel = {1000, kIpv6, 3, MCAST_NONE, 6, 0, {nullptr, nullptr}};
    EXPECT_EQ(MbrLib_RegFinalEvt(nullptr, 0, 1), 0x40010001u);
    EXPECT_EQ(MbrLib_RegFinalEvt(&channel, 77, 6), 0u);
    EXPECT_TRUE(sent.empty());
    EXPECT_EQ(MbrLib_RegFinalEvt(&channel, 77, 8), 0u);
    EXPECT_EQ(channel.events, 8u);
    ASSERT_EQ(sent.size(), 1u);
    EXPECT_EQ(sent[0], Datagram(3, 1, Message(77, Bytes{10, 3} + Number(8, 8))));
    channel.socket = MCAST_NONE;
    EXPECT_EQ(MbrLib_RegFinalEvt(&channel, 77, 9), 0x40010001u);
    EXPECT_EQ(channel.events, 8u);
    MCAST_FreeFunc(channel.queue.head);
}

TEST_F(MemberRegistration, TheBlockThatWasSentIsKeptAsNew)
{
    MBR_CHANNEL_S channel = {1000, kIpv6, 3, MCAST_NONE, 0, 0, {nullptr, nullptr}};

    EXPECT_EQ(MbrLib_RegFinalEvt(&channel, 0, 1), 0u);
    MBR_BLOCK_S *block = channel.queue.head;

    ASSERT_NE(block, nullptr);
    EXPECT_EQ(channel.queue.tail, block);
    EXPECT_EQ(channel.block_count, 1u);
    EXPECT_EQ(block->used, 12u);
    block->reserved = 7;
    EXPECT_EQ(MbrLib_RegFinalEvt(&channel, 15, 2), 0u);
    EXPECT_EQ(channel.queue.head, block);
    EXPECT_EQ(channel.queue.tail, block);
    EXPECT_EQ(channel.block_count, 1u);
    EXPECT_EQ(block->next, nullptr);
    EXPECT_EQ(block->previous, nullptr);
    EXPECT_EQ(block->reserved, 0u);
    EXPECT_EQ(block->used, 12u);
    MCAST_FreeFunc(block);
}

} // namespace
} // namespace member_test
