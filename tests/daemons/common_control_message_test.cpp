#include <gtest/gtest.h>

#include "daemons/common/address.h"
#include "daemons/common/control_message.h"

using namespace mcastd;

namespace
{

using Bytes = std::vector<uint8_t>;

MCAST_ADDR_S address(const char *text)
{
    return parse_address(text).value();
}

ControlFields one_of_each()
{
    return {
        {},
        ControlField::number(UINT64_MAX),
        ControlField::counter(1),
        ControlField::seconds(260),
        ControlField::interface(0xD0000007),
        ControlField::truth(true),
        ControlField::family(MCAST_FAMILY_IPV6),
        ControlField::address(address("239.1.2.3")),
        ControlField::address(address("ff0e::1:2")),
        ControlField::text("text"),
        ControlField::interfaces({3, 5}),
    };
}

TEST(ControlMessage, RequestHasTheDocumentedBytes)
{
    ControlRequest request;
    request.operation = ControlOperation::Set;
    request.table = 0x0112;
    request.row_limit = 3;
    request.key = {ControlField::interface(7), ControlField::address(address("239.1.2.3"))};
    request.values = {ControlField::text("ab"), ControlField::seconds(258)};
    const Bytes expected = {
        0x4D, 0x43, 1, 3, 0x01, 0x12, 0, 3,               // mark, version, operation, table, row limit
        2,    4,    0, 0, 0,    7,    7, 2, 239, 1, 2, 3, // key: interface 7, address 239.1.2.3
        2,    8,    0, 2, 'a',  'b',  3, 0, 0,   0, 0, 0, 0, 1, 2, // values: text "ab", 258 seconds
    };
    EXPECT_EQ(encode(request), expected);
}

TEST(ControlMessage, ReplyHasTheDocumentedBytes)
{
    ControlReplyWriter writer(0x0112);
    ASSERT_TRUE(writer.add_row({ControlField::truth(true), {}}));
    const Bytes expected = {
        0x4D, 0x43, 1, 7, 0x01, 0x12, 0,   1,   // mark, version, status, table, rows
        0,    0,    0, 2, 0,    2,    'n', 'o', // error index, message
        2,    5,    1, 0,                       // the row: true, none
    };
    EXPECT_EQ(writer.finish(ControlStatus::BadValue, 2, "no"), expected);
}

TEST(ControlMessage, EveryOperationAndStatusHasItsNumber)
{
    constexpr size_t NUMBER = 3; // where it is
    uint8_t number = 1;
    for (const auto operation : {ControlOperation::Get, ControlOperation::GetNext, ControlOperation::Set,
                                 ControlOperation::Command}) {
        ControlRequest request;
        request.operation = operation;
        EXPECT_EQ(encode(request)[NUMBER], number++);
    }
    number = 0;
    for (const auto status :
         {ControlStatus::Done, ControlStatus::NoEntry, ControlStatus::EndOfTable, ControlStatus::Malformed,
          ControlStatus::UnknownOperation, ControlStatus::UnknownTable, ControlStatus::UnknownSetting,
          ControlStatus::BadValue, ControlStatus::Failed}) {
        EXPECT_EQ(ControlReplyWriter(1).finish(status, 0, "")[NUMBER], number++);
    }
}

TEST(ControlMessage, EveryTypeSurvivesTheWay)
{
    ControlRequest request;
    request.values = one_of_each();
    ControlRequest read;
    ASSERT_TRUE(decode(encode(request), &read));
    ASSERT_EQ(read.values.size(), request.values.size());
    for (size_t i = 0; i < read.values.size(); ++i) {
        EXPECT_EQ(read.values[i].type(), request.values[i].type());
        EXPECT_EQ(read.values[i], request.values[i]) << i;
    }
}

TEST(ControlMessage, EveryCutOfARequestIsRefused)
{
    ControlRequest request;
    request.key = one_of_each();
    request.values = one_of_each();
    const Bytes whole = encode(request);
    ControlRequest read;
    for (size_t size = 0; size < whole.size(); ++size) {
        EXPECT_FALSE(decode(std::span(whole).first(size), &read)) << size;
    }
    Bytes longer = whole;
    longer.push_back(0);
    EXPECT_FALSE(decode(longer, &read));
}

TEST(ControlMessage, EveryCutOfAReplyIsRefused)
{
    ControlReplyWriter writer(1);
    ASSERT_TRUE(writer.add_row(one_of_each()));
    ASSERT_TRUE(writer.add_row(one_of_each()));
    const Bytes whole = writer.finish(ControlStatus::Done, CONTROL_NO_INDEX, "message");
    ControlReply read;
    for (size_t size = 0; size < whole.size(); ++size) {
        EXPECT_FALSE(decode(std::span(whole).first(size), &read)) << size;
    }
    ASSERT_TRUE(decode(whole, &read));
    EXPECT_EQ(read.rows.size(), 2u);
    EXPECT_EQ(read.message, "message");
}

TEST(ControlMessage, WrongBytesAreRefused)
{
    struct {
        const char *what;
        Bytes request;
    } const cases[] = {
        {"nothing", {}},
        {"another mark", {0x4D, 0x44, 1, 2, 0, 1, 0, 0, 0, 0}},
        {"another version", {0x4D, 0x43, 2, 2, 0, 1, 0, 0, 0, 0}},
        {"an unknown field type", {0x4D, 0x43, 1, 2, 0, 1, 0, 0, 1, 10, 0}},
        {"a truth of 2", {0x4D, 0x43, 1, 2, 0, 1, 0, 0, 1, 5, 2, 0}},
        {"a family of 3", {0x4D, 0x43, 1, 2, 0, 1, 0, 0, 1, 6, 3, 0}},
        {"an address of family 0", {0x4D, 0x43, 1, 2, 0, 1, 0, 0, 1, 7, 0, 1, 2, 3, 4, 0}},
        {"33 fields", {0x4D, 0x43, 1, 2, 0, 1, 0, 0, 33, 0, 0, 0, 0, 0, 0, 0, 0, 0, 0, 0, 0, 0,
                       0,    0,    0, 0, 0, 0, 0, 0, 0,  0, 0, 0, 0, 0, 0, 0, 0, 0, 0, 0, 0}},
        {"a text longer than what is left", {0x4D, 0x43, 1, 2, 0, 1, 0, 0, 1, 8, 0, 2, 'a'}},
        {"interfaces that are not there", {0x4D, 0x43, 1, 2, 0, 1, 0, 0, 1, 9, 255, 0, 0, 0, 1}},
    };
    for (const auto &each : cases) {
        ControlRequest request;
        EXPECT_FALSE(decode(each.request, &request)) << each.what;
    }
}

TEST(ControlMessage, AnUnknownOperationIsStillARequest)
{
    ControlRequest request;
    ASSERT_TRUE(decode(Bytes{0x4D, 0x43, 1, 99, 0, 1, 0, 0, 0, 0}, &request));
    EXPECT_EQ(static_cast<int>(request.operation), 99);
}

TEST(ControlMessage, AnUnknownStatusIsNoReply)
{
    ControlReplyWriter writer(1);
    Bytes bytes = writer.finish(ControlStatus::Done);
    ControlReply reply;
    ASSERT_TRUE(decode(bytes, &reply));
    bytes[3] = static_cast<uint8_t>(ControlStatus::Count);
    EXPECT_FALSE(decode(bytes, &reply));
}

TEST(ControlMessage, WhatIsBeyondTheLimitsIsNotWritten)
{
    ControlRequest request;
    request.values = {ControlField::text(std::string(ControlField::TEXT_MAX, 'x'))};
    EXPECT_FALSE(encode(request).empty());
    request.values = {ControlField::text(std::string(ControlField::TEXT_MAX + 1, 'x'))};
    EXPECT_TRUE(encode(request).empty());
    request.values = {ControlField::interfaces(std::vector<uint32_t>(256, 1))};
    EXPECT_TRUE(encode(request).empty());
    request.values = ControlFields(CONTROL_FIELDS_MAX + 1);
    EXPECT_TRUE(encode(request).empty());
    request.values = ControlFields(3, ControlField::text(std::string(1000, 'x')));
    EXPECT_TRUE(encode(request).empty()) << "longer than any request";
    request.values = {ControlField::address(MCAST_ADDR_S{})};
    EXPECT_TRUE(encode(request).empty()) << "an address without family";
}

TEST(ControlMessage, AFullReplyTakesNoMoreRowsAndKeepsTheOthers)
{
    ControlReplyWriter writer(1);
    const ControlFields row = {ControlField::text(std::string(1000, 'x'))};
    size_t rows = 0;
    while (writer.add_row(row)) {
        ++rows;
    }
    EXPECT_EQ(rows, 32u);
    EXPECT_EQ(writer.row_count(), rows);
    const Bytes bytes = writer.finish(ControlStatus::Done, CONTROL_NO_INDEX, std::string(600, 'm'));
    EXPECT_LE(bytes.size(), CONTROL_REPLY_MAX);
    ControlReply reply;
    ASSERT_TRUE(decode(bytes, &reply));
    EXPECT_EQ(reply.rows.size(), rows);
    EXPECT_EQ(reply.message, std::string(512, 'm'));
}

TEST(ControlField, OrdersByFamilyAndBytesOfAddresses)
{
    const ControlField low = ControlField::address(address("9.0.0.1"));
    const ControlField high = ControlField::address(address("224.0.0.1"));
    const ControlField ipv6 = ControlField::address(address("::1"));
    EXPECT_LT(low.compare(high), 0);
    EXPECT_LT(high.compare(ipv6), 0);
    EXPECT_EQ(low.compare(low), 0);
}

TEST(ControlField, GivesNothingOfAnotherKind)
{
    const ControlField text = ControlField::text("x");
    EXPECT_EQ(text.as_number(), 0u);
    EXPECT_EQ(text.as_address().family, 0);
    EXPECT_TRUE(text.as_interfaces().empty());
    EXPECT_TRUE(ControlField::number(1).as_text().empty());
}

TEST(ControlField, AKeyThatEndsEarlierComesFirst)
{
    const ControlField one = ControlField::number(1);
    const ControlField two = ControlField::number(2);
    EXPECT_LT(compare_keys({one}, {one, one}, 2), 0);
    EXPECT_EQ(compare_keys({one, one}, {one, two}, 1), 0);
    EXPECT_GT(compare_keys({two}, {one, two}, 2), 0);
    EXPECT_EQ(compare_keys({}, {}, 2), 0);
}

} // namespace
