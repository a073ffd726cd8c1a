/*
 * Reading a daemon's tables through the registry of its control endpoint, as a client does.
 */
#ifndef TESTS_DAEMONS_CONTROL_TABLE_H
#define TESTS_DAEMONS_CONTROL_TABLE_H

#include <cstdlib>
#include <string>
#include <vector>

#include "daemons/common/control_registry.h"

namespace control_test
{

inline mcastd::ControlReply ask(mcastd::ControlRegistry &registry, const mcastd::ControlRequest &request)
{
    mcastd::ControlReply reply;
    if (!decode(registry.answer(encode(request)), &reply)) {
        std::abort();
    }
    return reply;
}

// All rows, at most limit a request (0: as many as fit), each request going on after the last row.
inline std::vector<mcastd::ControlFields> table(mcastd::ControlRegistry &registry,
                                                const mcastd::ControlSchema &schema, uint16_t limit = 0,
                                                const mcastd::ControlFields &from = {})
{
    std::vector<mcastd::ControlFields> rows;
    mcastd::ControlRequest request;
    request.table = schema.number;
    request.row_limit = limit;
    request.key = from;
    mcastd::ControlReply reply = ask(registry, request);
    while (reply.status == mcastd::ControlStatus::Done) {
        rows.insert(rows.end(), reply.rows.begin(), reply.rows.end());
        request.key.assign(rows.back().begin(),
                           rows.back().begin() + static_cast<std::ptrdiff_t>(schema.key_size));
        reply = ask(registry, request);
    }
    if (reply.status != mcastd::ControlStatus::EndOfTable) {
        std::abort();
    }
    return rows;
}

// The row with the key; none when there is no such row.
inline mcastd::ControlFields row(mcastd::ControlRegistry &registry, const mcastd::ControlSchema &schema,
                                 const mcastd::ControlFields &key)
{
    mcastd::ControlRequest request;
    request.operation = mcastd::ControlOperation::Get;
    request.table = schema.number;
    request.key = key;
    const mcastd::ControlReply reply = ask(registry, request);
    return reply.rows.empty() ? mcastd::ControlFields{} : reply.rows[0];
}

// The reply to a command.
inline mcastd::ControlReply command(mcastd::ControlRegistry &registry, uint16_t number,
                                    const mcastd::ControlFields &arguments)
{
    mcastd::ControlRequest request;
    request.operation = mcastd::ControlOperation::Command;
    request.table = number;
    request.values = arguments;
    return ask(registry, request);
}

} // namespace control_test

#endif
