/*
 * A file descriptor that is closed with its owner.
 */
#ifndef HOST_SRC_DESCRIPTOR_H
#define HOST_SRC_DESCRIPTOR_H

#include <cerrno>
#include <unistd.h>
#include <utility>

namespace host
{

class Descriptor
{
public:
    Descriptor() = default;
    explicit Descriptor(int fd) : fd_(fd)
    {
    }
    Descriptor(Descriptor &&other) noexcept : fd_(other.release())
    {
    }
    Descriptor &operator=(Descriptor &&other) noexcept
    {
        std::swap(fd_, other.fd_);
        return *this;
    }
    Descriptor(const Descriptor &) = delete;
    Descriptor &operator=(const Descriptor &) = delete;
    ~Descriptor()
    {
        if (fd_ >= 0) {
            int saved = errno; // the reason for giving up must survive the clean-up
            close(fd_);
            errno = saved;
        }
    }

    bool valid() const
    {
        return fd_ >= 0;
    }
    int get() const
    {
        return fd_;
    }
    int release()
    {
        return std::exchange(fd_, -1);
    }

private:
    int fd_ = -1;
};

} // namespace host

#endif
