// Interface type codes and what a link is to the interface service.
#ifndef HOST_SRC_INTERFACE_TYPE_H
#define HOST_SRC_INTERFACE_TYPE_H

#include <cstdint>

#include "mcasthost/link.h"

namespace host
{

// The code of an interface whose type has no code of its own; the codes of types are below it.
constexpr uint32_t TYPE_OTHER = 128;

// The names of a type; brief is the abbreviation.
struct TypeName {
    uint32_t type;
    const char *full;
    const char *brief;
};

// The names of a type that links can have; NULL for any other.
const TypeName *type_name(uint32_t type);

// The type code of a link, from what the kernel says it is.
uint32_t interface_type(const HOST_LINK_S &link);

} // namespace host

#endif
