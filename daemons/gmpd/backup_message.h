/*
 * What an active daemon tells its standbys, one message a packet, integers in network order:
 *
 *        0        1        2                 4
 *       +--------+--------+-----------------+----------------------------------------
 *       | version| kind   | records         | records of 12 bytes
 *       +--------+--------+-----------------+----------------------------------------
 *
 *        0                 4        6        8                 12
 *       +-----------------+--------+--------+-----------------+
 *       | user ID         | node   | zero   | interface index |   0: the user has none any more
 *       +-----------------+--------+--------+-----------------+
 *
 * Begin comes first: what follows is everything. End: everything was said, what follows are changes.
 */
#ifndef DAEMONS_GMPD_BACKUP_MESSAGE_H
#define DAEMONS_GMPD_BACKUP_MESSAGE_H

#include <cstdint>
#include <optional>
#include <span>
#include <vector>

#include "daemons/gmpd/user_indexes.h"

namespace gmpd
{

enum class BackupKind : uint8_t { Begin = 1, Users = 2, End = 3 };

// A user and its index, 0 for none.
struct BackupRecord {
    UserKey user;
    uint32_t index = 0;

    bool operator==(const BackupRecord &) const = default;
};

struct BackupMessage {
    BackupKind kind = BackupKind::Begin;
    std::vector<BackupRecord> records; // of Users alone

    bool operator==(const BackupMessage &) const = default;
};

// The most records of a message, and the bytes that hold them.
constexpr size_t BACKUP_RECORDS_MAX = 100;
constexpr size_t BACKUP_MESSAGE_MAX = 4 + 12 * BACKUP_RECORDS_MAX;

// The bytes of a message of at most BACKUP_RECORDS_MAX records.
std::vector<uint8_t> encode(const BackupMessage &message);

// The message of these bytes, whatever they are; none unless they are exactly one.
std::optional<BackupMessage> decode_backup(std::span<const uint8_t> bytes);

} // namespace gmpd

#endif
