#include <cstring>

#include "unit/usrauth/usrauth_fixture.h"
#include "usrauth/user.h"

namespace usrauth_test
{
namespace
{

class Announce : public UsrAuthTest
{
protected:
    Announce()
    {
        Start();
    }
};

TEST_F(Announce, CreatesANewUserThatIsNotYetOnline)
{
    UserSpec spec;
    spec.pairs = {{1, 1}, {2, 1}, {1, 2}};
    Receive(spec.Announce());
    EXPECT_EQ(Told(), Calls{"kind 1 3 up"});
    EXPECT_EQ(Flags(1, 7), MCAST_USRAUTH_NEW);
    EXPECT_EQ(Entries(1, 7), "239.0.0.1/10.0.0.1! 239.0.0.1/10.0.0.2! 239.0.0.2/10.0.0.1!");
    EXPECT_EQ(MCAST_USRAUTH_UserCount(), 0u);
}

TEST_F(Announce, KeepsEveryFieldOfTheMessage)
{
    Receive(UserSpec().Announce());
    const MCAST_USRAUTH_USER_S *user = mcast::usrauth::FindUser(1, 7);
    const uint8_t address[16] = {192, 0, 2, 9}, second[16] = {198, 51, 100, 8};

    ASSERT_NE(user, nullptr);
    EXPECT_EQ(user->user_id, 7u);
    EXPECT_EQ(user->kind, 3u);
    EXPECT_EQ(user->access_if_index, 50u);
    EXPECT_EQ(user->if_index, 0u);
    EXPECT_EQ(user->address.family, 2u);
    EXPECT_EQ(memcmp(user->address.address, address, 16), 0);
    EXPECT_EQ(user->vrf_index, 5u);
    EXPECT_EQ(user->attribute_40, 40u);
    EXPECT_EQ(user->attribute_32, 32u);
    EXPECT_EQ(user->attribute_34, 34u);
    EXPECT_EQ(user->attribute_24, 24u);
    EXPECT_EQ(user->attribute_36, 36u);
    EXPECT_EQ(user->attribute_80, 80u);
    EXPECT_EQ(user->attribute_84, 84u);
    EXPECT_EQ(memcmp(&user->hardware_address_first, "\xa0\xa1\xa2\xa3", 4), 0);
    EXPECT_EQ(memcmp(&user->hardware_address_last, "\xa4\xa5", 2), 0);
    EXPECT_EQ(user->attribute_70, 70u);
    EXPECT_EQ(user->second_address.family, 2u);
    EXPECT_EQ(memcmp(user->second_address.address, second, 16), 0);
    EXPECT_EQ(MCAST_USRAUTH_GetNode(user), 1u);
    EXPECT_STREQ(user->name, "alice");
}

TEST_F(Announce, ReadsSixteenBytesOfEachAddressForIpv6)
{
    MCAST_USRAUTH_StopServer();
    MCAST_USRAUTH_Fini();
    next_descriptor = kAgent;
    Start(MCAST_FAMILY_IPV6);
    UserSpec spec;
    const uint8_t address[16] = {0x20, 0x01, 0x0d, 0xb8, 0, 0, 0, 0, 0, 0, 0, 0, 0, 0, 0, 9};

    spec.family = MCAST_FAMILY_IPV6;
    spec.pairs = {{1, 1}};
    Receive(spec.Announce());
    EXPECT_EQ(mcast::usrauth::FindUser(1, 7)->address.family, 10u);
    EXPECT_EQ(memcmp(mcast::usrauth::FindUser(1, 7)->address.address, address, 16), 0);
    EXPECT_EQ(Entries(1, 7), "ff0e::1/2001::1!");
}

TEST_F(Announce, TwelveBytesBehindAnIpv4AddressAreNotRead)
{
    Bytes message = UserSpec().Announce();
    message[4 + 8 + 15] = 0xff;
    Receive(message);
    EXPECT_EQ(mcast::usrauth::FindUser(1, 7)->address.address[15], 0);
}

TEST_F(Announce, TellsOnlyTheFirstUserOfAKindOnANode)
{
    UserSpec spec;
    Receive(spec.Announce());
    spec.user_id = 8;
    Receive(spec.Announce());
    EXPECT_EQ(Told(), Calls{"kind 1 3 up"});
    spec.user_id = 9;
    spec.kind = 4;
    Receive(spec.Announce());
    spec.node = 2;
    Receive(spec.Announce());
    EXPECT_EQ(Told(), (Calls{"kind 1 4 up", "kind 2 4 up"}));
}

TEST_F(Announce, OfAKindThatIsNoneIsCountedAndChangesNothing)
{
    MCAST_USRAUTH_STATISTICS_S statistics;
    UserSpec spec;
    for (uint32_t kind : {0u, 5u, 6u}) {
        spec.kind = kind;
        Receive(spec.Announce());
        MCAST_USRAUTH_GetStatistics(&statistics);
        EXPECT_EQ(statistics.messages[kind][0], 1u);
    }
    EXPECT_EQ(MCAST_USRAUTH_UserMsgDetailCount(), 1u);
    EXPECT_EQ(Told(), Calls{});
    EXPECT_EQ(mcast::usrauth::FindUser(1, 7), nullptr);
}

TEST_F(Announce, OfAKindBeyondTheMatrixLeavesTheCountersAlone)
{
    MCAST_USRAUTH_STATISTICS_S statistics, expected = {};
    UserSpec spec;
    expected.receive_count = 4;
    for (uint32_t kind : {7u, 9u, 0x80000000u, 0xffffffffu}) {
        spec.kind = kind;
        Receive(spec.Announce());
    }
    MCAST_USRAUTH_GetStatistics(&statistics);
    EXPECT_EQ(memcmp(&statistics, &expected, sizeof(expected)), 0);
    EXPECT_EQ(MCAST_USRAUTH_UserMsgDetailCount(), 1u);
}

TEST_F(Announce, OfKindTwoHasItsAccessInterfaceAtOnce)
{
    UserSpec spec;
    spec.kind = 2;
    Receive(spec.Announce());
    EXPECT_EQ(mcast::usrauth::FindUser(1, 7)->if_index, 50u);
    EXPECT_EQ(MCAST_USRAUTH_UserCount(), 0u) << "it is found by it after the end of its list";
}

TEST_F(Announce, ShortValueIsReadAsIfPadded)
{
    Bytes value = UserSpec().Value();
    value.resize(84);
    Receive(Message(0, value));
    ASSERT_NE(mcast::usrauth::FindUser(1, 7), nullptr);
    EXPECT_EQ(mcast::usrauth::FindUser(1, 7)->attribute_80, 80u);
    EXPECT_EQ(mcast::usrauth::FindUser(1, 7)->attribute_84, 0x0000ffffu);
    EXPECT_STREQ(mcast::usrauth::FindUser(1, 7)->name, "");
}

TEST_F(Announce, FieldCutInTwoIsPaddedWithTheBytesOfItsDefault)
{
    Bytes value = UserSpec().Value();
    Put(&value, 84, 4, 0x11223344);
    value.resize(86);
    Receive(Message(0, value));
    EXPECT_EQ(mcast::usrauth::FindUser(1, 7)->attribute_84, 0x1122ffffu);
}

TEST_F(Announce, EmptyValueNamesTheUserWithAllBitsSet)
{
    const MCAST_USRAUTH_DETAIL_FILTER_S all = {1, 0, 0, 0};
    MCAST_USRAUTH_STATISTICS_S statistics;
    Receive(Message(0, {}));
    MCAST_USRAUTH_GetStatistics(&statistics);
    EXPECT_EQ(statistics.messages[0][0], 1u);
    MCAST_USRAUTH_WalkAllUserMsgDetail(
        &all,
        [](MCAST_USRAUTH_MSG_DETAIL_S *record, void *) {
            EXPECT_EQ(record->user_id, 0xffffffffu);
            EXPECT_EQ(record->node, 0u);
            return MCAST_OK;
        },
        nullptr);
}

TEST_F(Announce, BytesBehindTheRecordAreNoPartOfIt)
{
    UserSpec spec;
    Bytes value;
    spec.name_offset = 200;
    value = spec.Value();
    value.resize(200, 0xee);
    Receive(Message(0, value + Bytes{'b', 'o', 'b', 0, 0, 0}));
    EXPECT_STREQ(mcast::usrauth::FindUser(1, 7)->name, "bob");
}

TEST_F(Announce, NameThatDoesNotLieWithinTheValueIsNone)
{
    UserSpec spec;
    for (auto [offset, length] : {std::pair<int64_t, int64_t>{88, 7}, {94, 6}, {65535, 65535}, {0, 95}}) {
        ++spec.user_id;
        spec.name_offset = offset;
        spec.name_length = length;
        Receive(spec.Announce());
        ASSERT_NE(mcast::usrauth::FindUser(1, spec.user_id), nullptr);
        EXPECT_STREQ(mcast::usrauth::FindUser(1, spec.user_id)->name, "");
        EXPECT_EQ(mcast::usrauth::FindUser(1, spec.user_id)->name_size, 1u);
    }
}

TEST_F(Announce, NameWithoutATerminatorIsCutByOneCharacter)
{
    UserSpec spec;
    spec.name_length = 5;
    Receive(spec.Announce());
    EXPECT_STREQ(mcast::usrauth::FindUser(1, 7)->name, "alic");
}

TEST_F(Announce, LaterNamesAreCutToTheRoomOfTheFirst)
{
    UserSpec spec;
    Receive(spec.Announce());
    spec.name = "alexandra";
    Receive(spec.Announce());
    EXPECT_STREQ(mcast::usrauth::FindUser(1, 7)->name, "alexa");
    spec.name = "al";
    Receive(spec.Update());
    EXPECT_STREQ(mcast::usrauth::FindUser(1, 7)->name, "al");
    spec.name = "";
    Receive(spec.Update());
    EXPECT_STREQ(mcast::usrauth::FindUser(1, 7)->name, "al") << "no name in the message";
}

TEST_F(Announce, ExistingUserIsUpdatedAndNotCreatedAgain)
{
    UserSpec spec;
    spec.pairs = {{1, 1}};
    Receive(spec.Announce());
    spec.attribute_36 = 1;
    spec.pairs = {{1, 2}};
    Receive(spec.Announce());
    EXPECT_EQ(Told(), Calls{"kind 1 3 up"});
    EXPECT_EQ(mcast::usrauth::FindUser(1, 7)->attribute_36, 1u);
    EXPECT_EQ(Entries(1, 7), "239.0.0.1/10.0.0.1! 239.0.0.2/10.0.0.1!");
}

TEST_F(Announce, EveryFailingAllocationOrInsertLeavesNothingBehind)
{
    UserSpec spec;

    spec.pairs = {{1, 1}, {2, 1}};
    fault::ForEveryAllocation([&](unsigned long) {
        const long before = fault::LiveBlocks();

        Receive(spec.Announce());
        const bool is_there = mcast::usrauth::FindUser(1, 7) != nullptr;

        EXPECT_EQ(Told(), is_there ? Calls{"kind 1 3 up"} : Calls{});
        Receive(spec.Withdraw());
        Told();
        MCAST_USRAUTH_ClearRecord();
        EXPECT_EQ(fault::LiveBlocks(), before);
    });
    for (auto operation : {platform::Operation::kTreeInit, platform::Operation::kTreeInsert,
                           platform::Operation::kHashInsert}) {
        for (unsigned long nth = 1; nth < 12; ++nth) {
            const long trees = platform::LiveTrees(), blocks = fault::LiveBlocks();

            platform::Fail(operation, nth);
            Receive(spec.Announce());
            platform::Reset();
            Receive(spec.Withdraw());
            MCAST_USRAUTH_ClearRecord();
            EXPECT_EQ(platform::LiveTrees(), trees);
            EXPECT_EQ(fault::LiveBlocks(), blocks);
        }
    }
    Told();
}

TEST_F(Announce, NodeMadeForAUserThatCannotBeInsertedIsGoneAgain)
{
    UserSpec spec;
    MCAST_USRAUTH_SetMsgDetailLimit(0);
    platform::Fail(platform::Operation::kTreeInsert, 1);
    Receive(spec.Announce());
    EXPECT_EQ(mcast::usrauth::FindUser(1, 7), nullptr);
    EXPECT_EQ(platform::LiveTrees(), 2) << "interfaces and details";
    EXPECT_EQ(Told(), Calls{});
}

} // namespace
} // namespace usrauth_test
