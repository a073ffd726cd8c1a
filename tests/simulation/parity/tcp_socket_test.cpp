#include <algorithm>
#include <arpa/inet.h>
#include <gtest/gtest.h>

#include "tests/simulation/parity/both_kernels.h"

using namespace parity;

namespace
{

constexpr uint16_t PORT = 639;
constexpr uint32_t ANYTHING = EPOLLIN | EPOLLOUT | EPOLLRDHUP;

sockaddr_in at(uint16_t port)
{
    sockaddr_in name{};
    name.sin_family = AF_INET;
    name.sin_port = htons(port);
    name.sin_addr.s_addr = htonl(0x0a000101);
    return name;
}

int stream(const Calls &calls)
{
    return calls.socket(AF_INET, SOCK_STREAM | SOCK_NONBLOCK | SOCK_CLOEXEC, 0);
}

int connect_to(const Calls &calls, int fd, uint16_t port)
{
    const sockaddr_in name = at(port);
    return calls.connect(fd, reinterpret_cast<const sockaddr *>(&name), sizeof(name));
}

int error_of(const Calls &calls, int fd)
{
    int error = -1;
    socklen_t size = sizeof(error);
    calls.getsockopt(fd, SOL_SOCKET, SO_ERROR, &error, &size);
    return error;
}

// Two ends of a connection.
struct Pair {
    int listener;
    int one; // that connected
    int other;
};

Pair connected(const Calls &calls)
{
    Pair pair{stream(calls), stream(calls), -1};
    const sockaddr_in name = at(PORT);
    calls.bind(pair.listener, reinterpret_cast<const sockaddr *>(&name), sizeof(name));
    calls.listen(pair.listener, 5);
    connect_to(calls, pair.one, PORT);
    await(calls, pair.listener, EPOLLIN);
    pair.other = calls.accept4(pair.listener, nullptr, nullptr, SOCK_NONBLOCK | SOCK_CLOEXEC);
    await(calls, pair.one, EPOLLOUT);
    return pair;
}

TEST(TcpParity, ConnectionThatNobodyTakesIsRefused)
{
    compare([](const Calls &calls, Diary &diary) {
        const int fd = stream(calls);
        diary.note("connect", connect_to(calls, fd, PORT));
        diary.note("ready", await(calls, fd, ANYTHING));
        diary.note("error", error_of(calls, fd));
        diary.note("told once", error_of(calls, fd));
    });
}

TEST(TcpParity, ConnectionIsTakenAndBothEndsKnowEachOther)
{
    compare([](const Calls &calls, Diary &diary) {
        const int listener = stream(calls);
        const sockaddr_in name = at(PORT);
        const auto *where = reinterpret_cast<const sockaddr *>(&name);
        diary.note("bind", calls.bind(listener, where, sizeof(name)));
        diary.note("bind again", calls.bind(listener, where, sizeof(name)));
        diary.note("listen", calls.listen(listener, 5));
        diary.note("nobody yet", calls.accept4(listener, nullptr, nullptr, SOCK_NONBLOCK));
        const int second = stream(calls);
        diary.note("the port is taken", calls.bind(second, where, sizeof(name)));
        const int one = stream(calls);
        diary.note("connect", connect_to(calls, one, PORT));
        diary.note("one waits", await(calls, listener, EPOLLIN));
        sockaddr_in from{};
        socklen_t size = sizeof(from);
        const int other = diary.descriptor(
            "accept", calls.accept4(listener, reinterpret_cast<sockaddr *>(&from), &size, SOCK_NONBLOCK));
        diary.note("from where", from.sin_addr.s_addr);
        sockaddr_in own{};
        size = sizeof(own);
        diary.note("name", calls.getsockname(one, reinterpret_cast<sockaddr *>(&own), &size));
        diary.note("they agree",
                   own.sin_addr.s_addr == from.sin_addr.s_addr && own.sin_port == from.sin_port);
        diary.note("name of the other", calls.getsockname(other, reinterpret_cast<sockaddr *>(&own), &size));
        diary.note("its port", ntohs(own.sin_port));
        diary.note("open", await(calls, one, ANYTHING));
        diary.note("no error", error_of(calls, one));
        diary.note("connect says so once", connect_to(calls, one, PORT));
        diary.note("and no more", connect_to(calls, one, PORT));
        diary.note("that was taken", connect_to(calls, other, PORT));
    });
}

TEST(TcpParity, HalfThatIsShutSaysItsEndAndGoesOnReading)
{
    compare([](const Calls &calls, Diary &diary) {
        const Pair pair = connected(calls);
        char text[16] = {};
        diary.note("nothing yet", calls.recv(pair.other, text, sizeof(text), 0));
        diary.note("send", calls.send(pair.one, "abc", 3, MSG_NOSIGNAL));
        diary.note("shut", calls.shutdown(pair.one, SHUT_WR));
        diary.note("shut for sending", calls.send(pair.one, "d", 1, MSG_NOSIGNAL));
        await(calls, pair.other, EPOLLRDHUP);
        diary.note("all is there", ready(calls, pair.other, ANYTHING));
        diary.note("what was sent", calls.recv(pair.other, text, sizeof(text), 0));
        diary.note("then the end", calls.recv(pair.other, text, sizeof(text), 0));
        diary.note("again", calls.recv(pair.other, text, sizeof(text), 0));
        diary.note("the other way", calls.send(pair.other, "x", 1, MSG_NOSIGNAL));
        diary.note("arrives", await(calls, pair.one, EPOLLIN));
        diary.note("as it was", calls.recv(pair.one, text, sizeof(text), 0));
        diary.note("close", calls.close(pair.other));
        diary.note("both shut", await(calls, pair.one, EPOLLHUP | EPOLLIN));
        diary.note("the end", calls.recv(pair.one, text, sizeof(text), 0));
        diary.note("no error", error_of(calls, pair.one));
    });
}

TEST(TcpParity, WhoSendsToAClosedEndIsReset)
{
    compare([](const Calls &calls, Diary &diary) {
        const Pair pair = connected(calls);
        char text[16];
        diary.note("close", calls.close(pair.other));
        await(calls, pair.one, EPOLLRDHUP);
        diary.note("half shut", ready(calls, pair.one, ANYTHING));
        diary.note("the end", calls.recv(pair.one, text, sizeof(text), 0));
        diary.note("goes out", calls.send(pair.one, "abc", 3, MSG_NOSIGNAL));
        diary.note("reset", await(calls, pair.one, EPOLLHUP));
        diary.note("broken", calls.send(pair.one, "abc", 3, MSG_NOSIGNAL));
    });
}

TEST(TcpParity, EndThatIsClosedWithSomethingUnreadResets)
{
    compare([](const Calls &calls, Diary &diary) {
        const Pair pair = connected(calls);
        char text[16];
        diary.note("send", calls.send(pair.one, "abc", 3, MSG_NOSIGNAL));
        await(calls, pair.other, EPOLLIN);
        diary.note("close", calls.close(pair.other));
        diary.note("reset", await(calls, pair.one, EPOLLHUP));
        diary.note("told by receiving", calls.recv(pair.one, text, sizeof(text), 0));
        diary.note("then the end", calls.recv(pair.one, text, sizeof(text), 0));
        diary.note("and broken", calls.send(pair.one, "abc", 3, MSG_NOSIGNAL));
    });
}

TEST(TcpParity, FullConnectionTakesNoMore)
{
    compare([](const Calls &calls, Diary &diary) {
        const Pair pair = connected(calls);
        const std::vector<char> much(1 << 16);
        long last = 0;
        for (int tries = 0; tries < 10000 && last >= 0; ++tries) {
            last = calls.send(pair.one, much.data(), much.size(), MSG_NOSIGNAL);
        }
        diary.note("full", last);
        diary.note("not ready", ready(calls, pair.one) & EPOLLOUT);
        std::vector<char> taken(1 << 20);
        while (await(calls, pair.other, EPOLLIN) != 0 && (ready(calls, pair.one) & EPOLLOUT) == 0) {
            calls.recv(pair.other, taken.data(), taken.size(), 0);
        }
        diary.note("ready again", ready(calls, pair.one) & EPOLLOUT);
    });
}

} // namespace
