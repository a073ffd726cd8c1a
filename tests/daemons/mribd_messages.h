/*
 * Messages as clients write them, and a reader of what mribd answers.
 */
#ifndef TESTS_DAEMONS_MRIBD_MESSAGES_H
#define TESTS_DAEMONS_MRIBD_MESSAGES_H

#include <cstring>
#include <vector>

#include "daemons/mribd/client_queue.h"
#include "daemons/mribd_support.h"
#include "mcast/mrib_message.h"

namespace mribd_test
{

// A message under construction.
class Message
{
public:
    Message() : bytes_(MRIB_MSG_RECV_MAX), used_(MRIB_MsgReset(bytes_.data(), 9))
    {
    }

    template <typename Value> Message &add(uint16_t type, const Value &value)
    {
        std::memcpy(MRIB_MsgAppend(bytes_.data(), &used_, bytes_.size(), type, sizeof(value)), &value,
                    sizeof(value));
        return *this;
    }

    Message &add_register(uint8_t family, uint64_t capabilities = MRIB_CAP_BASE | MRIB_CAP_DR)
    {
        return add(MRIB_TLV_REGISTER, MRIB_REGISTER_S{family, 9, capabilities});
    }

    Message &add_request(uint16_t type, uint8_t family)
    {
        return add(type, MRIB_REQUEST_S{family, {}});
    }

    Message &add_join(uint8_t family, uint32_t if_index, const std::string &group,
                      const std::string &source = "", uint8_t join = 1, uint8_t exclude = 0,
                      uint16_t vrf_index = 0)
    {
        MRIB_JOIN_PRUNE_S value{};
        value.family = family;
        value.vrf_index = vrf_index;
        value.if_index = if_index;
        value.flag1 = join;
        value.flag2 = exclude;
        std::memcpy(value.group, address(group).address, sizeof(value.group));
        if (!source.empty()) {
            std::memcpy(value.source, address(source).address, sizeof(value.source));
        }
        return add(MRIB_TLV_GMP_JOIN_PRUNE, value);
    }

    Message &add_alert(uint16_t type, uint8_t family, uint32_t if_index, uint8_t value)
    {
        return add(type, MRIB_IF_ALERT_S{value, family, 0, if_index});
    }

    // Claims another number of records.
    Message &claim(uint32_t count)
    {
        std::memcpy(bytes_.data() + 4, &count, sizeof(count));
        return *this;
    }

    std::vector<uint8_t> bytes() const
    {
        return {bytes_.begin(), bytes_.begin() + used_};
    }

private:
    std::vector<uint8_t> bytes_;
    uint32_t used_;
};

struct Record {
    uint16_t type;
    std::vector<uint8_t> value;
};

// The records of a message; a message that a client would refuse has none.
inline std::vector<Record> records_of(const std::vector<uint8_t> &message)
{
    std::vector<Record> result;
    MRIB_MSG_READER_S reader;
    MRIB_MsgReaderStart(&reader, message.data(), message.size());
    MRIB_RECORD_S record;
    while (MRIB_MsgReaderNext(&reader, &record) == MCAST_TRUE) {
        result.push_back({record.type, {record.value, record.value + record.length}});
    }
    return result;
}

// Empties the queue.
inline std::vector<Record> take_all(mribd::ClientQueue &queue)
{
    std::vector<Record> result;
    for (; !queue.empty(); queue.pop()) {
        const auto records = records_of(queue.front());
        result.insert(result.end(), records.begin(), records.end());
    }
    return result;
}

inline std::vector<uint16_t> types_of(const std::vector<Record> &records)
{
    std::vector<uint16_t> result;
    for (const Record &record : records) {
        result.push_back(record.type);
    }
    return result;
}

} // namespace mribd_test

#endif
