/*
 * Tables of what is done with each type of message, made at compile time from rows that name their type. The
 * order of the rows does not matter, and types without one are left out. A type that is named twice or lies
 * beyond the table does not compile.
 */
#ifndef SRC_EVENT_TABLE_BY_TYPE_H
#define SRC_EVENT_TABLE_BY_TYPE_H

#include <stddef.h>
#include <stdint.h>

namespace mcast
{

template <typename Row, size_t kTypes> struct TableByType {
    Row rows[kTypes];
    bool named[kTypes];

    /* NULL for a type without a row. */
    const Row *Find(uint16_t type) const
    {
        return type < kTypes && named[type] ? &rows[type] : nullptr;
    }
};

template <typename Row> struct TypedRow {
    uint16_t type;
    Row row;
};

void TypeIsNamedTwice(); /* defined nowhere: its call ends the compilation */

template <size_t kTypes, typename Row, size_t kRows>
consteval TableByType<Row, kTypes> MakeTableByType(const TypedRow<Row> (&typed_rows)[kRows])
{
    TableByType<Row, kTypes> table = {};
    for (const TypedRow<Row> &typed : typed_rows) {
        if (table.named[typed.type]) {
            TypeIsNamedTwice();
        }
        table.named[typed.type] = true;
        table.rows[typed.type] = typed.row;
    }
    return table;
}

} // namespace mcast

#endif
