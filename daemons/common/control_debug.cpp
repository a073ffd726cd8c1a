#include "daemons/common/control_debug.h"

#include <map>
#include <string>

#include "daemons/common/trace.h"

namespace mcastd
{
namespace
{

// Does what one pair says. False with *error set when it cannot be, and nothing changed.
bool act(const ControlField &word, const ControlField &value, std::string *error)
{
    const std::string &what = word.as_text();
    const bool is_text = value.is(FieldType::Text);
    if (is_text && (what == "on" || what == "off")) {
        return trace_switch(value.as_text(), what == "on", error);
    }
    if (is_text && what == "interface") {
        return trace_filter_interface(value.as_text(), error);
    }
    if (what == "acl" && value.is(FieldType::Number) && value.as_number() <= UINT32_MAX) {
        return trace_filter_acl(static_cast<uint32_t>(value.as_number()), error);
    }
    *error = "not an argument of debug";
    return false;
}

ControlOutcome debug(const ControlFields &arguments)
{
    if (arguments.empty() || arguments.size() % 2 != 0) {
        return {ControlStatus::Malformed, CONTROL_NO_INDEX, "not pairs of a word and a value"};
    }
    const TraceSettings before = trace_settings();
    for (size_t i = 0; i < arguments.size(); i += 2) {
        std::string error;
        if (!act(arguments[i], arguments[i + 1], &error)) {
            trace_detail::g_settings = before;
            return {ControlStatus::BadValue, static_cast<uint32_t>(i / 2), error};
        }
    }
    return {};
}

void list_debug(ControlRows &rows)
{
    const TraceSettings &settings = trace_settings();
    std::map<std::string, bool> categories;
    uint32_t bit = 1;
    for (const char *name : trace_category_names()) {
        categories[name] = (settings.categories & bit) != 0;
        bit <<= 1;
    }
    for (const auto &[name, traced] : categories) {
        rows.add({
            ControlField::text(name),
            ControlField::truth(traced),
            settings.acl == MCAST_NONE ? ControlField() : ControlField::number(settings.acl),
            settings.if_index == 0 ? ControlField() : ControlField::interface(settings.if_index),
        });
    }
}

} // namespace

void offer_debug(ControlRegistry &registry)
{
    registry.add_command(COMMAND_DEBUG, debug);
    registry.add_table(DEBUG_TABLE, list_debug);
}

} // namespace mcastd
