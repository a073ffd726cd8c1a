#include "unit/usrauth/usrauth_fixture.h"
#include "usrauth/node.h"
#include "usrauth/user.h"

namespace usrauth_test
{
namespace
{

class Withdraw : public UsrAuthTest
{
protected:
    Withdraw()
    {
        Start();
    }

    UserSpec spec;
};

TEST_F(Withdraw, TellsOfflineThenDeletesThenTellsTheKind)
{
    PutOnline(spec);
    on_callback = [](const std::string &call) {
        EXPECT_EQ(mcast::usrauth::FindUser(1, 7) != nullptr, call == "offline 1/7");
    };
    Receive(spec.Withdraw());
    on_callback = nullptr;
    EXPECT_EQ(Told(), (Calls{"offline 1/7", "kind 1 3 down"}));
    EXPECT_EQ(Online(), "");
    EXPECT_EQ(mcast::usrauth::FindNode(1), nullptr) << "the node goes with its last user";
}

TEST_F(Withdraw, OfAUserThatNeverWasOnlineTellsTheKindOnly)
{
    Receive(spec.Announce());
    Told();
    Receive(spec.Withdraw());
    EXPECT_EQ(Told(), Calls{"kind 1 3 down"});
}

TEST_F(Withdraw, TellsNothingOfTheKindWhileItHasUsers)
{
    PutOnline(spec);
    spec.user_id = 8;
    PutOnline(spec);
    Receive(spec.Withdraw());
    EXPECT_EQ(Told(), Calls{"offline 1/8"});
    EXPECT_NE(mcast::usrauth::FindNode(1), nullptr);
}

TEST_F(Withdraw, TellsTheKindOfTheMessage)
{
    PutOnline(spec);
    spec.kind = 4;
    Receive(spec.Withdraw());
    EXPECT_EQ(Told(), (Calls{"offline 1/7", "kind 1 4 down"}));
}

TEST_F(Withdraw, OfAKindWithoutAListTellsNoKind)
{
    for (uint32_t kind : {7u, 0x10000u, 0xffffffffu}) {
        spec.kind = 3;
        PutOnline(spec);
        spec.kind = kind;
        Receive(spec.Withdraw());
        EXPECT_EQ(Told(), Calls{"offline 1/7"});
        EXPECT_EQ(mcast::usrauth::FindUser(1, 7), nullptr);
    }
}

TEST_F(Withdraw, OfAnUnknownUserIsCountedAndIgnored)
{
    MCAST_USRAUTH_STATISTICS_S statistics;
    Receive(spec.Withdraw());
    MCAST_USRAUTH_GetStatistics(&statistics);
    EXPECT_EQ(statistics.messages[3][1], 1u);
    EXPECT_EQ(MCAST_USRAUTH_UserMsgDetailCount(), 1u);
    EXPECT_EQ(Told(), Calls{});
}

TEST_F(Withdraw, IsNotFiltered)
{
    PutOnline(spec);
    filter_result = MCAST_USRAUTH_FILTER_DROP;
    Receive(spec.Withdraw());
    EXPECT_EQ(mcast::usrauth::FindUser(1, 7), nullptr);
}

TEST_F(Withdraw, FromTheMiddleOfAKindKeepsTheOthersInOrder)
{
    for (uint32_t id : {5u, 6u, 7u, 8u}) {
        spec.user_id = id;
        PutOnline(spec);
    }
    for (uint32_t id : {6u, 8u, 5u, 7u}) {
        spec.user_id = id;
        Receive(spec.Withdraw());
    }
    EXPECT_EQ(Told().back(), "kind 1 3 down");
}

TEST_F(Withdraw, UsersOfEqualIdOnOtherNodesStay)
{
    PutOnline(spec);
    spec.node = 513;
    interface_of = [](MCAST_USRAUTH_USER_S *) { return 5; };
    PutOnline(spec);
    Receive(spec.Withdraw());
    EXPECT_EQ(Online(), "1007:1/7");
}

} // namespace
} // namespace usrauth_test
