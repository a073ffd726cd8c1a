/*
 * Whole datagrams into the channel's receive handler, with every callback set. An input is one or more
 * datagrams, each behind a byte pair that gives its length, so that records meet the view that earlier ones
 * left.
 */
#include <algorithm>
#include <cstdlib>
#include <cstring>
#include <sys/epoll.h>

#include "mcast/mrib.h"
#include "support/fault.h"
#include "support/scripted_libc.h"
#include "support/scripted_platform.h"

namespace
{

constexpr int kSocket = 1000;
constexpr uint16_t kVrfCount = 3;

void Require(bool truth)
{
    if (!truth) {
        abort();
    }
}

void CheckKey(const MRIB_GMP_VRF_KEY_S *key)
{
    Require(key->vrf_index < kVrfCount);
}

/* Reads everything that a callback is given. */
void ReadAll(const void *data, size_t length)
{
    static volatile uint8_t sink;
    const uint8_t *bytes = static_cast<const uint8_t *>(data);
    for (size_t i = 0; i < length; ++i) {
        sink = bytes[i];
    }
    (void)sink;
}

const MRIB_GMP_CALLBACKS_S kCallbacks = {
    [](int32_t) { return uint64_t{0}; },
    [](int32_t) {},
    []() {},
    [](const MRIB_GMP_VRF_KEY_S *key) { CheckKey(key); },
    [](const MRIB_GMP_VRF_KEY_S *key) { CheckKey(key); },
    [](const MRIB_GMP_VRF_KEY_S *key, uint32_t, uint32_t) { CheckKey(key); },
    [](const MRIB_GMP_VRF_KEY_S *key, uint32_t, uint32_t) { CheckKey(key); },
    [](const MRIB_GMP_VRF_KEY_S *key, uint32_t) { CheckKey(key); },
    [](const MRIB_GMP_VRF_KEY_S *key, uint32_t, uint32_t, uint32_t, const void *data, uint32_t length) {
        CheckKey(key);
        Require((data == nullptr) == (length == 0));
        ReadAll(data, length);
    },
    [](const MRIB_GMP_VRF_KEY_S *key, uint32_t) {
        CheckKey(key);
        return uint64_t{0};
    },
    [](uint16_t length, const void *value) { ReadAll(value, length); },
};

/* The handler is given a buffer whose end a sanitizer guards: the receive buffer is made exactly as long. */
void Deliver(const uint8_t *datagram, size_t size)
{
    char *whole = g_pcMribGmpRecvBuf;
    char *exact = static_cast<char *>(malloc(std::max<size_t>(size, 1)));
    scripted::recv = [&](int, void *to, size_t length, int) {
        Require(length == MRIB_MSG_RECV_MAX);
        std::copy(datagram, datagram + size, static_cast<uint8_t *>(to));
        return static_cast<ssize_t>(size);
    };
    g_pcMribGmpRecvBuf = exact;
    MRIB_GMP_ProcLipcMsg(EPOLLIN, kSocket);
    g_pcMribGmpRecvBuf = whole;
    free(exact);
}

} // namespace

extern "C" int LLVMFuzzerTestOneInput(const uint8_t *data, size_t size);

extern "C" int LLVMFuzzerTestOneInput(const uint8_t *data, size_t size)
{
    const long before = fault::LiveBlocks();

    scripted::socket = [](int, int, int) { return kSocket; };
    scripted::connect = [](auto...) { return 0; };
    scripted::setsockopt = [](auto...) { return 0; };
    scripted::close = [](int) { return 0; };
    scripted::send = [](int, const void *, size_t length, int) { return static_cast<ssize_t>(length); };
    Require(MRIB_GMP_Init(1, MCAST_FAMILY_IPV4, kVrfCount, MRIB_MSG_RECV_MAX, &kCallbacks) == MCAST_OK);
    Require(MRIB_GMP_OpenConnect() == MCAST_OK);
    while (size >= 2) {
        size_t length =
            std::min<size_t>({size - 2, size_t{data[0]} | size_t{data[1]} << 8, MRIB_MSG_RECV_MAX});

        Deliver(data + 2, length);
        data += 2 + length;
        size -= 2 + length;
    }
    MRIB_GMP_CloseConnection();
    MRIB_GMP_Fini();
    Require(fault::LiveBlocks() == before && platform::LiveInstances() == 0 && platform::LiveTrees() == 0);
    return 0;
}
