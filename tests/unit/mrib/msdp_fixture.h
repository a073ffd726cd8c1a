/* A client of the channel that keeps MSDP sources, and access lists as a test says. */
#ifndef TESTS_UNIT_MRIB_MSDP_FIXTURE_H
#define TESTS_UNIT_MRIB_MSDP_FIXTURE_H

#include <arpa/inet.h>
#include <cstring>
#include <functional>
#include <utility>
#include <vector>

#include "mcast/msdp.h"
#include "platform/acl.h"
#include "support/scripted_acl.h"
#include "unit/mrib/channel_fixture.h"

namespace mrib_test
{

/* An address in network order. */
inline uint32_t Be(uint32_t a, uint32_t b, uint32_t c, uint32_t d)
{
    return htonl(a << 24 | b << 16 | c << 8 | d);
}

inline Bytes BytesOf(uint32_t address_be)
{
    Bytes bytes(4);
    memcpy(bytes.data(), &address_be, 4);
    return bytes;
}

const uint32_t kRp1 = Be(10, 0, 0, 1);
const uint32_t kRp2 = Be(10, 0, 0, 2);
const uint32_t kGroup1 = Be(239, 1, 1, 1);
const uint32_t kGroup2 = Be(239, 1, 1, 2);

using Pair = std::pair<uint32_t, uint32_t>;

class Msdp : public ChannelTest
{
protected:
    ~Msdp() override
    {
        scripted::ResetAcl();
    }

    /* The value of a local-source record. */
    static Bytes LocalSource(uint8_t operation, uint32_t rp, uint32_t group, uint32_t source,
                             const Bytes &data = {})
    {
        return Bytes{0xff, 0xff, 2, operation} + Host16(1) + Bytes{0xff, 0xff} + BytesOf(source) +
               BytesOf(group) + BytesOf(rp) + BytesOf(static_cast<uint32_t>(data.size())) + data;
    }

    uint64_t Add(uint32_t rp, uint32_t group, uint32_t source)
    {
        return ReceiveRecord(MRIB_TLV_MSDP_LOCAL_SRC, LocalSource(1, rp, group, source));
    }

    uint64_t Remove(uint32_t rp, uint32_t group, uint32_t source)
    {
        return ReceiveRecord(MRIB_TLV_MSDP_LOCAL_SRC, LocalSource(0, rp, group, source));
    }

    uint64_t EndReplay()
    {
        return Receive(Message(1, Record(MRIB_TLV_MSDP_LOCAL_SRC_END, {}) + Zeros(4)));
    }

    static uint32_t Count(uint32_t rp)
    {
        uint32_t count = 777;
        return MRIB_MSDP_GetSGCntOfOneRP(1, rp, &count) == 0 ? count : 0;
    }

    static MRIB_MSDP_FILTER_S Everything(uint32_t limit = 255)
    {
        return {1, MCAST_NONE, limit, 0};
    }

    /* Permits by list number: the function gets the first and second address in host order. */
    static void Permit(std::function<bool(uint32_t list, uint32_t first, uint32_t second)> permits)
    {
        scripted::acl_group_type = [](uint32_t, uint32_t list) {
            return list < 3000 ? ACL_GROUP_SINGLE_IPV4 : 2u;
        };
        scripted::acl_rule_count = [](uint32_t, uint32_t) { return 1u; };
        scripted::acl_match = [permits](uint32_t, uint32_t list, const void *info, uint32_t, uint32_t *,
                                        uint32_t *action) {
            const auto *packet = static_cast<const ACL_PACKET_INFO4_S *>(info);

            EXPECT_EQ(packet->vrf_index, 1);
            *action = permits(list, packet->first, packet->second) ? ACL_ACTION_PERMIT : ACL_ACTION_DENY;
            return 0u;
        };
    }

    /* Walks all RPs; every pair that comes, in order. */
    std::vector<Pair> ReadAll(const MRIB_MSDP_FILTER_S &filter, std::vector<uint64_t> *batches = nullptr)
    {
        MRIB_MSDP_CURSOR_S cursor = {};
        MRIB_MSDP_BATCH_S batch;
        std::vector<Pair> pairs;
        do {
            MRIB_MSDP_GetLocalSrc(1, &filter, &cursor, &batch);
            for (uint64_t i = 0; i < batch.count; ++i) {
                pairs.emplace_back(batch.pairs[i].group_be, batch.pairs[i].source_be);
            }
            if (batches != nullptr) {
                batches->push_back(batch.count);
            }
        } while (cursor.rp_be != 0);
        return pairs;
    }
};

} // namespace mrib_test

#endif
