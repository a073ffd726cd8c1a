#include "platform/random.h"

#include "mcast/event.h"

uint32_t MCAST_Rand(uint32_t bound)
{
    uint32_t drawn = 0;
    if (bound == 0) {
        return 0;
    }
    /* A failed draw leaves 0, which is a result like any other. */
    (void)FIPS_rand_bytes(reinterpret_cast<uint8_t *>(&drawn), sizeof(drawn));
    return drawn / (0xffffffffu / bound);
}
