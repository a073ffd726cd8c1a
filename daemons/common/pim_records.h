/*
 * The own records of pimsmd and mribd on the MRIB channel: what a multicast routing protocol decides, and what it is told
 * for that. They stand beside those of mcast/mrib_wire.h, in messages and with record headers of the same kind: integers
 * in host order, addresses in network order and, of IPv4, in the first four of 16 bytes, no padding, reserved bytes
 * written 0 and not read. A value may be longer than its layout; what follows is not read.
 *
 * pimsmd has two connections to the port of its family:
 *
 *     the channel (MRIB_GMP_...)      46 to 51 beside join/prune (3), smooth alert (18) and the requests of the view;
 *                                     from mribd what every client of the view is told
 *     the member channel (MBR_LIB_..) 52; from mribd 64 to 68, of the event classes that the member is registered for,
 *                                     and smooth start (16): something was missed, ask for everything again
 *
 * A client is a PIM client, of which the wishes count as those of downstream routers, from its first interface record
 * (46) with a state other than PIM_GONE on. That record comes before the joins of the link. When the connection ends without
 * PIM_GONE, what the client said is kept for mribd's hold time: until then another client's begin marker (50) takes
 * it over, and that one's end marker (51) drops what was not said again.
 *
 * Where a wish counts, with "lost" and "won" of the assert records (48), for packets of (S,G) that leave by a link:
 *
 *     wish                        counts where PIM runs on the link, if
 *     of a PIM client for (*,G)   neither (*,G) nor (S,G) is lost there; not while that client blocks S
 *     of a PIM client for (S,G)   (S,G) is not lost there
 *     of hosts for (*,G)          this router is designated and neither is lost, or (*,G) is won and (S,G) not lost
 *     of hosts for (S,G)          this router is designated and (S,G) is not lost, or it is won
 *
 * Wishes for (S,G) count for packets over the source's own tree alone (PIM_TREE_SPT, or when no tree record says anything).
 */
#ifndef DAEMONS_COMMON_PIM_RECORDS_H
#define DAEMONS_COMMON_PIM_RECORDS_H

#include <cstdint>

#include "mcast/common.h"
#include "mcast/mrib_message.h"

namespace mcastd
{

// Records of pimsmd.
constexpr uint16_t PIM_TLV_INTERFACE = 46;  // PimInterface
constexpr uint16_t PIM_TLV_TREE = 47;       // PimTree
constexpr uint16_t PIM_TLV_ASSERT = 48;     // PimAssert
constexpr uint16_t PIM_TLV_REGISTERED = 49; // PimRegistered
constexpr uint16_t PIM_TLV_BEGIN = 50;      // MRIB_SMOOTH_ALERT_S: a full report of all instances begins
constexpr uint16_t PIM_TLV_END = 51;        // MRIB_SMOOTH_ALERT_S: it is complete
constexpr uint16_t PIM_TLV_REQUEST = 52;    // PimReplay

// Records of mribd.
constexpr uint16_t PIM_TLV_MEMBER = 64;   // MRIB_JOIN_PRUNE_S
constexpr uint16_t PIM_TLV_SOURCE = 65;   // PimSource
constexpr uint16_t PIM_TLV_REMOTE = 66;   // PimRemote
constexpr uint16_t PIM_TLV_INSTANCE = 67; // PimInstance
constexpr uint16_t PIM_TLV_REPLAYED = 68; // PimReplay

// Event classes of a member's registration, beside those of mcast/mrib_wire.h: which of the records it is told.
constexpr uint64_t PIM_EVENT_MEMBER = 0x10000;
constexpr uint64_t PIM_EVENT_SOURCE = 0x20000;
constexpr uint64_t PIM_EVENT_REMOTE = 0x40000;
constexpr uint64_t PIM_EVENT_INSTANCE = 0x80000;
constexpr uint64_t PIM_EVENTS = PIM_EVENT_MEMBER | PIM_EVENT_SOURCE | PIM_EVENT_REMOTE | PIM_EVENT_INSTANCE;

// In place of an interface's index: the register interface of the instance.
constexpr uint32_t PIM_REGISTER_INTERFACE = 0xffffffff;

enum PimInterfaceState : uint8_t {
    PIM_GONE = 0,      // PIM does not run on the link; what the client said of it, joins too, is void
    PIM_RUNS = 1,      // another router is designated
    PIM_DESIGNATED = 2 // this router is
};

// 46. Whether PIM runs on a link, and the result of the election. As long as it runs the designated router is what is said
// here, whatever the configuration and the querier election say.
struct MRIB_PACKED PimInterface {
    uint8_t family;
    uint8_t state; // PimInterfaceState
    uint16_t vrf_index;
    uint32_t if_index;
};

enum PimTreeFrom : uint8_t {
    PIM_FROM_UNSAID =
        0, // takes the record back: what is said of more sources or groups counts, else unicast routes
    PIM_FROM_NOWHERE = 1,   // packets are dropped
    PIM_FROM_INTERFACE = 2, // packets come from the interface
    PIM_FROM_REGISTER = 3   // packets come out of Registers
};

// The packets come over the source's own tree, for which wishes for the source count.
constexpr uint16_t PIM_TREE_SPT = 1;
// Packets go to the register interface too, and so to pimsmd.
constexpr uint16_t PIM_TREE_REGISTER_OUT = 2;
// Answers PIM_SOURCE_NEW: nothing more is said of (S,G) for now, and its first packets, which wait, may go.
constexpr uint16_t PIM_TREE_ANSWER = 4;
// The next packet that comes in elsewhere is to be told (PIM_SOURCE_WRONG) though one was a moment ago: what it means is
// another thing now. The kernel tells of one in three seconds.
constexpr uint16_t PIM_TREE_WATCH = 8;
constexpr uint16_t PIM_TREE_FLAGS = PIM_TREE_SPT | PIM_TREE_REGISTER_OUT | PIM_TREE_ANSWER | PIM_TREE_WATCH;

/*
 * 47. Where packets are to come from: of (S,G), of all sources of a group (source 0), or of all sources of a range of
 * groups (source 0, group_length below that of a whole address; the bits after it are 0). The narrowest counts: (S,G), then
 * (*,G), then the longest range. A later record takes the place of an earlier one of the same source, group and length.
 * An answer that has nothing to say of the source is PIM_FROM_UNSAID with PIM_TREE_ANSWER alone, and so with PIM_TREE_WATCH.
 */
struct MRIB_PACKED PimTree {
    uint8_t family;
    uint8_t from; // PimTreeFrom
    uint16_t vrf_index;
    uint32_t if_index;    // of PIM_FROM_INTERFACE, otherwise 0
    uint16_t flags;       // PIM_TREE_...
    uint8_t group_length; // bits, 1 to 32 or 128
    uint8_t reserved;
    uint8_t source[16];
    uint8_t group[16];
};

enum PimAssertState : uint8_t { PIM_ASSERT_NONE = 0, PIM_ASSERT_LOST = 1, PIM_ASSERT_WON = 2 };

// 48. The assert about (S,G), or about (*,G) (source 0), on a link where PIM runs.
struct MRIB_PACKED PimAssert {
    uint8_t family;
    uint8_t state; // PimAssertState
    uint16_t vrf_index;
    uint32_t if_index;
    uint8_t source[16];
    uint8_t group[16];
};

// 49. At the RP: (S,G) is registered, or no longer. For the MSDP daemon of the public instance, IPv4, a registered source
// is a local one of that RP; as long as PIM runs in the instance those that are only on links of this router are not.
struct MRIB_PACKED PimRegistered {
    uint8_t family;
    uint8_t present; // 0 or 1
    uint16_t vrf_index;
    uint8_t rp[16]; // which of this router's addresses is the RP
    uint8_t source[16];
    uint8_t group[16];
};

// 52, sent by the member: asks for all that holds now of the classes, as far as the member is registered for them.
// 68: all of it was sent. Changes come in between; each record says what holds when it is sent. A request while a replay
// goes on begins it again, with the classes of both.
struct MRIB_PACKED PimReplay {
    uint8_t family;
    uint8_t reserved[7];
    uint64_t events; // PIM_EVENT_...
};

/*
 * 64. The layout and meaning of join/prune (3): what the hosts on a link want, over all GMP clients, whoever is designated
 * there. flag2 MRIB_JOIN_PRUNE_FLAG_EXCLUDE: every client that has (*,G) blocks S. In a replay what is wanted alone.
 */

enum PimSourceState : uint8_t {
    PIM_SOURCE_NEW = 1, // its first packet came and waits, 50 ms at most, for PIM_TREE_ANSWER
    PIM_SOURCE_ACTIVE =
        2, // packets came since the last look, which is once in mribd's idle period (--idle-timeout)
    PIM_SOURCE_SILENT = 3, // none came in a whole period
    PIM_SOURCE_WRONG =
        4, // a packet came in from the link if_index, another one than the tree's; once in 3 s at most
    PIM_SOURCE_GONE = 5 // mribd forgets it: its next packet is a first one
};

// 65. About the packets of a source. In a replay: PIM_SOURCE_ACTIVE for each that was heard.
struct MRIB_PACKED PimSource {
    uint8_t family;
    uint8_t state; // PimSourceState
    uint16_t vrf_index;
    uint32_t if_index; // where packets came in last, PIM_REGISTER_INTERFACE included; 0: nowhere yet
    uint8_t connected; // 1: the source is on the link of that interface
    uint8_t reserved[3];
    uint8_t source[16];
    uint8_t group[16];
};

// 66. The MSDP daemon knows an active source of another domain, or no longer. In a replay those that are there.
struct MRIB_PACKED PimRemote {
    uint8_t family;
    uint8_t present; // 0 or 1
    uint16_t vrf_index;
    uint8_t source[16];
    uint8_t group[16];
};

constexpr int32_t PIM_NO_VIF = -1;

// 67. The kernel's table of an instance and the number of the register interface there, by which WHOLEPKT reports are told
// apart: in IPv6, where they do not name the table, no two instances have the same number.
struct MRIB_PACKED PimInstance {
    uint8_t family;
    uint8_t served; // 0: the instance has no table now
    uint16_t vrf_index;
    uint32_t table;       // 0: the kernel's default one
    int32_t register_vif; // PIM_NO_VIF: none now
};

MRIB_LAYOUT_SIZE(PimInterface, 8);
MRIB_LAYOUT_AT(PimInterface, if_index, 4);
MRIB_LAYOUT_SIZE(PimTree, 44);
MRIB_LAYOUT_AT(PimTree, if_index, 4);
MRIB_LAYOUT_AT(PimTree, flags, 8);
MRIB_LAYOUT_AT(PimTree, group_length, 10);
MRIB_LAYOUT_AT(PimTree, source, 12);
MRIB_LAYOUT_AT(PimTree, group, 28);
MRIB_LAYOUT_SIZE(PimAssert, 40);
MRIB_LAYOUT_AT(PimAssert, if_index, 4);
MRIB_LAYOUT_AT(PimAssert, source, 8);
MRIB_LAYOUT_AT(PimAssert, group, 24);
MRIB_LAYOUT_SIZE(PimRegistered, 52);
MRIB_LAYOUT_AT(PimRegistered, rp, 4);
MRIB_LAYOUT_AT(PimRegistered, source, 20);
MRIB_LAYOUT_AT(PimRegistered, group, 36);
MRIB_LAYOUT_SIZE(PimReplay, 16);
MRIB_LAYOUT_AT(PimReplay, events, 8);
MRIB_LAYOUT_SIZE(PimSource, 44);
MRIB_LAYOUT_AT(PimSource, if_index, 4);
MRIB_LAYOUT_AT(PimSource, connected, 8);
MRIB_LAYOUT_AT(PimSource, source, 12);
MRIB_LAYOUT_AT(PimSource, group, 28);
MRIB_LAYOUT_SIZE(PimRemote, 36);
MRIB_LAYOUT_AT(PimRemote, source, 4);
MRIB_LAYOUT_AT(PimRemote, group, 20);
MRIB_LAYOUT_SIZE(PimInstance, 12);
MRIB_LAYOUT_AT(PimInstance, table, 4);
MRIB_LAYOUT_AT(PimInstance, register_vif, 8);

// The value of a record that is at least as long as its layout, inside the message; NULL of a shorter one.
template <typename Value> const Value *pim_value(const MRIB_RECORD_S &record)
{
    return record.length < sizeof(Value) ? nullptr : reinterpret_cast<const Value *>(record.value);
}

// What is wrong with a value.
enum class PimFault {
    None,
    Family,    // not that of the connection
    Interface, // index 0 where one is needed
    Group,     // no group that is routed, or no range of them
    Source,    // no usable source, or one with a range
    Flags      // an enumeration, flag or length out of range
};

// What a reader of a connection of that family checks; whether the instance is served is its own affair.
PimFault check_pim(uint8_t family, const PimInterface &value);
PimFault check_pim(uint8_t family, const PimTree &value);
PimFault check_pim(uint8_t family, const PimAssert &value);
PimFault check_pim(uint8_t family, const PimRegistered &value);
PimFault check_pim(uint8_t family, const PimReplay &value);
PimFault check_pim(uint8_t family, const MRIB_JOIN_PRUNE_S &value);
PimFault check_pim(uint8_t family, const PimSource &value);
PimFault check_pim(uint8_t family, const PimRemote &value);
PimFault check_pim(uint8_t family, const PimInstance &value);

} // namespace mcastd

#endif
