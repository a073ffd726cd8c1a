// Interface type codes and what a link is to the interface service.
#ifndef HOST_INTERFACE_TYPE_H
#define HOST_INTERFACE_TYPE_H

#include <cstdint>

#include "mcasthost/link.h"

namespace host
{

// The code of what has none of its own; the codes of types are below it.
constexpr uint32_t TYPE_OTHER = 128;

// The type code of a link, from what the kernel says it is.
uint32_t interface_type(const HOST_LINK_S &link);

} // namespace host

#endif
