#include "daemons/common/descriptor_reserve.h"

#include <array>
#include <cerrno>
#include <fcntl.h>
#include <unistd.h>

namespace mcastd
{
namespace
{

struct Reserve {
    std::array<int, RESERVED_DESCRIPTORS> fds{};
    size_t count = 0;
    uint64_t lent = 0;
};

Reserve g_reserve;

} // namespace

void fill_descriptor_reserve()
{
    const int saved_errno = errno;
    while (g_reserve.count < RESERVED_DESCRIPTORS) {
        const int fd = open("/dev/null", O_RDONLY | O_CLOEXEC);
        if (fd < 0) {
            break;
        }
        g_reserve.fds[g_reserve.count++] = fd;
    }
    errno = saved_errno;
}

bool lend_descriptor(size_t keep)
{
    if (g_reserve.count <= keep) {
        return false;
    }
    close(g_reserve.fds[--g_reserve.count]);
    ++g_reserve.lent;
    return true;
}

uint64_t descriptors_lent()
{
    return g_reserve.lent;
}

DescriptorLoan::DescriptorLoan()
{
    while (g_reserve.count > 0) {
        close(g_reserve.fds[--g_reserve.count]);
    }
}

DescriptorLoan::~DescriptorLoan()
{
    fill_descriptor_reserve();
}

} // namespace mcastd
