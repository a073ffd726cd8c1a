/*
 * What a daemon offers at its control endpoint: tables, settings and commands, and the answer to a request.
 *
 *     ControlRegistry registry;
 *     registry.add_table(GROUP_TABLE, [&](ControlRows &rows) { ... rows.add({...}) ... });
 *     registry.add_setting(INTERFACE_TABLE, {"query_interval", FieldType::Seconds, check, apply});
 *     registry.add_command(7, [&](const ControlFields &arguments) { ... });
 *
 * Nothing here outlives a request: a walk is resumed by key, so that rows may come and go between requests,
 * and each row that stays is shown once.
 */
#ifndef DAEMONS_COMMON_CONTROL_REGISTRY_H
#define DAEMONS_COMMON_CONTROL_REGISTRY_H

#include <array>
#include <functional>
#include <map>
#include <span>
#include <string>
#include <vector>

#include "daemons/common/control_message.h"
#include "daemons/common/control_tables.h"

namespace mcastd
{

// Where a table puts its rows, in key order. Rows that were not asked for, because they come before the
// wanted position, are passed over: a small table adds all of its rows, a large one begins near key().
class ControlRows
{
public:
    enum class Want { Exactly, After };

    ControlRows(const ControlSchema &schema, const ControlFields &key, Want want, size_t limit,
                ControlReplyWriter &reply);

    // Rows after this key are wanted, or the row with it. It may hold fewer fields than the table's key, none
    // for the first row; those that it holds have the types of the columns.
    const ControlFields &key() const
    {
        return key_;
    }

    // Whether a row that begins with these fields can still be wanted; false for those before the position.
    // Saves making whole rows.
    bool wants(const ControlFields &leading) const;

    // Offers a row, a field for each column. False when no more rows are taken.
    bool add(const ControlFields &row);

    bool full() const
    {
        return full_;
    }

    // Whether a row broke the rules of the table: a defect of the daemon.
    bool broken() const
    {
        return broken_;
    }

private:
    bool fits_schema(const ControlFields &row) const;

    const ControlSchema &schema_;
    const ControlFields &key_;
    Want want_;
    size_t limit_;
    ControlReplyWriter &reply_;
    bool full_ = false;
    bool broken_ = false;
};

struct ControlSetting {
    const char *name;
    FieldType type;
    // Whether the value may be set for the key, a prefix of the table's or empty for all: an empty text, or
    // what is wrong.
    std::function<std::string(const ControlFields &key, const ControlField &value)> check;
    // Sets it. Called after check, and after the checks of all other values of the request, agreed.
    std::function<void(const ControlFields &key, const ControlField &value)> apply;
};

// What a command answers.
struct ControlOutcome {
    ControlStatus status = ControlStatus::Done;
    uint32_t error_index = CONTROL_NO_INDEX; // the argument that is wrong
    std::string message;
};

class ControlRegistry
{
public:
    using Table = std::function<void(ControlRows &rows)>;
    using Command = std::function<ControlOutcome(const ControlFields &arguments)>;

    // The schema must outlive the registry. A table or command under a number that is taken is a defect of
    // the daemon and throws std::logic_error.
    void add_table(const ControlSchema &schema, Table table);
    void add_setting(const ControlSchema &schema, ControlSetting setting);
    void add_command(uint16_t number, Command command);

    // The reply to the bytes of one request, whatever they are.
    std::vector<uint8_t> answer(std::span<const uint8_t> bytes);

    // Requests answered with the status.
    uint64_t answered(ControlStatus status) const
    {
        return answered_[static_cast<size_t>(status)];
    }

private:
    struct TableEntry {
        const ControlSchema *schema;
        Table table;
        std::vector<ControlSetting> settings;
    };

    ControlOutcome act(const ControlRequest &request, ControlReplyWriter &reply);
    ControlOutcome list(const TableEntry &entry, const ControlRequest &request, ControlReplyWriter &reply);
    static ControlOutcome set(const TableEntry &entry, const ControlRequest &request);

    std::map<uint16_t, TableEntry> tables_;
    std::map<uint16_t, Command> commands_;
    std::array<uint64_t, static_cast<size_t>(ControlStatus::Count)> answered_{};
};

} // namespace mcastd

#endif
