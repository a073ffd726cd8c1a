/*
 * Trace lines about an interface. Addresses of hosts and routers are printed by %A, sources and groups by %M
 * and %N, the interface by %P, so that the operator's filters apply.
 */
#ifndef DAEMONS_GMPD_TRACE_H
#define DAEMONS_GMPD_TRACE_H

#include "daemons/common/trace.h"
#include "daemons/gmpd/interface.h"

namespace gmpd
{

using mcastd::TraceCategory;

template <typename... Arguments>
inline void trace(TraceCategory category, const Interface &interface,
                  std::type_identity_t<mcastd::LineFormat<Arguments...>> format, Arguments... arguments)
{
    if (mcastd::tracing(category)) {
        mcastd::trace(category, key_of(interface), format, arguments...);
    }
}

} // namespace gmpd

#endif
