#include "daemons/common/control_registry.h"

#include <algorithm>
#include <new>
#include <stdexcept>
#include <utility>

namespace mcastd
{
namespace
{

// Whether the key's fields have the types of the first columns.
bool is_key_of(const ControlSchema &schema, const ControlFields &key)
{
    if (key.size() > schema.key_size) {
        return false;
    }
    for (size_t i = 0; i < key.size(); ++i) {
        if (!key[i].is(schema.columns[i].type)) {
            return false;
        }
    }
    return true;
}

const ControlSetting *find_setting(const std::vector<ControlSetting> &settings, const ControlField &name)
{
    const auto found = std::find_if(settings.begin(), settings.end(), [&name](const ControlSetting &each) {
        return name.is(FieldType::Text) && name.as_text() == each.name;
    });
    return found == settings.end() ? nullptr : &*found;
}

ControlOutcome refuse(ControlStatus status, std::string message, uint32_t error_index = CONTROL_NO_INDEX)
{
    return {status, error_index, std::move(message)};
}

} // namespace

ControlRows::ControlRows(const ControlSchema &schema, const ControlFields &key, Want want, size_t limit,
                         ControlReplyWriter &reply)
    : schema_(schema), key_(key), want_(want), limit_(limit), reply_(reply)
{
}

bool ControlRows::wants(const ControlFields &leading) const
{
    const size_t common = std::min({leading.size(), key_.size(), schema_.key_size});
    const int order = compare_keys(leading, key_, common);
    if (want_ == Want::Exactly) {
        return order == 0;
    }
    // Nothing but the key itself can follow a whole key's fields.
    return order > 0 || (order == 0 && common < schema_.key_size);
}

bool ControlRows::fits_schema(const ControlFields &row) const
{
    if (row.size() != schema_.columns.size()) {
        return false;
    }
    for (size_t i = 0; i < row.size(); ++i) {
        const bool absent = row[i].is(FieldType::None) && i >= schema_.key_size;
        if (!absent && !row[i].is(schema_.columns[i].type)) {
            return false;
        }
    }
    return true;
}

bool ControlRows::add(const ControlFields &row)
{
    if (full_ || broken_) {
        return false;
    }
    if (!fits_schema(row)) {
        broken_ = true;
        return false;
    }
    const int order = compare_keys(row, key_, schema_.key_size);
    if (want_ == Want::Exactly ? order != 0 : order <= 0) {
        return true;
    }
    if (!reply_.add_row(row)) {
        full_ = true;
        broken_ = reply_.row_count() == 0; // too long for any reply
        return false;
    }
    full_ = limit_ != 0 && reply_.row_count() >= limit_;
    return !full_;
}

void ControlRegistry::add_table(const ControlSchema &schema, Table table)
{
    TableEntry &entry = tables_[schema.number];
    if (entry.table) {
        throw std::logic_error("the number of table " + std::string(schema.name) + " is taken");
    }
    entry.schema = &schema;
    entry.table = std::move(table);
}

void ControlRegistry::add_setting(const ControlSchema &schema, ControlSetting setting)
{
    TableEntry &entry = tables_[schema.number];
    entry.schema = &schema;
    entry.settings.push_back(std::move(setting));
}

void ControlRegistry::add_command(uint16_t number, Command command)
{
    if (!commands_.emplace(number, std::move(command)).second) {
        throw std::logic_error("the command number " + std::to_string(number) + " is taken");
    }
}

std::vector<uint8_t> ControlRegistry::answer(std::span<const uint8_t> bytes)
{
    ControlRequest request;
    const bool good = decode(bytes, &request);
    ControlReplyWriter reply(good ? request.table : 0);
    ControlOutcome outcome;
    try {
        outcome = good ? act(request, reply) : refuse(ControlStatus::Malformed, "not a request");
    } catch (const std::bad_alloc &) {
        outcome = refuse(ControlStatus::Failed, "out of memory");
    }
    ++answered_[static_cast<size_t>(outcome.status)];
    return reply.finish(outcome.status, outcome.error_index, outcome.message);
}

ControlOutcome ControlRegistry::act(const ControlRequest &request, ControlReplyWriter &reply)
{
    if (request.operation == ControlOperation::Command) {
        const auto command = commands_.find(request.table);
        return command == commands_.end() ? refuse(ControlStatus::UnknownTable, "no such command here")
                                          : command->second(request.values);
    }
    if (request.operation < ControlOperation::Get || request.operation > ControlOperation::Command) {
        return refuse(ControlStatus::UnknownOperation, "no such operation");
    }
    const auto entry = tables_.find(request.table);
    if (entry == tables_.end()) {
        return refuse(ControlStatus::UnknownTable, "no such table here");
    }
    if (!is_key_of(*entry->second.schema, request.key)) {
        return refuse(ControlStatus::Malformed, "not a key of this table");
    }
    return request.operation == ControlOperation::Set ? set(entry->second, request)
                                                      : list(entry->second, request, reply);
}

ControlOutcome ControlRegistry::list(const TableEntry &entry, const ControlRequest &request,
                                     ControlReplyWriter &reply)
{
    const bool exactly = request.operation == ControlOperation::Get;
    if (exactly && request.key.size() != entry.schema->key_size) {
        return refuse(ControlStatus::Malformed, "not a whole key of this table");
    }
    if (!entry.table) {
        return refuse(ControlStatus::UnknownTable, "this table is not for reading");
    }
    ControlRows rows(*entry.schema, request.key,
                     exactly ? ControlRows::Want::Exactly : ControlRows::Want::After,
                     exactly ? 1 : request.row_limit, reply);
    entry.table(rows);
    if (rows.broken()) {
        return refuse(ControlStatus::Failed, "a row of the table cannot be shown");
    }
    if (reply.row_count() == 0) {
        return {exactly ? ControlStatus::NoEntry : ControlStatus::EndOfTable, CONTROL_NO_INDEX, {}};
    }
    return {};
}

ControlOutcome ControlRegistry::set(const TableEntry &entry, const ControlRequest &request)
{
    const ControlFields &values = request.values;
    if (values.empty() || values.size() % 2 != 0) {
        return refuse(ControlStatus::Malformed, "not pairs of a setting and its value");
    }
    std::vector<const ControlSetting *> settings;
    for (size_t i = 0; i < values.size(); i += 2) {
        const auto index = static_cast<uint32_t>(i / 2);
        const ControlSetting *setting = find_setting(entry.settings, values[i]);
        if (setting == nullptr) {
            return refuse(ControlStatus::UnknownSetting, "no such setting here", index);
        }
        if (!values[i + 1].is(setting->type)) {
            return refuse(ControlStatus::BadValue, "a value of the wrong type", index);
        }
        const std::string wrong = setting->check(request.key, values[i + 1]);
        if (!wrong.empty()) {
            return refuse(ControlStatus::BadValue, wrong, index);
        }
        settings.push_back(setting);
    }
    for (size_t i = 0; i < settings.size(); ++i) {
        settings[i]->apply(request.key, values[2 * i + 1]);
    }
    return {};
}

} // namespace mcastd
