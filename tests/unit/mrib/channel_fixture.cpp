#include "unit/mrib/channel_fixture.h"

#include <algorithm>
#include <cstring>
#include <sys/epoll.h>

namespace mrib_test
{
namespace
{

ChannelTest *g_fixture = nullptr;

void ExpectLocksFree() MCAST_NO_LOCK_ANALYSIS
{
    EXPECT_EQ(pthread_mutex_trylock(&g_stMribConnectInfo.lock.posix), 0) << "mutex held in a callback";
    pthread_mutex_unlock(&g_stMribConnectInfo.lock.posix);
    for (uint64_t i = 0; i < g_stMribGmpVrfInfo.count; ++i) {
        pthread_rwlock_t *lock = &g_stMribGmpVrfInfo.vrfs[i].lock.posix;

        EXPECT_EQ(pthread_rwlock_trywrlock(lock), 0) << "instance locked in a callback";
        pthread_rwlock_unlock(lock);
    }
}

template <typename... Arguments> void Note(const char *name, Arguments... arguments)
{
    std::string text = name;
    ((text += " " + std::to_string(arguments)), ...);
    g_fixture->calls.push_back(text);
    ExpectLocksFree();
}

uint64_t OnConnected(int32_t socket)
{
    g_fixture->is_open = true;
    Note("connected", socket);
    return g_fixture->connected_result;
}

void OnDisconnected(int32_t socket)
{
    EXPECT_TRUE(g_fixture->is_open) << "closed before the callback";
    Note("disconnected", socket);
}

void OnSmoothFinished()
{
    Note("smooth finished");
}

void OnVrfEnabled(const MRIB_GMP_VRF_KEY_S *key)
{
    Note("vrf enabled", key->family, key->vrf_index);
}

void OnVrfDisabled(const MRIB_GMP_VRF_KEY_S *key)
{
    Note("vrf disabled", key->family, key->vrf_index);
}

void OnDrChanged(const MRIB_GMP_VRF_KEY_S *key, uint32_t if_index, uint32_t state)
{
    Note("dr", key->family, key->vrf_index, if_index, state);
}

void OnBoundaryChanged(const MRIB_GMP_VRF_KEY_S *key, uint32_t if_index, uint32_t operation)
{
    Note("boundary", key->family, key->vrf_index, if_index, operation);
}

void OnSsmPolicyChanged(const MRIB_GMP_VRF_KEY_S *key, uint32_t acl_number)
{
    Note("ssm policy", key->family, key->vrf_index, acl_number);
}

void OnMsdpLocalSource(const MRIB_GMP_VRF_KEY_S *key, uint32_t rp_be, uint32_t group_be, uint32_t source_be,
                       const void *data, uint32_t length)
{
    const uint8_t *bytes = static_cast<const uint8_t *>(data);
    Note("local source", key->family, key->vrf_index, rp_be, group_be, source_be, length,
         bytes == nullptr ? -1 : bytes[length - 1]);
}

uint64_t OnMsdpRemoteSourceRequest(const MRIB_GMP_VRF_KEY_S *key, uint32_t group_be)
{
    Note("remote source request", key->family, key->vrf_index, group_be);
    return g_fixture->remote_source_result;
}

void OnMsdpEncapReport(uint16_t length, const void *value)
{
    Note("encap report", length, static_cast<const uint8_t *>(value)[length - 1]);
}

} // namespace

Bytes operator+(Bytes first, const Bytes &second)
{
    first.insert(first.end(), second.begin(), second.end());
    return first;
}

Bytes Zeros(size_t count)
{
    return Bytes(count, 0);
}

Bytes Message(uint32_t record_count, const Bytes &records)
{
    Bytes message = Zeros(12) + records;
    memcpy(message.data() + 4, &record_count, sizeof(record_count));
    return message;
}

Bytes Record(uint16_t type, const Bytes &value)
{
    const uint16_t header[2] = {type, static_cast<uint16_t>(value.size())};
    Bytes record(sizeof(header));
    memcpy(record.data(), header, sizeof(header));
    return record + value;
}

Bytes SentMessage(uint32_t record_count, uint32_t body_length, const Bytes &records)
{
    return Bytes{ChannelTest::kComponent, 0, 0, 0} + Host32(record_count) + Host32(body_length) + records;
}

Bytes VrfState(uint16_t vrf_index, uint8_t state)
{
    return Bytes(3, 0xff) + Host16(vrf_index) + Bytes{state};
}

Bytes PimDr(uint16_t vrf_index, uint8_t state, uint32_t if_index)
{
    return Bytes{0xff, 0xff, state, 0xff} + Host16(vrf_index) + Host32(if_index);
}

Bytes SsmPolicy(uint16_t vrf_index, uint32_t acl_number)
{
    return Bytes(3, 0xff) + Host16(vrf_index) + Host32(acl_number);
}

Bytes FlowControl(uint16_t busy)
{
    return Bytes(2, 0xff) + Host16(busy);
}

MCAST_ADDR_S Ipv4(uint8_t a, uint8_t b, uint8_t c, uint8_t d)
{
    return {MCAST_FAMILY_IPV4, 0, {a, b, c, d}};
}

MCAST_ADDR_S Ipv6(std::initializer_list<uint8_t> leading)
{
    MCAST_ADDR_S address = {MCAST_FAMILY_IPV6, 0, {}};
    std::copy(leading.begin(), leading.end(), address.address);
    return address;
}

Connection Peek() MCAST_NO_LOCK_ANALYSIS
{
    const MRIB_GMP_CONNECT_S &c = g_stMribConnectInfo;

    EXPECT_EQ(c.pending_head == nullptr, c.pending_tail == nullptr);
    return {c.socket,
            c.busy,
            c.failed,
            c.out_buffer != nullptr,
            c.used,
            c.pending_head != nullptr,
            c.pending_limit,
            c.pending_count,
            c.copy_size,
            c.dropped_count,
            c.allocation_failure_count,
            c.queued_count};
}

Instance PeekVrf(uint16_t index) MCAST_NO_LOCK_ANALYSIS
{
    const MRIB_GMP_VRF_S &v = g_stMribGmpVrfInfo.vrfs[index];

    return {v.key.family, v.key.vrf_index,         v.l3mc_state, v.if_table != IF_NO_INSTANCE, v.flags,
            v.ssm_acl,    v.msdp_local_source != 0};
}

MRIB_GMP_IF_S *PeekInterface(uint16_t vrf_index, uint32_t if_index) MCAST_NO_LOCK_ANALYSIS
{
    void *data = nullptr;

    IF_GetPrivateData(g_stMribGmpVrfInfo.vrfs[vrf_index].if_table, if_index, &data);
    return static_cast<MRIB_GMP_IF_S *>(data);
}

void *GetOutBuffer(uint32_t record_size) MCAST_NO_LOCK_ANALYSIS
{
    pthread_mutex_lock(&g_stMribConnectInfo.lock.posix);
    void *record = MRIB_GMP_GetOutBuffer(&g_stMribConnectInfo, record_size);

    pthread_mutex_unlock(&g_stMribConnectInfo.lock.posix);
    return record;
}

void DirtyOutBuffer() MCAST_NO_LOCK_ANALYSIS
{
    const MRIB_GMP_CONNECT_S &c = g_stMribConnectInfo;

    memset(c.out_buffer + c.used, 0xee, g_stMRIBComponent.max_message_size - c.used);
}

ChannelTest::ChannelTest() : blocks_before_(fault::LiveBlocks())
{
    g_fixture = this;
    scripted::socket = [](int, int, int) { return kSocket; };
    scripted::connect = [](auto...) { return 0; };
    scripted::setsockopt = [](auto...) { return 0; };
    scripted::close = [this](int descriptor) {
        closed.push_back(descriptor);
        is_open = false;
        return 0;
    };
    scripted::send = [this](int descriptor, const void *data, size_t length, int flags) {
        EXPECT_EQ(descriptor, kSocket);
        EXPECT_EQ(flags, MSG_DONTWAIT);
        if (send_result != 1) {
            errno = EAGAIN;
            return send_result;
        }
        const uint8_t *bytes = static_cast<const uint8_t *>(data);

        sent.emplace_back(bytes, bytes + length);
        return static_cast<ssize_t>(length);
    };
}

ChannelTest::~ChannelTest()
{
    fault::FailAllocation(0);
    MRIB_GMP_CloseConnection();
    MRIB_GMP_Fini();
    scripted::Reset();
    platform::Reset();
    g_fixture = nullptr;
    EXPECT_EQ(fault::LiveBlocks(), blocks_before_);
    EXPECT_EQ(platform::LiveInstances(), 0);
    EXPECT_EQ(platform::LiveTrees(), 0);
}

MRIB_GMP_CALLBACKS_S ChannelTest::AllCallbacks()
{
    return {
        OnConnected,      OnDisconnected,    OnSmoothFinished,   OnVrfEnabled,      OnVrfDisabled,
        OnDrChanged,      OnBoundaryChanged, OnSsmPolicyChanged, OnMsdpLocalSource, OnMsdpRemoteSourceRequest,
        OnMsdpEncapReport};
}

uint64_t ChannelTest::Init(uint8_t family, uint64_t vrf_count, uint64_t size)
{
    return MRIB_GMP_Init(kComponent, family, vrf_count, size, &callbacks);
}

void ChannelTest::Connect(uint8_t family, uint64_t vrf_count, uint64_t size)
{
    ASSERT_EQ(Init(family, vrf_count, size), 0u);
    ASSERT_EQ(MRIB_GMP_OpenConnect(), connected_result);
    sent.clear();
    calls.clear();
}

uint64_t ChannelTest::Receive(const Bytes &datagram)
{
    scripted::recv = [&](int descriptor, void *data, size_t length, int flags) {
        EXPECT_EQ(descriptor, kSocket);
        EXPECT_EQ(length, 10240u);
        EXPECT_EQ(flags, MSG_DONTWAIT);
        size_t size = datagram.size() < length ? datagram.size() : length;

        memcpy(data, datagram.data(), size);
        return static_cast<ssize_t>(size);
    };
    uint64_t result = MRIB_GMP_ProcLipcMsg(EPOLLIN, kSocket);

    scripted::recv = nullptr;
    return result;
}

uint64_t ChannelTest::ReceiveRecord(uint16_t type, const Bytes &value)
{
    return Receive(Message(1, Record(type, value)));
}

} // namespace mrib_test
