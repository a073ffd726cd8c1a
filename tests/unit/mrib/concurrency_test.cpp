#include <atomic>
#include <cstring>
#include <thread>

#include "mcast/msdp.h"
#include "unit/mrib/channel_fixture.h"

namespace mrib_test
{
namespace
{

constexpr int kRounds = 2000;
constexpr int kThreads = 4;

/* One thread serves the channel while others send and ask; a thread sanitizer watches. */
class Concurrency : public ChannelTest
{
protected:
    /* Datagrams that change everything the queries look at, then a whole replay. */
    void Serve()
    {
        while (running < kThreads) {
            std::this_thread::yield();
        }
        for (int i = 0; i < kRounds; ++i) {
            const uint8_t on = i % 2 == 0;

            for (uint8_t vrf = 0; vrf < 2; ++vrf) {
                ReceiveRecord(MRIB_TLV_VRF_STATE, VrfState(vrf, on));
                ReceiveRecord(MRIB_TLV_PIM_DR, PimDr(vrf, on, 5));
                ReceiveRecord(MRIB_TLV_SSM_POLICY, SsmPolicy(vrf, MCAST_NONE));
                ReceiveRecord(MRIB_TLV_BOUNDARY, Bytes{0, 0, 2, 0} + Host16(vrf) + Bytes{on, 0, 8} +
                                                     Host32(5) + Bytes{0, 0, 239} + Zeros(15));
                ReceiveRecord(MRIB_TLV_MSDP_LOCAL_SRC, Bytes{0, 0, 2, on} + Host16(vrf) + Zeros(18));
            }
            ReceiveRecord(MRIB_TLV_FLOW_CONTROL, FlowControl(on));
            Receive(Message(1, Record(MRIB_TLV_SMOOTH_START, {}) + Zeros(4)));
            Receive(Message(4, Record(MRIB_TLV_PIM_DR_END, {}) + Record(MRIB_TLV_BOUNDARY_END, {}) +
                                   Record(MRIB_TLV_VRF_STATE_END, {}) +
                                   Record(MRIB_TLV_MSDP_LOCAL_SRC_END, {})));
            if (i % 50 == 49) {
                MRIB_GMP_CloseConnection();
                MRIB_GMP_OpenConnect();
            }
        }
        done = true;
    }

    void Ask()
    {
        const MCAST_ADDR_S group = Ipv4(239, 1, 1, 1);
        const MRIB_MSDP_FILTER_S filter = {0, MCAST_NONE, 10, 0};
        uint32_t count = 0;

        ++running;
        do {
            for (uint16_t vrf = 0; vrf < 2; ++vrf) {
                const MRIB_GMP_VRF_KEY_S key = {MCAST_FAMILY_IPV4, vrf};
                MRIB_MSDP_CURSOR_S cursor = {};
                MRIB_MSDP_BATCH_S batch;

                MRIB_GMP_IsL3McEnabled(&key);
                MRIB_GMP_IsPimDr(&key, 5);
                MRIB_GMP_CanPassMBoundary(&key, 5, &group);
                MRIB_MSDP_IsSSMGroup(vrf, 1);
                MRIB_MSDP_GetSGCntOfOneRP(vrf, 0, &count);
                MRIB_MSDP_GetLocalSrc(vrf, &filter, &cursor, &batch);
            }
            MRIB_GMP_IsConnectionBusy();
        } while (!done);
    }

    void Send()
    {
        const MRIB_GMP_VRF_KEY_S key = {MCAST_FAMILY_IPV4, 0};
        const MCAST_ADDR_S group = Ipv4(239, 1, 1, 1);
        ++running;
        do {
            MRIB_GMP_SendGmpJoinPrune(&key, 5, &group, nullptr, 1, 0);
            MRIB_GMP_SendGmpEnableAlert(&key, 5, 1, 1);
            MRIB_MSDP_SendDelAllRemoteSG(0);
            MRIB_GMP_SendAtOnce();
            MRIB_GMP_SendFailData();
        } while (!done);
    }

    std::atomic<bool> done{false};
    std::atomic<int> running{0};
};

TEST_F(Concurrency, QueriesAndSendersRunBesideUpdatesAndReconnections)
{
    std::atomic<uint64_t> records{0};

    callbacks = {};
    callbacks.dr_changed = [](const MRIB_GMP_VRF_KEY_S *, uint32_t, uint32_t) {};
    callbacks.boundary_changed = [](const MRIB_GMP_VRF_KEY_S *, uint32_t, uint32_t) {};
    callbacks.msdp_local_source = [](const MRIB_GMP_VRF_KEY_S *, uint32_t, uint32_t, uint32_t, const void *,
                                     uint32_t) {};
    Connect(MCAST_FAMILY_IPV4, 2, 1400);
    scripted::close = [](int) { return 0; };
    scripted::send = [&](int, const void *message, size_t length, int) -> ssize_t {
        records += static_cast<const MRIB_MSG_HEADER_S *>(message)->record_count;
        return records % 5 == 0 ? -1 : static_cast<ssize_t>(length);
    };
    std::thread threads[kThreads] = {std::thread([this] { Ask(); }), std::thread([this] { Ask(); }),
                                     std::thread([this] { Send(); }), std::thread([this] { Send(); })};

    Serve();
    for (std::thread &thread : threads) {
        thread.join();
    }
    EXPECT_GT(records, 0u);
}

} // namespace
} // namespace mrib_test
