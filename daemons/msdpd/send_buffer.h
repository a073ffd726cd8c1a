/*
 * The bytes that wait for a peer's connection. The bound is what makes a peer that does not read harmless:
 * what does not fit is dropped, and the peer gets everything once more when it reads again (dump.h).
 */
#ifndef DAEMONS_MSDPD_SEND_BUFFER_H
#define DAEMONS_MSDPD_SEND_BUFFER_H

#include <cstdint>
#include <span>
#include <vector>

namespace msdpd
{

class SendBuffer
{
public:
    static constexpr size_t LIMIT = size_t{256} * 1024;

    // False when the message does not fit.
    bool push(std::span<const uint8_t> message)
    {
        if (message.size() > LIMIT - size()) {
            return false;
        }
        bytes_.insert(bytes_.end(), message.begin(), message.end());
        return true;
    }
    std::span<const uint8_t> waiting() const
    {
        return std::span(bytes_).subspan(sent_);
    }
    size_t size() const
    {
        return bytes_.size() - sent_;
    }
    bool empty() const
    {
        return size() == 0;
    }
    // The first count bytes are on their way.
    void consume(size_t count)
    {
        sent_ += count;
        if (sent_ >= bytes_.size() / 2) {
            bytes_.erase(bytes_.begin(), bytes_.begin() + static_cast<std::ptrdiff_t>(sent_));
            sent_ = 0;
        }
    }
    void clear()
    {
        bytes_.clear();
        sent_ = 0;
    }

private:
    std::vector<uint8_t> bytes_;
    size_t sent_ = 0; // of bytes_
};

} // namespace msdpd

#endif
