/*
 * Writes to a descriptor that the process was given, its standard output or error, and never waits for the
 * reader. The descriptor itself may be shared with other programs, the shell among them, for which O_NONBLOCK
 * would be a surprise, so that it is left as it is:
 *
 *     pipe, terminal, device   opened a second time, without waiting
 *     socket                   each send says that it does not wait
 *     file                     never waits for a reader
 *     cannot be opened again   asked for room first; a pipe that has room takes PIPE_BUF bytes at once
 */
#ifndef DAEMONS_COMMON_NONBLOCKING_OUTPUT_H
#define DAEMONS_COMMON_NONBLOCKING_OUTPUT_H

#include <cstddef>
#include <sys/types.h>

#include "daemons/common/descriptor.h"

namespace mcastd
{

class NonblockingOutput
{
public:
    // fd stays the caller's. Nothing is opened before the first write or prepare.
    explicit NonblockingOutput(int fd) : fd_(fd)
    {
    }

    // Looks at what the descriptor is now, so that a write does not need a descriptor of its own later.
    void prepare();

    // Writes size bytes, at most PIPE_BUF, or the first of them. How many; -1 with errno set, EAGAIN when there
    // is no room.
    ssize_t write_some(const char *bytes, size_t size);

    // The descriptor to wait on for room.
    int descriptor() const
    {
        return own_.valid() ? own_.get() : fd_;
    }

private:
    enum class Kind { Unknown, File, Socket, Reopened, Shared };

    int fd_;
    Kind kind_ = Kind::Unknown;
    Descriptor own_;
    dev_t device_ = 0; // what kind_ and own_ are about; another file may be put in its place at any time
    ino_t inode_ = 0;
};

} // namespace mcastd

#endif
