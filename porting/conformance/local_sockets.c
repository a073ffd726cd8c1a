/* Local sockets of family 37, as the library uses them. */
#include <arpa/inet.h>
#include <errno.h>
#include <poll.h>
#include <string.h>
#include <sys/socket.h>
#include <unistd.h>

#include "check.h"
#include "driver.h"
#include "mcast/platform/local_socket.h"

#define MESSAGE_MAX 10240

static uint8_t g_message[MESSAGE_MAX];
static uint8_t g_received[MESSAGE_MAX + 1];
static uint16_t g_port;
static int g_listener;
static int g_client;
static int g_server;

static LOCAL_SOCKET_ADDR_S Address(uint16_t port)
{
    LOCAL_SOCKET_ADDR_S address;
    memset(&address, 0, sizeof(address));
    address.length = (uint8_t)sizeof(address);
    address.family = LOCAL_SOCKET_FAMILY;
    address.port_be = htons(port);
    address.node = LOCAL_SOCKET_NODE;
    return address;
}

static int Socket(void)
{
    return socket(LOCAL_SOCKET_FAMILY, SOCK_DGRAM, LOCAL_SOCKET_PROTOCOL);
}

static int Connect(int fd, uint16_t port)
{
    const LOCAL_SOCKET_ADDR_S address = Address(port);
    return connect(fd, (const struct sockaddr *)(const void *)&address, sizeof(address));
}

static int Listen(uint16_t port)
{
    const LOCAL_SOCKET_ADDR_S address = Address(port);
    const uint32_t reuse = 1;
    const int fd = Socket();
    CHECK(fd >= 0);
    CHECK(setsockopt(fd, SOL_SOCKET, LOCAL_SOCKET_OPTION_REUSE, &reuse, sizeof(reuse)) == 0);
    CHECK(bind(fd, (const struct sockaddr *)(const void *)&address, sizeof(address)) == 0);
    CHECK(listen(fd, 16) == 0);
    return fd;
}

/* Whether one of the events comes; a failing run ends by the limit of whoever runs it. */
static short Await(int fd, short events)
{
    struct pollfd wait = {fd, events, 0};
    CHECK(PORT_CaseFailed() || poll(&wait, 1, -1) == 1);
    return wait.revents;
}

/* Makes a listener and a connection. 0 when the case cannot be run. */
static int Begin(void)
{
    g_port = PORT_LocalPort();
    if (g_port == 0) {
        PORT_Skip("the driver has no port");
        return 0;
    }
    g_listener = Listen(g_port);
    g_client = Socket();
    CHECK(Connect(g_client, g_port) == 0);
    Await(g_listener, POLLIN);
    g_server = accept(g_listener, NULL, NULL);
    CHECK(g_server >= 0);
    return !PORT_CaseFailed();
}

static void End(void)
{
    close(g_server);
    close(g_client);
    close(g_listener);
}

static void ExchangeSizes(int from, int to)
{
    const size_t sizes[] = {1, 26, 71, 1400, MESSAGE_MAX};
    for (size_t i = 0; i < 5; ++i) {
        memset(g_message, (int)sizes[i], sizes[i]);
        CHECK(send(from, g_message, sizes[i], MSG_DONTWAIT) == (ssize_t)sizes[i]);
    }
    for (size_t i = 0; i < 5; ++i) {
        Await(to, POLLIN);
        CHECK(recv(to, g_received, sizeof(g_received), 0) == (ssize_t)sizes[i]);
        CHECK(g_received[0] == (uint8_t)sizes[i] && g_received[sizes[i] - 1] == (uint8_t)sizes[i]);
    }
}

static void MessagesKeepTheirBoundariesAndOrderInBothDirections(void)
{
    if (Begin() != 0) {
        ExchangeSizes(g_client, g_server);
        ExchangeSizes(g_server, g_client);
        End();
    }
}

static void ConnectingFailsWhereNobodyListens(void)
{
    if (Begin() != 0) {
        const int other = Socket();
        CHECK(Connect(other, (uint16_t)(g_port + 1)) != 0);
        CHECK(errno == ECONNREFUSED);
        close(other);
        End();
    }
}

static void APortCanBeUsedAgainWhenItsListenerIsClosed(void)
{
    for (int i = 0; i < 3 && !PORT_CaseFailed(); ++i) {
        if (Begin() != 0) {
            End();
        }
    }
}

static void SendMessageNumber(uint32_t number)
{
    memset(g_message, 0, sizeof(g_message));
    memcpy(g_message, &number, sizeof(number));
}

static uint32_t ReceiveMessageNumber(void)
{
    uint32_t number = UINT32_MAX;
    Await(g_server, POLLIN);
    CHECK(recv(g_server, g_received, sizeof(g_received), 0) == MESSAGE_MAX);
    memcpy(&number, g_received, sizeof(number));
    return number;
}

/* What the sender is told of a receiver that does not read; and nothing that was taken is lost. */
static void BackPressureIsToldAndNothingIsLost(void)
{
    if (Begin() == 0) {
        return;
    }
    uint32_t sent = 0;
    for (; sent < 1000000; ++sent) {
        SendMessageNumber(sent);
        const ssize_t taken = send(g_client, g_message, sizeof(g_message), MSG_DONTWAIT);
        if (taken < 0) {
            CHECK(errno == EAGAIN || errno == EWOULDBLOCK);
            break;
        }
        CHECK(taken == MESSAGE_MAX);
    }
    CHECK(sent > 0 && sent < 1000000);
    for (uint32_t i = 0; i < sent && !PORT_CaseFailed(); ++i) {
        CHECK(ReceiveMessageNumber() == i);
    }
    CHECK((Await(g_client, POLLOUT) & POLLOUT) != 0);
    SendMessageNumber(sent);
    CHECK(send(g_client, g_message, sizeof(g_message), MSG_DONTWAIT) == MESSAGE_MAX);
    CHECK(ReceiveMessageNumber() == sent);
    End();
}

static void TheEndOfThePeerComesBehindWhatItSent(void)
{
    if (Begin() != 0) {
        CHECK(send(g_client, "bye", 3, 0) == 3);
        close(g_client);
        Await(g_server, POLLIN);
        CHECK(recv(g_server, g_received, sizeof(g_received), 0) == 3);
        while (!PORT_CaseFailed() && (Await(g_server, POLLIN) & POLLHUP) == 0) {
        }
        CHECK(recv(g_server, g_received, sizeof(g_received), 0) == 0);
        g_client = -1;
        End();
    }
}

static void SeveralConnectionsOfAPortAreApart(void)
{
    if (Begin() != 0) {
        const int second = Socket();
        CHECK(Connect(second, g_port) == 0);
        Await(g_listener, POLLIN);
        const int its_server = accept(g_listener, NULL, NULL);
        CHECK(send(second, "2", 1, 0) == 1);
        CHECK(send(g_client, "11", 2, 0) == 2);
        Await(its_server, POLLIN);
        CHECK(recv(its_server, g_received, sizeof(g_received), 0) == 1);
        Await(g_server, POLLIN);
        CHECK(recv(g_server, g_received, sizeof(g_received), 0) == 2);
        close(second);
        close(its_server);
        End();
    }
}

static void TheLingerOptionIsTaken(void)
{
    const uint32_t linger[2] = {1, 0};
    if (PORT_LocalPort() == 0) {
        PORT_Skip("the driver has no port");
        return;
    }
    const int fd = Socket();
    NEED(fd >= 0);
    CHECK(setsockopt(fd, SOL_SOCKET, LOCAL_SOCKET_OPTION_LINGER, linger, sizeof(linger)) == 0);
    close(fd);
}

const char *const PORT_SERVICE = "local sockets";
const PORT_CASE_S PORT_CASES[] = {
    {"messages keep their boundaries and order in both directions",
     MessagesKeepTheirBoundariesAndOrderInBothDirections},
    {"connecting fails where nobody listens", ConnectingFailsWhereNobodyListens},
    {"a port can be used again when its listener is closed", APortCanBeUsedAgainWhenItsListenerIsClosed},
    {"back pressure is told and nothing is lost", BackPressureIsToldAndNothingIsLost},
    {"the end of the peer comes behind what it sent", TheEndOfThePeerComesBehindWhatItSent},
    {"several connections of a port are apart", SeveralConnectionsOfAPortAreApart},
    {"the linger option is taken", TheLingerOptionIsTaken},
};
const size_t PORT_CASE_COUNT = sizeof(PORT_CASES) / sizeof(PORT_CASES[0]);
