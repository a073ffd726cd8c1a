#include "daemons/common/control_message.h"

#include <algorithm>
#include <iterator>

#include "daemons/common/address.h"
#include "daemons/common/bytes.h"

namespace mcastd
{
namespace
{

// What opens every message: a mark against bytes of something else, and the version of the layout.
constexpr uint16_t MARK = 0x4D43;
constexpr uint8_t VERSION = 1;

constexpr size_t MESSAGE_TEXT_MAX = 512;

// What a reply holds before its message and rows: mark, version, status, table, number of rows, error index,
// length of the message.
constexpr size_t REPLY_FIXED = 2 + 1 + 1 + 2 + 2 + 4 + 2;

// Room for rows beside the longest message. A row has one byte at least, so that their number fits its field.
constexpr size_t ROWS_MAX = CONTROL_REPLY_MAX - REPLY_FIXED - MESSAGE_TEXT_MAX;
static_assert(ROWS_MAX <= UINT16_MAX);

constexpr const char *STATUS_NAMES[] = {
    "done",          "no_entry",        "end_of_table", "malformed", "unknown_operation",
    "unknown_table", "unknown_setting", "bad_value",    "failed",
};
static_assert(std::size(STATUS_NAMES) == static_cast<size_t>(ControlStatus::Count));

bool is_family(uint64_t family)
{
    return family == MCAST_FAMILY_IPV4 || family == MCAST_FAMILY_IPV6;
}

std::string read_text(ByteReader &reader, size_t limit)
{
    const size_t size = reader.u16();
    if (size > limit) {
        reader.fail();
    }
    const auto bytes = reader.take(size);
    return {bytes.begin(), bytes.end()};
}

uint16_t read_family(ByteReader &reader)
{
    const uint8_t family = reader.u8();
    if (!is_family(family)) {
        reader.fail();
    }
    return family;
}

MCAST_ADDR_S read_address(ByteReader &reader)
{
    MCAST_ADDR_S address{};
    address.family = read_family(reader);
    const auto bytes = reader.take(address_size(address.family));
    std::copy(bytes.begin(), bytes.end(), address.address);
    return address;
}

bool read_truth(ByteReader &reader)
{
    const uint8_t value = reader.u8();
    if (value > 1) {
        reader.fail();
    }
    return value == 1;
}

std::vector<uint32_t> read_interfaces(ByteReader &reader)
{
    std::vector<uint32_t> if_indexes;
    for (unsigned count = reader.u8(); count > 0 && !reader.failed(); --count) {
        if_indexes.push_back(reader.u32());
    }
    return if_indexes;
}

ControlField read_field(ByteReader &reader)
{
    switch (static_cast<FieldType>(reader.u8())) {
    case FieldType::None:
        return {};
    case FieldType::Number:
        return ControlField::number(reader.u64());
    case FieldType::Counter:
        return ControlField::counter(reader.u64());
    case FieldType::Seconds:
        return ControlField::seconds(reader.u64());
    case FieldType::Interface:
        return ControlField::interface(reader.u32());
    case FieldType::Truth:
        return ControlField::truth(read_truth(reader));
    case FieldType::Family:
        return ControlField::family(read_family(reader));
    case FieldType::Address:
        return ControlField::address(read_address(reader));
    case FieldType::Text:
        return ControlField::text(read_text(reader, ControlField::TEXT_MAX));
    case FieldType::Interfaces:
        return ControlField::interfaces(read_interfaces(reader));
    default:
        reader.fail();
        return {};
    }
}

ControlFields read_fields(ByteReader &reader)
{
    ControlFields fields;
    const unsigned count = reader.u8();
    if (count > CONTROL_FIELDS_MAX) {
        reader.fail();
    }
    for (unsigned i = 0; i < count && !reader.failed(); ++i) {
        fields.push_back(read_field(reader));
    }
    return fields;
}

void write_text(ByteWriter &writer, const std::string &text, size_t limit)
{
    if (text.size() > limit) {
        writer.fail();
    }
    writer.u16(static_cast<uint16_t>(text.size()));
    writer.put(reinterpret_cast<const uint8_t *>(text.data()), text.size());
}

void write_address(ByteWriter &writer, const MCAST_ADDR_S &address)
{
    if (!is_family(address.family)) {
        writer.fail();
    }
    writer.u8(static_cast<uint8_t>(address.family));
    writer.put(address.address, address_size(address.family));
}

void write_interfaces(ByteWriter &writer, const std::vector<uint32_t> &if_indexes)
{
    if (if_indexes.size() > ControlField::INTERFACES_MAX) {
        writer.fail();
    }
    writer.u8(static_cast<uint8_t>(if_indexes.size()));
    for (const uint32_t if_index : if_indexes) {
        writer.u32(if_index);
    }
}

void write_field(ByteWriter &writer, const ControlField &field)
{
    writer.u8(static_cast<uint8_t>(field.type()));
    switch (field.type()) {
    case FieldType::Number:
    case FieldType::Counter:
    case FieldType::Seconds:
        writer.u64(field.as_number());
        break;
    case FieldType::Interface:
        writer.u32(field.as_interface());
        break;
    case FieldType::Truth:
    case FieldType::Family:
        writer.u8(static_cast<uint8_t>(field.as_number()));
        break;
    case FieldType::Address:
        write_address(writer, field.as_address());
        break;
    case FieldType::Text:
        write_text(writer, field.as_text(), ControlField::TEXT_MAX);
        break;
    case FieldType::Interfaces:
        write_interfaces(writer, field.as_interfaces());
        break;
    default:
        break;
    }
}

void write_fields(ByteWriter &writer, const ControlFields &fields)
{
    if (fields.size() > CONTROL_FIELDS_MAX) {
        writer.fail();
    }
    writer.u8(static_cast<uint8_t>(fields.size()));
    for (const ControlField &each : fields) {
        write_field(writer, each);
    }
}

bool read_opening(ByteReader &reader)
{
    return reader.u16() == MARK && reader.u8() == VERSION;
}

void write_opening(ByteWriter &writer)
{
    writer.u16(MARK);
    writer.u8(VERSION);
}

bool is_whole(const ByteReader &reader)
{
    return !reader.failed() && reader.left() == 0;
}

} // namespace

const char *control_status_name(ControlStatus status)
{
    return STATUS_NAMES[static_cast<size_t>(status)];
}

std::vector<uint8_t> encode(const ControlRequest &request)
{
    std::vector<uint8_t> bytes(CONTROL_REQUEST_MAX);
    ByteWriter writer(bytes);
    write_opening(writer);
    writer.u8(static_cast<uint8_t>(request.operation));
    writer.u16(request.table);
    writer.u16(request.row_limit);
    write_fields(writer, request.key);
    write_fields(writer, request.values);
    bytes.resize(writer.failed() ? 0 : writer.written());
    return bytes;
}

bool decode(std::span<const uint8_t> bytes, ControlRequest *request)
{
    ByteReader reader(bytes);
    if (!read_opening(reader)) {
        return false;
    }
    request->operation = static_cast<ControlOperation>(reader.u8());
    request->table = reader.u16();
    request->row_limit = reader.u16();
    request->key = read_fields(reader);
    request->values = read_fields(reader);
    return is_whole(reader);
}

bool decode(std::span<const uint8_t> bytes, ControlReply *reply)
{
    ByteReader reader(bytes);
    if (!read_opening(reader)) {
        return false;
    }
    const uint8_t status = reader.u8();
    if (status >= static_cast<uint8_t>(ControlStatus::Count)) {
        return false;
    }
    reply->status = static_cast<ControlStatus>(status);
    reply->table = reader.u16();
    const unsigned row_count = reader.u16();
    reply->error_index = reader.u32();
    reply->message = read_text(reader, MESSAGE_TEXT_MAX);
    reply->rows.clear();
    for (unsigned i = 0; i < row_count && !reader.failed(); ++i) {
        reply->rows.push_back(read_fields(reader));
    }
    return is_whole(reader);
}

ControlReplyWriter::ControlReplyWriter(uint16_t table) : table_(table), rows_(ROWS_MAX)
{
}

bool ControlReplyWriter::add_row(const ControlFields &row)
{
    ByteWriter writer(std::span<uint8_t>(rows_).subspan(used_));
    write_fields(writer, row);
    if (writer.failed()) {
        return false;
    }
    used_ += writer.written();
    ++row_count_;
    return true;
}

std::vector<uint8_t> ControlReplyWriter::finish(ControlStatus status, uint32_t error_index,
                                                const std::string &message) const
{
    std::vector<uint8_t> bytes(CONTROL_REPLY_MAX);
    ByteWriter writer(bytes);
    write_opening(writer);
    writer.u8(static_cast<uint8_t>(status));
    writer.u16(table_);
    writer.u16(static_cast<uint16_t>(row_count_));
    writer.u32(error_index);
    write_text(writer, message.substr(0, MESSAGE_TEXT_MAX), MESSAGE_TEXT_MAX);
    writer.put(rows_.data(), used_);
    bytes.resize(writer.written());
    return bytes;
}

} // namespace mcastd
