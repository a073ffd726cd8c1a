/*
 * The library hands a reply to a parser and keeps what the parser makes of it: a result for the library,
 * which decides by it where a walk goes on, and the decoded reply for us, which holds as many rows as the
 * daemon could fit into it.
 */
#include "daemons/mcastctl/client.h"

#include <algorithm>
#include <csignal>
#include <cstddef>
#include <cstdlib>
#include <memory>
#include <unistd.h>

#include "daemons/common/descriptor.h"
#include "mcast/mib.h"
#include "platform/device.h"

namespace mcastctl
{
namespace
{

using mcastd::ControlFields;
using mcastd::ControlOperation;
using mcastd::ControlReply;
using mcastd::ControlRequest;
using mcastd::ControlSchema;
using mcastd::ControlStatus;

constexpr unsigned ANSWER_TIMEOUT_S = 10;

std::string late_text; // what the signal handler says; changed only while no alarm is set

void time_is_up(int)
{
    const ssize_t written = write(STDERR_FILENO, late_text.data(), late_text.size());
    static_cast<void>(written);
    _exit(EXIT_FAILURE);
}

// The library waits for an answer as long as it takes; while one of these lives it takes a few seconds at
// most, or the process ends.
class Deadline
{
public:
    explicit Deadline(const Daemons &asked)
    {
        late_text = asked.size() == 1 ? "mcastctl: " : "mcastctl: one of these: ";
        for (const DaemonInfo *daemon : asked) {
            late_text += (daemon == asked.front() ? "" : ", ") + daemon_title(*daemon);
        }
        late_text += " does not answer\n";
        signal(SIGALRM, time_is_up);
        alarm(ANSWER_TIMEOUT_S);
    }
    ~Deadline()
    {
        alarm(0);
    }
    Deadline(const Deadline &) = delete;
    Deadline &operator=(const Deadline &) = delete;
};

// A request to one daemon and room for its reply.
struct Exchange {
    MCAST_MIB_REQUEST_S mib{};      // first: the library knows the record by it
    ControlReply *output = nullptr; // where the parser writes
    ControlReply reply;
    std::vector<uint8_t> request_bytes;
    std::vector<uint8_t> reply_bytes = std::vector<uint8_t>(mcastd::CONTROL_REPLY_MAX);

    void prepare(const ControlRequest &request)
    {
        request_bytes = encode(request);
        mib.request_length = request_bytes.size();
        mib.request = request_bytes.data();
        mib.reply_size = reply_bytes.size();
        mib.reply = reply_bytes.data();
        mib.result = MCAST_OK;
        output = &reply;
    }
};
static_assert(offsetof(Exchange, output) == sizeof(MCAST_MIB_REQUEST_S), "the parser's output follows");

MCAST_STATUS result_of(ControlStatus status)
{
    switch (status) {
    case ControlStatus::Done:
        return MCAST_OK;
    case ControlStatus::NoEntry:
        return MCAST_MIB_NO_ENTRY;
    case ControlStatus::EndOfTable:
        return MCAST_MIB_NO_NEXT;
    default:
        return MCAST_ERR_GENERAL;
    }
}

bool read_reply(const void *bytes, uint64_t length, ControlReply *reply)
{
    if (decode({static_cast<const uint8_t *>(bytes), length}, reply)) {
        return true;
    }
    *reply = ControlReply();
    reply->message = "the answer cannot be read; daemon and mcastctl may be of different versions";
    return false;
}

// For reading. A reply without rows to a request for some would let a walk go on for ever.
MCAST_STATUS parse_rows(const void *bytes, uint64_t length, void *output, void *, void *)
{
    ControlReply &reply = **static_cast<ControlReply **>(output);
    if (!read_reply(bytes, length, &reply)) {
        return MCAST_ERR_GENERAL;
    }
    if (reply.status == ControlStatus::Done && reply.rows.empty()) {
        reply.status = ControlStatus::EndOfTable;
    }
    return result_of(reply.status);
}

// For setting and commands. The error index goes where the library asks for it.
MCAST_STATUS parse_result(const void *bytes, uint64_t length, void *, void *, void *error_index)
{
    ControlReply reply;
    if (!read_reply(bytes, length, &reply)) {
        return MCAST_ERR_GENERAL;
    }
    if (error_index != nullptr) {
        *static_cast<uint32_t *>(error_index) = reply.error_index;
    }
    return result_of(reply.status);
}

constexpr const char UNKNOWN_TABLE_HINT[] = "this daemon does not have it";

std::string error_text(const DaemonInfo &daemon, const ControlReply &reply)
{
    const std::string reason = reply.message.empty() ? UNKNOWN_TABLE_HINT : reply.message;
    return daemon_title(daemon) + ": " + reason;
}

// Of the daemons that have a row, the one whose row comes next.
uint32_t choose_first(MCAST_MIB_REQUEST_S *const requests[], uint32_t count)
{
    uint32_t chosen = count;
    const auto first_row = [&](uint32_t at) -> const ControlFields & {
        return (*static_cast<ControlReply **>(MCAST_MIB_Output(requests[at])))->rows[0];
    };
    for (uint32_t i = 0; i < count; ++i) {
        if (requests[i]->result == MCAST_OK &&
            (chosen == count || mcastd::compare_keys(first_row(i), first_row(chosen), 1) < 0)) {
            chosen = i;
        }
    }
    return chosen;
}

// The exchanges of a walk, one a daemon, as the library takes them.
class Exchanges
{
public:
    Exchanges(const Daemons &daemons, const ControlRequest &request) : daemons_(daemons), request_(request)
    {
        for (const DaemonInfo *daemon : daemons) {
            exchanges_.push_back(std::make_unique<Exchange>());
            exchanges_.back()->prepare(request);
            endpoints_.push_back(&daemon->endpoint);
            requests_.push_back(&exchanges_.back()->mib);
        }
    }

    // Asks daemon *at, or those after it until one has a row; *at is then the one.
    bool next_in_turn(uint32_t *at)
    {
        const Deadline deadline(daemons_);
        return MCAST_MIB_GetNextByInet(endpoints_.data(), requests_.data(), count(), *at, parse_rows, at) ==
               MCAST_OK;
    }

    // Asks all daemons; *at is then the one whose row comes next.
    bool next_merged(uint32_t *at)
    {
        const Deadline deadline(daemons_);
        return MCAST_MIB_GetNextByIndex(endpoints_.data(), requests_.data(), count(), parse_rows,
                                        choose_first, at) == MCAST_OK;
    }

    const ControlReply &reply(uint32_t at) const
    {
        return exchanges_[at]->reply;
    }

    // Has the daemon go on after the last row that it gave.
    void go_on(uint32_t at, const ControlSchema &schema)
    {
        const ControlFields &last = exchanges_[at]->reply.rows.back();
        const size_t key_size = std::min(schema.key_size, last.size());
        request_.key.assign(last.begin(), last.begin() + static_cast<std::ptrdiff_t>(key_size));
        exchanges_[at]->prepare(request_);
    }

    // What came of the daemons, once none has more to give.
    Outcome outcome() const
    {
        Outcome outcome;
        for (size_t i = 0; i < exchanges_.size(); ++i) {
            const auto result = static_cast<MCAST_STATUS>(exchanges_[i]->mib.result);
            if (result == MCAST_MIB_NO_ENTRY) {
                outcome.unreachable.push_back(daemons_[i]);
            } else if (result != MCAST_OK && result != MCAST_MIB_NO_NEXT) {
                outcome.errors.push_back(error_text(*daemons_[i], exchanges_[i]->reply));
            }
        }
        return outcome;
    }

private:
    uint32_t count() const
    {
        return static_cast<uint32_t>(requests_.size());
    }

    const Daemons &daemons_;
    ControlRequest request_;
    std::vector<std::unique_ptr<Exchange>> exchanges_;
    std::vector<const MCAST_APP_ENDPOINT_S *> endpoints_;
    std::vector<MCAST_MIB_REQUEST_S *> requests_;
};

ControlRequest make_request(ControlOperation operation, uint16_t table, const ControlFields &key)
{
    ControlRequest request;
    request.operation = operation;
    request.table = table;
    request.key = key;
    return request;
}

// What came of one request to one daemon.
Outcome judge(const DaemonInfo &daemon, const Exchange &exchange, MCAST_STATUS result)
{
    Outcome outcome;
    if (exchange.mib.reply_length == 0) {
        outcome.unreachable.push_back(&daemon);
    } else if (result != MCAST_OK && result != MCAST_MIB_NO_ENTRY) {
        ControlReply reply;
        read_reply(exchange.reply_bytes.data(), exchange.mib.reply_length, &reply);
        outcome.errors.push_back(error_text(daemon, reply));
    }
    return outcome;
}

} // namespace

void append(Outcome *outcome, const Outcome &more)
{
    outcome->unreachable.insert(outcome->unreachable.end(), more.unreachable.begin(), more.unreachable.end());
    outcome->errors.insert(outcome->errors.end(), more.errors.begin(), more.errors.end());
}

Outcome walk_in_turn(const Daemons &daemons, const ControlSchema &schema, const ControlFields &from,
                     const RowVisitor &visitor)
{
    Exchanges exchanges(daemons, make_request(ControlOperation::GetNext, schema.number, from));
    uint32_t at = 0;
    while (exchanges.next_in_turn(&at)) {
        const std::vector<ControlFields> &rows = exchanges.reply(at).rows;
        const bool more = std::all_of(rows.begin(), rows.end(), [&](const ControlFields &row) {
            return row.size() != schema.columns.size() || visitor(*daemons[at], row);
        });
        if (more) {
            exchanges.go_on(at, schema);
        } else {
            ++at;
        }
    }
    return exchanges.outcome();
}

Outcome walk_merged(const Daemons &daemons, const ControlSchema &schema, const ControlFields &from,
                    const RowVisitor &visitor)
{
    ControlRequest request = make_request(ControlOperation::GetNext, schema.number, from);
    request.row_limit = 1; // only the next one of a daemon counts; the others' are asked for again
    Exchanges exchanges(daemons, request);
    uint32_t at;
    while (exchanges.next_merged(&at)) {
        const ControlFields &row = exchanges.reply(at).rows[0];
        if (row.size() == schema.columns.size() && !visitor(*daemons[at], row)) {
            break;
        }
        exchanges.go_on(at, schema);
    }
    return exchanges.outcome();
}

Outcome get_row(const Daemons &daemons, const ControlSchema &schema, const ControlFields &key,
                const RowVisitor &visitor)
{
    Outcome outcome;
    for (const DaemonInfo *daemon : daemons) {
        Exchange exchange;
        exchange.prepare(make_request(ControlOperation::Get, schema.number, key));
        const Deadline deadline({daemon});
        const MCAST_STATUS result = MCAST_MIB_Get(&daemon->endpoint, parse_rows, &exchange.mib);
        append(&outcome, judge(*daemon, exchange, result));
        if (result == MCAST_OK && exchange.reply.rows[0].size() == schema.columns.size()) {
            visitor(*daemon, exchange.reply.rows[0]);
        }
    }
    return outcome;
}

Outcome set_value(const DaemonInfo &daemon, const ControlSchema &schema, const ControlFields &key,
                  const char *setting, const mcastd::ControlField &value)
{
    ControlRequest request = make_request(ControlOperation::Set, schema.number, key);
    request.values = {mcastd::ControlField::text(setting), value};
    Exchange exchange;
    exchange.prepare(request);
    const Deadline deadline({&daemon});
    if (key.empty()) {
        return judge(daemon, exchange, MCAST_MIB_SetGlobal(&daemon.endpoint, parse_result, &exchange.mib));
    }
    uint32_t error_index;
    const MCAST_STATUS result =
        MCAST_MIB_SetTable(&daemon.endpoint, parse_result, &exchange.mib, &error_index);
    Outcome outcome = judge(daemon, exchange, result);
    if (error_index != MCAST_MIB_NO_ERROR_INDEX && !outcome.errors.empty()) {
        outcome.errors[0] += " (value " + std::to_string(error_index + 1) + " of the request)";
    }
    return outcome;
}

Outcome give_command(const DaemonInfo &daemon, uint16_t command, const ControlFields &arguments,
                     std::string *answer)
{
    ControlRequest request = make_request(ControlOperation::Command, command, {});
    request.values = arguments;
    Exchange exchange;
    exchange.prepare(request);
    const Deadline deadline({&daemon});
    const MCAST_STATUS result = MCAST_MIB_SetGlobal(&daemon.endpoint, parse_result, &exchange.mib);
    ControlReply reply;
    if (result == MCAST_OK && read_reply(exchange.reply_bytes.data(), exchange.mib.reply_length, &reply)) {
        *answer = reply.message;
    }
    return judge(daemon, exchange, result);
}

bool is_running(const DaemonInfo &daemon)
{
    const Deadline deadline({&daemon});
    uint32_t state = SERVICE_STATE_ABSENT;
    const auto node = static_cast<uint16_t>(LIP_GetLocalLip());
    if (SERVICE_GetStatus(node, daemon.endpoint.service, 0, &state) == 0 && state == SERVICE_STATE_RUNNING) {
        return MCAST_MIB_GetDaemonStatus(&daemon.endpoint) == MCAST_OK;
    }
    const mcastd::Descriptor connection(MCAST_Connect2APP(&daemon.endpoint));
    return connection.valid();
}

} // namespace mcastctl
