/*
 * Traces of the daemons: what is processed and sent and why state changes, one line an event on standard
 * error beside the log, "name: trace: text". The operator chooses categories and may narrow the lines to what
 * an access list permits and to one interface:
 *
 *     trace(TraceCategory::Group, key, "%M, %N wanted on %P", &source, &group, if_index);
 *
 * The format is MCAST_vsprintf's, and so is the verdict: a source (%M) and group (%N) must pass the list, an
 * interface (%P) must be the chosen one; a line that names none of them passes. The compiler checks that each
 * conversion has an argument of its kind. A category that is off costs one comparison.
 *
 * Settings belong to the thread of the event loop.
 */
#ifndef DAEMONS_COMMON_TRACE_H
#define DAEMONS_COMMON_TRACE_H

#include <cstdint>
#include <span>
#include <string>
#include <string_view>
#include <type_traits>

#include "daemons/common/line_format.h"
#include "mcast/common.h"

namespace mcastd
{

enum class TraceCategory : uint32_t {
    Packet = 1u << 0,  // packets received, dropped and sent
    Group = 1u << 1,   // groups and sources: what is recorded, told and forgotten, and why
    Querier = 1u << 2, // the querier and its queries
    Channel = 1u << 3, // the channel to the MRIB process, its clients and records
    Route = 1u << 4,   // forwarding entries, virtual interfaces, what the kernel asks
    User = 1u << 5,    // authenticated users
};

// What the operator has asked for.
struct TraceSettings {
    uint32_t categories = 0;   // bits of TraceCategory
    uint32_t acl = MCAST_NONE; // access list, MCAST_NONE for none
    uint32_t if_index = 0;     // interface, 0 for every one
};

// The names of the categories, in the order of their bits.
std::span<const char *const> trace_category_names();

// The settings in force. They are changed by the calls below.
const TraceSettings &trace_settings();

// Switches the category of this name on or off, or each when the name is "all". False with *error set when
// there is no such category.
bool trace_switch(std::string_view name, bool on, std::string *error);

// Narrows the lines to sources and groups that the list permits; MCAST_NONE ends that. False with *error set,
// and nothing changed, when neither family has a list of this number with rules.
bool trace_filter_acl(uint32_t number, std::string *error);

// Narrows the lines to those of the interface, which is given by its name or what the platform completes to
// it; an empty name ends that. False with *error set, and nothing changed, when there is no such interface.
// An interface that is deleted and made again is another one.
bool trace_filter_interface(const std::string &name, std::string *error);

// Prints a line if it passes the filters, whatever its category. errno is kept.
void trace_line(MRIB_GMP_VRF_KEY_S key, const char *format, ...);

namespace trace_detail
{
extern TraceSettings g_settings;
}

// Whether lines of the category are printed; guards work done only for a line.
inline bool tracing(TraceCategory category)
{
    return (trace_detail::g_settings.categories & static_cast<uint32_t>(category)) != 0;
}

// Prints a line about the instance that key names. No newline at the end of format.
template <typename... Arguments>
inline void trace(TraceCategory category, MRIB_GMP_VRF_KEY_S key,
                  std::type_identity_t<LineFormat<Arguments...>> format, Arguments... arguments)
{
    if (tracing(category)) [[unlikely]] {
        trace_line(key, format.text(), arguments...);
    }
}

} // namespace mcastd

#endif
