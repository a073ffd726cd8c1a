/*
 * Both forms are made of the same fields, in the order of the message: a name, and a value that is text or a
 * number. What is at its default and may be left out of a command is left out here too.
 */
#include "daemons/uagent/describe.h"

#include <cstdio>

#include "daemons/common/address.h"
#include "daemons/common/json.h"
#include "daemons/common/user_messages.h"
#include "mcast/interface_name.h"
#include "mcast/usrauth_wire.h"

namespace uagent
{
namespace
{

using mcastd::is_unspecified;
using mcastd::text_or_star;

struct Field {
    const char *name;
    bool is_text;
    std::string text;
    uint64_t number;
};

using Fields = std::vector<Field>;

std::string hardware_text(const std::array<uint8_t, 6> &bytes)
{
    char buffer[sizeof("00:00:00:00:00:00")];
    snprintf(buffer, sizeof(buffer), "%02x:%02x:%02x:%02x:%02x:%02x", bytes[0], bytes[1], bytes[2], bytes[3],
             bytes[4], bytes[5]);
    return buffer;
}

void add_number(Fields *fields, const char *name, uint64_t value)
{
    fields->push_back({name, false, "", value});
}

void add_text(Fields *fields, const char *name, const std::string &value)
{
    fields->push_back({name, true, value, 0});
}

void add_number_if_set(Fields *fields, const char *name, uint64_t value)
{
    if (value != 0) {
        add_number(fields, name, value);
    }
}

void add_record(Fields *fields, const Command &command)
{
    char interface[MCAST_IF_NAME_SIZE] = "";
    MCAST_GetIfNameOrIndex(command.access_if_index, interface);
    add_text(fields, "interface", interface);
    add_text(fields, "address", text_or_star(command.address));
    if (!is_unspecified(command.second_address)) {
        add_text(fields, "second-address", text_or_star(command.second_address));
    }
    add_number_if_set(fields, "vrf", command.vrf_index);
    if (command.hardware_address != std::array<uint8_t, 6>{}) {
        add_text(fields, "hardware-address", hardware_text(command.hardware_address));
    }
    if (!command.name.empty()) {
        add_text(fields, "name", command.name);
    }
    add_number_if_set(fields, "attribute-24", command.attribute_24);
    add_number_if_set(fields, "attribute-32", command.attribute_32);
    add_number_if_set(fields, "attribute-34", command.attribute_34);
    add_number_if_set(fields, "attribute-36", command.attribute_36);
    add_number_if_set(fields, "attribute-40", command.attribute_40);
    add_number_if_set(fields, "attribute-70", command.attribute_70);
    add_number_if_set(fields, "attribute-80", command.attribute_80);
    add_number_if_set(fields, "attribute-84", command.attribute_84);
}

Fields fields_of(const Command &command, const Message &message)
{
    Fields fields;
    if (message.type < USRAUTH_MSG_REFRESH_BEGIN) {
        add_number(&fields, "user", command.user_id);
    }
    add_number(&fields, "node", command.node);
    add_number(&fields, "kind", command.kind);
    if (message.type == USRAUTH_MSG_ANNOUNCE || message.type == USRAUTH_MSG_UPDATE) {
        add_record(&fields, command);
    }
    return fields;
}

template <typename Visit> void visit_permissions(const Command &command, const Message &message, Visit visit)
{
    for (size_t i = 0; i < message.permission_count; ++i) {
        visit(command.permissions[message.first_permission + i]);
    }
}

} // namespace

std::string describe(const Command &command, const Message &message)
{
    std::string line = mcastd::USER_MESSAGE_NAMES[message.type];
    for (const Field &field : fields_of(command, message)) {
        line +=
            std::string(" ") + field.name + ' ' + (field.is_text ? field.text : std::to_string(field.number));
    }
    visit_permissions(command, message, [&](const Permission &permission) {
        line += " (" + text_or_star(permission.source) + ", " + text_or_star(permission.group) + ')';
    });
    return line;
}

std::string describe_json(const Command &command, const Message &message)
{
    mcastd::Json json;
    json.open(nullptr, '{', true);
    json.text("message", mcastd::USER_MESSAGE_NAMES[message.type]);
    for (const Field &field : fields_of(command, message)) {
        if (field.is_text) {
            json.text(field.name, field.text);
        } else {
            json.number(field.name, field.number);
        }
    }
    if (message.type == USRAUTH_MSG_GROUP_LIST) {
        json.open("groups", '[');
        visit_permissions(command, message, [&](const Permission &permission) {
            json.open(nullptr, '{');
            json.text("source", text_or_star(permission.source));
            json.text("group", text_or_star(permission.group));
            json.close('}');
        });
        json.close(']');
    }
    json.close('}');
    std::string line = json.take();
    line.pop_back(); // its newline
    return line;
}

} // namespace uagent
