#include "daemons/common/nonblocking_output.h"

#include <algorithm>
#include <cerrno>
#include <climits>
#include <cstdio>
#include <fcntl.h>
#include <poll.h>
#include <sys/stat.h>

namespace mcastd
{

void NonblockingOutput::prepare()
{
    struct stat now;
    if (fstat(fd_, &now) != 0) {
        kind_ = Kind::File; // closed: writing fails and does not wait
        return;
    }
    if (kind_ != Kind::Unknown && now.st_dev == device_ && now.st_ino == inode_) {
        return;
    }
    device_ = now.st_dev;
    inode_ = now.st_ino;
    own_ = Descriptor();
    if (S_ISREG(now.st_mode)) {
        kind_ = Kind::File;
    } else if (S_ISSOCK(now.st_mode)) {
        kind_ = Kind::Socket;
    } else {
        char path[32];
        std::snprintf(path, sizeof(path), "/proc/self/fd/%d", fd_);
        own_ = Descriptor(open(path, O_WRONLY | O_NONBLOCK | O_NOCTTY | O_CLOEXEC));
        kind_ = own_.valid() ? Kind::Reopened : Kind::Shared;
    }
}

ssize_t NonblockingOutput::write_some(const char *bytes, size_t size)
{
    prepare();
    size = std::min<size_t>(size, PIPE_BUF);
    switch (kind_) {
    case Kind::Socket:
        return send(fd_, bytes, size, MSG_DONTWAIT | MSG_NOSIGNAL);
    case Kind::Reopened:
        return write(own_.get(), bytes, size);
    case Kind::Shared: {
        pollfd room{fd_, POLLOUT, 0};
        if (poll(&room, 1, 0) <= 0) {
            errno = EAGAIN;
            return -1;
        }
        return write(fd_, bytes, size);
    }
    default:
        return write(fd_, bytes, size);
    }
}

} // namespace mcastd
