#include "mrib/msdp_table.h"

#include <endian.h>
#include <stdlib.h>

namespace mcast
{

int32_t CompareRpNodes(const void *first, const void *second)
{
    uint32_t a = be32toh(static_cast<const RpNode *>(first)->rp_be);
    uint32_t b = be32toh(static_cast<const RpNode *>(second)->rp_be);

    return (a > b) - (a < b);
}

void FreeRpNode(void *node)
{
    free(node);
}

void DeleteLocalSources(MRIB_GMP_VRF_S *vrf)
{
    if (vrf->msdp_local_source != 0) {
        AVL_FreeAll(vrf->msdp_local_source);
    }
}

} // namespace mcast
