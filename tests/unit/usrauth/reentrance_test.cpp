#include "unit/usrauth/usrauth_fixture.h"
#include "usrauth/user.h"

namespace usrauth_test
{
namespace
{

/* What a daemon may do from within a callback: everything but start the store. */
class Reentrance : public UsrAuthTest
{
protected:
    Reentrance()
    {
        Start();
        spec.pairs = {{1, 1}};
    }

    /* Runs the action in the first callback whose text begins so. */
    void In(const std::string &call, std::function<void()> action)
    {
        on_callback = [=, this](const std::string &text) {
            if (text.compare(0, call.size(), call) == 0) {
                on_callback = nullptr;
                expect_lock_free = false;
                action();
                expect_lock_free = true;
            }
        };
    }

    /* Ways to make every user go. */
    const std::vector<std::function<void()>> kEmptyings = {
        [] { MCAST_USRAUTH_ClearAllUsers(); }, [] { MCAST_USRAUTH_Degrade(); }, [] { MCAST_USRAUTH_Fini(); }};

    void StartAgain()
    {
        MCAST_USRAUTH_StopServer();
        MCAST_USRAUTH_Fini();
        next_descriptor = kAgent;
        Start();
        Told();
    }

    UserSpec spec;
};

TEST_F(Reentrance, LookupsAnswerInEveryCallback)
{
    on_callback = [](const std::string &) {
        MCAST_USRAUTH_INFO_S info;

        MCAST_USRAUTH_UserCount();
        MCAST_USRAUTH_GetInfoByIfIndex(1007, &info);
    };
    PutOnline(spec);
    spec.vrf_index = 6;
    Receive(spec.Update() + spec.ListEnd() + spec.Withdraw());
    on_callback = nullptr;
    EXPECT_EQ(Told(), (Calls{"offline 1/7", "online 1/7", "offline 1/7", "kind 1 3 down"}));
}

TEST_F(Reentrance, StoreEmptiedInAnyCallbackIsLeftAlone)
{
    for (const auto &empty : kEmptyings) {
        for (const char *call :
             {"kind 1 3 up", "online", "offline", "changed", "refreshed", "kind 1 3 down"}) {
            SCOPED_TRACE(call);
            StartAgain();
            In(call, empty);
            Receive(spec.Announce() + spec.ListEnd());
            ++spec.attribute_40;
            Receive(spec.Update() + spec.ListEnd());
            ++spec.vrf_index;
            Receive(spec.Announce() + spec.ListEnd() + RefreshEnd(1, 3));
            Receive(spec.Withdraw());
            EXPECT_STREQ(StoreFault(), nullptr);
            on_callback = nullptr;
        }
    }
}

TEST_F(Reentrance, BatchGoesOnWithWhatACallbackLeft)
{
    for (uint32_t id = 1; id <= 6; ++id) {
        spec.user_id = id;
        PutOnline(spec);
    }
    MCAST_USRAUTH_RefreshAllUserByNodeRemove(1);
    spec.user_id = 3;
    In("offline 1/1", [&] { Receive(spec.Withdraw()); });
    FireTimers();
    EXPECT_EQ(MCAST_USRAUTH_UserCount(), 0u);
    EXPECT_EQ(Told(), (Calls{"offline 1/1", "offline 1/3", "offline 1/2", "offline 1/4", "offline 1/5",
                             "offline 1/6", "kind 1 3 down"}));
}

TEST_F(Reentrance, BatchSurvivesAnEmptiedStore)
{
    for (const auto &empty : kEmptyings) {
        for (const char *call : {"offline", "kind"}) {
            StartAgain();
            for (uint32_t id = 1; id <= 12; ++id) {
                spec.user_id = id;
                spec.node = id > 3 ? 2 : 1;
                PutOnline(spec);
            }
            MCAST_USRAUTH_RefreshAllUserByNodeRemove(1);
            MCAST_USRAUTH_RefreshAllUserByNodeRemove(2);
            In(call, empty);
            FireTimers();
            FireTimers();
            EXPECT_EQ(MCAST_USRAUTH_UserCount(), 0u);
            on_callback = nullptr;
        }
    }
}

TEST_F(Reentrance, UserWithdrawnInItsOwnOfflineIsDeletedOnce)
{
    PutOnline(spec);
    In("offline", [&] { Receive(spec.Withdraw()); });
    Receive(spec.Withdraw());
    EXPECT_EQ(mcast::usrauth::FindUser(1, 7), nullptr);
    EXPECT_STREQ(StoreFault(), nullptr);
}

TEST_F(Reentrance, ServiceStoppedInACallbackEndsTheRead)
{
    In("kind", [] { MCAST_USRAUTH_StopServer(); });
    scripted::recv = [&](int, void *to, size_t, int) {
        const Bytes data = spec.Announce() + spec.ListEnd();

        std::copy(data.begin(), data.end(), static_cast<uint8_t *>(to));
        return static_cast<ssize_t>(data.size());
    };
    EXPECT_EQ(Report(kAgent, 1), MCAST_OK);
    EXPECT_EQ(Told(), Calls{"kind 1 3 up"});
}

TEST_F(Reentrance, AnotherConnectionClosedInACallbackDoesNot)
{
    Connect();
    In("kind", [&] { Report(701, 0x10); });
    Receive(spec.Announce() + spec.ListEnd());
    EXPECT_EQ(Told(), (Calls{"kind 1 3 up", "online 1/7"}));
}

TEST_F(Reentrance, FilterMayEndTheStore)
{
    note_filter = true;
    In("filter", [] { MCAST_USRAUTH_Fini(); });
    Receive(spec.Announce());
    EXPECT_EQ(Told(), Calls{"filter 700 126 7"});
}

} // namespace
} // namespace usrauth_test
