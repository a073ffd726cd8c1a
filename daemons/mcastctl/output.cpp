#include "daemons/mcastctl/output.h"

#include <algorithm>
#include <cctype>
#include <cstdio>
#include <utility>

#include "daemons/common/address.h"
#include "daemons/mcastctl/text.h"

namespace mcastctl
{
namespace
{

using mcastd::ControlColumn;
using mcastd::ControlField;
using mcastd::FieldType;

std::string heading_of(std::string name)
{
    std::replace(name.begin(), name.end(), '_', ' ');
    for (const char *unit : {"s", "ms"}) {
        const std::string suffix = std::string(" ") + unit;
        if (name.ends_with(suffix)) {
            name = name.substr(0, name.size() - suffix.size()) + " (" + unit + ")";
        }
    }
    name[0] = static_cast<char>(std::toupper(static_cast<unsigned char>(name[0])));
    return name;
}

bool is_number(FieldType type)
{
    return type == FieldType::Number || type == FieldType::Counter || type == FieldType::Seconds;
}

std::string interfaces_text(const std::vector<uint32_t> &if_indexes)
{
    std::string text;
    for (const uint32_t if_index : if_indexes) {
        text += (text.empty() ? "" : ",") + interface_text(if_index);
    }
    return text.empty() ? "-" : text;
}

void add_member(mcastd::Json &json, const ControlColumn &column, const ControlField &field)
{
    const std::string name = column.name;
    const std::string timed = name + "_s";
    switch (field.type()) {
    case FieldType::None:
        json.null(column.type == FieldType::Seconds ? timed.c_str() : column.name);
        break;
    case FieldType::Number:
    case FieldType::Counter:
        json.number(column.name, field.as_number());
        break;
    case FieldType::Seconds:
        json.number(timed.c_str(), field.as_number());
        break;
    case FieldType::Truth:
        json.truth(column.name, field.as_number() != 0);
        break;
    case FieldType::Interface:
        if (field.as_interface() == 0) {
            json.null(column.name);
        } else {
            json.text(column.name, interface_text(field.as_interface()));
        }
        json.number((name + "_index").c_str(), field.as_number());
        break;
    case FieldType::Interfaces:
        json.open(column.name, '[');
        for (const uint32_t if_index : field.as_interfaces()) {
            json.text(nullptr, interface_text(if_index));
        }
        json.close(']');
        break;
    default:
        json.text(column.name, field_text(field));
        break;
    }
}

} // namespace

ControlField family_of(const DaemonInfo &daemon)
{
    return daemon.family == 0 ? ControlField() : ControlField::family(daemon.family);
}

bool has_column(const mcastd::ControlSchema &schema, std::string_view name)
{
    return std::any_of(schema.columns.begin(), schema.columns.end(),
                       [name](const ControlColumn &column) { return name == column.name; });
}

std::string field_text(const ControlField &field)
{
    switch (field.type()) {
    case FieldType::Number:
    case FieldType::Counter:
        return std::to_string(field.as_number());
    case FieldType::Seconds:
        return duration_text(field.as_number());
    case FieldType::Truth:
        return field.as_number() != 0 ? "yes" : "no";
    case FieldType::Family:
        return mcastd::family_name(field.as_number());
    case FieldType::Interface:
        return field.as_interface() == 0 ? "-" : interface_text(field.as_interface());
    case FieldType::Interfaces:
        return interfaces_text(field.as_interfaces());
    case FieldType::Address:
        return address_text(field.as_address());
    case FieldType::Text:
        return field.as_text();
    default:
        return "-";
    }
}

void TextTable::add_column(const std::string &name, bool to_the_right)
{
    const std::string heading = heading_of(name);
    columns_.push_back({heading, to_the_right, heading.size()});
}

void TextTable::add_row(std::vector<std::string> cells)
{
    cells.resize(columns_.size());
    for (size_t i = 0; i < cells.size(); ++i) {
        columns_[i].width = std::max(columns_[i].width, cells[i].size());
    }
    rows_.push_back(std::move(cells));
}

void TextTable::print_row(const std::vector<std::string> &cells) const
{
    std::string line;
    for (size_t i = 0; i < columns_.size(); ++i) {
        const std::string padding(columns_[i].width - cells[i].size(), ' ');
        line += i == 0 ? "" : "  ";
        line += columns_[i].to_the_right ? padding + cells[i] : cells[i] + padding;
    }
    line.erase(line.find_last_not_of(' ') + 1);
    line += '\n';
    std::fwrite(line.data(), 1, line.size(), stdout);
}

void TextTable::print() const
{
    if (rows_.empty()) {
        return;
    }
    std::vector<std::string> headings;
    for (const Column &column : columns_) {
        headings.push_back(column.heading);
    }
    print_row(headings);
    for (const auto &row : rows_) {
        print_row(row);
    }
}

Output::Output(const mcastd::ControlSchema &schema, bool as_json, bool with_daemon)
    : schema_(schema), as_json_(as_json), with_daemon_(with_daemon),
      with_family_(with_daemon && !has_column(schema, "family"))
{
    if (as_json_) {
        json_.open(nullptr, '[');
        return;
    }
    if (with_daemon_) {
        table_.add_column("daemon", false);
    }
    if (with_family_) {
        table_.add_column("family", false);
    }
    for (const ControlColumn &column : schema_.columns) {
        table_.add_column(column.name, is_number(column.type));
    }
}

void Output::add(const DaemonInfo &daemon, const mcastd::ControlFields &row)
{
    if (as_json_) {
        json_.open(nullptr, '{', true);
        if (with_daemon_) {
            json_.text("daemon", daemon.name);
        }
        if (with_family_) {
            add_member(json_, {"family", FieldType::Family}, family_of(daemon));
        }
        for (size_t i = 0; i < row.size(); ++i) {
            add_member(json_, schema_.columns[i], row[i]);
        }
        json_.close('}');
        return;
    }
    std::vector<std::string> cells;
    if (with_daemon_) {
        cells.push_back(daemon.name);
    }
    if (with_family_) {
        cells.push_back(field_text(family_of(daemon)));
    }
    for (const ControlField &field : row) {
        cells.push_back(field_text(field));
    }
    table_.add_row(std::move(cells));
}

bool Output::finish()
{
    if (as_json_) {
        json_.close(']');
        const std::string text = json_.take();
        std::fwrite(text.data(), 1, text.size(), stdout);
    } else {
        table_.print();
    }
    return std::fflush(stdout) == 0 && std::ferror(stdout) == 0;
}

} // namespace mcastctl
