/*
 * The user authentication on scripted system calls and timers: the fixture plays the kernel, the event loop
 * and the agents, keeps every call and callback, checks the store after each message, and finds leaks when it
 * ends.
 */
#ifndef TESTS_UNIT_USRAUTH_USRAUTH_FIXTURE_H
#define TESTS_UNIT_USRAUTH_USRAUTH_FIXTURE_H

#include <functional>
#include <gtest/gtest.h>
#include <map>
#include <string>
#include <vector>

#include "mcast/usrauth.h"
#include "support/fault.h"
#include "support/scripted_libc.h"
#include "support/scripted_platform.h"
#include "support/scripted_timer.h"
#include "support/usrauth_messages.h"
#include "support/usrauth_validate.h"

namespace usrauth_test
{

using Calls = std::vector<std::string>;

class UsrAuthTest : public testing::Test
{
public:
    static constexpr int kEpoll = 500;
    static constexpr int kListener = 600;
    static constexpr int kAgent = 700; /* the first connection; the next ones count up */

    UsrAuthTest();
    ~UsrAuthTest() override;

    /* MCAST_USRAUTH_Init with the fixture's callbacks. */
    MCAST_STATUS Init(uint16_t family = MCAST_FAMILY_IPV4);

    /* Init, MCAST_USRAUTH_Upgrade and one connection; forgets what that called. */
    void Start(uint16_t family = MCAST_FAMILY_IPV4);

    /* Makes the loop report the descriptor; the result of the handler, -1 when none is registered. */
    uint64_t Report(int descriptor, uint32_t events);

    /* Lets an agent connect; the result of the handler. */
    uint64_t Connect();

    /* What the agent sent arrives in one read. Fails the test when the store is damaged afterwards. */
    void Receive(const Bytes &data, int descriptor = kAgent);

    /* Announces the user and ends its list; it comes online as InterfaceOf(user_id). */
    void PutOnline(const UserSpec &spec);

    /* What the daemon answers in user_online unless `interface_of` is set. */
    static uint32_t InterfaceOf(uint32_t user_id)
    {
        return 1000 + user_id;
    }

    /* The callbacks since the last Told. */
    Calls Told();

    /* Fires every timer that is there now, in the order of creation; how many there were. */
    size_t FireTimers();

    /* The user's flags; every bit when there is no such user. */
    uint32_t Flags(uint16_t node, uint32_t user_id);

    /* "239.0.0.1/10.0.0.2!": group, source and ! for seen; of every entry, joined by spaces. */
    std::string Entries(uint16_t node, uint32_t user_id);

    /* Every user in the interface tree as "if:node/id". */
    std::string Online();

    MCAST_USRAUTH_CALLBACKS_S callbacks = AllCallbacks();
    std::function<uint32_t(MCAST_USRAUTH_USER_S *)> interface_of;
    std::function<void(const std::string &call)> on_callback; /* runs inside each callback */
    uint32_t filter_result = 0;
    bool note_filter = false;
    bool expect_lock_free = true;

    Calls told;
    Calls system_calls;
    std::map<int, uint64_t> registered; /* descriptor -> context */
    std::map<int, uint32_t> registered_events;
    int next_descriptor = kAgent;

    static MCAST_USRAUTH_CALLBACKS_S AllCallbacks();

private:
    long blocks_before_;
};

} // namespace usrauth_test

#endif
