#include "daemons/pimsmd/checksum.h"

#include "daemons/pimsmd/message_type.h"
#include "mcast/addr.h"

namespace pimsmd
{
namespace
{

constexpr size_t CHECKSUM_AT = 2;

bool is_register(std::span<const uint8_t> message)
{
    return (message[0] & 0x0f) == static_cast<uint8_t>(MessageType::Register);
}

} // namespace

uint16_t checksum_of(const Envelope &envelope, std::span<const uint8_t> bytes)
{
    const auto *data = reinterpret_cast<const uint16_t *>(bytes.data());
    const auto size = static_cast<uint32_t>(bytes.size());
    if (envelope.source.family == MCAST_FAMILY_IPV6) {
        return static_cast<uint16_t>(
            MCAST_Inet6Cksum(data, size, &envelope.source, &envelope.destination, size, PROTOCOL_PIM));
    }
    // A pseudo-header of zeroes adds nothing.
    const Address none{};
    return static_cast<uint16_t>(MCAST_Inet6Cksum(data, size, &none, &none, 0, 0));
}

bool checksum_is_right(const Envelope &envelope, std::span<const uint8_t> message)
{
    if (is_register(message) && message.size() >= REGISTER_HEADER_SIZE) {
        if (checksum_of(envelope, message.first(REGISTER_HEADER_SIZE)) == 0) {
            return true;
        }
        return envelope.source.family == MCAST_FAMILY_IPV4 && checksum_of(envelope, message) == 0;
    }
    return checksum_of(envelope, message) == 0;
}

void put_checksum(const Envelope &envelope, std::span<uint8_t> message)
{
    const std::span<uint8_t> covered = is_register(message) ? message.first(REGISTER_HEADER_SIZE) : message;
    message[CHECKSUM_AT] = 0;
    message[CHECKSUM_AT + 1] = 0;
    const uint16_t sum = checksum_of(envelope, covered); // as it is stored

    std::memcpy(message.data() + CHECKSUM_AT, &sum, sizeof(sum));
}

} // namespace pimsmd
