/*
 * Rows of a table for people and for programs.
 */
#ifndef DAEMONS_MCASTCTL_OUTPUT_H
#define DAEMONS_MCASTCTL_OUTPUT_H

#include <string>
#include <string_view>
#include <vector>

#include "daemons/common/control_tables.h"
#include "daemons/common/json.h"
#include "daemons/mcastctl/daemon_list.h"

namespace mcastctl
{

// Whether the table has a column of the name.
bool has_column(const mcastd::ControlSchema &schema, std::string_view name);

// The family that the daemon serves, none for both.
mcastd::ControlField family_of(const DaemonInfo &daemon);

// A value as text: addresses and interfaces as the library prints them, "-" for none.
std::string field_text(const mcastd::ControlField &field);

// Columns of text, aligned. The widths follow from all rows, which are kept until print.
class TextTable
{
public:
    // A heading is a column's name with blanks; numbers are set to the right.
    void add_column(const std::string &name, bool to_the_right);

    // Adds a row of a text for each column.
    void add_row(std::vector<std::string> cells);

    // Writes heading and rows to standard output; nothing when there are no rows.
    void print() const;

private:
    struct Column {
        std::string heading;
        bool to_the_right;
        size_t width;
    };

    void print_row(const std::vector<std::string> &cells) const;

    std::vector<Column> columns_;
    std::vector<std::vector<std::string>> rows_;
};

// Where a command's rows go: a text table, or with as_json a list with an object for each row, whose members
// are called like the columns. with_daemon puts the daemon before the columns, and its family, too, unless
// the table has one. Interfaces have their index beside the name; durations are seconds and their
// names end in _s; what is absent is null.
class Output
{
public:
    Output(const mcastd::ControlSchema &schema, bool as_json, bool with_daemon);

    void add(const DaemonInfo &daemon, const mcastd::ControlFields &row);

    // Prints what was added. False when it cannot be written.
    bool finish();

private:
    const mcastd::ControlSchema &schema_;
    bool as_json_;
    bool with_daemon_;
    bool with_family_;
    TextTable table_;
    mcastd::Json json_;
};

} // namespace mcastctl

#endif
