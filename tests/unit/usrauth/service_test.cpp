#include <arpa/inet.h>

#include "unit/usrauth/usrauth_fixture.h"
#include "usrauth/user.h"

namespace usrauth_test
{
namespace
{

class Service : public UsrAuthTest
{
protected:
    UserSpec spec;
};

TEST_F(Service, OpensTheListenerOfTheFamily)
{
    /* 128 in host order, then zeros */
    const std::string node = htons(128) == 128 ? "0 128 0 0 0 0 0 0 0 0 0 0" : "128 0 0 0 0 0 0 0 0 0 0 0";
    Init();
    EXPECT_EQ(MCAST_USRAUTH_Upgrade(MCAST_FAMILY_IPV4, kEpoll), MCAST_OK);
    EXPECT_EQ(system_calls, (Calls{"socket 37 2 1", "option 600 1 512 1 4", "bind 600 0 37 8 147 " + node,
                                   "listen 600 1024", "add 600"}));
    EXPECT_EQ(registered_events[kListener], 1u);
    EXPECT_EQ(MCAST_USRAUTH_StopServer(), 1u);
    system_calls.clear();
    EXPECT_EQ(MCAST_USRAUTH_Upgrade(MCAST_FAMILY_IPV6, kEpoll), MCAST_OK);
    EXPECT_EQ(system_calls[2], "bind 600 0 37 8 144 " + node);
}

TEST_F(Service, OpeningTwiceDoesNothing)
{
    Start();
    EXPECT_EQ(MCAST_USRAUTH_Upgrade(MCAST_FAMILY_IPV6, kEpoll), MCAST_OK);
    EXPECT_EQ(system_calls, Calls{});
}

TEST_F(Service, EveryFailingCallClosesTheSocket)
{
    Init();
    scripted::socket = scripted::Failing(ENFILE);
    EXPECT_EQ(MCAST_USRAUTH_Upgrade(MCAST_FAMILY_IPV4, kEpoll), MCAST_ERR_GENERAL);
    EXPECT_EQ(system_calls, Calls{});
    scripted::socket = [](int, int, int) { return kListener; };
    const auto expect_closed = [&] {
        EXPECT_EQ(MCAST_USRAUTH_Upgrade(MCAST_FAMILY_IPV4, kEpoll), MCAST_ERR_GENERAL);
        EXPECT_EQ(system_calls.back(), "close 600");
        EXPECT_EQ(MCAST_USRAUTH_StopServer(), 0u);
    };
    auto epoll_ctl = std::exchange(scripted::epoll_ctl, scripted::Failing(ENOSPC));
    expect_closed();
    scripted::epoll_ctl = epoll_ctl;
    auto listen = std::exchange(scripted::listen, scripted::Failing(EADDRINUSE));
    expect_closed();
    scripted::listen = listen;
    auto bind = std::exchange(scripted::bind, scripted::Failing(EADDRINUSE));
    expect_closed();
    scripted::bind = bind;
    scripted::setsockopt = scripted::Failing(ENOPROTOOPT);
    expect_closed();
}

TEST_F(Service, DescriptorZeroIsASocket)
{
    Init();
    scripted::socket = [](int, int, int) { return 0; };
    EXPECT_EQ(MCAST_USRAUTH_Upgrade(MCAST_FAMILY_IPV4, kEpoll), MCAST_OK);
    EXPECT_EQ(MCAST_USRAUTH_StopServer(), 1u);
    EXPECT_EQ(system_calls.back(), "close 0");
}

TEST_F(Service, StopsConnectionsThenTheListener)
{
    EXPECT_EQ(MCAST_USRAUTH_StopServer(), 0u);
    Start();
    Connect();
    system_calls.clear();
    EXPECT_EQ(MCAST_USRAUTH_StopServer(), 1u);
    EXPECT_EQ(system_calls,
              (Calls{"delete 700", "close 700", "delete 701", "close 701", "delete 600", "close 600"}));
    EXPECT_EQ(MCAST_USRAUTH_StopServer(), 0u);
}

TEST_F(Service, StoppedAfterTheStoreStillLeavesTheSet)
{
    Start();
    MCAST_USRAUTH_Fini();
    EXPECT_EQ(MCAST_USRAUTH_StopServer(), 1u);
    EXPECT_TRUE(registered.empty());
}

TEST_F(Service, AcceptsWithAClosingThatResets)
{
    Start();
    system_calls.clear();
    EXPECT_EQ(Connect(), MCAST_OK);
    EXPECT_EQ(system_calls, (Calls{"accept", "option 701 1 128 1 8", "add 701"}));
    EXPECT_EQ(registered_events[701], 1u);
}

TEST_F(Service, AcceptsWhereTheOptionIsUnknown)
{
    Start();
    scripted::setsockopt = scripted::Failing(ENOPROTOOPT);
    EXPECT_EQ(Connect(), MCAST_OK);
}

TEST_F(Service, FailureToAcceptChangesNothing)
{
    Start();
    scripted::accept = scripted::Failing(ECONNABORTED);
    EXPECT_EQ(Connect(), MCAST_ERR_GENERAL);
    EXPECT_EQ(system_calls, Calls{});
}

TEST_F(Service, FailureToRegisterClosesTheConnection)
{
    Start();
    auto epoll_ctl = std::exchange(scripted::epoll_ctl, scripted::Failing(ENOSPC));
    EXPECT_EQ(Connect(), MCAST_ERR_GENERAL);
    EXPECT_EQ(system_calls.back(), "close 701");
    scripted::epoll_ctl = epoll_ctl;
}

TEST_F(Service, ConnectionForWhichMemoryIsShortIsClosed)
{
    Start();
    fault::FailAllocation(1);
    EXPECT_EQ(Connect(), MCAST_ERR_GENERAL);
    fault::FailAllocation(0);
    EXPECT_EQ(system_calls.back(), "close 701");
    EXPECT_EQ(system_calls[system_calls.size() - 2], "delete 701");
}

TEST_F(Service, ErrorAndHangUpCloseTheConnectionConcerned)
{
    Start();
    Connect();
    Connect();
    for (auto [events, descriptor] : {std::pair{0x10u, 701}, {0x8u, 700}, {0x19u, 702}}) {
        system_calls.clear();
        EXPECT_EQ(Report(descriptor, events), MCAST_OK);
        EXPECT_EQ(system_calls,
                  (Calls{"delete " + std::to_string(descriptor), "close " + std::to_string(descriptor)}));
    }
    EXPECT_EQ(Connect(), MCAST_OK);
    Receive(spec.Announce(), 703);
    EXPECT_EQ(Told(), Calls{"kind 1 3 up"});
}

TEST_F(Service, EventOfADescriptorThatIsNoConnectionIsIgnored)
{
    Start();
    using Handler = uint64_t (*)(uint32_t, int32_t);
    Handler receive = reinterpret_cast<Handler>(registered[kAgent]);

    scripted::recv = [](auto...) -> ssize_t {
        ADD_FAILURE() << "another's bytes";
        return 0;
    };
    EXPECT_EQ(receive(1, 999), MCAST_ERR_GENERAL);
    EXPECT_EQ(receive(0x10, 999), MCAST_ERR_GENERAL);
    EXPECT_EQ(system_calls, Calls{});
}

TEST_F(Service, NothingReadIsIgnored)
{
    MCAST_USRAUTH_STATISTICS_S statistics;
    Start();
    scripted::recv = scripted::Failing<ssize_t>(EAGAIN);
    EXPECT_EQ(Report(kAgent, 1), MCAST_OK);
    scripted::recv = [](auto...) { return ssize_t{0}; };
    EXPECT_EQ(Report(kAgent, 1), MCAST_OK);
    MCAST_USRAUTH_GetStatistics(&statistics);
    EXPECT_EQ(statistics.receive_count, 0u);
    EXPECT_EQ(system_calls, Calls{}) << "the connection stays";
}

TEST_F(Service, MessagesOfOneReadAreHandledInOrder)
{
    MCAST_USRAUTH_STATISTICS_S statistics;
    Start();
    Receive(spec.Announce() + spec.ListEnd() + spec.Withdraw());
    EXPECT_EQ(Told(), (Calls{"kind 1 3 up", "online 1/7", "offline 1/7", "kind 1 3 down"}));
    MCAST_USRAUTH_GetStatistics(&statistics);
    EXPECT_EQ(statistics.receive_count, 1u);
}

TEST_F(Service, MessageThatIsNotThereWholeTakesTheRestAlong)
{
    Start();
    Bytes longer = spec.Announce();

    Put(&longer, 2, 2, 2000);
    Receive(RefreshBegin(1, 3) + longer + RefreshEnd(1, 3));
    EXPECT_EQ(Told(), Calls{});
    Receive(spec.Announce());
    EXPECT_EQ(Told(), Calls{"kind 1 3 up"}) << "the next read starts afresh";
}

TEST_F(Service, MessageIsNotJoinedAcrossReads)
{
    Start();
    const Bytes whole = spec.Announce();

    for (size_t cut = 1; cut < whole.size(); ++cut) {
        const auto middle = whole.begin() + static_cast<ptrdiff_t>(cut);

        Receive(Bytes(whole.begin(), middle));
    }
    EXPECT_EQ(Told(), Calls{});
    EXPECT_EQ(MCAST_USRAUTH_UserMsgDetailCount(), 0u);
}

TEST_F(Service, ReadIsOfAtMost1400Bytes)
{
    Start();
    Bytes filler = Message(9, Bytes(1400 - 4 - 12 - 4));

    Receive(filler + RefreshEnd(1, 3) + RefreshEnd(1, 4));
    EXPECT_EQ(Told(), Calls{"refreshed 1 3"});
    Receive(Message(9, Bytes(1396 - 12)) + RefreshEnd(1, 3));
    EXPECT_EQ(Told(), Calls{"refreshed 1 3"});
    Receive(Message(9, Bytes(1397 - 12)) + RefreshEnd(1, 3));
    EXPECT_EQ(Told(), Calls{});
}

TEST_F(Service, TypesAboveSixAreSkipped)
{
    Start();
    for (int number : {7, 8, 255, 256, 0x8000, 0xffff}) {
        const uint16_t type = static_cast<uint16_t>(number);

        Receive(Message(type, spec.Value()) + RefreshEnd(1, 3));
        EXPECT_EQ(Told(), Calls{"refreshed 1 3"});
    }
    EXPECT_EQ(MCAST_USRAUTH_UserMsgDetailCount(), 0u);
}

TEST_F(Service, FewerThanFourBytesAreNoMessage)
{
    Start();
    Receive({0, 0, 0});
    Receive(RefreshEnd(1, 3) + Bytes{0, 6, 0});
    EXPECT_EQ(Told(), Calls{"refreshed 1 3"});
}

TEST_F(Service, FilterSeesAnnouncementsUpdatesAndGroupListsFirst)
{
    Start();
    note_filter = true;
    spec.name = "";
    Receive(spec.Announce() + spec.Update() + spec.List({{1, 1}}) + spec.ListEnd() + RefreshBegin(1, 3) +
            RefreshEnd(1, 3) + spec.Withdraw());
    EXPECT_EQ(Told(), (Calls{"filter 700 88 7", "kind 1 3 up", "filter 700 88 7", "filter 700 52 7",
                             "online 1/7", "refreshed 1 3", "offline 1/7", "kind 1 3 down"}));
}

TEST_F(Service, FilteredMessagesAreNotEvenCounted)
{
    MCAST_USRAUTH_STATISTICS_S statistics;
    Start();
    filter_result = 3;
    Receive(spec.Announce() + spec.Update() + spec.List({}));
    EXPECT_EQ(MCAST_USRAUTH_UserMsgDetailCount(), 0u);
    EXPECT_EQ(Told(), Calls{});
    MCAST_USRAUTH_GetStatistics(&statistics);
    EXPECT_EQ(statistics.messages[3][0] + statistics.messages[3][2] + statistics.messages[3][3], 0u);
    EXPECT_EQ(statistics.receive_count, 1u);
    for (uint32_t result : {1u, 2u, 4u, 0xffffffffu}) {
        filter_result = result;
        Receive(spec.Announce());
    }
    EXPECT_EQ(Told(), Calls{"kind 1 3 up"}) << "only 3 drops";
}

TEST_F(Service, WithoutCallbacksEverythingIsKept)
{
    callbacks = {};
    Start();
    spec.kind = 2;
    spec.pairs = {{1, 1}};
    Receive(spec.Announce() + spec.ListEnd());
    EXPECT_EQ(Online(), "50:1/7");
    spec.access_if_index = 51;
    spec.attribute_24 = 1;
    Receive(spec.Update() + spec.ListEnd() + spec.ListEnd() + RefreshEnd(1, 2));
    FireTimers();
    EXPECT_EQ(Online(), "");
    Receive(spec.Announce() + spec.ListEnd());
    EXPECT_EQ(MCAST_USRAUTH_ClearAllUsers(), MCAST_OK);
}

TEST_F(Service, WithoutAStoreMessagesAreReadAndDropped)
{
    Start();
    MCAST_USRAUTH_Fini();
    Receive(spec.Announce());
    EXPECT_EQ(Told(), Calls{});
    EXPECT_EQ(Connect(), MCAST_ERR_GENERAL) << "there is no set to register it in";
    EXPECT_EQ(system_calls.back(), "close 701");
}

} // namespace
} // namespace usrauth_test
