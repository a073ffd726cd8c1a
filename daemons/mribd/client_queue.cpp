#include "daemons/mribd/client_queue.h"

#include <cerrno>
#include <sys/socket.h>

#include "daemons/common/services.h"
#include "mcast/mrib_message.h"

namespace mribd
{
namespace
{

// This process's code in the messages it sends; clients do not look at it.

} // namespace

void ClientQueue::append(uint16_t type, const void *value, size_t size)
{
    if (overflowed_) {
        return;
    }
    const uint32_t needed = MRIB_RECORD_SIZE(size);
    if (messages_.empty() || messages_.back().size() + needed > MRIB_MSG_RECV_MAX) {
        if (messages_.size() == MESSAGE_LIMIT) {
            messages_.clear();
            overflowed_ = true;
            return;
        }
        messages_.emplace_back(sizeof(MRIB_MSG_HEADER_S));
        MRIB_MsgReset(messages_.back().data(), mcastd::COMPONENT_MRIBD);
    }
    std::vector<uint8_t> &message = messages_.back();
    uint32_t used = static_cast<uint32_t>(message.size());
    message.resize(used + needed);
    std::memcpy(MRIB_MsgAppend(message.data(), &used, message.size(), type, static_cast<uint16_t>(size)),
                value, size);
}

void ClientQueue::put_marker(uint16_t type)
{
    static constexpr uint8_t NOTHING[MRIB_MSG_MIN - sizeof(MRIB_MSG_HEADER_S) - sizeof(MRIB_TLV_HEADER_S)] =
        {};
    append(type, NOTHING, sizeof(NOTHING));
}

ClientQueue::Result ClientQueue::flush(int fd)
{
    while (!messages_.empty()) {
        const std::vector<uint8_t> &message = messages_.front();
        if (send(fd, message.data(), message.size(), MSG_DONTWAIT | MSG_NOSIGNAL) < 0) {
            if (errno == EINTR) {
                continue;
            }
            return errno == EAGAIN || errno == ENOBUFS ? Result::Blocked : Result::Failed;
        }
        messages_.pop_front();
        ++sent_;
    }
    return Result::Drained;
}

} // namespace mribd
