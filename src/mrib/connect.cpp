/*
 * Opening and closing the connection to the MRIB.
 *
 * Opening runs without the mutex: nobody else can see the new socket until it is published at the end, so a
 * failure on the way closes it and leaves the connection record as it was. The three set-up messages go
 * straight from the stack to the socket, ahead of everything that senders will batch.
 */
#include <sys/socket.h>
#include <unistd.h>

#include "event/guards.h"
#include "event/local_channel.h"
#include "mrib/channel.h"
#include "probe/probe.h"

using namespace mcast;

namespace
{

/* A message with a single record, as connection set-up sends it. */
template <typename Value> struct MRIB_PACKED SetUpMessage {
    MRIB_MSG_HEADER_S header;
    MRIB_TLV_HEADER_S tlv;
    Value value;
};

static_assert(sizeof(SetUpMessage<MRIB_REGISTER_S>) == 26);
static_assert(sizeof(SetUpMessage<MRIB_REQUEST_S>) == 22);

template <typename Value> bool SendSetUpMessage(int descriptor, uint16_t type, const Value &value)
{
    SetUpMessage<Value> message = {};
    message.header.component = g_stMRIBComponent.component;
    message.header.record_count = 1;
    message.header.body_length = sizeof(Value) + sizeof(MRIB_MSG_HEADER_S);
    message.tlv.type = type;
    message.tlv.length = sizeof(Value);
    message.value = value;
    if (send(descriptor, &message, sizeof(message), MSG_DONTWAIT) <= 0) {
        return false;
    }
    probe::MessageOut(descriptor, &message, sizeof(message), probe::Way::kAtOnce);
    return true;
}

bool Register(int descriptor)
{
    MRIB_REGISTER_S value = {};
    value.family = g_ucMribGmpFamily;
    value.component = g_stMRIBComponent.component;
    value.capability_flags = g_stMRIBComponent.capability_flags;
    return SendSetUpMessage(descriptor, MRIB_TLV_REGISTER, value);
}

/* What is known now has to be confirmed by the replay that is asked for next. */
void MarkVrfsStale()
{
    for (uint64_t i = 0; i < g_stMribGmpVrfInfo.count; ++i) {
        MRIB_GMP_VRF_S *vrf = &g_stMribGmpVrfInfo.vrfs[i];
        WriteGuard guard(vrf->lock);

        if (vrf->l3mc_state == 1) {
            vrf->flags |= MRIB_GMP_VRF_STATE_STALE;
        }
        if (vrf->ssm_acl != MCAST_NONE) {
            vrf->flags |= MRIB_GMP_VRF_ACL_STALE;
        }
    }
}

bool RequestVrfState(int descriptor)
{
    MRIB_REQUEST_S value = {};

    value.family = g_ucMribGmpFamily;
    bool state_sent = SendSetUpMessage(descriptor, MRIB_TLV_REQ_VRF_STATE, value);
    bool policy_sent = SendSetUpMessage(descriptor, MRIB_TLV_REQ_SSM_POLICY, value);

    return state_sent && policy_sent;
}

/* What goes over a new connection before its socket can be published. */
bool SetUp(int descriptor)
{
    if (!Register(descriptor)) {
        return false;
    }
    MarkVrfsStale();
    return RequestVrfState(descriptor);
}

/* Whether a connection may be opened: MRIB_GMP_Init has been called, and there is none. */
enum class State { kUninitialised, kClosed, kConnected };

State ConnectionState()
{
    MutexGuard guard(g_stMribConnectInfo.lock);
    if (g_stMribConnectInfo.socket != -1) {
        return State::kConnected;
    }
    return g_stMribConnectInfo.out_buffer != nullptr ? State::kClosed : State::kUninitialised;
}

} // namespace

uint64_t MRIB_GMP_OpenConnect(void)
{
    static const MRIB_SMOOTH_RECORD_S kSmoothRecord = {{0, 1, 1, 0, 0}};
    State state = ConnectionState();

    if (state != State::kClosed) {
        return state == State::kConnected ? MCAST_OK : MCAST_ERR_GENERAL;
    }
    int descriptor =
        OpenLocalChannel(g_ucMribGmpFamily == MCAST_FAMILY_IPV4 ? MRIB_PORT_IPV4 : MRIB_PORT_IPV6);

    if (descriptor < 0) {
        return MCAST_ERR_GENERAL;
    }
    if (!SetUp(descriptor)) {
        close(descriptor);
        return MCAST_ERR_GENERAL;
    }
    {
        MutexGuard guard(g_stMribConnectInfo.lock);
        g_stMribConnectInfo.socket = descriptor;
    }
    ForgetSmoothFlags();
    MRIB_GMP_SendSmoothAlert(g_ucMribGmpFamily, MRIB_TLV_SMOOTH_ALERT, &kSmoothRecord);
    return g_stMRIBComponent.callbacks.connected != nullptr
               ? g_stMRIBComponent.callbacks.connected(descriptor)
               : MCAST_OK;
}

uint64_t MRIB_GMP_CloseConnection(void)
{
    MRIB_GMP_CONNECT_S *connection = &g_stMribConnectInfo;
    int descriptor = -1;

    {
        MutexGuard guard(connection->lock);

        descriptor = connection->socket;
        connection->socket = -1;
        FreePending(connection);
        connection->busy = 0;
        connection->failed = 0;
        ForgetSmoothFlags();
        if (connection->out_buffer != nullptr) {
            ResetMessage(connection);
        }
    }
    if (descriptor != -1) {
        if (g_stMRIBComponent.callbacks.disconnected != nullptr) {
            g_stMRIBComponent.callbacks.disconnected(descriptor);
        }
        close(descriptor);
    }
    return MCAST_OK;
}

uint64_t MRIB_GMP_CloseFailConnection(void)
{
    uint16_t failed = 0;

    {
        MutexGuard guard(g_stMribConnectInfo.lock);

        failed = g_stMribConnectInfo.failed;
    }
    if (failed != 1) {
        return 0;
    }
    MRIB_GMP_CloseConnection();
    return 1;
}
