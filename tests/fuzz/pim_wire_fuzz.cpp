/*
 * Bytes into the reader of PIM messages. An input is a byte that chooses the family and whether the version and
 * checksum are put right, then the message. What is read is written again: the bytes written must mean the same, and
 * written once more be the same bytes.
 */
#include <cstdio>
#include <cstdlib>

#include "daemons/pimsmd/checksum.h"
#include "tests/daemons/pimsmd_messages.h"

using namespace pimsmd_test;

namespace
{

// What the first byte of an input says.
constexpr uint8_t IS_IPV6 = 1;
constexpr uint8_t AS_IT_IS = 2;

void require(bool condition, const char *what)
{
    if (!condition) {
        fprintf(stderr, "%s\n", what);
        abort();
    }
}

} // namespace

extern "C" int LLVMFuzzerTestOneInput(const uint8_t *data, size_t size)
{
    if (size == 0) {
        return 0;
    }
    const Envelope from = envelope(data[0] & IS_IPV6 ? MCAST_FAMILY_IPV6 : MCAST_FAMILY_IPV4);
    Bytes bytes(data + 1, data + size);
    Message message;
    Message again;

    bytes.shrink_to_fit();
    if (!(data[0] & AS_IT_IS) && bytes.size() >= pimsmd::PIM_HEADER_SIZE) {
        bytes[0] = static_cast<uint8_t>(0x20 | (bytes[0] & 0x0f));
        if (bytes[0] != 0x21 || bytes.size() >= pimsmd::REGISTER_HEADER_SIZE) {
            pimsmd::put_checksum(from, bytes);
        }
    }
    const Count reason = pimsmd::read_message(from, bytes, &message);

    require(reason <= NO_DROP, "a reason without a name");
    if (reason != NO_DROP || bytes.size() > pimsmd::MAX_MESSAGE_SIZE) {
        return 0;
    }
    const std::string meaning = std::visit(Describe(), message);
    // A header of a null Register is made anew, and may be longer.
    const Bytes first = written(from, message);

    require(!first.empty(), "what was read cannot be written");
    require(pimsmd::read_message(from, first, &again) == NO_DROP, "what was written cannot be read");
    if (!std::holds_alternative<pimsmd::Register>(message) || !std::get<pimsmd::Register>(message).null) {
        require(std::visit(Describe(), again) == meaning, "it means something else");
    }
    require(written(from, again) == first, "written again it is other bytes");
    return 0;
}
