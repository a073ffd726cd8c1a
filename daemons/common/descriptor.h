/*
 * A file descriptor that closes itself, and the handling of socket options that share one error path.
 */
#ifndef DAEMONS_COMMON_DESCRIPTOR_H
#define DAEMONS_COMMON_DESCRIPTOR_H

#include <sys/socket.h>
#include <unistd.h>
#include <utility>

namespace mcastd
{

// Owns a descriptor; -1 is none.
class Descriptor
{
public:
    Descriptor() = default;
    explicit Descriptor(int fd) : fd_(fd)
    {
    }
    Descriptor(Descriptor &&other) noexcept : fd_(std::exchange(other.fd_, -1))
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
            close(fd_);
        }
    }

    int get() const
    {
        return fd_;
    }
    bool valid() const
    {
        return fd_ >= 0;
    }

private:
    int fd_ = -1;
};

// setsockopt with the size of value. Whether it succeeded; errno says why not.
template <typename Value> bool set_option(const Descriptor &socket, int level, int option, const Value &value)
{
    return setsockopt(socket.get(), level, option, &value, sizeof(value)) == 0;
}

} // namespace mcastd

#endif
