#include "daemons/gmpd/backup_message.h"

#include "daemons/common/bytes.h"
#include "mcast/interface_registry.h"

namespace gmpd
{
namespace
{

constexpr uint8_t VERSION = 1;

} // namespace

std::vector<uint8_t> encode(const BackupMessage &message)
{
    std::vector<uint8_t> bytes(BACKUP_MESSAGE_MAX);
    mcastd::ByteWriter writer(bytes);
    writer.u8(VERSION);
    writer.u8(static_cast<uint8_t>(message.kind));
    writer.u16(static_cast<uint16_t>(message.records.size()));
    for (const BackupRecord &record : message.records) {
        writer.u32(record.user.user_id);
        writer.u16(record.user.node);
        writer.u16(0);
        writer.u32(record.index);
    }
    bytes.resize(writer.written());
    return bytes;
}

std::optional<BackupMessage> decode_backup(std::span<const uint8_t> bytes)
{
    mcastd::ByteReader reader(bytes);
    BackupMessage message;
    const uint8_t version = reader.u8();
    const uint8_t kind = reader.u8();
    const uint16_t count = reader.u16();

    if (version != VERSION || kind < static_cast<uint8_t>(BackupKind::Begin) ||
        kind > static_cast<uint8_t>(BackupKind::End) || count > BACKUP_RECORDS_MAX) {
        return std::nullopt;
    }
    message.kind = static_cast<BackupKind>(kind);
    for (uint16_t i = 0; i < count; ++i) {
        BackupRecord record;

        record.user.user_id = reader.u32();
        record.user.node = reader.u16();
        if (reader.u16() != 0) {
            return std::nullopt;
        }
        record.index = reader.u32();
        if (record.index != 0 && MCAST_IsMUAIntf(record.index) != MCAST_TRUE) {
            return std::nullopt;
        }
        message.records.push_back(record);
    }
    const bool has_records = message.kind == BackupKind::Users;

    if (reader.failed() || reader.left() != 0 || has_records != !message.records.empty()) {
        return std::nullopt;
    }
    return message;
}

} // namespace gmpd
