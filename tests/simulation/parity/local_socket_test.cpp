#include <gtest/gtest.h>
#include <sys/ioctl.h>
#include <linux/sockios.h>

#include "tests/simulation/parity/both_kernels.h"

using namespace parity;

namespace
{

// A connected pair: the end that connected, and the one that was accepted.
struct Pair {
    int listener;
    int one;
    int other;
};

Pair connect_pair(const Calls &calls, Diary &diary)
{
    Pair pair{};
    pair.listener = diary.descriptor("listener", calls.local());
    diary.note("bind", calls.to_port(calls.bind, pair.listener, 2182));
    diary.note("listen", calls.listen(pair.listener, 64));
    pair.one = diary.descriptor("socket", calls.local());
    diary.note("connect", calls.to_port(calls.connect, pair.one, 2182));
    pair.other = diary.descriptor("accept", calls.accept4(pair.listener, nullptr, nullptr, SOCK_NONBLOCK));
    return pair;
}

TEST(LocalSocketParity, KeepMessagesAndSayWhoListens)
{
    compare([](const Calls &calls, Diary &diary) {
        char text[16];
        const int early = diary.descriptor("socket", calls.local());
        diary.note("nobody listens", calls.to_port(calls.connect, early, 2182));
        const Pair pair = connect_pair(calls, diary);
        const int second = calls.local();
        diary.note("port is taken", calls.to_port(calls.bind, second, 2182));
        diary.note("nobody else comes", calls.accept4(pair.listener, nullptr, nullptr, 0));
        diary.note("nothing to read", calls.recv(pair.one, text, sizeof(text), 0));
        diary.note("send", calls.send(pair.one, "12345", 5, 0));
        diary.note("send", calls.send(pair.one, "67", 2, 0));
        diary.note("cut", calls.recv(pair.other, text, 3, 0));
        diary.note("next", calls.recv(pair.other, text, sizeof(text), 0));
        diary.note("send", calls.send(pair.other, "1234567", 7, 0));
        diary.note("true size", calls.recv(pair.one, text, 3, MSG_TRUNC));
        diary.note("connected already", calls.to_port(calls.connect, pair.one, 2182));
    });
}

TEST(LocalSocketParity, CountsWhatIsNotReadYet)
{
    compare([](const Calls &calls, Diary &diary) {
        static char message[1400];
        int unread = -1;
        const Pair pair = connect_pair(calls, diary);
        for (const size_t size : {1u, 100u, 1400u, 1400u}) {
            calls.send(pair.one, message, size, 0);
            diary.note("asked", calls.ioctl(pair.one, SIOCOUTQ, &unread));
            diary.note("unread", unread);
        }
        calls.recv(pair.other, message, sizeof(message), 0);
        calls.ioctl(pair.one, SIOCOUTQ, &unread);
        diary.note("less", unread);
        diary.note("the other end", calls.ioctl(pair.other, SIOCOUTQ, &unread));
        diary.note("sent nothing", unread);
        diary.note("a listener", calls.ioctl(pair.listener, SIOCOUTQ, &unread));
        diary.note("has sent nothing", unread);
    });
}

TEST(LocalSocketParity, HandAnEmptyMessageOver)
{
    compare([](const Calls &calls, Diary &diary) {
        char text[16];
        const Pair pair = connect_pair(calls, diary);
        diary.note("send nothing", calls.send(pair.one, text, 0, 0));
        diary.note("send", calls.send(pair.one, "1", 1, 0));
        diary.note("empty", calls.recv(pair.other, text, sizeof(text), 0));
        diary.note("next", calls.recv(pair.other, text, sizeof(text), 0));
        diary.note("nothing to read", calls.recv(pair.other, text, sizeof(text), 0));
    });
}

TEST(LocalSocketParity, TellsTheEndOfItsPeer)
{
    compare([](const Calls &calls, Diary &diary) {
        char text[16];
        const Pair pair = connect_pair(calls, diary);
        calls.send(pair.other, "last", 4, 0);
        diary.note("close", calls.close(pair.other));
        diary.note("send to nobody", calls.send(pair.one, "1", 1, MSG_NOSIGNAL));
        diary.note("what it sent", calls.recv(pair.one, text, sizeof(text), 0));
        diary.note("its end", calls.recv(pair.one, text, sizeof(text), 0));
        diary.note("its end again", calls.recv(pair.one, text, sizeof(text), 0));
    });
}

TEST(LocalSocketParity, TellsThatSomethingWasLeftUnread)
{
    compare([](const Calls &calls, Diary &diary) {
        char text[16];
        const Pair pair = connect_pair(calls, diary);
        const int epoll = calls.epoll_create1(0);
        epoll_event event{EPOLLIN, {}};
        diary.note("watch", calls.epoll_ctl(epoll, EPOLL_CTL_ADD, pair.one, &event));
        diary.note("nothing", events_of(calls, epoll));
        calls.send(pair.one, "unread", 6, 0);
        calls.close(pair.other);
        diary.note("events", events_of(calls, epoll));
        diary.note("receive", calls.recv(pair.one, text, sizeof(text), 0));
        diary.note("receive again", calls.recv(pair.one, text, sizeof(text), 0));
        diary.note("events then", events_of(calls, epoll));
    });
}

TEST(LocalSocketParity, FullQueueHasRoomAgainWhenItIsMostlyRead)
{
    compare([](const Calls &calls, Diary &diary) {
        const Pair pair = connect_pair(calls, diary);
        const int epoll = calls.epoll_create1(0);
        epoll_event event{EPOLLOUT, {}};
        char text[1000] = {};
        int sent = 0;
        while (calls.send(pair.one, text, sizeof(text), MSG_NOSIGNAL) > 0) {
            ++sent;
        }
        diary.note("full", -1);
        diary.note("more than ten", sent > 10);
        calls.epoll_ctl(epoll, EPOLL_CTL_ADD, pair.one, &event);
        diary.note("no room", events_of(calls, epoll));
        calls.recv(pair.other, text, sizeof(text), 0);
        diary.note("one read", events_of(calls, epoll));
        while (calls.recv(pair.other, text, sizeof(text), 0) > 0) {
        }
        diary.note("all read", events_of(calls, epoll));
    });
}

} // namespace
