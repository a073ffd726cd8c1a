/*
 * The user authentication with 100 000 users of 16 (source, group) pairs each, on 16 nodes: messages a second
 * by kind of message, memory a user, and lookups by interface on one and several threads.
 *
 * Messages come in shuffled order, two to a datagram, so that a user's data is cold when its message arrives.
 * They are handed to the library's receive handler twice over: straight from memory, which shows the handlers
 * alone, and through a local socket on which an agent's end sends in the same thread, which adds two system
 * calls a datagram. The program answers recv and notes the handlers in epoll_ctl to do so.
 */
#include "mcast/usrauth.h"

#include <algorithm>
#include <arpa/inet.h>
#include <benchmark/benchmark.h>
#include <cerrno>
#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <dlfcn.h>
#include <malloc.h>
#include <numeric>
#include <random>
#include <sys/epoll.h>
#include <sys/socket.h>
#include <sys/syscall.h>
#include <time.h>
#include <unistd.h>
#include <vector>

#include "mcast/usrauth_wire.h"
#include "mcasthost/loop.h"
#include "platform/local_socket.h"

namespace
{

using Handler = uint64_t (*)(uint32_t events, int32_t fd);
using Datagram = std::vector<uint8_t>;

constexpr uint32_t kUsers = 100000;
constexpr uint32_t kNodes = 16;
constexpr uint32_t kEntries = 16;
constexpr uint32_t kFirstInterface = 1000;

/* What the program plays between the library and the kernel. */
struct Wire {
    Handler accept = nullptr;
    Handler receive = nullptr;
    int listener = -1;
    int connection = -1;
    bool is_noting = false;             /* what is registered now is the library's */
    const Datagram *arriving = nullptr; /* what recv returns; the kernel's answer without */
};

Wire g_wire;

void Fail(const char *what)
{
    perror(what);
    exit(1);
}

Datagram MessageOf(uint16_t type, const void *value, size_t size)
{
    const uint16_t head[2] = {htons(type), htons(static_cast<uint16_t>(size))};
    Datagram message(sizeof(head) + size);
    memcpy(message.data(), head, sizeof(head));
    memcpy(message.data() + sizeof(head), value, size);
    return message;
}

Datagram UserMessageOf(uint16_t type, uint32_t user)
{
    struct __attribute__((packed)) {
        USRAUTH_USER_S user;
        char name[16];
        USRAUTH_GROUP_ENTRY_S entries[kEntries];
    } value = {};

    value.user.user_id_be = htonl(user);
    value.user.node_be = htons(static_cast<uint16_t>(user % kNodes));
    value.user.kind_be = htonl(3);
    value.user.access_if_index_be = htonl(1);
    value.user.name_length_be = htons(sizeof(value.name));
    value.user.name_offset_be = htons(sizeof(value.user));
    value.user.entry_count_be = htonl(kEntries);
    value.user.entry_size_be = htons(sizeof(USRAUTH_GROUP_ENTRY_S));
    snprintf(value.name, sizeof(value.name), "user%u", user);
    for (uint32_t i = 0; i < kEntries; ++i) {
        const uint32_t source = htonl(0x0a000001), group = htonl(0xef000000u + user % 1000 * kEntries + i);

        memcpy(value.entries[i].source, &source, sizeof(source));
        memcpy(value.entries[i].group, &group, sizeof(group));
    }
    const size_t size = type == USRAUTH_MSG_WITHDRAW ? sizeof(value.user) : sizeof(value);

    return MessageOf(type, &value, size);
}

Datagram ListEndOf(uint16_t type, uint32_t user)
{
    USRAUTH_GROUP_LIST_S value = {};
    value.user_id_be = htonl(user);
    value.node_be = htons(static_cast<uint16_t>(user % kNodes));
    value.kind_be = htonl(3);
    return MessageOf(type, &value, sizeof(value));
}

/* One message for each user, in an order of its own, two to a datagram. */
std::vector<Datagram> Datagrams(uint16_t type, Datagram (*make)(uint16_t, uint32_t), uint64_t seed)
{
    std::vector<uint32_t> users(kUsers);
    std::vector<Datagram> datagrams;

    std::iota(users.begin(), users.end(), 1);
    std::shuffle(users.begin(), users.end(), std::mt19937_64(seed));
    for (uint32_t i = 0; i < kUsers; i += 2) {
        Datagram both = make(type, users[i]);
        const Datagram second = make(type, users[i + 1]);

        both.insert(both.end(), second.begin(), second.end());
        datagrams.push_back(both);
    }
    return datagrams;
}

const std::vector<Datagram> &Announcements()
{
    static const std::vector<Datagram> made = Datagrams(USRAUTH_MSG_ANNOUNCE, UserMessageOf, 1);
    return made;
}

const std::vector<Datagram> &ListEnds()
{
    static const std::vector<Datagram> made = Datagrams(USRAUTH_MSG_GROUP_LIST_END, ListEndOf, 2);
    return made;
}

const std::vector<Datagram> &Withdrawals()
{
    static const std::vector<Datagram> made = Datagrams(USRAUTH_MSG_WITHDRAW, UserMessageOf, 3);
    return made;
}

/* The agent's end of the connection. */
int g_agent = -1;

void Start()
{
    static bool is_started = false;
    const MCAST_USRAUTH_CALLBACKS_S callbacks = {
        [](MCAST_USRAUTH_USER_S *user, uint32_t *if_index) { *if_index = kFirstInterface + user->user_id; },
        nullptr,
        nullptr,
        nullptr,
        nullptr,
        nullptr};
    LOCAL_SOCKET_ADDR_S address = {0, LOCAL_SOCKET_FAMILY, htons(USRAUTH_PORT_IPV4), LOCAL_SOCKET_NODE, {}};
    char directory[] = "/tmp/bench_usrauth.XXXXXX";

    if (is_started) {
        return;
    }
    is_started = true;
    if (mkdtemp(directory) == nullptr || setenv("MCAST_HOST_RUNTIME_DIR", directory, 1) != 0) {
        Fail("mkdtemp");
    }
    const int32_t loop = HOST_LoopCreate();

    g_wire.is_noting = true;
    if (MCAST_USRAUTH_Init(MCAST_FAMILY_IPV4, loop, HOST_LoopTimerService(loop), &callbacks) != MCAST_OK ||
        MCAST_USRAUTH_Upgrade(MCAST_FAMILY_IPV4, loop) != MCAST_OK) {
        Fail("MCAST_USRAUTH_Upgrade");
    }
    g_agent = socket(LOCAL_SOCKET_FAMILY, SOCK_DGRAM, LOCAL_SOCKET_PROTOCOL);
    if (connect(g_agent, reinterpret_cast<sockaddr *>(&address), sizeof(address)) != 0 ||
        g_wire.accept(EPOLLIN, g_wire.listener) != MCAST_OK) {
        Fail("connect");
    }
    g_wire.is_noting = false;
}

/* This thread's processor time in seconds. */
double Now()
{
    timespec now;
    clock_gettime(CLOCK_THREAD_CPUTIME_ID, &now);
    return static_cast<double>(now.tv_sec) + 1e-9 * static_cast<double>(now.tv_nsec);
}

/* Seconds of one processor that the datagrams take. */
double Deliver(const std::vector<Datagram> &datagrams, bool by_socket)
{
    const double begin = Now();
    for (const Datagram &datagram : datagrams) {
        if (!by_socket) {
            g_wire.arriving = &datagram;
        } else if (send(g_agent, datagram.data(), datagram.size(), 0) < 0) {
            Fail("send");
        }
        g_wire.receive(EPOLLIN, g_wire.connection);
    }
    g_wire.arriving = nullptr;
    return Now() - begin;
}

size_t HeapInUse()
{
    const struct mallinfo2 info = mallinfo2();
    return info.uordblks + info.hblkhd;
}

/* The life of all users: announced, their lists ended, announced again, ended again, withdrawn. */
void Messages(benchmark::State &state)
{
    const bool by_socket = state.range(0) != 0;
    double announced = 0, ended = 0, repeated = 0, ended_again = 0, withdrawn = 0;
    size_t heap = 0;
    const double messages = kUsers * static_cast<double>(state.max_iterations);

    Start();
    Announcements(), ListEnds(), Withdrawals();
    for (auto _ : state) {
        const size_t before = HeapInUse();
        const double total = announced + ended + repeated + ended_again + withdrawn;

        announced += Deliver(Announcements(), by_socket);
        ended += Deliver(ListEnds(), by_socket);
        heap = HeapInUse() - before;
        if (MCAST_USRAUTH_UserCount() != kUsers) {
            Fail("users are missing");
        }
        repeated += Deliver(Announcements(), by_socket);
        ended_again += Deliver(ListEnds(), by_socket);
        withdrawn += Deliver(Withdrawals(), by_socket);
        state.SetIterationTime(announced + ended + repeated + ended_again + withdrawn - total);
    }
    state.counters["announce/s"] = messages / announced;
    state.counters["list_end/s"] = messages / ended;
    state.counters["reannounce/s"] = messages / repeated;
    state.counters["list_end_again/s"] = messages / ended_again;
    state.counters["withdraw/s"] = messages / withdrawn;
    state.counters["all/s"] = 5 * messages / (announced + ended + repeated + ended_again + withdrawn);
    state.counters["bytes/user"] = static_cast<double>(heap) / kUsers;
}
BENCHMARK(Messages)->ArgName("socket")->Arg(0)->Arg(1)->Iterations(3)->UseManualTime()->Unit(
    benchmark::kMillisecond);

void Populate()
{
    Start();
    if (MCAST_USRAUTH_UserCount() == 0) {
        Deliver(Announcements(), false);
        Deliver(ListEnds(), false);
    }
}

/* Cheap interfaces of users, in no order. */
class Interfaces
{
public:
    explicit Interfaces(int thread) : state_(static_cast<uint32_t>(thread) * 7919u + 1u)
    {
    }
    uint32_t Next()
    {
        state_ = state_ * 1664525u + 1013904223u;
        return kFirstInterface + 1 + static_cast<uint32_t>(uint64_t{state_} * kUsers >> 32);
    }

private:
    uint32_t state_;
};

void GetInfoByIfIndex(benchmark::State &state)
{
    Interfaces interfaces(state.thread_index());
    MCAST_USRAUTH_INFO_S info;
    uint64_t found = 0;
    for (auto _ : state) {
        found += MCAST_USRAUTH_GetInfoByIfIndex(interfaces.Next(), &info) == MCAST_OK;
    }
    if (found != static_cast<uint64_t>(state.iterations())) {
        state.SkipWithError("a user was not found");
    }
}

void GetVrfAndUserId(benchmark::State &state)
{
    Interfaces interfaces(state.thread_index());
    uint16_t vrf = 0;
    for (auto _ : state) {
        benchmark::DoNotOptimize(
            MCAST_USRAUTH_GetVrfIndexAndUserIDByIfIndex(interfaces.Next(), &vrf, nullptr));
    }
}

void CanPassGroupList(benchmark::State &state)
{
    Interfaces interfaces(state.thread_index());
    MCAST_ADDR_S group = {MCAST_FAMILY_IPV4, 0, {239, 0, 0, 0}};

    for (auto _ : state) {
        const uint32_t if_index = interfaces.Next(), user = if_index - kFirstInterface;
        const uint32_t address = htonl(0xef000000u + user % 1000 * kEntries + user % kEntries);

        memcpy(group.address, &address, sizeof(address));
        benchmark::DoNotOptimize(MCAST_USRAUTH_CanPassGroupList(if_index, &group));
    }
}

/* The users must be there before the threads are. */
void Prepare(const benchmark::State &)
{
    Populate();
}

BENCHMARK(GetInfoByIfIndex)->Setup(Prepare)->ThreadRange(1, 4)->UseRealTime();
BENCHMARK(GetVrfAndUserId)->Setup(Prepare)->ThreadRange(1, 4)->UseRealTime();
BENCHMARK(CanPassGroupList)->Setup(Prepare)->ThreadRange(1, 4)->UseRealTime();

} // namespace

extern "C" ssize_t recv(int fd, void *to, size_t length, int flags)
{
    if (g_wire.arriving == nullptr) {
        return syscall(SYS_recvfrom, fd, to, length, flags, nullptr, nullptr);
    }
    memcpy(to, g_wire.arriving->data(), std::min(length, g_wire.arriving->size()));
    return static_cast<ssize_t>(std::min(length, g_wire.arriving->size()));
}

extern "C" int epoll_ctl(int epoll, int operation, int fd, struct epoll_event *event)
{
    using Control = int (*)(int, int, int, struct epoll_event *);
    static const Control next = reinterpret_cast<Control>(dlsym(RTLD_NEXT, "epoll_ctl"));

    if (operation == EPOLL_CTL_ADD && g_wire.is_noting) {
        uint64_t context;

        memcpy(&context, reinterpret_cast<const char *>(event) + offsetof(HOST_LOOP_RECORD_S, context),
               sizeof(context));
        const bool is_listener = g_wire.listener == -1;

        (is_listener ? g_wire.listener : g_wire.connection) = fd;
        (is_listener ? g_wire.accept : g_wire.receive) = reinterpret_cast<Handler>(context);
    }
    return next(epoll, operation, fd, event);
}

BENCHMARK_MAIN();
