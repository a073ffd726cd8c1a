/*
 * The numbers of messages, options and flags on the wire, for those who read and those who write.
 */
#ifndef DAEMONS_PIMSMD_MESSAGE_TYPE_H
#define DAEMONS_PIMSMD_MESSAGE_TYPE_H

#include <cstdint>

namespace pimsmd
{

constexpr uint8_t PIM_VERSION = 2;

enum class MessageType : uint8_t {
    Hello = 0,
    Register = 1,
    RegisterStop = 2,
    JoinPrune = 3,
    Bootstrap = 4,
    Assert = 5,
    CandidateRp = 8,
};

// Options of a Hello.
constexpr uint16_t OPTION_HOLDTIME = 1;
constexpr uint16_t OPTION_LAN_DELAY = 2;
constexpr uint16_t OPTION_DR_PRIORITY = 19;
constexpr uint16_t OPTION_GENERATION = 20;
constexpr uint16_t OPTION_ADDRESSES = 24;

constexpr uint16_t LAN_DELAY_TRACKING = 0x8000;
constexpr uint32_t REGISTER_BORDER = 0x80000000;
constexpr uint32_t REGISTER_NULL = 0x40000000;
constexpr uint32_t ASSERT_RPT = 0x80000000;
constexpr uint8_t BOOTSTRAP_NO_FORWARD = 0x80; // among the flags of the header

// The header of a packet in a Register.
constexpr size_t IPV4_HEADER_SIZE = 20;
constexpr size_t IPV6_HEADER_SIZE = 40;

} // namespace pimsmd

#endif
