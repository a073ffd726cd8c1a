/*
 * The messages of the control endpoint, as mcastctl and the daemons exchange them: one request datagram, one
 * reply datagram. docs/control.md draws the layout; all numbers are in network order.
 *
 * This is the only code that steps through the bytes of either. A reader never leaves its bytes and stays
 * failed once it failed; a writer never leaves its room and says so when something did not fit.
 */
#ifndef DAEMONS_COMMON_CONTROL_MESSAGE_H
#define DAEMONS_COMMON_CONTROL_MESSAGE_H

#include <cstddef>
#include <cstdint>
#include <span>
#include <string>
#include <vector>

#include "daemons/common/control_field.h"

namespace mcastd
{

constexpr size_t CONTROL_REQUEST_MAX = 2048;
constexpr size_t CONTROL_REPLY_MAX = 32768;

enum class ControlOperation : uint8_t {
    Get = 1,     // the row with the key
    GetNext = 2, // the rows after the key, as many as fit; from the first without a key
    Set = 3,     // the values are pairs of a setting's name and its value, all taken or none
    Command = 4, // the table number is the command's; the values are its arguments
};

// What a reply says of its request.
enum class ControlStatus : uint8_t {
    Done = 0,
    NoEntry = 1,    // no row with this key
    EndOfTable = 2, // no row after this key
    Malformed = 3,
    UnknownOperation = 4,
    UnknownTable = 5, // or command
    UnknownSetting = 6,
    BadValue = 7,
    Failed = 8, // the daemon could not, for a reason of its own
    Count
};

// How the status is called in counters and messages.
const char *control_status_name(ControlStatus status);

// error_index when no value is to blame.
constexpr uint32_t CONTROL_NO_INDEX = 0xFFFFFFFF;

struct ControlRequest {
    ControlOperation operation = ControlOperation::GetNext;
    uint16_t table = 0;
    uint16_t row_limit = 0; // most rows of the reply; 0: as many as fit
    ControlFields key;
    ControlFields values;
};

struct ControlReply {
    ControlStatus status = ControlStatus::Failed;
    uint16_t table = 0;
    uint32_t error_index = CONTROL_NO_INDEX; // which of the request's values is wrong
    std::string message;                     // for people; may be empty
    std::vector<ControlFields> rows;
};

// The request's bytes; none when it is longer than CONTROL_REQUEST_MAX or a field is beyond its limits.
std::vector<uint8_t> encode(const ControlRequest &request);

// False, with *request in any state, for anything but exactly one whole request. An operation that is not
// known is no reason: the caller sees to it.
bool decode(std::span<const uint8_t> bytes, ControlRequest *request);

// False, with *reply in any state, for anything but exactly one whole reply.
bool decode(std::span<const uint8_t> bytes, ControlReply *reply);

// Builds a reply in CONTROL_REPLY_MAX bytes.
class ControlReplyWriter
{
public:
    explicit ControlReplyWriter(uint16_t table);

    // Appends a row. False, with nothing appended, when it does not fit.
    bool add_row(const ControlFields &row);

    size_t row_count() const
    {
        return row_count_;
    }

    // The reply with the rows so far. A long message is cut.
    std::vector<uint8_t> finish(ControlStatus status, uint32_t error_index = CONTROL_NO_INDEX,
                                const std::string &message = {}) const;

private:
    uint16_t table_;
    size_t row_count_ = 0;
    std::vector<uint8_t> rows_; // of which used_ bytes are written
    size_t used_ = 0;
};

} // namespace mcastd

#endif
