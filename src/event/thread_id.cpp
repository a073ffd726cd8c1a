#include <unistd.h>

#include "mcast/event.h"

namespace
{

constexpr long kGettidCall = 186;

} // namespace

uint32_t MCAST_Gettid(void)
{
    return static_cast<uint32_t>(syscall(kGettidCall));
}
