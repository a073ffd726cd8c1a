/*
 * What a descriptor stands for. Answers are those of the kernel's own functions: a result, or an error as a
 * negative number; calls.cpp turns them into what the daemon sees. A file ends when its last descriptor is
 * closed: its destructor is what the kernel does then.
 */
#ifndef TESTS_SIMULATION_KERNEL_FILE_H
#define TESTS_SIMULATION_KERNEL_FILE_H

#include <cerrno>
#include <memory>
#include <sys/epoll.h>
#include <sys/socket.h>
#include <sys/types.h>
#include <vector>

#include "tests/simulation/kernel/clock.h"

namespace sim
{

// The events of epoll when something holds.
constexpr uint32_t events_if(bool holds, uint32_t events)
{
    return holds ? events : 0;
}

class File
{
public:
    virtual ~File() = default;

    // The events of epoll that hold now, wanted or not.
    virtual uint32_t ready() const
    {
        return 0;
    }
    // When it becomes ready by time alone.
    virtual Ns due() const
    {
        return NEVER;
    }
    virtual ssize_t read(void *, size_t)
    {
        return -EINVAL;
    }
    virtual ssize_t write(const void *, size_t)
    {
        return -EINVAL;
    }
    // The length of a regular file; of other files nobody asks.
    virtual ssize_t length() const
    {
        return -EINVAL;
    }
    virtual bool is_null_device() const
    {
        return false;
    }
};

class Socket : public File
{
public:
    // What of a socket can be refused goes by its kind.
    virtual bool is_stream() const
    {
        return false;
    }
    virtual int bind(const sockaddr *, socklen_t)
    {
        return -EOPNOTSUPP;
    }
    virtual int listen(int)
    {
        return -EOPNOTSUPP;
    }
    virtual int connect(const sockaddr *, socklen_t)
    {
        return -EOPNOTSUPP;
    }
    // What accept4 gives a descriptor to; nullptr with *error set when there is nothing.
    virtual std::shared_ptr<File> accept(int *error)
    {
        *error = EINVAL;
        return nullptr;
    }
    virtual int set_option(int, int, const void *, socklen_t)
    {
        return 0;
    }
    virtual int get_option(int, int, void *, socklen_t *)
    {
        return -ENOPROTOOPT;
    }
    virtual int name(sockaddr *, socklen_t *)
    {
        return -EOPNOTSUPP;
    }
    virtual int peer_name(sockaddr *, socklen_t *)
    {
        return -EOPNOTSUPP;
    }
    virtual int shutdown(int)
    {
        return -EOPNOTSUPP;
    }
    virtual int control(unsigned long, void *)
    {
        return -EINVAL;
    }
    virtual ssize_t send(const void *, size_t)
    {
        return -ENOTCONN;
    }
    virtual ssize_t send_message(const msghdr &)
    {
        return -EOPNOTSUPP;
    }
    virtual ssize_t receive(void *, size_t, int /*flags*/, sockaddr *)
    {
        return -EAGAIN;
    }
};

// The result of a receiving call for a message of that size in a buffer: cut, or with MSG_TRUNC its true size.
ssize_t hand_over(const std::vector<uint8_t> &message, void *buffer, size_t size, int flags);

class Timer : public File
{
public:
    explicit Timer(const Clock &clock) : clock_(clock)
    {
    }
    void set(Ns due)
    {
        due_ = due;
    }
    uint32_t ready() const override
    {
        return events_if(due_ <= clock_.now(), EPOLLIN);
    }
    Ns due() const override
    {
        return due_;
    }
    ssize_t read(void *, size_t) override;

private:
    const Clock &clock_;
    Ns due_ = NEVER;
};

class EventCounter : public File
{
public:
    explicit EventCounter(uint64_t count) : count_(count)
    {
    }
    uint32_t ready() const override
    {
        return events_if(count_ != 0, EPOLLIN) | EPOLLOUT;
    }
    ssize_t read(void *, size_t) override;
    ssize_t write(const void *, size_t) override;

private:
    uint64_t count_;
};

// The signals of a mask that wait for their process.
class SignalFile : public File
{
public:
    SignalFile(uint64_t *pending, uint64_t mask) : pending_(pending), mask_(mask)
    {
    }
    uint32_t ready() const override
    {
        return events_if((*pending_ & mask_) != 0, EPOLLIN);
    }
    ssize_t read(void *, size_t) override;

private:
    uint64_t *pending_;
    uint64_t mask_;
};

class NullDevice : public File
{
public:
    uint32_t ready() const override
    {
        return EPOLLIN | EPOLLOUT;
    }
    ssize_t read(void *, size_t) override
    {
        return 0;
    }
    ssize_t write(const void *, size_t size) override
    {
        return static_cast<ssize_t>(size);
    }
    bool is_null_device() const override
    {
        return true;
    }
};

// A text that can be read: a setting of the kernel or a file.
class TextFile : public File
{
public:
    explicit TextFile(std::string text) : text_(std::move(text))
    {
    }
    ssize_t read(void *, size_t) override;
    ssize_t length() const override
    {
        return static_cast<ssize_t>(text_.size());
    }

private:
    std::string text_;
    size_t at_ = 0;
};

/*
 * Level-triggered. What was reported goes to the end of the list, so that all that is ready has its turn.
 */
class Epoll : public File
{
public:
    int add(int fd, const std::shared_ptr<File> &file, const epoll_event &event);
    int modify(int fd, const epoll_event &event);
    int remove(int fd);
    // What the kernel does by itself when a descriptor is closed.
    void forget(int fd);
    bool watches(int fd) const;

    // The next event, taken; false when there is none.
    bool take(epoll_event *event);
    bool has_event() const;

private:
    struct Watch {
        int fd;
        const File *file; // in the same process, which forgets it before it ends
        epoll_event event;
    };
    uint32_t happened(const Watch &watch) const;

    std::vector<Watch> watches_;
    size_t next_ = 0;
};

} // namespace sim

#endif
