#include "support/scripted_random.h"

#include "platform/random.h"

namespace scripted
{

std::function<int(uint8_t *buffer, int length)> random_bytes;

} // namespace scripted

int FIPS_rand_bytes(uint8_t *buffer, int length)
{
    return scripted::random_bytes ? scripted::random_bytes(buffer, length) : 0;
}
