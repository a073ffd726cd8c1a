#include "platform/random.h"

#include <cerrno>
#include <cstring>
#include <memory>
#include <new>
#include <sys/random.h>

#include "mcasthost/loop.h"

extern "C" HOST_API int FIPS_rand_bytes(uint8_t *buffer, int length)
{
    if (length < 0 || (buffer == nullptr && length > 0)) {
        return 0;
    }
    // Drawn aside: a draw that fails half-way leaves the caller's buffer alone.
    size_t size = static_cast<size_t>(length);
    uint8_t small[256];
    std::unique_ptr<uint8_t[]> large(size > sizeof(small) ? new (std::nothrow) uint8_t[size] : nullptr);
    uint8_t *bytes = size > sizeof(small) ? large.get() : small;
    if (bytes == nullptr) {
        return 0;
    }
    for (size_t done = 0; done < size;) {
        ssize_t got = getrandom(bytes + done, size - done, 0);
        if (got < 0 && errno != EINTR) {
            return 0;
        }
        done += got > 0 ? static_cast<size_t>(got) : 0;
    }
    if (size > 0) {
        memcpy(buffer, bytes, size);
    }
    return 1;
}
