/*
 * Whole sessions of authentication agents against the service. An input is a string of operations: reads of
 * raw bytes or of messages made from a few bytes each, on one of two connections; timers that fire; hang-ups;
 * the calls that empty the store; lookups. The store's invariants are checked after each.
 *
 *   byte 0   family, what the daemon's callbacks do, whether timers can be had
 *   then     operation byte: low four bits what, high four bits an argument; its operands behind it
 */
#include <algorithm>
#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <sys/epoll.h>

#include "mcast/usrauth.h"
#include "mcast/usrauth_wire.h"
#include "support/fault.h"
#include "support/scripted_libc.h"
#include "support/scripted_platform.h"
#include "support/scripted_timer.h"
#include "support/usrauth_validate.h"

#if defined(__has_feature)
#if __has_feature(address_sanitizer)
#include <sanitizer/asan_interface.h>
#define GUARD_TAIL 1
#endif
#endif

namespace
{

constexpr int kEpoll = 1000;
constexpr int kListener = 1001;
constexpr int kAgents = 1002; /* and the one after it */
constexpr size_t kAgentCount = 2;
constexpr uint32_t kDetailLimit = 4;
constexpr size_t kManyGroups = 1000;

using Handler = uint64_t (*)(uint32_t events, int32_t fd);

void Require(bool truth, int line = __builtin_LINE())
{
    if (!truth) {
        fprintf(stderr, "line %d\n", line);
        abort();
    }
}

void RequireSound()
{
    const char *fault = usrauth_test::StoreFault();
    if (fault != nullptr) {
        fprintf(stderr, "store: %s\n", fault);
        abort();
    }
}

/* The operations of an input; zeroes behind its end. */
struct Input {
    const uint8_t *data;
    size_t size;

    uint8_t Byte()
    {
        if (size == 0) {
            return 0;
        }
        --size;
        return *data++;
    }
    uint32_t Number(size_t bytes)
    {
        uint32_t number = 0;
        for (size_t i = 0; i < bytes; ++i) {
            number = number << 8 | Byte();
        }
        return number;
    }
};

/* One session. */
struct Session {
    uint8_t behaviour; /* of the callbacks */
    bool is_reentered; /* one callback has emptied the store */
    Handler handlers[kAgentCount];
    Handler accept;
    scripted_timer::Timer stale; /* one that has fired or was deleted */
    uint8_t read[USRAUTH_MSG_RECV_MAX + 200];
    size_t read_size;
    uint8_t *buffer; /* the receiver's */
};

Session g_session;

enum Behaviour : uint8_t {
    kRefusesTimers = 0x02,
    kGivesNoInterface = 0x04,
    kGivesOneInterface = 0x08,
    kFilters = 0x10,
    kEmptiesTheStore = 0x20,
    kStopsTheService = 0x40,
    kEndsTheStore = 0x80
};

bool Does(uint8_t behaviour)
{
    return (g_session.behaviour & behaviour) != 0;
}

/* Reads what a callback is given, and asks the store what any thread may ask. */
void Look(const MCAST_USRAUTH_USER_S *user)
{
    MCAST_USRAUTH_INFO_S info;
    uint16_t vrf = 0;
    Require(user->kind >= 1 && user->kind <= 4 && strlen(user->name) < user->name_size);
    MCAST_USRAUTH_GetNode(user);
    MCAST_USRAUTH_GetInfoByIfIndex(user->if_index, &info);
    MCAST_USRAUTH_GetVrfIndexAndUserIDByIfIndex(user->access_if_index, &vrf, nullptr);
    Require(MCAST_USRAUTH_UserCount() < 1000);
}

/* What a daemon might do from within a callback, once a session. */
void Reenter()
{
    if (g_session.is_reentered) {
        return;
    }
    if (Does(kEmptiesTheStore | kStopsTheService | kEndsTheStore)) {
        g_session.is_reentered = true;
    }
    if (Does(kStopsTheService)) {
        MCAST_USRAUTH_StopServer();
    }
    if (Does(kEmptiesTheStore)) {
        MCAST_USRAUTH_ClearAllUsers();
    }
    if (Does(kEndsTheStore)) {
        MCAST_USRAUTH_Fini();
    }
}

const MCAST_USRAUTH_CALLBACKS_S kCallbacks = {
    [](MCAST_USRAUTH_USER_S *user, uint32_t *if_index) {
        Require((user->flags & MCAST_USRAUTH_NEW) != 0 && *if_index == 0);
        *if_index = Does(kGivesNoInterface)    ? 0
                    : Does(kGivesOneInterface) ? 9
                                               : 100 + user->user_id % 8 + 8u * MCAST_USRAUTH_GetNode(user);
        Look(user);
        Reenter();
    },
    [](MCAST_USRAUTH_USER_S *user) {
        Require(user->if_index != 0);
        if (!g_session.is_reentered) {
            Look(user);
            Reenter();
        }
    },
    [](MCAST_USRAUTH_USER_S *user, uint32_t mask) {
        Require(mask >= 1 && mask <= 7);
        Look(user);
        Reenter();
    },
    [](uint16_t, uint32_t kind) {
        Require(kind >= 1 && kind <= 4);
        Reenter();
    },
    [](uint16_t, uint32_t kind, uint32_t up) {
        Require(kind <= 6 && up <= 1 && (up == 0 || (kind >= 1 && kind <= 4)));
        Reenter();
    },
    [](int32_t fd, const void *value, uint16_t length) -> uint32_t {
        Require(fd >= kAgents);
        return Does(kFilters) && length > 0 && *static_cast<const uint8_t *>(value) == 0xff ? 3 : 0;
    },
};

/* The bytes that the receiver's buffer has room for and that did not arrive are not to be read. */
void GuardTail(const uint8_t *to, size_t size, bool guarded)
{
#ifdef GUARD_TAIL
    if (guarded) {
        __asan_poison_memory_region(to + size, USRAUTH_MSG_RECV_MAX - size);
    } else {
        __asan_unpoison_memory_region(to, USRAUTH_MSG_RECV_MAX);
    }
#else
    (void)to, (void)size, (void)guarded;
#endif
}

/* Puts into the receiver's buffer what has been gathered for a read. */
ssize_t Arrive(int, void *to, size_t length, int)
{
    const size_t size = std::min<size_t>(g_session.read_size, USRAUTH_MSG_RECV_MAX);
    Require(length == USRAUTH_MSG_RECV_MAX);
    g_session.buffer = static_cast<uint8_t *>(to);
    memcpy(to, g_session.read, size);
    GuardTail(g_session.buffer, size, true);
    return static_cast<ssize_t>(size);
}

void Deliver(size_t agent)
{
    if (g_session.handlers[agent] != nullptr) {
        g_session.handlers[agent](EPOLLIN, kAgents + static_cast<int>(agent));
        GuardTail(g_session.buffer, 0, false);
    }
    g_session.read_size = 0;
}

void Gather(const void *bytes, size_t size)
{
    size = std::min(size, sizeof(g_session.read) - g_session.read_size);
    memcpy(g_session.read + g_session.read_size, bytes, size);
    g_session.read_size += size;
}

void GatherMessage(uint16_t type, const void *value, size_t size, int length_error)
{
    const uint16_t length = static_cast<uint16_t>(size + static_cast<size_t>(length_error));
    const uint8_t head[4] = {0, static_cast<uint8_t>(type), static_cast<uint8_t>(length >> 8),
                             static_cast<uint8_t>(length)};
    Gather(head, sizeof(head));
    Gather(value, size);
}

size_t PutPairs(uint8_t *to, uint8_t first, size_t count)
{
    for (size_t i = 0; i < count; ++i) {
        memset(to + i * 32, 0, 32);
        to[i * 32] = 10;
        to[i * 32 + 3] = static_cast<uint8_t>((first + i) % 3);
        to[i * 32 + 16] = 239;
        to[i * 32 + 19] = static_cast<uint8_t>((first + i) / 2);
    }
    return count * 32;
}

/* A user message from two bytes and more: who, what differs, pairs, and a field that says anything. */
void GatherUser(uint16_t type, Input *input)
{
    uint8_t value[88 + 40 + 16 * 32] = {};
    const uint8_t who = input->Byte(), what = input->Byte(), pairs = input->Byte();
    const size_t name_size = (what & 0x40) != 0 ? 40 : 5, count = pairs & 0x0f;
    size_t size = 88 + name_size;

    value[3] = who & 3;
    value[0] = (who & 0x80) != 0 ? 0x20 : 0;
    value[7] = static_cast<uint8_t>(1 + (what & 1));
    value[31] = who >> 4 & 7;
    value[33] = what >> 1 & 1;
    value[83] = what >> 2 & 1;
    value[43] = what >> 3 & 1;
    value[41] = what >> 4 & 1;
    value[27] = what >> 5 & 1;
    value[45] = who >> 2 & 3;
    value[47] = static_cast<uint8_t>(name_size);
    value[75] = static_cast<uint8_t>(count);
    value[77] = 88;
    value[79] = 32;
    memset(value + 88, 'n', name_size - 1);
    size += PutPairs(value + size, pairs >> 4, count);
    if ((what & 0x80) != 0) {
        const size_t offset = input->Byte() % 88, bytes = input->Byte() % 5;

        for (size_t i = 0; i < bytes && offset + i < 88; ++i) {
            value[offset + i] = input->Byte();
        }
        size = std::min<size_t>(size, 8u * input->Byte());
    }
    GatherMessage(type, value, size, 0);
}

void GatherList(uint16_t type, Input *input)
{
    uint8_t value[20 + 16 * 32] = {};
    const uint8_t who = input->Byte(), pairs = input->Byte();
    const size_t count = pairs & 0x0f;
    value[3] = who & 3;
    value[0] = (who & 0x80) != 0 ? 0x20 : 0;
    value[5] = who >> 2 & 3;
    value[11] = who >> 4 & 7;
    value[15] = static_cast<uint8_t>(count);
    value[17] = 20;
    value[19] = (who & 0x80) != 0 ? input->Byte() : 32;
    GatherMessage(type, value, 20 + PutPairs(value + 20, pairs >> 4, count), 0);
}

/* A user who may join a thousand groups; each list that is left open adds to the one before. */
void DeliverManyGroups()
{
    constexpr size_t kPairs = 40;
    static const uint8_t kWho[] = {0x10, 0, 0};
    Input who = {kWho, sizeof(kWho)};
    GatherUser(0, &who);
    Deliver(0);
    for (size_t first = 0; first < kManyGroups; first += kPairs) {
        uint8_t value[20 + kPairs * 32] = {};
        value[11] = 1;
        value[15] = kPairs;
        value[17] = 20;
        value[19] = 32;
        PutPairs(value + 20, 0, kPairs);
        for (size_t i = 0; i < kPairs; ++i) {
            value[20 + i * 32 + 18] = static_cast<uint8_t>(1 + (first + i) / 256);
            value[20 + i * 32 + 19] = static_cast<uint8_t>(first + i);
        }
        GatherMessage(3, value, sizeof(value), 0);
        Deliver(0);
    }
    Require(g_session.behaviour != 0 || fault::LiveBlocks() >= static_cast<long>(kManyGroups / kPairs));
}

void GatherRefresh(uint16_t type, Input *input)
{
    const uint8_t who = input->Byte();
    const uint8_t value[8] = {0, static_cast<uint8_t>(who >> 2 & 3), 0, 0, 0, 0,
                              0, static_cast<uint8_t>(who >> 4 & 7)};
    GatherMessage(type, value, sizeof(value), (who & 1) != 0 ? -1 : 0);
}

void GatherRaw(Input *input)
{
    const size_t size = std::min<size_t>(input->Number(2), input->size);
    Gather(input->data, size);
    input->data += size;
    input->size -= size;
}

void Fire(scripted_timer::Timer timer)
{
    g_session.stale = timer;
    timer.handler(timer.parameters);
}

/* As a platform would that cannot stop a timer in time. */
void FireStale()
{
    if (g_session.stale.handler != nullptr) {
        Fire(g_session.stale);
    }
}

void FireTimer()
{
    auto &timers = scripted_timer::platform.timers;

    if (!timers.empty()) {
        const TIMER_ID id = timers.begin()->first;

        Fire(timers.begin()->second);
        timers.erase(id);
    }
}

uint32_t CountVisit(MCAST_USRAUTH_USER_S *user, MCAST_USRAUTH_ENTRY_S *entry, MTABLE_GROUP_S *group,
                    void *left)
{
    Require((entry == nullptr) == (group == nullptr) && user->if_index != 0);
    return --*static_cast<uint32_t *>(left) == 0 ? 1 : 0;
}

void Walk(Input *input)
{
    MCAST_ADDR_S cursors[2] = {};
    MCAST_USRAUTH_USER_FILTER_S users = {};
    MCAST_USRAUTH_DETAIL_FILTER_S details = {};
    uint32_t left = input->Byte();
    users.mode = details.mode = left & 3;
    users.if_index = left >> 2;
    details.node = left >> 4 & 3;
    cursors[0].family = cursors[1].family = MCAST_FAMILY_IPV4;
    if ((left & 1) != 0) {
        users.group_cursor = &cursors[0];
        users.source_cursor = &cursors[1];
    }
    left = left % 5 + 1;
    MCAST_USRAUTH_WalkAllUserByIfIndex(&users, CountVisit, CountVisit, &left);
    MCAST_USRAUTH_WalkAllUserMsgDetail(
        &details,
        [](MCAST_USRAUTH_MSG_DETAIL_S *, void *argument) {
            if (argument != nullptr) {
                MCAST_USRAUTH_ClearRecord();
            }
            return MCAST_OK;
        },
        left == 2 ? &left : nullptr);
    for (uint32_t if_index = 99; if_index < 132; ++if_index) {
        MCAST_USRAUTH_CanPassGroupList(if_index, &cursors[0]);
    }
}

/* And one event more, which the loop had fetched before. */
void HangUp(size_t agent)
{
    const Handler handler = g_session.handlers[agent];
    const int fd = kAgents + static_cast<int>(agent);
    if (handler != nullptr) {
        handler(EPOLLHUP, fd);
        handler(EPOLLIN, fd);
    }
}

void Connect()
{
    for (Handler handler : g_session.handlers) {
        if (handler == nullptr && g_session.accept != nullptr) {
            g_session.accept(EPOLLIN, kListener);
        }
    }
}

void Perform(uint8_t operation, Input *input)
{
    const size_t agent = operation >> 4 & 1;
    switch (operation & 0x0f) {
    case 0:
    case 1:
    case 2:
        GatherUser(operation & 0x0f, input);
        break;
    case 3:
    case 4:
        GatherList(operation & 0x0f, input);
        break;
    case 5:
    case 6:
        GatherRefresh(operation & 0x0f, input);
        break;
    case 7:
        GatherRaw(input);
        break;
    case 8:
        (operation & 0x80) != 0 ? FireStale() : FireTimer();
        break;
    case 9:
        HangUp(agent);
        break;
    case 10:
        operation >> 4 == 4 && g_session.handlers[0] != nullptr ? DeliverManyGroups() : Connect();
        break;
    case 11:
        MCAST_USRAUTH_Degrade();
        break;
    case 12:
        g_session.is_reentered = true; /* user_offline runs under the lock */
        MCAST_USRAUTH_ClearAllUsers();
        break;
    case 13:
        MCAST_USRAUTH_RefreshAllUserByNodeRemove(operation >> 4 & 3);
        break;
    case 14:
        MCAST_USRAUTH_SetMsgDetailLimit(operation >> 4);
        break;
    default:
        Walk(input);
        break;
    }
    /* A set bit keeps a message back, to be read together with the next. */
    if ((operation & 0x80) == 0 && (operation & 0x0f) < 8) {
        Deliver(agent);
    }
}

int Control(int, int operation, int fd, const epoll_event *event)
{
    uint64_t context = 0;

    if (operation == EPOLL_CTL_ADD) {
        memcpy(&context, reinterpret_cast<const char *>(event) + 12, sizeof(context));
    }
    Handler handler = reinterpret_cast<Handler>(context);

    if (fd == kListener) {
        g_session.accept = handler;
    } else {
        g_session.handlers[fd - kAgents] = handler;
    }
    return 0;
}

int NextAgent()
{
    return kAgents + (g_session.handlers[0] == nullptr ? 0 : 1);
}

void ScriptSystem()
{
    scripted::socket = [](int, int, int) { return kListener; };
    scripted::bind = [](auto...) { return 0; };
    scripted::listen = [](auto...) { return 0; };
    scripted::setsockopt = [](auto...) { return 0; };
    scripted::close = [](int) { return 0; };
    scripted::accept = [](auto...) { return NextAgent(); };
    scripted::epoll_ctl = Control;
    scripted::recv = Arrive;
    scripted_timer::platform.record = false;
}

/* The store and the service last from one input to the next, unless the family or a callback ends them. */
void Open(uint8_t family)
{
    static uint8_t open_family = 0;
    MCAST_USRAUTH_INFO_S info;
    MCAST_USRAUTH_SetDefaultUserInfo(&info);
    if (info.address.family != family) {
        MCAST_USRAUTH_Fini();
        Require(MCAST_USRAUTH_Init(family, kEpoll, scripted_timer::Service(), &kCallbacks) == MCAST_OK);
        open_family = family;
    }
    Require(open_family == family && MCAST_USRAUTH_Upgrade(family, kEpoll) == MCAST_OK);
    Connect();
}

} // namespace

extern "C" int LLVMFuzzerTestOneInput(const uint8_t *data, size_t size);

extern "C" int LLVMFuzzerTestOneInput(const uint8_t *data, size_t size)
{
    Input input = {data, size};
    static bool is_scripted = false;

    if (!is_scripted) {
        ScriptSystem();
        is_scripted = true;
    }
    g_session.behaviour = input.Byte();
    g_session.is_reentered = false;
    g_session.read_size = 0;
    scripted_timer::platform.fail_create = Does(kRefusesTimers);
    Open((g_session.behaviour & 1) != 0 ? MCAST_FAMILY_IPV6 : MCAST_FAMILY_IPV4);
    MCAST_USRAUTH_SetMsgDetailLimit(kDetailLimit);
    while (input.size > 0) {
        Perform(input.Byte(), &input);
        RequireSound();
    }
    MCAST_USRAUTH_Degrade();
    RequireSound();
    Require(scripted_timer::platform.timers.empty());
    MCAST_USRAUTH_StopServer();
    Require(fault::LiveBlocks() == 0);
    return 0;
}
