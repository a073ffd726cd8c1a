#include "unit/usrauth/usrauth_fixture.h"

#include <algorithm>
#include <arpa/inet.h>
#include <cstring>

#include "mcast/event.h"
#include "usrauth/user.h"

namespace usrauth_test
{
namespace
{

UsrAuthTest *g_fixture = nullptr;

void ExpectLockFree() MCAST_NO_LOCK_ANALYSIS
{
    EXPECT_EQ(pthread_rwlock_trywrlock(&g_stUsrAuthRWLock.posix), 0) << "lock held in a callback";
    pthread_rwlock_unlock(&g_stUsrAuthRWLock.posix);
}

void Note(const std::string &call)
{
    g_fixture->told.push_back(call);
    if (g_fixture->expect_lock_free) {
        ExpectLockFree();
    }
    const auto on_callback = g_fixture->on_callback; /* which may replace itself */

    if (on_callback) {
        on_callback(call);
    }
}

std::string NameOf(const MCAST_USRAUTH_USER_S *user)
{
    return std::to_string(MCAST_USRAUTH_GetNode(user)) + "/" + std::to_string(user->user_id);
}

void OnOnline(MCAST_USRAUTH_USER_S *user, uint32_t *if_index)
{
    EXPECT_EQ(*if_index, 0u);
    *if_index =
        g_fixture->interface_of ? g_fixture->interface_of(user) : UsrAuthTest::InterfaceOf(user->user_id);
    Note("online " + NameOf(user));
}

void OnOffline(MCAST_USRAUTH_USER_S *user)
{
    EXPECT_NE(user->if_index, 0u);
    Note("offline " + NameOf(user));
}

void OnChanged(MCAST_USRAUTH_USER_S *user, uint32_t mask)
{
    Note("changed " + NameOf(user) + " " + std::to_string(mask));
}

void OnRefreshEnded(uint16_t node, uint32_t kind)
{
    Note("refreshed " + std::to_string(node) + " " + std::to_string(kind));
}

void OnNodeKind(uint16_t node, uint32_t kind, uint32_t up)
{
    Note("kind " + std::to_string(node) + " " + std::to_string(kind) + (up == 1 ? " up" : " down"));
}

uint32_t OnFilter(int32_t descriptor, const void *value, uint16_t length)
{
    if (g_fixture->note_filter) {
        const uint8_t *bytes = static_cast<const uint8_t *>(value);

        Note("filter " + std::to_string(descriptor) + " " + std::to_string(length) + " " +
             std::to_string(length > 3 ? bytes[3] : 0));
    }
    return g_fixture->filter_result;
}

std::string Text(const MCAST_ADDR_S &address)
{
    char text[INET6_ADDRSTRLEN];
    return inet_ntop(address.family == MCAST_FAMILY_IPV4 ? AF_INET : AF_INET6, address.address, text,
                     sizeof(text));
}

std::string Join(const Calls &parts)
{
    std::string joined;
    for (const std::string &part : parts) {
        joined += (joined.empty() ? "" : " ") + part;
    }
    return joined;
}

int Control(int epoll, int operation, int descriptor, const epoll_event *event)
{
    uint64_t context = 0;
    if (epoll != UsrAuthTest::kEpoll) {
        errno = EBADF;
        return -1;
    }
    if (operation == EPOLL_CTL_ADD) {
        memcpy(&context, reinterpret_cast<const char *>(event) + offsetof(MCAST_EPOLL_RECORD_S, context),
               sizeof(context));
        g_fixture->system_calls.push_back("add " + std::to_string(descriptor));
        g_fixture->registered[descriptor] = context;
        g_fixture->registered_events[descriptor] = event->events;
    } else {
        g_fixture->system_calls.push_back("delete " + std::to_string(descriptor));
        g_fixture->registered.erase(descriptor);
    }
    return 0;
}

void ScriptSystem(UsrAuthTest *fixture)
{
    scripted::socket = [=](int family, int type, int protocol) {
        fixture->system_calls.push_back("socket " + std::to_string(family) + " " + std::to_string(type) +
                                        " " + std::to_string(protocol));
        return UsrAuthTest::kListener;
    };
    scripted::setsockopt = [=](int fd, int level, int option, const void *value, socklen_t length) {
        uint32_t first = 0;

        memcpy(&first, value, sizeof(first));
        fixture->system_calls.push_back("option " + std::to_string(fd) + " " + std::to_string(level) + " " +
                                        std::to_string(option) + " " + std::to_string(first) + " " +
                                        std::to_string(length));
        return 0;
    };
    scripted::bind = [=](int fd, const sockaddr *address, socklen_t length) {
        std::string call = "bind " + std::to_string(fd);

        for (socklen_t i = 0; i < length; ++i) {
            call += " " + std::to_string(reinterpret_cast<const uint8_t *>(address)[i]);
        }
        fixture->system_calls.push_back(call);
        return 0;
    };
    scripted::listen = [=](int fd, int backlog) {
        fixture->system_calls.push_back("listen " + std::to_string(fd) + " " + std::to_string(backlog));
        return 0;
    };
    scripted::accept = [=](int fd, sockaddr *, socklen_t *) {
        EXPECT_EQ(fd, UsrAuthTest::kListener);
        fixture->system_calls.push_back("accept");
        return fixture->next_descriptor++;
    };
    scripted::epoll_ctl = Control;
    scripted::close = [=](int fd) {
        fixture->system_calls.push_back("close " + std::to_string(fd));
        return 0;
    };
    scripted::recv = scripted::Failing<ssize_t>(EAGAIN);
}

} // namespace

UsrAuthTest::UsrAuthTest() : blocks_before_(fault::LiveBlocks())
{
    g_fixture = this;
    scripted_timer::Reset();
    ScriptSystem(this);
}

UsrAuthTest::~UsrAuthTest()
{
    fault::FailAllocation(0);
    ScriptSystem(this);
    MCAST_USRAUTH_StopServer();
    MCAST_USRAUTH_Fini();
    EXPECT_TRUE(registered.empty());
    EXPECT_TRUE(scripted_timer::platform.timers.empty()) << "timers left behind";
    scripted::Reset();
    platform::Reset();
    scripted_timer::Reset();
    g_fixture = nullptr;
    EXPECT_EQ(fault::LiveBlocks(), blocks_before_);
    EXPECT_EQ(platform::LiveTrees(), 0);
    EXPECT_EQ(platform::LiveTables(), 0);
}

MCAST_USRAUTH_CALLBACKS_S UsrAuthTest::AllCallbacks()
{
    return {OnOnline, OnOffline, OnChanged, OnRefreshEnded, OnNodeKind, OnFilter};
}

MCAST_STATUS UsrAuthTest::Init(uint16_t family)
{
    return MCAST_USRAUTH_Init(static_cast<uint8_t>(family), kEpoll, scripted_timer::Service(), &callbacks);
}

void UsrAuthTest::Start(uint16_t family)
{
    ASSERT_EQ(Init(family), MCAST_OK);
    ASSERT_EQ(MCAST_USRAUTH_Upgrade(static_cast<uint8_t>(family), kEpoll), MCAST_OK);
    ASSERT_EQ(Connect(), MCAST_OK);
    system_calls.clear();
}

uint64_t UsrAuthTest::Report(int descriptor, uint32_t events)
{
    using Handler = uint64_t (*)(uint32_t, int32_t);
    auto found = registered.find(descriptor);

    return found == registered.end() ? UINT64_MAX
                                     : reinterpret_cast<Handler>(found->second)(events, descriptor);
}

uint64_t UsrAuthTest::Connect()
{
    return Report(kListener, EPOLLIN);
}

void UsrAuthTest::Receive(const Bytes &data, int descriptor)
{
    scripted::recv = [&](int fd, void *to, size_t length, int flags) {
        EXPECT_EQ(fd, descriptor);
        EXPECT_EQ(length, 1400u);
        EXPECT_EQ(flags, MSG_DONTWAIT);
        const size_t size = std::min(data.size(), length);

        memcpy(to, data.data(), size);
        return static_cast<ssize_t>(size);
    };
    EXPECT_EQ(Report(descriptor, EPOLLIN), 0u);
    scripted::recv = scripted::Failing<ssize_t>(EAGAIN);
    EXPECT_STREQ(StoreFault(), nullptr);
}

void UsrAuthTest::PutOnline(const UserSpec &spec)
{
    Receive(spec.Announce());
    Receive(spec.ListEnd());
    Told();
}

Calls UsrAuthTest::Told()
{
    return std::exchange(told, {});
}

size_t UsrAuthTest::FireTimers()
{
    std::vector<TIMER_ID> ids;

    for (const auto &[id, timer] : scripted_timer::platform.timers) {
        ids.push_back(id);
    }
    for (TIMER_ID id : ids) {
        auto found = scripted_timer::platform.timers.find(id);

        if (found != scripted_timer::platform.timers.end()) {
            scripted_timer::Timer timer = found->second;

            timer.handler(timer.parameters);
            scripted_timer::platform.timers.erase(id);
            EXPECT_STREQ(StoreFault(), nullptr);
        }
    }
    return ids.size();
}

uint32_t UsrAuthTest::Flags(uint16_t node, uint32_t user_id)
{
    const MCAST_USRAUTH_USER_S *user = mcast::usrauth::FindUser(node, user_id);
    return user == nullptr ? 0xffffffffu : user->flags;
}

std::string UsrAuthTest::Entries(uint16_t node, uint32_t user_id)
{
    MCAST_USRAUTH_USER_S *user = mcast::usrauth::FindUser(node, user_id);
    MCAST_ADDR_S cursors[2] = {};
    MTABLE_WALK_S walk = {&cursors[0], &cursors[1], MTABLE_WALK_ALL};
    Calls entries;

    if (user == nullptr) {
        return "no user";
    }
    cursors[0].family = cursors[1].family = user->address.family;
    MTable_Walk(
        &user->groups, &walk, nullptr, nullptr,
        [](MTABLE_GROUP_S *group, MTABLE_SOURCE_S *source, void *to) {
            const auto *entry = reinterpret_cast<MCAST_USRAUTH_ENTRY_S *>(source);

            static_cast<Calls *>(to)->push_back(Text(group->address) + "/" + Text(source->address) +
                                                (entry->flags == 1 ? "!" : ""));
            return MCAST_OK;
        },
        &entries);
    return Join(entries);
}

std::string UsrAuthTest::Online()
{
    const MCAST_USRAUTH_USER_FILTER_S all = {MCAST_USRAUTH_WALK_FROM, 0, 0, nullptr, nullptr};
    Calls users;
    MCAST_USRAUTH_WalkAllUserByIfIndex(
        &all,
        [](MCAST_USRAUTH_USER_S *user, MCAST_USRAUTH_ENTRY_S *, MTABLE_GROUP_S *, void *to) {
            static_cast<Calls *>(to)->push_back(std::to_string(user->if_index) + ":" + NameOf(user));
            return MCAST_OK;
        },
        nullptr, &users);
    return Join(users);
}

} // namespace usrauth_test
