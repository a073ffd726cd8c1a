/*
 * What waits to be sent to one client: records packed into messages, messages sent without blocking, and a
 * bound on how many may wait.
 *
 * A client that does not read fills the bound. Then everything that waits is dropped, nothing more is taken,
 * and once the client has read what the kernel holds for it the owner sends a fresh start. So a stalled
 * client costs a fixed amount of memory and never misses a change without learning that it must ask again.
 */
#ifndef DAEMONS_MRIBD_CLIENT_QUEUE_H
#define DAEMONS_MRIBD_CLIENT_QUEUE_H

#include <cstdint>
#include <cstring>
#include <deque>
#include <vector>

#include "mcast/mrib_wire.h"

namespace mribd
{

class ClientQueue
{
public:
    // Messages that may wait, each of at most MRIB_MSG_RECV_MAX bytes.
    static constexpr size_t MESSAGE_LIMIT = 64;

    // Appends a record.
    template <typename Value> void put(uint16_t type, const Value &value)
    {
        static_assert(sizeof(Value) <= UINT16_MAX);
        append(type, &value, sizeof(Value));
    }

    // Appends a record whose value says nothing. It is written with a few zero bytes, because a message of
    // one record without any is below what a client accepts as a message.
    void put_marker(uint16_t type);

    enum class Result { Drained, Blocked, Failed };

    // Sends what waits until the socket takes no more. Failed: the connection is broken, errno says why.
    Result flush(int fd);

    bool empty() const
    {
        return messages_.empty();
    }

    size_t message_count() const
    {
        return messages_.size();
    }

    // Whether records were dropped. Nothing is taken until restart.
    bool has_overflowed() const
    {
        return overflowed_;
    }

    // Takes records again; the next ones should tell the client to start afresh.
    void restart()
    {
        overflowed_ = false;
    }

    uint64_t sent() const
    {
        return sent_;
    }

    // The oldest message that waits, for tests and tools; not when empty.
    const std::vector<uint8_t> &front() const
    {
        return messages_.front();
    }

    void pop()
    {
        messages_.pop_front();
    }

private:
    void append(uint16_t type, const void *value, size_t size);

    std::deque<std::vector<uint8_t>> messages_;
    bool overflowed_ = false;
    uint64_t sent_ = 0;
};

} // namespace mribd

#endif
