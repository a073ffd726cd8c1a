/* Instances of a daemon that answer management requests as a test says. */
#ifndef TESTS_UNIT_INTF_MIB_FIXTURE_H
#define TESTS_UNIT_INTF_MIB_FIXTURE_H

#include <algorithm>
#include <array>
#include <cerrno>
#include <cstring>
#include <functional>
#include <gtest/gtest.h>
#include <string>
#include <sys/socket.h>
#include <vector>

#include "mcast/mib.h"
#include "support/fault.h"
#include "support/scripted_device.h"
#include "support/scripted_libc.h"

namespace mib_test
{

using Calls = std::vector<std::string>;
using scripted::device;
using scripted::device_calls;

constexpr uint32_t kOther = MCAST_ERR_GENERAL;
constexpr uint32_t kUntouched = 77;

/* A request as callers lay it out: the parser's part follows the record. */
struct Request {
    MCAST_MIB_REQUEST_S mib;
    std::array<char, 16> output;
};

static_assert(offsetof(Request, output) == sizeof(MCAST_MIB_REQUEST_S));

/* The parser's arguments of the last call, and what it does. */
struct Parsing {
    int calls;
    std::string reply;
    void *output;
    void *extra1;
    void *extra2;
    std::function<MCAST_STATUS(void *output, void *extra1, void *extra2)> act;
};

inline Parsing g_parsing;

/* Unless told otherwise the result is what the reply says: its first four bytes. */
inline MCAST_STATUS Parse(const void *reply, uint64_t length, void *output, void *extra1, void *extra2)
{
    ++g_parsing.calls;
    g_parsing.reply.assign(static_cast<const char *>(reply), length);
    g_parsing.output = output;
    g_parsing.extra1 = extra1;
    g_parsing.extra2 = extra2;
    if (g_parsing.act) {
        return g_parsing.act(output, extra1, extra2);
    }
    MCAST_STATUS result = 0;

    memcpy(&result, reply, std::min<uint64_t>(length, sizeof(result)));
    return result;
}

/*
 * Instances of a daemon on ports 1, 2, ...: each answers every request with a text, or is out of reach. A
 * connection is a descriptor of 1000 and the port.
 */
class Mib : public testing::Test
{
protected:
    static constexpr int kFirst = 1000;
    static constexpr uint32_t kCount = 4;

    void SetUp() override
    {
        scripted::Reset();
        scripted::ResetDevice();
        g_parsing = {};
        live = fault::LiveBlocks();
        for (uint32_t i = 0; i < kCount; ++i) {
            endpoints[i] = {7 + i, static_cast<uint16_t>(i + 1), 0};
            daemons[i] = &endpoints[i];
            requests[i].mib = {5, "query", buffers[i].size(), buffers[i].data(), kUntouched, kUntouched};
            records[i] = &requests[i].mib;
        }
        scripted::socket = [](int, int, int) { return kFirst; };
        scripted::setsockopt = [](auto...) { return 0; };
        scripted::connect = [this](int fd, const sockaddr *to, socklen_t) {
            EXPECT_EQ(fd, kFirst);
            port = reinterpret_cast<const uint8_t *>(to)[3];
            device_calls.push_back("connect " + std::to_string(port));
            errno = ECONNREFUSED;
            return replies.at(port - 1).empty() ? -1 : 0;
        };
        scripted::send = [](int fd, const void *data, size_t length, int flags) {
            EXPECT_EQ(fd, kFirst);
            EXPECT_EQ(flags, MSG_NOSIGNAL);
            EXPECT_EQ(std::string(static_cast<const char *>(data), length), "query");
            device_calls.emplace_back("send");
            return static_cast<ssize_t>(length);
        };
        scripted::recv = [this](int fd, void *data, size_t length, int flags) {
            const std::string &reply = replies.at(port - 1);
            size_t size = std::min(length, reply.size());

            EXPECT_EQ(fd, kFirst);
            EXPECT_EQ(flags, 0);
            memcpy(data, reply.data(), size);
            device_calls.emplace_back("recv");
            return static_cast<ssize_t>(size);
        };
        scripted::close = [](int fd) {
            EXPECT_EQ(fd, kFirst);
            device_calls.emplace_back("close");
            return 0;
        };
    }

    void TearDown() override
    {
        scripted::Reset();
        EXPECT_EQ(fault::LiveBlocks(), live) << "a list of nodes was not freed";
        EXPECT_EQ(Count("close"), sockets_expected) << "every socket is closed, once";
    }

    /* The instance answers with this result. */
    void Answer(uint32_t instance, MCAST_STATUS result)
    {
        replies[instance].assign(reinterpret_cast<const char *>(&result), sizeof(result));
        replies[instance] += "tail";
    }

    static size_t Count(const std::string &call)
    {
        return static_cast<size_t>(std::count(device_calls.begin(), device_calls.end(), call));
    }

    static const Calls &Conversation()
    {
        static const Calls calls = {"connect 1", "send", "recv", "close"};
        return calls;
    }

    MCAST_STATUS NextByIndex(uint32_t n, MCAST_MIB_CHOOSER chooser, uint32_t *chosen)
    {
        return MCAST_MIB_GetNextByIndex(daemons.data(), records.data(), n, Parse, chooser, chosen);
    }

    MCAST_STATUS NextByInet(uint32_t n, uint32_t start, uint32_t *chosen)
    {
        return MCAST_MIB_GetNextByInet(daemons.data(), records.data(), n, start, Parse, chosen);
    }

    std::vector<int64_t> Results() const
    {
        std::vector<int64_t> results;
        for (const Request &request : requests) {
            results.push_back(request.mib.result);
        }
        return results;
    }

    long live = 0;
    uint32_t port = 0;
    size_t sockets_expected = 1;
    std::array<std::string, kCount> replies;
    std::array<std::array<char, 12>, kCount> buffers = {};
    std::array<MCAST_APP_ENDPOINT_S, kCount> endpoints = {};
    std::array<const MCAST_APP_ENDPOINT_S *, kCount> daemons = {};
    std::array<Request, kCount> requests = {};
    std::array<MCAST_MIB_REQUEST_S *, kCount> records = {};
};

} // namespace mib_test

#endif
