#include <algorithm>
#include <cstring>
#include <memory>

#include "mcast/mrib_message.h"
#include "unit/mrib/channel_fixture.h"

namespace mrib_test
{
namespace
{

/* The bytes in a heap block of exactly their size, so that a sanitizer sees a read beyond them. */
struct Exact {
    explicit Exact(const Bytes &bytes) : data(new uint8_t[bytes.size()]), size(bytes.size())
    {
        std::copy(bytes.begin(), bytes.end(), data.get());
    }
    std::unique_ptr<uint8_t[]> data;
    size_t size;
};

/* The records that a reader finds, each as type, then value. */
std::vector<std::pair<uint16_t, Bytes>> Read(const Bytes &message)
{
    Exact exact(message);
    MRIB_MSG_READER_S reader;
    MRIB_RECORD_S record;
    std::vector<std::pair<uint16_t, Bytes>> records;
    EXPECT_EQ(MRIB_MsgReaderStart(&reader, exact.data.get(), exact.size), MCAST_TRUE);
    while (MRIB_MsgReaderNext(&reader, &record) == MCAST_TRUE) {
        records.emplace_back(record.type, Bytes(record.value, record.value + record.length));
    }
    return records;
}

TEST(MessageReader, YieldsTheRecordsInOrder)
{
    auto records = Read(Message(2, Record(7, {1, 2, 3}) + Record(300, {4, 5, 6, 7})));
    ASSERT_EQ(records.size(), 2u);
    EXPECT_EQ(records[0].first, 7);
    EXPECT_EQ(records[0].second, (Bytes{1, 2, 3}));
    EXPECT_EQ(records[1].first, 300);
    EXPECT_EQ(records[1].second, (Bytes{4, 5, 6, 7}));
}

TEST(MessageReader, RefusesEveryMessageBelowTwentyBytes)
{
    for (size_t size = 0; size < 20; ++size) {
        Exact exact{Bytes(size, 0xff)};
        MRIB_MSG_READER_S reader;
        MRIB_RECORD_S record;

        EXPECT_EQ(MRIB_MsgReaderStart(&reader, exact.data.get(), size), MCAST_FALSE);
        EXPECT_EQ(MRIB_MsgReaderNext(&reader, &record), MCAST_FALSE);
    }
}

TEST(MessageReader, AcceptsTwentyBytesWithAValueOfFour)
{
    auto records = Read(Message(1, Record(12, {0, 0, 1, 0})));
    ASSERT_EQ(records.size(), 1u);
    EXPECT_EQ(records[0].second, (Bytes{0, 0, 1, 0}));
}

TEST(MessageReader, CountOfZeroYieldsNothing)
{
    EXPECT_TRUE(Read(Message(0, Record(12, {0, 0, 1, 0}))).empty());
}

TEST(MessageReader, CountAboveTheRecordsStopsAtTheLastWholeOne)
{
    EXPECT_EQ(Read(Message(0xffffffff, Record(12, {0, 0, 1, 0}) + Record(12, {0, 0, 1, 0}))).size(), 2u);
}

TEST(MessageReader, CountBelowTheRecordsLeavesTheRestUnread)
{
    EXPECT_EQ(Read(Message(1, Record(12, {0, 0, 1, 0}) + Record(12, {0, 0, 1, 0}))).size(), 1u);
}

TEST(MessageReader, EveryCutOfAMessageYieldsOnlyWholeRecords)
{
    const Bytes whole = Message(3, Record(1, {1, 1, 1, 1, 1}) + Record(2, {}) + Record(3, {3, 3}));
    /* Where each record ends. */
    const size_t ends[] = {21, 25, 31};

    for (size_t size = 20; size <= whole.size(); ++size) {
        size_t expected = 0;

        for (size_t end : ends) {
            expected += size >= end;
        }
        EXPECT_EQ(Read(Bytes(whole.begin(), whole.begin() + static_cast<long>(size))).size(), expected)
            << size;
    }
}

TEST(MessageReader, LengthBeyondTheMessageEndsIt)
{
    for (uint16_t length : {uint16_t{5}, uint16_t{6}, uint16_t{0x7fff}, uint16_t{0xfffc}, uint16_t{0xffff}}) {
        Bytes message = Message(2, Record(12, {0, 0, 1, 0}));

        memcpy(message.data() + 14, &length, sizeof(length));
        EXPECT_TRUE(Read(message).empty()) << length;
    }
}

TEST(MessageReader, StaysAtItsEnd)
{
    const Bytes message = Message(9, Record(12, {0, 0, 1, 0}));
    MRIB_MSG_READER_S reader;
    MRIB_RECORD_S record;
    ASSERT_EQ(MRIB_MsgReaderStart(&reader, message.data(), message.size()), MCAST_TRUE);
    EXPECT_EQ(MRIB_MsgReaderNext(&reader, &record), MCAST_TRUE);
    EXPECT_EQ(MRIB_MsgReaderNext(&reader, &record), MCAST_FALSE);
    EXPECT_EQ(MRIB_MsgReaderNext(&reader, &record), MCAST_FALSE);
    EXPECT_EQ(record.type, 12) << "untouched";
}

TEST(MessageWriter, WhatItWritesTheReaderReads)
{
    uint8_t buffer[64];
    uint32_t used = MRIB_MsgReset(buffer, 3);
    auto *dr = static_cast<MRIB_PIM_DR_S *>(
        MRIB_MsgAppend(buffer, &used, sizeof(buffer), MRIB_TLV_PIM_DR, sizeof(MRIB_PIM_DR_S)));

    ASSERT_NE(dr, nullptr);
    dr->state = 1;
    dr->vrf_index = 2;
    dr->if_index = 3;
    ASSERT_NE(MRIB_MsgAppend(buffer, &used, sizeof(buffer), MRIB_TLV_PIM_DR_END, 0), nullptr);
    auto records = Read(Bytes(buffer, buffer + used));

    EXPECT_EQ(used, 12u + 14 + 4);
    ASSERT_EQ(records.size(), 2u);
    EXPECT_EQ(records[0].second, (Bytes{0, 0, 1, 0} + Host16(2) + Host32(3)));
    EXPECT_EQ(records[1].first, MRIB_TLV_PIM_DR_END);
    EXPECT_EQ(buffer[0], 3);
    EXPECT_EQ(Bytes(buffer + 4, buffer + 12), Host32(2) + Host32(18));
}

TEST(MessageWriter, RefusesWhatDoesNotFitAndChangesNothing)
{
    uint8_t buffer[12 + 10];
    uint32_t used = MRIB_MsgReset(buffer, 0);
    EXPECT_EQ(MRIB_MsgAppend(buffer, &used, sizeof(buffer), 1, 7), nullptr);
    EXPECT_EQ(MRIB_MsgAppend(buffer, &used, sizeof(buffer), 1, 0xffff), nullptr);
    EXPECT_EQ(used, 12u);
    EXPECT_EQ(Bytes(buffer + 4, buffer + 8), Zeros(4));
    EXPECT_NE(MRIB_MsgAppend(buffer, &used, sizeof(buffer), 1, 6), nullptr);
    EXPECT_EQ(used, sizeof(buffer));
}

TEST(MessageWriter, ResetLeavesTheUnusedBytesAlone)
{
    Bytes buffer(12, 0xcc);
    EXPECT_EQ(MRIB_MsgReset(buffer.data(), 9), 12u);
    EXPECT_EQ(buffer, (Bytes{9, 0, 0xcc, 0xcc, 0, 0, 0, 0, 0, 0, 0, 0}));
}

} // namespace
} // namespace mrib_test
