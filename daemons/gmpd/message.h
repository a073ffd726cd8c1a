/*
 * A received message in the terms that both families share. Versions are numbered as IGMP's: MLD version 1
 * counts as 2 and MLD version 2 as 3.
 */
#ifndef DAEMONS_GMPD_MESSAGE_H
#define DAEMONS_GMPD_MESSAGE_H

#include <cstdint>
#include <span>

#include "daemons/gmpd/address.h"
#include "daemons/gmpd/wire.h"

namespace gmpd
{

enum class MessageKind : uint8_t { Query, Report, Leave };

// Source addresses as they lie in a packet; counted and complete.
struct SourceList {
    uint16_t family = MCAST_FAMILY_IPV4;
    std::span<const uint8_t> bytes;

    size_t count() const
    {
        return bytes.size() / address_size(family);
    }
    // The index-th source; index is below count().
    Address at(size_t index) const
    {
        const size_t size = address_size(family);
        return make_address(family, bytes.subspan(index * size, size).data());
    }
};

// A checked message. It points into the packet and lives no longer than that.
struct Message {
    MessageKind kind = MessageKind::Query;
    uint8_t version = 0;
    Address sender{};
    Address destination{};
    Address group{};               // of a query (unspecified: general), version 1 and 2 report or leave
    uint32_t max_response_ms = 0;  // query
    bool suppress = false;         // version 3 query: the S flag
    uint8_t robustness = 0;        // version 3 query; 0 when above 7
    uint32_t query_interval_s = 0; // version 3 query
    SourceList sources{};          // version 3 query
    uint16_t record_count = 0;     // version 3 report
    Reader records{};              // version 3 report: all its records, for next_record
};

// Types of group records, RFC 3376 section 4.2.12.
enum class RecordType : uint8_t { IsInclude = 1, IsExclude, ToInclude, ToExclude, Allow, Block };

// One group record of a version 3 report.
struct Record {
    RecordType type = RecordType::IsInclude; // may hold a value that is no enumerator
    Address group{};
    SourceList sources{};
};

// Reads the next record. True and *record filled; false when the bytes left do not hold a whole record, with
// lies about its sources told apart by *source_count_lies.
bool next_record(Reader &records, uint16_t family, Record &record, bool &source_count_lies);

} // namespace gmpd

#endif
