// What the kernel is told of an entry.
#include <cstring>
#include <string>

#include "daemons/common/log.h"
#include "daemons/mribd/forwarding.h"

namespace mribd
{

void Forwarding::install(Entry *entry, int parent, uint32_t outgoing)
{
    const bool replaces = entry->installed;
    const int error =
        parts_.kernel.set_entry(entry->source(), entry->group(), static_cast<unsigned>(parent), outgoing);
    entry->installed = error == 0;
    entry->parent = parent;
    entry->outgoing = outgoing;
    if (error != 0) {
        // Tried again when anything about it changes, and with its idle check.
        ++counters_.kernel_failures;
        if (replaces) {
            parts_.kernel.delete_entry(entry->source(), entry->group()); // better none than a wrong one
        }
        mcastd::log_warning("%s: the kernel refused the entry (%s, %s): %s",
                            instance_name(parts_.key).c_str(), text_or_star(entry->source()).c_str(),
                            text_or_star(entry->group()).c_str(), std::strerror(error));
    } else {
        trace_entry(entry, replaces ? "replaced" : "installed");
    }
}

// What became of the kernel's entry; from its upstream interface, or where its packets arrive when they are
// not to.
void Forwarding::trace_entry(const Entry *entry, const char *what) const
{
    if (!mcastd::tracing(mcastd::TraceCategory::Route)) {
        return;
    }
    std::string outgoing;
    for (unsigned vif = 0; vif < MAX_VIFS; ++vif) {
        if ((entry->outgoing >> vif & 1) != 0) {
            outgoing += " " + parts_.environment.interface_name(parts_.vifs.if_index(vif));
        }
    }
    trace_route("entry (%M, %N) %s: from %P to%s", &entry->source(), &entry->group(), what,
                entry->upstream != 0 ? entry->upstream : entry->arrival,
                outgoing.empty() ? " nowhere" : outgoing.c_str());
}

void Forwarding::withdraw(Entry *entry)
{
    if (entry->installed) {
        parts_.kernel.delete_entry(entry->source(), entry->group());
        entry->installed = false;
        trace_entry(entry, "withdrawn");
    }
    entry->parent = -1;
    entry->outgoing = 0;
}

} // namespace mribd
